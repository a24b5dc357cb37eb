#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "i18n/LocalizationStringTable.h"
#include "i18n/Translate.h"
#include "support/LogCapture.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::TempFolder;

const std::string kHeader = "Korvel Lumidrop UI Language File\nDeutsch\nJemand\n1.0\n";

// Every file with LF and with CR LF line ends; one bad line refuses the whole file.
TEST(LocalizationStringTableTest, ReadsEntriesWithAnyLineEndsAndRefusesBadLines) {
    const struct {
        std::string entries;  // with LF line ends
        std::map<std::string, std::string> lookups;
    } cases[] = {
        {"\"안녕\" = \"Hallo\"\n\n   x\n\t\"a\"\t=\"first\"\n\"a\"=\"second\"\n-\n",
         {{"안녕", "Hallo"}, {"a", "second"}}},
        {"\"quote \\\" and \\\\ slash\" = \"C:\\dir \\\"x\\\"\"  trailing ignored\n",
         {{"quote \" and \\ slash", "C:\\dir \"x\""}}},
        {"\n\"a\" = \"A\"\n \n\t\n\"b\"=\"B\"", {{"a", "A"}, {"b", "B"}}},
        {"\"a\" = \"1\r2\"\n", {{"a", "1\r2"}}},  // a CR inside quotes is kept
        {"\"a\" = \"A\"\n\"key\" \"no equals\"\n", {}},
        {"\"a\" = \"A\"\n\"unterminated = \"x\"\n", {}},
        {"\"a\" = \"A\n\"b\" = \"B\"\n", {}},  // a value the line break leaves open
    };
    for (const auto& c : cases) {
        for (bool crlf : {false, true}) {
            SCOPED_TRACE(::testing::Message() << c.entries << (crlf ? ", CR LF" : ", LF"));
            std::string text;
            for (char ch : kHeader + c.entries) {
                if (ch == '\n' && crlf) text += '\r';
                text += ch;
            }
            std::istringstream in(text);
            std::array<std::string, 3> descriptions;
            ASSERT_TRUE(LocalizationStringTable::ReadHeader(in, descriptions));
            LocalizationStringTable table;
            EXPECT_EQ(table.Load(in), !c.lookups.empty());
            EXPECT_EQ(table.Size(), c.lookups.size());
            for (const auto& [key, value] : c.lookups)
                EXPECT_EQ(table.Lookup(key), value);
            if (c.lookups.empty()) {
                EXPECT_EQ(table.Lookup("a"), "a");
            }
        }
    }
}

TEST(LocalizationStringTableTest, LoadsLanguageFilesFromTheHomeFolderAndInstallsEnglishOnce) {
    TempFolder home;
    // Saved by an editor that starts files with a byte order mark.
    home.Write("Language/Deutsch.wul",
               "\xEF\xBB\xBF" + kHeader + "\"폴더 만들기 실패\" = \"Ordner fehlgeschlagen\"\n");
    home.Write("Language/Broken.wul", kHeader + "broken\n");
    home.Write("Language/NotALanguage.wul", "hello\n");
    LocalizationStringTable table;
    ASSERT_TRUE(table.LoadLanguage(home.Path(), "Deutsch.wul"));
    EXPECT_EQ(table.Lookup("폴더 만들기 실패"), "Ordner fehlgeschlagen");
    EXPECT_FALSE(table.LoadLanguage(home.Path(), "Broken.wul"));
    EXPECT_EQ(table.Size(), 0u);
    EXPECT_FALSE(table.LoadLanguage(home.Path(), "Missing.wul"));
    EXPECT_FALSE(table.LoadLanguage(home.Path(), "../Language/Deutsch.wul"));
    // The file without the magic line is not a language.
    EXPECT_EQ(LocalizationStringTable::ListLanguages(home.Path()).size(), 2u);

    LocalizationStringTable::InstallShippedLanguages(home.Path());
    ASSERT_TRUE(table.LoadLanguage(home.Path(), "English.wul"));
    // An owner's edited copy is never overwritten.
    home.Write("Language/English.wul", kHeader);
    LocalizationStringTable::InstallShippedLanguages(home.Path());
    EXPECT_EQ(home.Read("Language/English.wul"), kHeader);
}

TEST(TranslateTest, UsesATranslatedFormatOnlyWhenItTakesTheSameArguments) {
    std::istringstream in(
        "\"좋은 %s %d\" = \"good %s %d\"\n\"나쁜 %s\" = \"bad %s %s %n\"\n\"폭 %5d\" = \"width "
        "%d\"\n");
    LocalizationStringTable& table = LocalizationStringTable::Instance();
    ASSERT_TRUE(table.Load(in));
    EXPECT_EQ(TranslateFormat("폭 %5d"), "폭 %5d");
    EXPECT_EQ(FormatConversions("100%% %-5s %02d %lu %"), "-5s;02d;lu;!");
    testing::LogCapture capture;
    LogTranslated(kLogNotice, "좋은 %s %d", "x", 7);
    LogTranslated(kLogNotice, "나쁜 %s", "y");
    const std::vector<std::pair<uint32_t, std::string>> expected = {{kLogNotice, "good x 7"},
                                                                    {kLogNotice, "나쁜 y"}};
    EXPECT_EQ(capture.Lines(), expected);
    table.Clear();
}

}  // namespace
}  // namespace Zarn
