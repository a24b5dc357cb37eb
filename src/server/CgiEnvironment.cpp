#include "server/CgiEnvironment.h"

#include <algorithm>

#include "core/StringUtil.h"
#include "core/Version.h"
#include "http/HttpRequest.h"

namespace Zarn {
namespace {

std::string MethodName(const HttpRequest& request) {
    switch (request.GetMethod()) {
        case HttpMethod::kGet:
            return "GET";
        case HttpMethod::kPost:
            return "POST";
        case HttpMethod::kHead:
            return "HEAD";
        case HttpMethod::kPatch:
            return "PATCH";
        case HttpMethod::kDelete:
            return "DELETE";
        case HttpMethod::kOptions:
            return "OPTIONS";
        case HttpMethod::kOther:
            break;
    }
    return "";
}

// The host the visitor asked for, without its port; our own address when it named none.
std::string ServerName(const HttpRequest& request) {
    std::string host;
    if (!request.GetHeader("HOST", host) || Trim(host).empty()) return request.GetServerAddress();
    std::string_view name = Trim(host);
    size_t colon = name.rfind(':');
    if (colon != std::string_view::npos && name.find(']', colon) == std::string_view::npos)
        name = name.substr(0, colon);
    return std::string(name);
}

// "Accept-Language" becomes "HTTP_ACCEPT_LANGUAGE"; a name with other characters than
// letters, digits and "-" gives nothing, so no header can make a variable of odd shape.
std::string HeaderVariable(const std::string& name) {
    std::string variable = "HTTP_";
    for (char c : name) {
        bool plain = (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (!plain && c != '-') return {};
        variable += c == '-' ? '_' : c;
    }
    return variable;
}

}  // namespace

std::vector<std::string> CgiEnvironment::Build(const HttpRequest& request, const Script& script) {
    std::vector<std::string> variables;
    auto set = [&variables](std::string_view name, std::string_view value) {
        variables.push_back(Concat({name, "=", value}));
    };
    set("PATH", "/usr/local/bin:/usr/bin:/bin");
    set("GATEWAY_INTERFACE", "CGI/1.1");
    set("SERVER_SOFTWARE", Concat({"KorvelLumidrop/", kVersionText}));
    set("SERVER_NAME", ServerName(request));
    set("SERVER_PORT", std::to_string(script.server_port));
    set("SERVER_PROTOCOL", request.GetVersion());
    set("REQUEST_METHOD", MethodName(request));
    set("SCRIPT_NAME", script.name);
    if (!script.path_info.empty()) set("PATH_INFO", script.path_info);
    const std::string& target = request.GetTarget();
    size_t question = target.find('?');
    set("QUERY_STRING", question == std::string::npos ? "" : target.substr(question + 1));
    set("REMOTE_ADDR", request.GetClientAddress());
    std::string user = request.GetUserName();
    if (!user.empty()) {
        set("REMOTE_USER", user);
        set("AUTH_TYPE", "Basic");
    }
    std::string content_type;
    if (request.GetHeader("CONTENT-TYPE", content_type)) set("CONTENT_TYPE", content_type);
    if (request.GetContentLength() > 0)
        set("CONTENT_LENGTH", std::to_string(request.GetContentLength()));
    for (const auto& [name, value] : request.GetHeaders()) {
        if (name == "AUTHORIZATION" || name == "PROXY" || name == "CONTENT-TYPE" ||
            name == "CONTENT-LENGTH") {
            continue;
        }
        std::string variable = HeaderVariable(name);
        if (!variable.empty()) set(variable, value);
    }
    return variables;
}

}  // namespace Zarn
