#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "server/LoadedPlugin.h"

namespace Zarn {

// The plug-ins of the home folder's Plugin/: every NAME.so there, loaded at start and
// again on the owner's word. Requests take a plug-in by shared_ptr, so that a reload
// unloads an old one only once its last request is over. Refused libraries are kept for
// the owner's Plug-ins page. Any thread may ask; reloads are serialised.
class PluginManager {
public:
    explicit PluginManager(std::string home) : home_(std::move(home)) {}

    // Loads Plugin/*.so afresh, in name order. A library that is still serving a request
    // from before is kept as it is: the system would not open a second copy of it while
    // the first is open, even when the file was replaced, so a new build takes effect
    // with the first reload after its last request.
    void Reload();

    // The loaded plug-in of that name, or null.
    [[nodiscard]] std::shared_ptr<const LoadedPlugin> Find(std::string_view name) const;
    // Every loaded plug-in, in name order of their files.
    [[nodiscard]] std::vector<std::shared_ptr<const LoadedPlugin>> Loaded() const;
    // Every library found at the last load, loaded or refused.
    [[nodiscard]] std::vector<PluginStatus> List() const;
    // HOME/Plugin/
    [[nodiscard]] std::string GetFolder() const;

private:
    // The library at `path` as it was loaded before, if some request still holds it.
    [[nodiscard]] std::shared_ptr<const LoadedPlugin> StillRunning(const std::string& path) const;

    std::string home_;
    std::mutex reload_mutex_;   // one reload at a time
    mutable std::mutex mutex_;  // guards the two lists
    std::vector<std::shared_ptr<const LoadedPlugin>> loaded_;
    std::vector<PluginStatus> statuses_;
    // Every library loaded so far by its path, to find the ones requests still hold.
    std::vector<std::pair<std::string, std::weak_ptr<const LoadedPlugin>>> known_;
};

}  // namespace Zarn
