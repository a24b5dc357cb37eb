// Keeps the shipped English translation honest: every text the code hands to the
// localisation table must have an entry in res/Language/English.wul, and every text the
// console's pages name must be one the program hands them and one it can translate.

#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <optional>
#include <set>
#include <sstream>

#include "core/EmbeddedResources.h"
#include "i18n/LocalizationStringTable.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

bool IsIdentifierChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

// The string literal that starts at `position` (after blanks), if any; adjacent literals
// are joined as the compiler joins them.
std::optional<std::string> LiteralAt(const std::string& text, size_t position) {
    std::optional<std::string> joined;
    for (;;) {
        while (position < text.size() && std::isspace(static_cast<unsigned char>(text[position])))
            ++position;
        if (position >= text.size() || text[position] != '"') return joined;
        std::string literal;
        size_t i = position + 1;
        for (; i < text.size() && text[i] != '"'; ++i) {
            if (text[i] == '\\' && i + 1 < text.size()) {
                char next = text[++i];
                literal += next == 'n' ? '\n' : next == 't' ? '\t' : next;
            } else {
                literal += text[i];
            }
        }
        if (i >= text.size()) return joined;
        joined = joined.value_or("") + literal;
        position = i + 1;
    }
}

// The literal after each call of `name` that stands on its own (not the tail of another
// identifier or a member), after its first argument when `skip_argument` says so.
void CollectCalls(const std::string& text, std::string_view name, bool skip_argument,
                  std::set<std::string>& keys) {
    for (size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + 1)) {
        if (at > 0 && (IsIdentifierChar(text[at - 1]) || text[at - 1] == '.')) continue;
        size_t position = at + name.size();
        if (skip_argument) position = text.find(',', position) + 1;
        if (std::optional<std::string> literal = LiteralAt(text, position)) keys.insert(*literal);
    }
}

// The pages get their texts only through the embedded list, so a key missing from it shows
// untranslated even when English.wul has it.
TEST(EnglishCoverageTest, EveryTextOfTheCodeAndTheConsolePagesIsTranslated) {
    std::optional<std::string_view> english = FindEmbeddedResource("Language/English.wul");
    ASSERT_TRUE(english.has_value());
    std::istringstream in{std::string(*english)};
    std::array<std::string, 3> descriptions;
    LocalizationStringTable table;
    ASSERT_TRUE(LocalizationStringTable::ReadHeader(in, descriptions) && table.Load(in));

    std::set<std::string> code_keys;
    for (const char* folder : {LUMIDROP_SOURCE_DIR "/src", LUMIDROP_SOURCE_DIR "/plugins"}) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
            std::string extension = entry.path().extension().string();
            if (extension != ".cpp" && extension != ".h") continue;
            std::string text = testing::ReadWholeFile(entry.path());
            for (std::string_view call :
                 {"Translate(", "TranslateFormat(", "FormatTranslated(", "TranslationKey("})
                CollectCalls(text, call, false, code_keys);
            CollectCalls(text, "LogTranslated(", true, code_keys);
        }
    }
    ASSERT_FALSE(code_keys.empty());

    std::optional<std::string_view> list = FindEmbeddedResource("console/texts.txt");
    ASSERT_TRUE(list.has_value());
    std::set<std::string> listed;
    std::istringstream lines{std::string(*list)};
    for (std::string line; std::getline(lines, line);)
        if (!line.empty()) listed.insert(line);
    for (const std::set<std::string>* keys : {&code_keys, &listed}) {
        for (const std::string& key : *keys)
            EXPECT_NE(table.Lookup(key), key) << "English.wul lacks: \"" << key << "\"";
    }

    // The console's pages name their texts as T("...") in scripts and data-t="..." in markup.
    std::set<std::string> page_keys;
    for (const auto& entry :
         std::filesystem::directory_iterator(LUMIDROP_SOURCE_DIR "/res/console")) {
        std::string text = testing::ReadWholeFile(entry.path());
        if (entry.path().extension() == ".js") CollectCalls(text, "T(", false, page_keys);
        if (entry.path().extension() != ".html") continue;
        for (size_t at = text.find("data-t=\""); at != std::string::npos;
             at = text.find("data-t=\"", at + 1)) {
            page_keys.insert(text.substr(at + 8, text.find('"', at + 8) - at - 8));
        }
    }
    EXPECT_GT(page_keys.size(), 50u);
    for (const std::string& key : page_keys)
        EXPECT_TRUE(listed.contains(key)) << "console/texts.txt lacks: \"" << key << "\"";
}

}  // namespace
}  // namespace Zarn
