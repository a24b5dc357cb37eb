#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <sstream>
#include <streambuf>

#include "i18n/LocalizationStringTable.h"
#include "i18n/Translate.h"
#include "support/LogCapture.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::LogCapture;
using testing::TempFolder;

const std::string kHeader = "Korvel Lumidrop UI Language File\nDeutsch\nJemand\n1.0\n";

TEST(LocalizationStringTableTest, ChecksTheMagicLine) {
    struct Case {
        std::string first_line;
        bool accepted;
    };
    const Case cases[] = {
        {"Korvel Lumidrop UI Language File", true},
        {"Korvel Lumidrop UI Language File   \r", true},
        {"\xEF\xBB\xBFKorvel Lumidrop UI Language File", true},
        {"Korvel Lumidrop UI Language File v2", false},
        {"korvel lumidrop ui language file", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.first_line);
        std::istringstream in(c.first_line + "\n  Deutsch \r\nJemand\n1.0\n");
        std::array<std::string, 3> descriptions;
        EXPECT_EQ(LocalizationStringTable::ReadHeader(in, descriptions), c.accepted);
        if (c.accepted) {
            EXPECT_EQ(descriptions[0], "Deutsch");
        }
    }
    std::istringstream short_header("Korvel Lumidrop UI Language File\nonly two\n");
    std::array<std::string, 3> descriptions;
    EXPECT_FALSE(LocalizationStringTable::ReadHeader(short_header, descriptions));
}

TEST(LocalizationStringTableTest, ReadsEntriesAndSkipsShortLines) {
    LocalizationStringTable table;
    std::istringstream in(
        "\"안녕\" = \"Hallo\"\r\n"
        "\n"
        "   x\n"
        "\t\"a\"\t=\"first\"\n"
        "\"a\"=\"second\"\n"
        "\"quote \\\" and \\\\ slash\" = \"C:\\dir \\\"x\\\"\"  trailing ignored\n");
    ASSERT_TRUE(table.Load(in));
    EXPECT_EQ(table.Lookup("안녕"), "Hallo");
    EXPECT_EQ(table.Lookup("a"), "second");
    EXPECT_EQ(table.Lookup("quote \" and \\ slash"), "C:\\dir \"x\"");
    EXPECT_EQ(table.Lookup("missing"), "missing");
    EXPECT_EQ(table.Size(), 3u);
}

TEST(LocalizationStringTableTest, OneBadLineRefusesTheWholeFile) {
    const char* bad_lines[] = {"abc",
                               "\"key\" \"no equals\"",
                               "\"key\" =",
                               "\"unterminated = \"x\"",
                               "\"key\" = value",
                               "\"key\" = \"unterminated"};
    for (const char* bad : bad_lines) {
        SCOPED_TRACE(bad);
        LocalizationStringTable table;
        std::istringstream in(std::string("\"ok\" = \"fine\"\n") + bad + "\n\"z\" = \"zz\"\n");
        EXPECT_FALSE(table.Load(in));
        EXPECT_EQ(table.Size(), 0u);
        EXPECT_EQ(table.Lookup("ok"), "ok");
    }
}

// Hands the text out in reads of random sizes, the way a file may arrive.
class ChunkedBuffer : public std::streambuf {
public:
    ChunkedBuffer(std::string text, uint32_t seed, size_t max_chunk)
        : text_(std::move(text)), random_(seed), chunk_(1, max_chunk) {}

protected:
    int_type underflow() override {
        if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
        if (offset_ >= text_.size()) return traits_type::eof();
        size_t count = std::min(chunk_(random_), text_.size() - offset_);
        char* begin = text_.data() + offset_;
        setg(begin, begin, begin + count);
        offset_ += count;
        return traits_type::to_int_type(*begin);
    }

private:
    std::string text_;
    size_t offset_ = 0;
    std::mt19937 random_;
    std::uniform_int_distribution<size_t> chunk_;
};

std::string WithWindowsLineEnds(const std::string& text) {
    std::string converted;
    for (char c : text) {
        if (c == '\n') converted += '\r';
        converted += c;
    }
    return converted;
}

TEST(LocalizationStringTableTest, WindowsLineEndsReadLikeUnixOnes) {
    struct Case {
        const char* label;
        std::string entries;  // with LF line ends
        bool accepted;
        std::map<std::string, std::string> lookups;
    };
    const Case cases[] = {
        {"one-character spacer lines",
         "\"a\" = \"A\"\nx\n\"b\" = \"B\"\n-\n",
         true,
         {{"a", "A"}, {"b", "B"}}},
        {"blank lines and no final line end",
         "\n\"a\" = \"A\"\n \n\t\n\"b\"=\"B\"",
         true,
         {{"a", "A"}, {"b", "B"}}},
        {"a CR inside quotes is kept", "\"a\" = \"1\r2\"\n", true, {{"a", "1\r2"}}},
        {"text after the value", "\"a\" = \"A\" ; note\n", true, {{"a", "A"}}},
        {"a malformed line refuses the file", "\"a\" = \"A\"\nab\n", false, {}},
        {"a value the line break leaves open", "\"a\" = \"A\n\"b\" = \"B\"\n", false, {}},
    };
    for (const Case& c : cases) {
        for (bool windows : {false, true}) {
            std::string text = kHeader + c.entries;
            if (windows) text = WithWindowsLineEnds(text);
            for (uint32_t seed = 0; seed <= 8; ++seed) {
                SCOPED_TRACE(::testing::Message()
                             << c.label << (windows ? ", CR LF" : ", LF") << ", seed " << seed);
                // Seed 0 reads the file in one piece.
                ChunkedBuffer buffer(text, seed, seed == 0 ? text.size() : 1 + seed % 4 * 5);
                std::istream in(&buffer);
                std::array<std::string, 3> descriptions;
                ASSERT_TRUE(LocalizationStringTable::ReadHeader(in, descriptions));
                EXPECT_EQ(descriptions[2], "1.0");
                LocalizationStringTable table;
                EXPECT_EQ(table.Load(in), c.accepted);
                EXPECT_EQ(table.Size(), c.lookups.size());
                for (const auto& [key, value] : c.lookups)
                    EXPECT_EQ(table.Lookup(key), value);
            }
        }
    }
}

TEST(LocalizationStringTableTest, LoadsLanguageFilesFromTheHomeFolder) {
    TempFolder home;
    home.Write("Language/Deutsch.wul",
               kHeader + "\"폴더 만들기 실패\" = \"Ordner fehlgeschlagen\"\n");
    home.Write("Language/Broken.wul", kHeader + "broken\n");
    home.Write("Language/NotALanguage.wul", "hello\n");
    LocalizationStringTable table;
    ASSERT_TRUE(table.LoadLanguage(home.Path(), "Deutsch.wul"));
    EXPECT_EQ(table.Lookup("폴더 만들기 실패"), "Ordner fehlgeschlagen");
    EXPECT_FALSE(table.LoadLanguage(home.Path(), "Broken.wul"));
    EXPECT_EQ(table.Size(), 0u);
    EXPECT_FALSE(table.LoadLanguage(home.Path(), "Missing.wul"));
    EXPECT_FALSE(table.LoadLanguage(home.Path(), "../Language/Deutsch.wul"));
    EXPECT_TRUE(table.LoadLanguage(home.Path(), ""));
    EXPECT_EQ(table.Size(), 0u);

    auto languages = LocalizationStringTable::ListLanguages(home.Path());
    ASSERT_EQ(languages.size(), 2u);  // the file without the magic line is not a language
    for (const auto& language : languages)
        EXPECT_EQ(language.descriptions[0], "Deutsch");
}

TEST(LocalizationStringTableTest, ShippedEnglishIsInstalledOnceAndLoads) {
    TempFolder home;
    LocalizationStringTable::InstallShippedLanguages(home.Path());
    ASSERT_TRUE(home.Exists("Language/English.wul"));
    LocalizationStringTable table;
    ASSERT_TRUE(table.LoadLanguage(home.Path(), "English.wul"));
    EXPECT_EQ(table.Lookup("폴더를 만들지 못했습니다."), "Could not create the folder.");

    // An owner's edited copy is never overwritten.
    home.Write("Language/English.wul", kHeader);
    LocalizationStringTable::InstallShippedLanguages(home.Path());
    EXPECT_EQ(home.Read("Language/English.wul"), kHeader);
}

TEST(TranslateTest, UsesATranslatedFormatOnlyWhenItTakesTheSameArguments) {
    std::istringstream in(
        "\"좋은 %s %d\" = \"good %s %d\"\n"
        "\"나쁜 %s\" = \"bad %s %s %n\"\n"
        "\"폭 %5d\" = \"width %d\"\n");
    LocalizationStringTable& table = LocalizationStringTable::Instance();
    ASSERT_TRUE(table.Load(in));
    EXPECT_EQ(TranslateFormat("좋은 %s %d"), "good %s %d");
    EXPECT_EQ(TranslateFormat("나쁜 %s"), "나쁜 %s");
    EXPECT_EQ(TranslateFormat("폭 %5d"), "폭 %5d");
    EXPECT_EQ(FormatConversions("100%% %-5s %02d %lu %"), "-5s;02d;lu;!");
    {
        LogCapture capture;
        LogTranslated(kLogNotice, "좋은 %s %d", "x", 7);
        LogTranslated(kLogNotice, "나쁜 %s", "y");
        const std::vector<std::pair<uint32_t, std::string>> expected = {{kLogNotice, "good x 7"},
                                                                        {kLogNotice, "나쁜 y"}};
        EXPECT_EQ(capture.Lines(), expected);
    }
    table.Clear();
}

}  // namespace
}  // namespace Zarn
