#include "share/MountManager.h"

#include <algorithm>

#include "config/KorvelConfig.h"
#include "core/PathUtil.h"
#include "core/StringUtil.h"
#include "core/UrlCodec.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "share/ObjectIdentifier.h"

namespace Zarn {
namespace {

// Nothing below a mount may climb out of it or smuggle a NUL into a system call.
bool IsSafeRemainder(std::string_view remainder) {
    if (remainder.find('\0') != std::string_view::npos) return false;
    for (;;) {
        size_t slash = remainder.find('/');
        std::string_view segment = remainder.substr(0, slash);
        if (segment == "." || segment == "..") return false;
        if (slash == std::string_view::npos) return true;
        remainder.remove_prefix(slash + 1);
    }
}

}  // namespace

std::optional<Mount> Mount::Parse(std::string_view element) {
    std::vector<std::string_view> fields = Split(element, '|');
    if (fields.size() != 6) return std::nullopt;
    Mount mount;
    mount.name = PercentDecode(fields[0]);
    mount.local_path = PercentDecode(fields[1]);
    mount.note = PercentDecode(fields[2]);
    mount.is_folder = fields[3] == "yes";
    mount.option = fields[5] == "yes";
    mount.identifier = NextObjectIdentifier();
    return mount;
}

std::string Mount::ToElement() const {
    return UrlEncode(name) + "|" + UrlEncode(local_path) + "|" + UrlEncode(note) + "|" +
           (is_folder ? "yes" : "no") + "|x|" + (option ? "yes" : "no");
}

MountManager::MountManager(KorvelConfig& config) : config_(config) {
    std::vector<std::string> elements;
    {
        CriticalSectionLock hold(config_.GetLock());
        elements = config_.mounts;
    }
    if (!SetMounts(elements)) {
        LogTranslated(kLogFatal,
                      "설정 파일을 읽는 중 문제가 있어 일부를 무시했습니다. 이전 버전의 파일이거나 "
                      "파일이 손상되었을 수 있습니다.");
    }
}

bool MountManager::SetMounts(const std::vector<std::string>& elements) {
    CriticalSectionLock hold(lock_);
    mounts_.clear();
    bool all_parsed = true;
    for (const std::string& element : elements) {
        std::optional<Mount> mount = Mount::Parse(element);
        if (!mount) {
            all_parsed = false;
            continue;
        }
        mounts_.emplace(mount->name, std::move(*mount));
    }
    load_problems_ = !all_parsed;
    return all_parsed;
}

bool MountManager::HadLoadProblems() const {
    CriticalSectionLock hold(lock_);
    return load_problems_;
}

std::optional<Mount> MountManager::GetMount(const std::string& name) const {
    CriticalSectionLock hold(lock_);
    auto found = mounts_.find(name);
    if (found == mounts_.end()) return std::nullopt;
    return found->second;
}

std::vector<std::string> MountManager::ListNames() const {
    CriticalSectionLock hold(lock_);
    std::vector<std::string> names;
    for (const auto& [name, mount] : mounts_)
        names.push_back(name);
    return names;
}

std::optional<std::string> MountManager::NameOf(uint32_t identifier) const {
    CriticalSectionLock hold(lock_);
    for (const auto& [name, mount] : mounts_) {
        if (mount.identifier == identifier) return name;
    }
    return std::nullopt;
}

std::string MountManager::Resolve(std::string_view virtual_path) const {
    size_t slash = virtual_path.find('/');
    std::string name(virtual_path.substr(0, slash));
    std::string_view remainder =
        slash == std::string_view::npos ? std::string_view() : virtual_path.substr(slash + 1);
    if (!IsSafeRemainder(remainder)) return {};
    CriticalSectionLock hold(lock_);
    auto found = mounts_.find(name);
    if (found == mounts_.end()) return {};
    const Mount& mount = found->second;
    if (!mount.is_folder) return remainder.empty() ? mount.local_path : std::string();
    std::string path = mount.local_path;
    if (path.empty() || path.back() != '/') path += '/';
    path += remainder;
    return path;
}

std::optional<LocalTarget> MountManager::ResolveTarget(std::string_view virtual_path) const {
    std::string local_path = Resolve(virtual_path);
    if (local_path.empty()) return std::nullopt;
    std::optional<Mount> mount =
        GetMount(std::string(virtual_path.substr(0, virtual_path.find('/'))));
    if (!mount) return std::nullopt;
    if (!mount->is_folder) {
        size_t slash = local_path.find_last_of('/');
        std::string folder =
            slash == std::string::npos ? "." : local_path.substr(0, std::max<size_t>(slash, 1));
        std::optional<ConfinedFolder> opened = ConfinedFolder::Open(folder, false);
        if (!opened) return std::nullopt;
        std::string name = slash == std::string::npos ? local_path : local_path.substr(slash + 1);
        return LocalTarget{std::move(*opened), std::move(name), std::move(local_path)};
    }
    bool confined = !config_.followLinksOutOfMounts;
    std::optional<ConfinedFolder> opened = ConfinedFolder::Open(mount->local_path, confined);
    if (!opened) return std::nullopt;
    size_t slash = virtual_path.find('/');
    std::string relative(slash == std::string_view::npos ? std::string_view()
                                                         : virtual_path.substr(slash + 1));
    return LocalTarget{std::move(*opened), std::move(relative), std::move(local_path)};
}

bool MountManager::AddMount(Mount mount) {
    // Held across the change and the save, so that saves land in the order of the changes.
    CriticalSectionLock settings(config_.GetLock());
    {
        CriticalSectionLock hold(lock_);
        if (mounts_.contains(mount.name)) return false;
        mount.identifier = NextObjectIdentifier();
        mounts_.emplace(mount.name, std::move(mount));
    }
    return Save();
}

bool MountManager::ModifyMount(const std::string& name, Mount mount) {
    // Held across the change and the save, so that saves land in the order of the changes.
    CriticalSectionLock settings(config_.GetLock());
    {
        CriticalSectionLock hold(lock_);
        auto found = mounts_.find(name);
        if (found == mounts_.end()) return false;
        if (mount.name != name && mounts_.contains(mount.name)) return false;
        // The record stays the same mount, so rights granted on it follow a rename.
        mount.identifier = found->second.identifier;
        mounts_.erase(found);
        mounts_.emplace(mount.name, std::move(mount));
    }
    return Save();
}

bool MountManager::RemoveMount(const std::string& name) {
    // Held across the change and the save, so that saves land in the order of the changes.
    CriticalSectionLock settings(config_.GetLock());
    {
        CriticalSectionLock hold(lock_);
        if (mounts_.erase(name) == 0) return false;
    }
    return Save();
}

bool MountManager::Save() {
    // The settings lock always comes first, the registry's second.
    CriticalSectionLock settings(config_.GetLock());
    std::vector<std::string> elements;
    {
        CriticalSectionLock hold(lock_);
        for (const auto& [name, mount] : mounts_)
            elements.push_back(mount.ToElement());
    }
    config_.mounts = std::move(elements);
    return config_.Save();
}

}  // namespace Zarn
