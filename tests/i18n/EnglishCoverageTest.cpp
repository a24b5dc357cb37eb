// Keeps the shipped English translation honest: every text the code hands to the
// localisation table must have an entry in res/Language/English.wul.

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

std::set<std::string> TranslatableLiterals() {
    std::set<std::string> keys;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(LUMIDROP_SOURCE_DIR "/src")) {
        std::string extension = entry.path().extension().string();
        if (extension != ".cpp" && extension != ".h") continue;
        std::ifstream in(entry.path());
        std::stringstream source;
        source << in.rdbuf();
        CollectLiterals(source.str(), keys);
    }
    return keys;
}

TEST(EnglishCoverageTest, EveryTranslatableTextHasAnEnglishEntry) {
    std::optional<std::string_view> english = FindEmbeddedResource("Language/English.wul");
    ASSERT_TRUE(english.has_value());
    std::istringstream in{std::string(*english)};
    std::array<std::string, 3> descriptions;
    ASSERT_TRUE(LocalizationStringTable::ReadHeader(in, descriptions));
    LocalizationStringTable table;
    ASSERT_TRUE(table.Load(in));

    std::set<std::string> keys = TranslatableLiterals();
    ASSERT_FALSE(keys.empty());
    for (const std::string& key : keys) {
        EXPECT_NE(table.Lookup(key), key) << "English.wul lacks: \"" << key << "\"";
    }
}

}  // namespace
}  // namespace Zarn
