#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace Zarn {

// PATCH, DELETE and OPTIONS are known only for the resumable upload protocol; every other
// request answers them as it answers an unknown word.
enum class HttpMethod { kGet = 0, kPost = 1, kOther = 2, kHead = 3, kPatch, kDelete, kOptions };

// Header names are kept trimmed and upper-cased ("CONTENT-LENGTH"); a repeated name keeps
// its first value, so a second Content-Length cannot override the one the body is
// measured by.
using HeaderMap = std::map<std::string, std::string>;
// Query and form parameters, percent-decoded; a repeated name keeps its first value.
using ParameterMap = std::map<std::string, std::string>;

// The parts of a request header, parsed from its text (the bytes before the blank line
// that ends it). Parsing takes bytes only, never fails and never reads out of bounds:
// whatever cannot be read stays empty.
struct RequestHead {
    HttpMethod method = HttpMethod::kOther;
    std::string target;   // as received, e.g. /music/a%20b.mp3?sort=name
    std::string version;  // as received, never checked
    // The target less its first character and query, decoded; of an absolute-form target
    // (http://host/music/x.mp3) the part after the authority is taken the same way.
    std::string path;
    HeaderMap headers;
    ParameterMap query;

    [[nodiscard]] static RequestHead Parse(std::string_view text, int url_codepage);

    // Splits "a=1&b=x+y" into decoded pairs ("+" is a blank) and adds them to `out`.
    static void ParseParameters(std::string_view text, int url_codepage, ParameterMap& out);
    // Adds one header line ("Name: value") to the map. A line without ":" adds an empty
    // name with an empty value.
    static void ParseHeaderLine(std::string_view line, HeaderMap& out);
    // The value of the header with this upper-case name; false when there is none.
    [[nodiscard]] static bool FindHeader(const HeaderMap& headers, const std::string& name,
                                         std::string& value);
    // A Content-Length value: its leading decimal digits (saturating); 0 when it does not
    // begin with a digit.
    [[nodiscard]] static uint64_t ParseContentLength(std::string_view value);
};

}  // namespace Zarn
