#include "server/RequestOrigin.h"

#include <optional>
#include <string>
#include <string_view>

#include "core/StringUtil.h"
#include "http/HttpRequest.h"

namespace Zarn {
namespace {

struct HostAndPort {
    std::string host;
    std::string port;
    std::string port_by_default;  // what a missing port stands for
    [[nodiscard]] bool IsSamePlace(const HostAndPort& other) const {
        return host == other.host && port == other.port;
    }
};

// "host", "host:port", "[v6]" or "[v6]:port"; the host lower-cased.
std::optional<HostAndPort> SplitAuthority(std::string_view authority,
                                          std::string_view default_port) {
    if (authority.empty()) return std::nullopt;
    size_t host_end = authority.starts_with('[') ? authority.find(']') : authority.rfind(':');
    if (authority.starts_with('[')) {
        if (host_end == std::string_view::npos) return std::nullopt;
        ++host_end;
    }
    HostAndPort result{ToLowerAscii(authority.substr(0, host_end)), std::string(default_port),
                       std::string(default_port)};
    if (host_end < authority.size()) {
        if (authority[host_end] != ':') return std::nullopt;
        std::string_view port = authority.substr(host_end + 1);
        if (!port.empty()) result.port = std::string(port);
    }
    return result;
}

// "http://host:port" as browsers send it; nothing for "null" or anything unreadable.
std::optional<HostAndPort> OriginOf(std::string_view origin) {
    origin = Trim(origin);
    size_t scheme_end = origin.find("://");
    if (scheme_end == std::string_view::npos) return std::nullopt;
    std::string scheme = ToLowerAscii(origin.substr(0, scheme_end));
    std::string_view authority = origin.substr(scheme_end + 3);
    if (authority.find('/') != std::string_view::npos) return std::nullopt;
    return SplitAuthority(authority, scheme == "https" ? "443" : "80");
}

}  // namespace

bool IsCrossSiteRequest(const HttpRequest& request) {
    std::string value;
    if (request.GetHeader("SEC-FETCH-SITE", value) && ToLowerAscii(Trim(value)) == "cross-site") {
        return true;
    }
    if (!request.GetHeader("ORIGIN", value)) return false;
    std::optional<HostAndPort> origin = OriginOf(value);
    std::string host;
    if (!origin || !request.GetHeader("HOST", host)) return true;
    // A Host without a port means the default port of the scheme the browser used, which
    // is the origin's own when the request is same-origin (behind a TLS proxy, say).
    std::optional<HostAndPort> target = SplitAuthority(Trim(host), origin->port_by_default);
    return !target || !origin->IsSamePlace(*target);
}

}  // namespace Zarn
