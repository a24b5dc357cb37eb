#pragma once

#include <string>
#include <vector>

namespace Zarn {

class HttpRequest;

// The whole environment of a CGI program, made from nothing but the request (RFC 3875
// section 4.1), so that none of the server's own variables reaches a program.
class CgiEnvironment {
public:
    struct Script {
        std::string name;       // SCRIPT_NAME, "/cgi-bin/NAME"
        std::string path_info;  // what follows it in the path, decoded; may be empty
        int server_port = 0;
    };

    // "NAME=value" lines: the CGI/1.1 variables, REMOTE_USER and AUTH_TYPE for a visitor
    // who logged in, an HTTP_* variable for each request header but Authorization (and
    // Proxy, which programs would take for their own proxy setting), and a plain PATH.
    [[nodiscard]] static std::vector<std::string> Build(const HttpRequest& request,
                                                        const Script& script);
};

}  // namespace Zarn
