#include "server/CgiHeaderBlock.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "core/StringUtil.h"

namespace Zarn {
namespace {

// Reasons for a "Status:" that gives only the number.
std::string_view ReasonOf(int code) {
    static constexpr std::array<std::pair<int, std::string_view>, 14> kReasons = {{
        {200, "OK"},
        {201, "Created"},
        {204, "No Content"},
        {301, "Moved Permanently"},
        {302, "Found"},
        {303, "See Other"},
        {304, "Not Modified"},
        {307, "Temporary Redirect"},
        {400, "Bad Request"},
        {401, "Unauthorized"},
        {403, "Forbidden"},
        {404, "Not Found"},
        {500, "Internal Server Error"},
        {503, "Service Unavailable"},
    }};
    for (const auto& [number, reason] : kReasons) {
        if (number == code) return reason;
    }
    return "Unknown";
}

// Lines whose meaning belongs to our side of the connection, not to the program.
bool IsOurs(std::string_view name) {
    for (std::string_view own : {"Connection", "Keep-Alive", "Transfer-Encoding", "Date", "TE",
                                 "Trailer", "Upgrade", "Proxy-Connection"}) {
        if (EqualsIgnoringCase(name, own)) return true;
    }
    return false;
}

bool IsTokenChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

// A value passed on must not be able to end our header line early.
bool IsCleanValue(std::string_view value) {
    return std::none_of(value.begin(), value.end(), [](char c) {
        auto byte = static_cast<unsigned char>(c);
        return (byte < 0x20 && c != '\t') || byte == 0x7f;
    });
}

}  // namespace

size_t CgiHeaderBlock::Feed(std::string_view bytes) {
    if (state_ != State::kIncomplete) return 0;
    size_t before = text_.size();
    text_.append(bytes.substr(0, kMaxBytes + 3 - std::min(before, kMaxBytes + 3)));
    // The block ends at the first empty line: LF LF or LF CR LF, or the output starts with
    // one (an empty block, which says nothing at all).
    for (size_t at = scanned_; at < text_.size(); ++at) {
        size_t end = 0;
        bool line_start = at == 0 || text_[at - 1] == '\n';
        if (!line_start) continue;
        if (text_[at] == '\n') end = at + 1;
        if (text_[at] == '\r' && at + 1 < text_.size() && text_[at + 1] == '\n') end = at + 2;
        if (text_[at] == '\r' && at + 1 == text_.size()) {
            scanned_ = at;  // the LF may come with the next piece
            return bytes.size();
        }
        if (end == 0) continue;
        text_.resize(at);
        state_ = at > 0 && ParseLines() ? State::kComplete : State::kMalformed;
        return end - before;
    }
    scanned_ = text_.size();
    if (text_.size() > kMaxBytes) state_ = State::kMalformed;
    return bytes.size();
}

bool CgiHeaderBlock::ParseLines() {
    for (std::string_view line : Split(text_, '\n')) {
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (line.empty()) continue;
        size_t colon = line.find(':');
        if (colon == std::string_view::npos || colon == 0) return false;
        std::string_view name = line.substr(0, colon);
        std::string_view value = Trim(line.substr(colon + 1), " \t");
        if (!std::all_of(name.begin(), name.end(), IsTokenChar) || !IsCleanValue(value))
            return false;
        if (!TakeField(name, value)) return false;
    }
    return true;
}

bool CgiHeaderBlock::TakeField(std::string_view name, std::string_view value) {
    if (EqualsIgnoringCase(name, "Status")) {
        int code = 0;
        auto [end, failure] = std::from_chars(value.data(), value.data() + value.size(), code);
        // An interim 1xx would leave the client waiting for a second head we never send.
        if (failure != std::errc() || end != value.data() + 3 || code < 200 || code > 599)
            return false;
        std::string_view reason = Trim(value.substr(3), " \t");
        code_ = code;
        reason_ = reason.empty() ? ReasonOf(code) : reason;
        has_status_ = true;
        return true;
    }
    if (EqualsIgnoringCase(name, "Content-Length")) {
        uint64_t length = 0;
        auto [end, failure] = std::from_chars(value.data(), value.data() + value.size(), length);
        if (failure != std::errc() || end != value.data() + value.size()) return false;
        content_length_ = length;
        return true;
    }
    if (IsOurs(name)) return true;
    if (EqualsIgnoringCase(name, "Location")) has_location_ = true;
    fields_.emplace_back(name, value);
    return true;
}

ResponseHead CgiHeaderBlock::ToResponseHead() const {
    bool redirect = has_location_ && !has_status_;
    ResponseHead head(redirect ? 302 : code_, redirect ? "Found" : reason_);
    for (const auto& [name, value] : fields_)
        head.Add(name, value);
    if (content_length_) head.SetContentLength(*content_length_);
    return head;
}

}  // namespace Zarn
