#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "http/HttpRequestHandler.h"
#include "ui/ConsoleApi.h"

namespace Zarn {

// Every request to the owner's console passes here. Only the owner gets through: the
// Host must be the console's own loopback address (so no other site can reach it by
// pointing a name at 127.0.0.1), the request must carry the owner's cookie (got once by
// opening the console's address with the token), and whatever changes something must be
// a POST with "X-Lumidrop-Console: 1" and, when the browser names an Origin, the
// console's own. Everything else gets 403 and changes nothing.
class ConsoleRequestHandler : public HttpRequestHandler {
public:
    static constexpr const char* kCookieName = "lumidrop_console";

    struct Services {
        std::string token;
        std::function<int()> port;  // the console's own port
        ConsoleApi::Services api;
    };

    explicit ConsoleRequestHandler(Services services);

    void HandleRequest(HttpRequest& request) override;

private:
    [[nodiscard]] bool IsOwnHost(std::string_view host) const;
    [[nodiscard]] bool IsOwnOrigin(std::string_view origin) const;
    [[nodiscard]] bool HasOwnersCookie(const HttpRequest& request) const;
    // Swaps the token of the console's address for the cookie.
    void AdmitByToken(HttpRequest& request, const std::string& offered);
    void SendPage(HttpRequest& request, std::string_view name);
    static void Refuse(HttpRequest& request);

    Services services_;
    ConsoleApi api_;
};

}  // namespace Zarn
