#pragma once

#include <array>
#include <istream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "core/CriticalSection.h"

namespace Zarn {

// The loaded translation of the program's texts. Every user-visible text is written in
// the source language and used as its own key; a lookup that misses yields the key.
// Keys and translations are UTF-8 on both sides. Any thread may look up; loading
// replaces the whole table under its lock.
//
// A language file ("Language/*.wul", UTF-8) starts with four lines: the magic line
// "Korvel Lumidrop UI Language File" and three descriptive lines (language, translator,
// version). Lines end with LF or CR LF. Every further line is an entry
// "key" = "value"   or is ignored when it holds at most one character after leading
// blanks. Inside quotes, \" and \\ stand for a quote and a backslash; any other
// backslash is kept as it is.
class LocalizationStringTable {
public:
    static constexpr char kMagicLine[] = "Korvel Lumidrop UI Language File";
    static constexpr char kFolder[] = "Language";

    struct LanguageFile {
        std::string file_name;
        std::array<std::string, 3> descriptions;
    };

    // The process-wide table; tests may make their own.
    [[nodiscard]] static LocalizationStringTable& Instance();

    // Reads and checks the four header lines (each at most 127 characters are taken, then
    // trimmed of CR, LF, tab and blank).
    [[nodiscard]] static bool ReadHeader(std::istream& in,
                                         std::array<std::string, 3>& descriptions);
    // Replaces the table with the entries of the stream (positioned after the header).
    // All or nothing: one malformed line leaves the table empty and returns false. A later
    // duplicate key replaces an earlier one. `malformed_line`, when given, receives the
    // number (from 1) of the line that spoiled the load.
    bool Load(std::istream& in, size_t* malformed_line = nullptr);
    // Loads "Language/<file_name>" in the home folder. An empty name empties the table
    // and succeeds (the source texts are shown). Any failure leaves the table empty;
    // `malformed_line` then holds the file's line that was wrong, or 0 when the file could
    // not be opened or its header is not a language file's.
    bool LoadLanguage(const std::string& home, const std::string& file_name,
                      size_t* malformed_line = nullptr);
    // The language files in the home folder's "Language/", with their descriptions.
    [[nodiscard]] static std::vector<LanguageFile> ListLanguages(const std::string& home);
    // Writes the language files built into the program into the home folder's
    // "Language/" where they are missing, so they can be chosen out of the box. A file the
    // owner already has (and may have edited) is never replaced.
    static void InstallShippedLanguages(const std::string& home);

    [[nodiscard]] std::string Lookup(std::string_view key) const;
    [[nodiscard]] size_t Size() const;
    void Clear();

private:
    mutable CriticalSection lock_;
    std::map<std::string, std::string, std::less<>> table_;
};

}  // namespace Zarn
