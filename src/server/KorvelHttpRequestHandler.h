#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "core/UniqueFd.h"
#include "http/HttpRequestHandler.h"
#include "server/HtmlPageSender.h"
#include "server/SystemRequestProcessor.h"

namespace Zarn {

class AccountManager;
class ConnectionCountLimitManager;
class IpFilter;
class KorvelConfig;
class MimeTypeTable;
class MountManager;
class PluginManager;
class CounterToken;
class SkinManager;
class SystemFileTable;
class UploadProgressTable;
struct LocalTarget;

// The single entry point of every parsed request: validates the path, applies the IP
// filter and the account check, picks the one processor that serves the request, and
// lets it write the whole response. Shared by every connection thread; holds no state of
// its own per request.
class KorvelHttpRequestHandler : public HttpRequestHandler {
public:
    struct Services {
        KorvelConfig* config = nullptr;
        MountManager* mounts = nullptr;
        AccountManager* accounts = nullptr;
        IpFilter* ip_filter = nullptr;
        SkinManager* skins = nullptr;
        ConnectionCountLimitManager* limits = nullptr;
        UploadProgressTable* uploads = nullptr;
        const MimeTypeTable* types = nullptr;
        const SystemFileTable* system_files = nullptr;
        PluginManager* plugins = nullptr;
        std::string home{};  // for reloading skins in skin developers mode
        // The listening port, for the pages' "$server_port".
        std::function<int()> port = [] { return -1; };
    };

    explicit KorvelHttpRequestHandler(Services services) : services_(std::move(services)) {}

    void HandleRequest(HttpRequest& request) override;

private:
    void Dispatch(HttpRequest& request);
    // The branches that need a mount, after the account check.
    void DispatchMounted(HttpRequest& request, HtmlPageSender& pages, const std::string& user);
    // The "Plugin" action; `rights` are the user's on the path's mount.
    void RunPlugin(HttpRequest& request, HtmlPageSender& pages, const std::string& user,
                   uint32_t rights);
    // A download place for the client's address; false after the 503 page when refused.
    [[nodiscard]] bool AcquireDownloadToken(HttpRequest& request, HtmlPageSender& pages,
                                            CounterToken& token);
    // "?action=Zip": the folder, or the names posted from it, as one zip archive.
    void SendZip(HttpRequest& request, HtmlPageSender& pages, uint32_t rights);
    // `opened` is the target opened for reading (invalid when it could not be), `info` its
    // status.
    void ServeFile(HttpRequest& request, HtmlPageSender& pages, const LocalTarget& target,
                   UniqueFd opened, const struct stat& info);
    // In skin developers mode, every skin is loaded anew before a page or a skin file is
    // served, so that edits show at once.
    void ReloadSkinsForDevelopers() const;
    [[nodiscard]] HtmlPageSender::Context PageContext() const;
    [[nodiscard]] SystemRequestProcessor SystemFiles() const;

    Services services_;
};

}  // namespace Zarn
