#pragma once

#include <ctime>
#include <string>

namespace Zarn {

class HttpRequest;
class MimeTypeTable;
class SkinManager;
class SystemFileTable;

// Serves the server's own small files ("robots.txt", "favicon.ico") and the files of the
// skins ("/<skin>/<file>?action=SkinFile") from memory, with a one-day expiry, an entity
// tag and an hour's caching, so that a browser revalidates them at most hourly. A missing
// file is a plain 404 without a page, so it works even when no skin does.
class SystemRequestProcessor {
public:
    struct Sources {
        const SystemFileTable* files = nullptr;
        const SkinManager* skins = nullptr;
        const MimeTypeTable* types = nullptr;
    };

    // `now` is the clock of the "Expires" header; tests replace it.
    explicit SystemRequestProcessor(Sources sources, std::time_t now = std::time(nullptr))
        : sources_(sources), now_(now) {}

    void SendSystemFile(HttpRequest& request);
    void SendSkinFile(HttpRequest& request);

private:
    void SendBytes(HttpRequest& request, const std::string& name, const std::string& bytes);
    static void SendNotFound(HttpRequest& request, std::string_view text);

    Sources sources_;
    std::time_t now_;
};

}  // namespace Zarn
