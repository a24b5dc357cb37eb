#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Zarn {

// What the client's request says about the response's connection and body.
struct ResponseTerms {
    bool is_head = false;             // a HEAD request: the head only, never a body
    bool client_keeps_alive = false;  // HTTP/1.1 without "close", or 1.0 asking "keep-alive"
    bool accepts_chunked = false;     // HTTP/1.1
    bool http10 = false;              // the client speaks HTTP/1.0
    bool body_read_whole = true;      // the request's own body is off the connection
};

// How the body of a written response is delimited on the wire.
enum class BodyFraming {
    kNone,        // no body follows (HEAD, 304, 1xx and 204)
    kLength,      // exactly Content-Length bytes
    kChunked,     // chunked transfer coding, ended by a zero-size chunk
    kUntilClose,  // the body runs to the close of the connection
};

// One response's status line and headers, filled by a processor and written by the
// request. It alone decides the framing of the body and whether the connection stays
// open, and it alone writes Content-Length, Transfer-Encoding, Date and the connection
// line, so that no processor can promise a framing that another part then breaks.
class ResponseHead {
public:
    ResponseHead(int code, std::string_view reason);

    // A header of the processor's own; the framing and connection headers are not.
    ResponseHead& Add(std::string_view name, std::string_view value);
    // The body is exactly this long (for HEAD: would be).
    ResponseHead& SetContentLength(uint64_t length);
    // The body's length is not known before it is sent.
    ResponseHead& SetStreamed();
    // The processor can keep the connection: nothing of the exchange is left unread or
    // half done once its body is out. Without it the connection closes.
    ResponseHead& AllowKeepAlive();

    [[nodiscard]] int GetCode() const { return code_; }
    [[nodiscard]] std::optional<uint64_t> GetContentLength() const { return content_length_; }
    [[nodiscard]] bool IsKeepAliveAllowed() const { return keep_alive_allowed_; }
    // The value of a header added with Add; empty when there is none.
    [[nodiscard]] std::string_view Find(std::string_view name) const;

    struct Written {
        BodyFraming framing = BodyFraming::kNone;
        bool keep_alive = false;
    };
    // Decides framing and connection for these terms and appends the whole head, with its
    // blank line, to `out`. "Connection:close" is always the last header line when the
    // connection is to close. `date` is the value of the Date header.
    Written WriteTo(const ResponseTerms& terms, std::string_view date, std::string& out) const;

private:
    [[nodiscard]] bool HasNoBody() const;

    int code_;
    std::string reason_;
    std::vector<std::pair<std::string, std::string>> headers_;
    std::optional<uint64_t> content_length_;
    bool keep_alive_allowed_ = false;
};

}  // namespace Zarn
