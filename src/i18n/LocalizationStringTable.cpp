#include "i18n/LocalizationStringTable.h"

#include <cstdio>
#include <fstream>
#include <optional>

#include "core/EmbeddedResources.h"
#include "core/FileContents.h"
#include "core/PathUtil.h"
#include "core/StringUtil.h"
#include "core/TekoFile.h"
#include "core/TekoFileFind.h"

namespace Zarn {
namespace {

constexpr size_t kMaxHeaderChars = 127;

// Reads a quoted string starting at `text[position]`, which must be a quote; moves the
// position past the closing quote. Nothing when there is no opening or closing quote.
std::optional<std::string> ReadQuoted(std::string_view text, size_t& position) {
    if (position >= text.size() || text[position] != '"') return std::nullopt;
    std::string value;
    for (size_t i = position + 1; i < text.size(); ++i) {
        char c = text[i];
        if (c == '"') {
            position = i + 1;
            return value;
        }
        if (c == '\\' && i + 1 < text.size() && (text[i + 1] == '"' || text[i + 1] == '\\')) {
            c = text[++i];
        }
        value += c;
    }
    return std::nullopt;
}

size_t SkipBlanks(std::string_view text, size_t position) {
    while (position < text.size() && (text[position] == ' ' || text[position] == '\t')) {
        ++position;
    }
    return position;
}

enum class LineKind { kIgnored, kEntry, kMalformed };

LineKind ParseEntry(std::string_view line, std::string& key, std::string& value) {
    size_t position = SkipBlanks(line, 0);
    if (line.size() - position <= 1) return LineKind::kIgnored;
    std::optional<std::string> parsed_key = ReadQuoted(line, position);
    if (!parsed_key) return LineKind::kMalformed;
    position = SkipBlanks(line, position);
    if (position >= line.size() || line[position] != '=') return LineKind::kMalformed;
    position = SkipBlanks(line, position + 1);
    std::optional<std::string> parsed_value = ReadQuoted(line, position);
    if (!parsed_value) return LineKind::kMalformed;
    key = std::move(*parsed_key);
    value = std::move(*parsed_value);
    return LineKind::kEntry;
}

}  // namespace

LocalizationStringTable& LocalizationStringTable::Instance() {
    static LocalizationStringTable instance;
    return instance;
}

bool LocalizationStringTable::ReadHeader(std::istream& in,
                                         std::array<std::string, 3>& descriptions) {
    std::string lines[4];
    for (std::string& line : lines) {
        if (!std::getline(in, line)) return false;
        line = std::string(Trim(std::string_view(line).substr(0, kMaxHeaderChars)));
    }
    std::string_view magic = lines[0];
    if (magic.starts_with("\xEF\xBB\xBF")) magic.remove_prefix(3);
    if (magic != kMagicLine) return false;
    for (size_t i = 0; i < descriptions.size(); ++i)
        descriptions[i] = lines[i + 1];
    return true;
}

bool LocalizationStringTable::Load(std::istream& in, size_t* malformed_line) {
    std::map<std::string, std::string, std::less<>> loaded;
    std::string line, key, value;
    bool good = true;
    size_t line_number = 0;
    while (good && std::getline(in, line)) {
        ++line_number;
        // A file saved on Windows ends its lines with CR LF; the CR belongs to the line
        // break, not to the line, or a one-character spacer line would count as two.
        if (line.ends_with('\r')) line.pop_back();
        switch (ParseEntry(line, key, value)) {
            case LineKind::kIgnored:
                break;
            case LineKind::kEntry:
                loaded.insert_or_assign(key, value);
                break;
            case LineKind::kMalformed:
                good = false;
                break;
        }
    }
    if (!good && malformed_line != nullptr) *malformed_line = line_number;
    CriticalSectionLock hold(lock_);
    table_ = good ? std::move(loaded) : decltype(table_)();
    return good;
}

bool LocalizationStringTable::LoadLanguage(const std::string& home, const std::string& file_name,
                                           size_t* malformed_line) {
    Clear();
    if (malformed_line != nullptr) *malformed_line = 0;
    if (file_name.empty()) return true;
    // A name is a plain file of the language folder, never a path out of it.
    if (file_name.find('/') != std::string::npos || file_name == "." || file_name == "..") {
        return false;
    }
    std::ifstream in(JoinPath(JoinPath(home, kFolder), file_name), std::ios::binary);
    std::array<std::string, 3> descriptions;
    if (!in || !ReadHeader(in, descriptions)) return false;
    if (Load(in, malformed_line)) return true;
    constexpr size_t kHeaderLines = 4;
    if (malformed_line != nullptr) *malformed_line += kHeaderLines;
    return false;
}

std::vector<LocalizationStringTable::LanguageFile> LocalizationStringTable::ListLanguages(
    const std::string& home) {
    std::vector<LanguageFile> languages;
    TekoFileFind find;
    std::string folder = JoinPath(home, kFolder);
    for (bool found = find.FindFirst(JoinPath(folder, "*.wul")); found; found = find.FindNext()) {
        if (find.IsDirectory()) continue;
        std::ifstream in(JoinPath(folder, find.GetName()), std::ios::binary);
        LanguageFile language{find.GetName(), {}};
        if (in && ReadHeader(in, language.descriptions)) languages.push_back(language);
    }
    return languages;
}

void LocalizationStringTable::InstallShippedLanguages(const std::string& home) {
    constexpr std::string_view kPrefix = "Language/";
    std::string folder = JoinPath(home, kFolder);
    for (const EmbeddedResource& resource : AllEmbeddedResources()) {
        std::string_view name = resource.name;
        if (!name.starts_with(kPrefix)) continue;
        std::string target = JoinPath(folder, name.substr(kPrefix.size()));
        if (TekoFile::GetFileSize(target) != TekoFile::kInvalidSize) continue;
        if (!MakeFolders(folder)) return;
        // A half-written language file never appears.
        (void)WriteFileAtomically(target, resource.Bytes());
    }
}

std::string LocalizationStringTable::Lookup(std::string_view key) const {
    CriticalSectionLock hold(lock_);
    auto found = table_.find(key);
    return found == table_.end() ? std::string(key) : found->second;
}

size_t LocalizationStringTable::Size() const {
    CriticalSectionLock hold(lock_);
    return table_.size();
}

void LocalizationStringTable::Clear() {
    CriticalSectionLock hold(lock_);
    table_.clear();
}

}  // namespace Zarn
