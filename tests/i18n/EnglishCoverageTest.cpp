// Keeps the shipped English translation honest: every text the code hands to the
// localisation table must have an entry in res/Language/English.wul, and every text the
// console's pages name must be one the program hands them and one it can translate.

#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <sstream>

#include "core/EmbeddedResources.h"
#include "i18n/LocalizationStringTable.h"

namespace Zarn {
namespace {

std::string UnescapeLiteral(const std::string& literal) {
    std::string text;
    for (size_t i = 0; i < literal.size(); ++i) {
        if (literal[i] == '\\' && i + 1 < literal.size()) {
            char next = literal[++i];
            text += next == 'n' ? '\n' : next == 't' ? '\t' : next;
        } else {
            text += literal[i];
        }
    }
    return text;
}

bool IsIdentifierChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

// The string literal that starts at `position` (after blanks), if any; adjacent literals
// are joined as the compiler joins them.
std::optional<std::string> LiteralAt(const std::string& text, size_t position) {
    std::optional<std::string> joined;
    for (;;) {
        while (position < text.size() && std::isspace(static_cast<unsigned char>(text[position]))) {
            ++position;
        }
        if (position >= text.size() || text[position] != '"') return joined;
        std::string literal;
        size_t i = position + 1;
        for (; i < text.size() && text[i] != '"'; ++i) {
            if (text[i] == '\\' && i + 1 < text.size()) literal += text[i++];
            literal += text[i];
        }
        if (i >= text.size()) return joined;
        joined = joined.value_or("") + UnescapeLiteral(literal);
        position = i + 1;
    }
}

// Every literal passed to Translate, TranslateFormat, FormatTranslated or TranslationKey as
// the first argument, or to LogTranslated as the second.
void CollectLiterals(const std::string& text, std::set<std::string>& keys) {
    struct Marker {
        std::string_view name;
        bool after_first_argument;
    };
    const Marker markers[] = {{"Translate(", false},
                              {"TranslateFormat(", false},
                              {"FormatTranslated(", false},
                              {"TranslationKey(", false},
                              {"LogTranslated(", true}};
    for (const Marker& marker : markers) {
        for (size_t at = text.find(marker.name); at != std::string::npos;
             at = text.find(marker.name, at + 1)) {
            if (at > 0 && IsIdentifierChar(text[at - 1])) continue;
            size_t position = at + marker.name.size();
            if (marker.after_first_argument) position = text.find(',', position) + 1;
            if (std::optional<std::string> literal = LiteralAt(text, position)) {
                keys.insert(*literal);
            }
        }
    }
}

std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::set<std::string> TranslatableLiterals() {
    std::set<std::string> keys;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(LUMIDROP_SOURCE_DIR "/src")) {
        std::string extension = entry.path().extension().string();
        if (extension != ".cpp" && extension != ".h") continue;
        CollectLiterals(ReadFile(entry.path()), keys);
    }
    return keys;
}

// The keys the console's pages name: the first argument of T(...) in their scripts and
// the value of data-t="..." in their markup.
std::set<std::string> ConsolePageKeys() {
    std::set<std::string> keys;
    for (const auto& entry :
         std::filesystem::directory_iterator(LUMIDROP_SOURCE_DIR "/res/console")) {
        std::string extension = entry.path().extension().string();
        std::string text = ReadFile(entry.path());
        if (extension == ".js") {
            for (size_t at = text.find("T("); at != std::string::npos;
                 at = text.find("T(", at + 1)) {
                if (at > 0 && (IsIdentifierChar(text[at - 1]) || text[at - 1] == '.')) continue;
                if (std::optional<std::string> literal = LiteralAt(text, at + 2))
                    keys.insert(*literal);
            }
        } else if (extension == ".html") {
            constexpr std::string_view kMarker = "data-t=\"";
            for (size_t at = text.find(kMarker); at != std::string::npos;
                 at = text.find(kMarker, at + 1)) {
                size_t begin = at + kMarker.size();
                keys.insert(text.substr(begin, text.find('"', begin) - begin));
            }
        }
    }
    return keys;
}

bool LoadEnglish(LocalizationStringTable& table) {
    std::optional<std::string_view> english = FindEmbeddedResource("Language/English.wul");
    if (!english) return false;
    std::istringstream in{std::string(*english)};
    std::array<std::string, 3> descriptions;
    return LocalizationStringTable::ReadHeader(in, descriptions) && table.Load(in);
}

TEST(EnglishCoverageTest, EveryTranslatableTextHasAnEnglishEntry) {
    LocalizationStringTable table;
    ASSERT_TRUE(LoadEnglish(table));
    std::set<std::string> keys = TranslatableLiterals();
    ASSERT_FALSE(keys.empty());
    for (const std::string& key : keys) {
        EXPECT_NE(table.Lookup(key), key) << "English.wul lacks: \"" << key << "\"";
    }
}

// The pages get their texts only through the embedded list, so a key missing from it shows
// untranslated even when English.wul has it.
TEST(EnglishCoverageTest, EveryTextOfTheConsolePagesIsListedAndTranslated) {
    LocalizationStringTable table;
    ASSERT_TRUE(LoadEnglish(table));
    std::optional<std::string_view> list = FindEmbeddedResource("console/texts.txt");
    ASSERT_TRUE(list.has_value());
    std::set<std::string> listed;
    for (size_t begin = 0; begin < list->size();) {
        size_t end = std::min(list->find('\n', begin), list->size());
        if (end > begin) listed.emplace(list->substr(begin, end - begin));
        begin = end + 1;
    }
    for (const std::string& key : listed) {
        EXPECT_NE(table.Lookup(key), key) << "English.wul lacks: \"" << key << "\"";
    }

    std::set<std::string> keys = ConsolePageKeys();
    EXPECT_GT(keys.size(), 50u);
    for (const std::string& key : keys) {
        EXPECT_TRUE(listed.contains(key)) << "console/texts.txt lacks: \"" << key << "\"";
    }
}

}  // namespace
}  // namespace Zarn
