#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/CriticalSection.h"
#include "share/LocalTarget.h"

namespace Zarn {

class KorvelConfig;

// A shared item: a local folder or single file published under a virtual name.
struct Mount {
    std::string name{};        // the virtual name, unique, case-sensitive
    std::string local_path{};  // the local folder or file, as the owner gave it
    std::string note{};        // free text, carried through load and save
    bool is_folder = true;     // false: a single file
    bool option = false;       // a per-mount yes/no option, carried through load and save
    std::vector<std::string> extra{};
    uint32_t identifier = 0;  // drawn when the record is made in memory

    // The settings element: name|path|note|yes-or-no|x|yes-or-no, text fields
    // percent-encoded. Nothing when the element does not have exactly six fields.
    [[nodiscard]] static std::optional<Mount> Parse(std::string_view element);
    [[nodiscard]] std::string ToElement() const;
};

// The registry of mounts, loaded from the settings' "mounts" list and saved back on every
// change. Request threads look up and resolve while the owner edits; every operation
// takes the registry's lock and hands out copies. Its lock is taken after the settings
// lock, never before it.
class MountManager {
public:
    // Loads the settings' mounts. Elements that do not parse are dropped and one
    // level-32 line says that the settings file had problems.
    explicit MountManager(KorvelConfig& config);

    // Replaces every mount; true when every element parsed. The first of two elements
    // with one name wins.
    bool SetMounts(const std::vector<std::string>& elements);
    [[nodiscard]] bool HadLoadProblems() const;

    [[nodiscard]] std::optional<Mount> GetMount(const std::string& name) const;
    [[nodiscard]] std::vector<std::string> ListNames() const;
    // The name of the mount with this identifier, if it still exists.
    [[nodiscard]] std::optional<std::string> NameOf(uint32_t identifier) const;

    // The local path of a virtual path "name/remainder" ("name" alone for the item
    // itself), or empty when nothing there may be served: an unknown name, anything below
    // a single-file mount, and a remainder holding a NUL byte or a "." or ".." segment.
    [[nodiscard]] std::string Resolve(std::string_view virtual_path) const;
    // The same place, opened for use: the mount's folder held open and the path below it,
    // confined to the folder unless the setting followLinksOutOfMounts is on. A single-file
    // mount is the file in its folder, unconfined (the owner chose that very file).
    // Nothing where Resolve gives nothing or the mount's folder cannot be opened.
    [[nodiscard]] std::optional<LocalTarget> ResolveTarget(std::string_view virtual_path) const;

    // Each changes the registry and saves the settings file; false when the name is
    // taken (add, rename) or unknown (modify, remove), or the save failed.
    bool AddMount(Mount mount);
    bool ModifyMount(const std::string& name, Mount mount);
    bool RemoveMount(const std::string& name);
    bool Save();

private:
    KorvelConfig& config_;
    mutable CriticalSection lock_;
    std::map<std::string, Mount> mounts_;
    bool load_problems_ = false;
};

}  // namespace Zarn
