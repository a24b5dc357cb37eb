#include "http/RequestHead.h"

#include <optional>

#include "core/StringUtil.h"
#include "core/UrlCodec.h"

namespace Zarn {
namespace {

constexpr std::string_view kWordBlanks = " \t\r";

// Takes the next blank-separated word off the front of `line`.
std::string_view NextWord(std::string_view& line) {
    size_t start = line.find_first_not_of(kWordBlanks);
    if (start == std::string_view::npos) {
        line = {};
        return {};
    }
    line.remove_prefix(start);
    size_t end = line.find_first_of(kWordBlanks);
    std::string_view word = line.substr(0, end);
    line = end == std::string_view::npos ? std::string_view() : line.substr(end);
    return word;
}

// Takes the next line (without its "\n") off the front of `text`.
std::string_view NextLine(std::string_view& text) {
    size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    return line;
}

HttpMethod MethodOf(std::string_view word) {
    if (word == "GET") return HttpMethod::kGet;
    if (word == "POST") return HttpMethod::kPost;
    if (word == "HEAD") return HttpMethod::kHead;
    if (word == "PATCH") return HttpMethod::kPatch;
    if (word == "DELETE") return HttpMethod::kDelete;
    if (word == "OPTIONS") return HttpMethod::kOptions;
    return HttpMethod::kOther;
}

std::string DecodeParameterText(std::string_view text, int url_codepage) {
    std::string blanked(Trim(text));
    for (char& c : blanked) {
        if (c == '+') c = ' ';
    }
    return DecodeUrlText(blanked, url_codepage);
}

// The path and query of an absolute-form target ("http://host:port/path?query"), which a
// server must accept (RFC 9112 section 3.2.2). The authority names this server whatever
// it says, so it is dropped. Nothing when the target is not in absolute form.
std::optional<std::string_view> PathAndQueryOfAbsoluteForm(std::string_view target) {
    size_t separator = target.find("://");
    if (separator == std::string_view::npos) return std::nullopt;
    std::string scheme = ToLowerAscii(target.substr(0, separator));
    if (scheme != "http" && scheme != "https") return std::nullopt;
    std::string_view rest = target.substr(separator + 3);
    size_t path_start = rest.find_first_of("/?");
    return path_start == std::string_view::npos ? std::string_view() : rest.substr(path_start);
}

}  // namespace

RequestHead RequestHead::Parse(std::string_view text, int url_codepage) {
    RequestHead head;
    // Blank lines before the request line (a CR LF that followed the previous request's
    // body, say) are not a request of their own.
    size_t start = text.find_first_not_of(kBlankChars);
    text = start == std::string_view::npos ? std::string_view() : text.substr(start);

    std::string_view request_line = NextLine(text);
    head.method = MethodOf(NextWord(request_line));
    head.target = std::string(NextWord(request_line));
    head.version = std::string(NextWord(request_line));

    while (!text.empty())
        ParseHeaderLine(NextLine(text), head.headers);

    std::string_view target = head.target;
    std::string_view path_part = target.empty() ? target : target.substr(1);
    if (std::optional<std::string_view> origin = PathAndQueryOfAbsoluteForm(target)) {
        // An absolute target without a path means "/", with or without a query.
        path_part = origin->starts_with('/') ? origin->substr(1) : *origin;
    }
    size_t question = path_part.find('?');
    if (question != std::string_view::npos) {
        ParseParameters(path_part.substr(question + 1), url_codepage, head.query);
        path_part = path_part.substr(0, question);
    }
    head.path = DecodeUrlText(path_part, url_codepage);
    return head;
}

void RequestHead::ParseParameters(std::string_view text, int url_codepage, ParameterMap& out) {
    for (;;) {
        size_t ampersand = text.find('&');
        std::string_view piece = text.substr(0, ampersand);
        size_t equals = piece.find('=');
        std::string_view name = piece.substr(0, equals);
        std::string_view value =
            equals == std::string_view::npos ? std::string_view() : piece.substr(equals + 1);
        out.emplace(DecodeParameterText(name, url_codepage),
                    DecodeParameterText(value, url_codepage));
        if (ampersand == std::string_view::npos) break;
        text.remove_prefix(ampersand + 1);
    }
}

void RequestHead::ParseHeaderLine(std::string_view line, HeaderMap& out) {
    size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
        out.emplace(std::string(), std::string());
        return;
    }
    out.emplace(ToUpperAscii(Trim(line.substr(0, colon))),
                std::string(Trim(line.substr(colon + 1))));
}

bool RequestHead::FindHeader(const HeaderMap& headers, const std::string& name,
                             std::string& value) {
    auto found = headers.find(name);
    if (found == headers.end()) return false;
    value = found->second;
    return true;
}

uint64_t RequestHead::ParseContentLength(std::string_view value) {
    value = Trim(value);
    if (value.empty() || value.front() < '0' || value.front() > '9') return 0;
    return ParseLeadingDecimal(value);
}

}  // namespace Zarn
