#include "ui/ConsoleRequestHandler.h"

#include "core/EmbeddedResources.h"
#include "core/StringUtil.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "ui/ConsoleToken.h"

namespace Zarn {
namespace {

constexpr std::string_view kApiPrefix = "api/v1/";

// The value of one cookie of a Cookie header; empty when it is not there.
std::string_view CookieValue(std::string_view header, std::string_view name) {
    for (std::string_view pair : Split(header, ';')) {
        pair = Trim(pair);
        size_t equals = pair.find('=');
        if (equals != std::string_view::npos && pair.substr(0, equals) == name) {
            return pair.substr(equals + 1);
        }
    }
    return {};
}

}  // namespace

ConsoleRequestHandler::ConsoleRequestHandler(Services services)
    : services_(std::move(services)), api_(services_.api) {}

bool ConsoleRequestHandler::IsOwnHost(std::string_view host) const {
    std::string port = Concat({":", std::to_string(services_.port())});
    for (std::string_view name : {"127.0.0.1", "localhost", "[::1]"}) {
        if (EqualsIgnoringCase(host, Concat({name, port}))) return true;
    }
    return false;
}

bool ConsoleRequestHandler::IsOwnOrigin(std::string_view origin) const {
    constexpr std::string_view kScheme = "http://";
    return origin.starts_with(kScheme) && IsOwnHost(origin.substr(kScheme.size()));
}

bool ConsoleRequestHandler::HasOwnersCookie(const HttpRequest& request) const {
    std::string cookies;
    return request.GetHeader("COOKIE", cookies) &&
           ConsoleToken::Matches(services_.token, CookieValue(cookies, kCookieName));
}

void ConsoleRequestHandler::Refuse(HttpRequest& request) {
    ConsoleApi::SendError(request, 403, "Forbidden", "",
                          Translate("콘솔은 주인만 쓸 수 있습니다."));
}

void ConsoleRequestHandler::HandleRequest(HttpRequest& request) {
    std::string host;
    if (!request.GetHeader("HOST", host) || !IsOwnHost(Trim(host))) return Refuse(request);

    std::string token;
    if (request.GetPath().empty() && request.GetQueryParameter("token", token)) {
        return AdmitByToken(request, token);
    }
    if (!HasOwnersCookie(request)) return Refuse(request);

    std::string_view path = request.GetPath();
    if (!path.starts_with(kApiPrefix)) {
        if (request.GetMethod() == HttpMethod::kPost) return Refuse(request);
        return SendPage(request, path.empty() ? "index.html" : path);
    }
    std::string_view endpoint = path.substr(kApiPrefix.size());
    if (ConsoleApi::IsChange(endpoint)) {
        // A change must be what the console's own script sends: a POST with a header that
        // no form of another site can add, from the console's own origin if one is named.
        std::string marker;
        std::string origin;
        bool own_script = request.GetMethod() == HttpMethod::kPost &&
                          request.GetHeader("X-LUMIDROP-CONSOLE", marker) && Trim(marker) == "1";
        if (!own_script || (request.GetHeader("ORIGIN", origin) && !IsOwnOrigin(Trim(origin)))) {
            return Refuse(request);
        }
    } else if (request.GetMethod() == HttpMethod::kPost) {
        return Refuse(request);
    }
    api_.Serve(request, endpoint);
}

void ConsoleRequestHandler::AdmitByToken(HttpRequest& request, const std::string& offered) {
    if (!ConsoleToken::Matches(services_.token, offered)) return Refuse(request);
    request.SendHead(ResponseHead(303, "See Other")
                         .Add("Set-Cookie", Concat({kCookieName, "=", services_.token,
                                                    "; Path=/; HttpOnly; SameSite=Strict"}))
                         .Add("Location", "/")
                         .Add("Cache-Control", "no-store")
                         .SetContentLength(0)
                         .AllowKeepAlive());
    request.EndResponse();
}

void ConsoleRequestHandler::SendPage(HttpRequest& request, std::string_view name) {
    std::optional<std::string_view> bytes = name.find("..") == std::string_view::npos
                                                ? FindEmbeddedResource(Concat({"console/", name}))
                                                : std::nullopt;
    if (!bytes) {
        return ConsoleApi::SendError(request, 404, "Not Found", "", Translate("찾을 수 없습니다."));
    }
    std::string_view type = name.ends_with(".js")    ? "text/javascript; charset=utf-8"
                            : name.ends_with(".css") ? "text/css; charset=utf-8"
                                                     : "text/html; charset=utf-8";
    request.SendHead(ResponseHead(200, "OK")
                         .Add("Content-Type", type)
                         .Add("Cache-Control", "no-store")
                         .Add("X-Content-Type-Options", "nosniff")
                         .Add("X-Frame-Options", "DENY")
                         .Add("Content-Security-Policy",
                              "default-src 'self'; frame-ancestors 'none'; form-action 'self'")
                         .SetContentLength(bytes->size())
                         .AllowKeepAlive());
    request.Send(*bytes);
    request.EndResponse();
}

}  // namespace Zarn
