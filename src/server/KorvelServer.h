#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "http/WebServer.h"
#include "server/KorvelHttpRequestHandler.h"
#include "server/PluginManager.h"
#include "server/SystemFileTable.h"
#include "server/UploadProgressTable.h"
#include "share/AccountManager.h"
#include "share/IpFilter.h"
#include "share/MimeTypeTable.h"
#include "share/MountManager.h"
#include "transfer/ConnectionCountLimitManager.h"
#include "transfer/GuiTransferStatusAggregator.h"

namespace Zarn {

class KorvelConfig;
class SkinManager;

// The application side of the HTTP server: owns the web server, the one request handler,
// the transfer status aggregator, the download limits and the sharing model built from
// the settings. Started, re-ported and stopped by the program's main thread.
class KorvelServer {
public:
    // The settings and the skins must outlive the server.
    KorvelServer(KorvelConfig& config, SkinManager& skins, std::string home);
    ~KorvelServer();

    // Listens on the port (0: any free port). Logs the start banner. False (and the
    // reason is the thread's last socket error) when the port cannot be had.
    [[nodiscard]] bool Start(int port);
    [[nodiscard]] bool ChangePort(int port) { return web_server_.ChangePort(port); }
    void Stop();
    [[nodiscard]] int GetPort() const { return web_server_.GetPort(); }
    // Connections being served now (their threads are busy, not waiting for the next one).
    [[nodiscard]] size_t GetConnectionCount() {
        return web_server_.GetThreadCount() - web_server_.GetIdleThreadCount();
    }

    [[nodiscard]] MountManager& GetMounts() { return mounts_; }
    [[nodiscard]] AccountManager& GetAccounts() { return accounts_; }
    [[nodiscard]] IpFilter& GetIpFilter() { return ip_filter_; }
    [[nodiscard]] MimeTypeTable& GetMimeTypes() { return types_; }
    [[nodiscard]] GuiTransferStatusAggregator& GetTransfers() { return transfers_; }
    [[nodiscard]] ConnectionCountLimitManager& GetLimits() { return limits_; }
    [[nodiscard]] PluginManager& GetPlugins() { return plugins_; }

    // The address under which visitors reach the shares, as the owner is shown it.
    void SetDisplayAddress(std::string address) {
        std::lock_guard hold(display_address_mutex_);
        display_address_ = std::move(address);
    }
    [[nodiscard]] std::string GetDisplayAddress() const {
        std::lock_guard hold(display_address_mutex_);
        return display_address_;
    }
    // Applies the four download-limit settings, the two speed limits and the keep-alive
    // time-out.
    void ApplyLimits();

private:
    mutable std::mutex display_address_mutex_;
    std::string display_address_;
    KorvelConfig& config_;
    MountManager mounts_;
    AccountManager accounts_;
    IpFilter ip_filter_;
    MimeTypeTable types_;
    SystemFileTable system_files_;
    UploadProgressTable uploads_;
    ConnectionCountLimitManager limits_;
    GuiTransferStatusAggregator transfers_;
    PluginManager plugins_;  // before the web server: no request may outlive a plug-in
    std::unique_ptr<KorvelHttpRequestHandler> handler_;
    WebServer web_server_;  // last: its threads stop before the rest goes away
};

}  // namespace Zarn
