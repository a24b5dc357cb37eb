// Keeps the shipped English translation honest: every text the code hands to the
// localisation table must have an entry in res/Language/English.wul.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
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

// Every literal passed to Translate, TranslateFormat, LogTranslated or TranslationKey.
std::set<std::string> TranslatableLiterals() {
    static const std::regex kCall(
        R"re(\b(?:Translate|TranslateFormat|TranslationKey)\(\s*"((?:[^"\\]|\\.)*)"|\bLogTranslated\([^,]*,\s*"((?:[^"\\]|\\.)*)")re");
    std::set<std::string> keys;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(LUMIDROP_SOURCE_DIR "/src")) {
        std::string extension = entry.path().extension().string();
        if (extension != ".cpp" && extension != ".h") continue;
        std::ifstream in(entry.path());
        std::stringstream source;
        source << in.rdbuf();
        std::string text = source.str();
        for (std::sregex_iterator match(text.begin(), text.end(), kCall), end; match != end;
             ++match) {
            std::string literal = (*match)[1].matched ? (*match)[1].str() : (*match)[2].str();
            keys.insert(UnescapeLiteral(literal));
        }
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
