#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "config/KorvelConfig.h"

namespace Zarn {

// Reads the data files the way the running program would take them and collects what
// is wrong with them, each problem as "<file> line N: <what>" (translated), so that a
// reload can refuse the lot and say where to look. It changes nothing it checks. Any
// thread may use its own instance.
class DataFileCheck {
public:
    // Every line of a settings file: a known key, "=" for a value and "+=" for a list,
    // a value its setting can hold, and list elements their readers take (mounts,
    // accounts, grants, IP filter rules). Values the loader brings into range (the
    // keep-alive time) are not problems.
    void CheckSettings(const std::string& path, std::string_view text);
    // A line too long for the MIME table, which would end the table there.
    void CheckMimeTypes(const std::string& path, std::string_view text);
    // The language file chosen in the settings (none is fine).
    void CheckLanguage(const std::string& home, const std::string& file_name);
    // The skin chosen in the settings must be one that loads (none is the built-in one).
    void CheckSkin(const std::string& home, const std::string& skin_name);

    [[nodiscard]] bool IsGood() const { return problems_.empty(); }
    [[nodiscard]] const std::vector<std::string>& GetProblems() const { return problems_; }

private:
    void Add(const std::string& path, size_t line, const std::string& what);
    void CheckSettingsLine(const std::string& path, size_t line_number, std::string_view line);
    // The reason a list element would be dropped or misread; empty when it is fine.
    [[nodiscard]] std::string CheckListElement(const std::string& list, const std::string& element);

    const KorvelConfig known_;  // every key at its default: what a setting can hold
    std::vector<std::string> problems_;
    std::vector<std::string> mount_names_;
};

}  // namespace Zarn
