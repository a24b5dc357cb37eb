#pragma once

#include <ctime>
#include <string>

namespace Zarn {

class HttpRequest;

// Serves the server's own small files ("robots.txt", "favicon.ico") and the files of the
// skins ("/<skin>/<file>?action=SkinFile") from memory, with a one-day expiry. A missing
// file is a plain 404 without a page, so it works even when no skin does.
class SystemRequestProcessor {
public:
    // The clock of the "Expires" header; tests replace it.
    explicit SystemRequestProcessor(std::time_t now = std::time(nullptr)) : now_(now) {}

    void SendSystemFile(HttpRequest& request);
    void SendSkinFile(HttpRequest& request);

    // "Sun, 23 Nov 2026 14:00:00 GMT" for a time.
    [[nodiscard]] static std::string HttpDate(std::time_t time);

private:
    void SendBytes(HttpRequest& request, const std::string& name, const std::string& bytes);
    static void SendNotFound(HttpRequest& request, const char* text);

    std::time_t now_;
};

}  // namespace Zarn
