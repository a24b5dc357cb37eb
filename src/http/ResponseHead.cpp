#include "http/ResponseHead.h"

#include <charconv>

#include "core/StringUtil.h"

namespace Zarn {

ResponseHead::ResponseHead(int code, std::string_view reason) : code_(code), reason_(reason) {}

ResponseHead& ResponseHead::Add(std::string_view name, std::string_view value) {
    headers_.emplace_back(name, value);
    return *this;
}

ResponseHead& ResponseHead::SetContentLength(uint64_t length) {
    content_length_ = length;
    return *this;
}

ResponseHead& ResponseHead::SetStreamed() {
    content_length_.reset();
    return *this;
}

ResponseHead& ResponseHead::AllowKeepAlive() {
    keep_alive_allowed_ = true;
    return *this;
}

std::string_view ResponseHead::Find(std::string_view name) const {
    for (const auto& [key, value] : headers_) {
        if (EqualsIgnoringCase(key, name)) return value;
    }
    return {};
}

bool ResponseHead::HasNoBody() const {
    return (code_ >= 100 && code_ < 200) || code_ == 204 || code_ == 304;
}

ResponseHead::Written ResponseHead::WriteTo(const ResponseTerms& terms, std::string_view date,
                                            std::string& out) const {
    // A connection can only carry another request when the client can find where this
    // response ends and nothing of the request is still on its way.
    bool keep_alive = keep_alive_allowed_ && terms.client_keeps_alive && terms.body_read_whole;
    BodyFraming framing = BodyFraming::kNone;
    bool chunked = false;
    if (!HasNoBody()) {
        if (content_length_) {
            framing = BodyFraming::kLength;
        } else if (keep_alive && terms.accepts_chunked) {
            framing = BodyFraming::kChunked;
            chunked = true;
        } else {
            framing = BodyFraming::kUntilClose;
            keep_alive = false;
        }
    }
    if (terms.is_head) framing = BodyFraming::kNone;

    char number[24];
    out += "HTTP/1.1 ";
    out.append(number, std::to_chars(number, number + sizeof number, code_).ptr);
    out += ' ';
    out += reason_;
    out += "\r\n";
    for (const auto& [name, value] : headers_) {
        out += name;
        out += ": ";
        out += value;
        out += "\r\n";
    }
    if (content_length_ && !HasNoBody()) {
        out += "Content-Length: ";
        out.append(number, std::to_chars(number, number + sizeof number, *content_length_).ptr);
        out += "\r\n";
    }
    if (chunked) out += "Transfer-Encoding: chunked\r\n";
    out += "Date: ";
    out += date;
    out += "\r\n";
    // An HTTP/1.0 client assumes a close unless told otherwise.
    if (keep_alive && terms.http10) out += "Connection: keep-alive\r\n";
    if (!keep_alive) out += "Connection:close\r\n";
    out += "\r\n";
    return {framing, keep_alive};
}

}  // namespace Zarn
