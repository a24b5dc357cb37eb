#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "core/CriticalSection.h"
#include "skin/Skin.h"

namespace Zarn {

// Every loaded skin by name, and the selected one. Skins come from the folders
// "skin/<name>/" of the home folder, from the developer folder "res/skin/" (as
// "develop"), and from the archive built into the program (as ".default"). Any thread may
// look up; a reload builds a new set and swaps it in, so requests in flight keep theirs.
class SkinManager {
public:
    static constexpr char kBuiltInName[] = ".default";
    static constexpr char kDeveloperName[] = "develop";
    // The name under which the built-in archive is embedded in the program.
    static constexpr char kBuiltInResource[] = "skin.zip";

    // The process-wide registry; tests may make their own.
    [[nodiscard]] static SkinManager& Instance();
    // Held around a reload and the request it serves while skin developers mode is on,
    // so reloads never overlap.
    [[nodiscard]] static CriticalSection& DevelopersModeLock();

    // Loads every skin anew, then selects `default_skin` (or the built-in one).
    void LoadAll(const std::string& home, const std::string& default_skin);

    // A skin's name goes into the addresses of its pages' scripts and styles, so it never
    // holds "/", "\\", ":", "%", "?", "#" or a control character; a folder skin so named
    // is skipped with a log line, and Register ignores such a skin.
    [[nodiscard]] static bool IsAcceptableName(std::string_view name);

    void Register(std::shared_ptr<const Skin> skin);
    [[nodiscard]] bool Has(std::string_view name) const;
    // Selects a registered skin; false (nothing changes) for an unknown name.
    bool Select(std::string_view name);
    [[nodiscard]] std::string GetSelectedName() const;
    [[nodiscard]] std::shared_ptr<const Skin> GetSelected() const;
    [[nodiscard]] std::shared_ptr<const Skin> Find(std::string_view name) const;
    [[nodiscard]] std::vector<std::string> ListNames() const;

private:
    static void LoadFolderSkins(const std::string& home,
                                std::map<std::string, std::shared_ptr<const Skin>>& skins);
    void SelectDefault(const std::string& default_skin);

    mutable std::mutex mutex_;
    std::map<std::string, std::shared_ptr<const Skin>, std::less<>> skins_;
    std::string selected_;
};

}  // namespace Zarn
