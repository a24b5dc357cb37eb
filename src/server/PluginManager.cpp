#include "server/PluginManager.h"

#include <algorithm>
#include <set>

#include "core/PathUtil.h"
#include "core/TekoFileFind.h"
#include "i18n/Translate.h"
#include "log/Log.h"

namespace Zarn {

std::string PluginManager::GetFolder() const {
    return JoinPath(home_, "Plugin") + "/";
}

std::shared_ptr<const LoadedPlugin> PluginManager::StillRunning(const std::string& path) const {
    for (const auto& [known_path, plugin] : known_) {
        if (known_path == path) return plugin.lock();
    }
    return nullptr;
}

void PluginManager::Reload() {
    std::lock_guard serialise(reload_mutex_);
    std::vector<std::string> paths;
    TekoFileFind find;
    for (bool found = find.FindFirst(GetFolder() + "*.so"); found; found = find.FindNext()) {
        if (!find.IsDirectory()) paths.push_back(GetFolder() + find.GetName());
    }
    std::sort(paths.begin(), paths.end());
    {
        // Plug-ins no request holds are finalised and closed here, before their files
        // are opened again: a library opened twice is one library, and a Finalize
        // after the new Initialize would undo it.
        std::vector<std::shared_ptr<const LoadedPlugin>> old;
        std::lock_guard hold(mutex_);
        old.swap(loaded_);
    }
    std::erase_if(known_, [](const auto& entry) { return entry.second.expired(); });

    std::vector<std::shared_ptr<const LoadedPlugin>> loaded;
    std::vector<PluginStatus> statuses;
    std::set<std::string, std::less<>> names;
    for (const std::string& path : paths) {
        PluginStatus status;
        std::shared_ptr<const LoadedPlugin> plugin = StillRunning(path);
        if (plugin) {
            status = plugin->GetStatus();
        } else if (std::unique_ptr<LoadedPlugin> fresh = LoadedPlugin::Load(path, home_, status)) {
            plugin = std::move(fresh);
            known_.emplace_back(path, plugin);
        }
        if (plugin && !names.insert(plugin->GetName()).second) {
            status.status = Translate("같은 이름의 플러그인이 이미 있습니다");
            LogTranslated(kLogError, "플러그인 %s을(를) 쓰지 않습니다: %s", path.c_str(),
                          status.status.c_str());
            plugin.reset();
        }
        if (plugin) loaded.push_back(std::move(plugin));
        statuses.push_back(std::move(status));
    }
    if (!paths.empty()) LogTranslated(kLogNotice, "플러그인 %zu개를 쓸 수 있습니다", loaded.size());
    std::lock_guard hold(mutex_);
    loaded_ = std::move(loaded);
    statuses_ = std::move(statuses);
}

std::shared_ptr<const LoadedPlugin> PluginManager::Find(std::string_view name) const {
    std::lock_guard hold(mutex_);
    for (const std::shared_ptr<const LoadedPlugin>& plugin : loaded_) {
        if (plugin->GetName() == name) return plugin;
    }
    return nullptr;
}

std::vector<std::shared_ptr<const LoadedPlugin>> PluginManager::Loaded() const {
    std::lock_guard hold(mutex_);
    return loaded_;
}

std::vector<PluginStatus> PluginManager::List() const {
    std::lock_guard hold(mutex_);
    return statuses_;
}

}  // namespace Zarn
