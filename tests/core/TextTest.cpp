#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "core/Base64.h"
#include "core/CaseFold.h"
#include "core/JsonWriter.h"
#include "core/PathUtil.h"
#include "core/StringUtil.h"
#include "core/TextEncoding.h"
#include "core/UrlCodec.h"

namespace Zarn {
namespace {

struct TextCase {
    std::string input;
    std::string expected;
};

TEST(Base64Test, DecodeSkipsForeignCharactersAndStopsAtPadding) {
    const TextCase cases[] = {{"dXNlcjpwYXNz", "user:pass"},
                              {" dXNl\r\ncjp\twYX*Nz!", "user:pass"},
                              {"+/8=", "\xfb\xff"},
                              {"Zm9v=YmFy", "foo"},
                              {"Zg", "f"},
                              {"Zm8", "fo"},
                              {"=Zm9v", ""},
                              {"", ""}};
    for (const TextCase& c : cases)
        EXPECT_EQ(Base64Decode(c.input), c.expected) << c.input;
}

// Round trips are the fuzz harness's; here, which characters stay and how escapes are spelt.
TEST(UrlCodecTest, EncodeKeepsOnlyPlainCharactersInLowerCaseEscapes) {
    const TextCase cases[] = {{"azAZ09_./", "azAZ09_./"},
                              {"a b", "a%20b"},
                              {"1+1", "1%2b1"},
                              {"100%", "100%25"},
                              {"a-b~c?d=e&f", "a%2db%7ec%3fd%3de%26f"},
                              {"한", "%ed%95%9c"},
                              {std::string("\0\xff", 2), "%00%ff"}};
    for (const TextCase& c : cases)
        EXPECT_EQ(UrlEncode(c.input), c.expected) << c.input;
}

TEST(UrlCodecTest, PercentDecodeTakesOnlyCompleteEscapes) {
    const TextCase cases[] = {{"%41", "A"},   {"%4a%4A", "JJ"}, {"a%4", "a%4"},     {"a%", "a%"},
                              {"%zz", "%zz"}, {"%4g", "%4g"},   {"%g4", "%g4"},     {"+", "+"},
                              {"%%41", "%A"}, {"%2541", "%41"}, {"%00", {"\0", 1}}, {"", ""}};
    for (const TextCase& c : cases)
        EXPECT_EQ(PercentDecode(c.input), c.expected) << c.input;
}

// A name in UTF-8 and the same name in code page 949 find one file in the server's
// end-to-end test; here, bytes neither reads, and a plus that stays a plus.
TEST(UrlCodecTest, DecodeUrlTextKeepsWhatNoCodePageReads) {
    const TextCase cases[] = {
        {"%FF%FE", "\xFF\xFE"},  // valid in neither: kept
        {"%C7", "\xC7"},         // a lead byte without its partner
        {"a+b%20c", "a+b c"},
    };
    for (const TextCase& c : cases) {
        SCOPED_TRACE(c.input);
        EXPECT_EQ(DecodeUrlText(c.input, 949), c.expected);
    }
    EXPECT_EQ(DecodeUrlText("%C7%D1", 12345), "\xC7\xD1");
}

TEST(TextEncodingTest, Codepage949RoundTripsAndWhatCannotConvertGivesNothing) {
    const std::string text = "한글 파일 이름.txt";
    std::optional<std::string> encoded = ConvertFromUtf8(text, 949);
    ASSERT_TRUE(encoded.has_value());
    EXPECT_EQ(encoded->substr(0, 2), "\xC7\xD1");
    EXPECT_EQ(ConvertToUtf8(*encoded, 949), text);

    EXPECT_EQ(ConvertToUtf8("abc", 12345), std::nullopt);
    EXPECT_EQ(ConvertFromUtf8("abc", 12345), std::nullopt);
    EXPECT_EQ(ConvertToUtf8("\xFF\xFF", 949), std::nullopt);
    EXPECT_EQ(ConvertToUtf8("\xC7", 949), std::nullopt);
    EXPECT_EQ(ConvertFromUtf8("\xF0\x9F\x98\x80", 949), std::nullopt);
}

// iconv took four-byte forms past U+10FFFF (and, depending on the library, other forms that
// are not UTF-8) from code page 65001 and handed them on as text. Our own check and the
// conversions must agree on every form.
TEST(TextEncodingTest, Codepage65001TakesOnlyWellFormedUtf8) {
    const std::vector<std::string> well_formed = {"", "plain", "한글", "\xF0\x9F\x98\x80",
                                                  "\xF4\x8F\xBF\xBF"};  // U+10FFFF, the last
    const std::vector<std::string> malformed[] = {
        {"\xC0\x80", "\xC1\xBF", "\xE0\x80\xAF", "\xF0\x8F\xBF\xBF"},             // overlong
        {"\xED\xA0\x80", "\xED\xBF\xBF", "\xED\xA0\xBD\xED\xB8\x80"},             // surrogates
        {"\xF4\x90\x80\x80", "\xF7\xBF\xBF\xBF", "\xF8\x88\x80\x80\x80"},         // past U+10FFFF
        {"\xFC\x84\x80\x80\x80\x80", "\xFF", "a\x80", "\xED\x95", "ok\xE2\x82"},  // stray, cut
        {"\xC7\xD1"},                                                             // code page 949
    };
    for (const std::string& bytes : well_formed) {
        SCOPED_TRACE(::testing::PrintToString(bytes));
        EXPECT_TRUE(IsValidUtf8(bytes));
        EXPECT_EQ(ConvertToUtf8(bytes, 65001), bytes);
        EXPECT_EQ(ConvertFromUtf8(bytes, 65001), bytes);
    }
    for (const auto& group : malformed) {
        for (const std::string& bytes : group) {
            SCOPED_TRACE(::testing::PrintToString(bytes));
            EXPECT_FALSE(IsValidUtf8(bytes));
            EXPECT_EQ(ConvertToUtf8(bytes, 65001), std::nullopt);
            EXPECT_EQ(ConvertFromUtf8(bytes, 65001), std::nullopt);
        }
    }
}

// Upper and lower case of one script fold to the same text; what has no case, and bytes
// that are not UTF-8, stay as they are. Latin and Greek names are found in any case by the
// search's end-to-end test.
TEST(CaseFoldTest, FoldsEveryScriptWithCasesAndKeepsTheRest) {
    const TextCase cases[] = {
        {"ÉCOLE été", "école été"},
        {"ς", "σ"},  // final sigma
        {"ПРИВЕТ", "привет"},
        {"ẞ", "ß"},
        {"한글 写真", "한글 写真"},
        {"A\xff\xc3(\xed\xa0\x80Z", "a\xff\xc3(\xed\xa0\x80z"},  // stray, cut and surrogate
    };
    for (const TextCase& c : cases) {
        EXPECT_EQ(FoldCase(c.input), c.expected) << c.input;
    }
}

TEST(StringUtilTest, ParseLeadingDecimalSkipsLeadersAndSaturates) {
    const std::pair<std::string, uint64_t> cases[] = {{"42abc", 42},
                                                      {"abc42x", 42},
                                                      {"  7 8", 7},
                                                      {"", 0},
                                                      {"18446744073709551615", UINT64_MAX},
                                                      {"18446744073709551616", UINT64_MAX},
                                                      {"99999999999999999999999", UINT64_MAX},
                                                      {"1844674407370955161", 1844674407370955161}};
    for (const auto& [text, value] : cases)
        EXPECT_EQ(ParseLeadingDecimal(text), value) << text;
}

TEST(PathUtilTest, MakeAbsolutePathResolvesDotsAndSlashesAsTextFromTheCurrentFolder) {
    const TextCase cases[] = {
        {"/a/./b//c/../d", "/a/b/d"}, {"/a/b/../", "/a"}, {"//x///y/", "/x/y"},
        {"/../../etc", "/etc"},       {"/", "/"},         {"/a/...", "/a/..."},
    };
    for (const TextCase& c : cases) {
        SCOPED_TRACE(c.input);
        EXPECT_EQ(MakeAbsolutePath(c.input), c.expected);
    }
    char buffer[4096];
    ASSERT_NE(::getcwd(buffer, sizeof buffer), nullptr);
    std::string cwd = buffer;
    std::string prefix = cwd == "/" ? "" : cwd;
    EXPECT_EQ(MakeAbsolutePath("x/../y"), prefix + "/y");
    EXPECT_EQ(MakeAbsolutePath("./not-yet-there.txt"), prefix + "/not-yet-there.txt");
    EXPECT_EQ(MakeAbsolutePath(""), cwd);
}

TEST(JsonWriterTest, AnyBytesBecomeValidJsonThatCannotCloseAScript) {
    EXPECT_EQ(JsonWriter::Quote("a\"b\\c\n\r\t\x01\x7f"), R"("a\"b\\c\n\r\t\u0001\u007f")");
    EXPECT_EQ(JsonWriter::Quote("</script><!--&"), R"("\u003c/script\u003e\u003c!--\u0026")");
    EXPECT_EQ(JsonWriter::Quote("a\u2028b\u2029c\u2027"), "\"a\\u2028b\\u2029c\u2027\"");
    // Well-formed UTF-8 passes as it is; every byte that is not becomes U+FFFD.
    EXPECT_EQ(JsonWriter::Quote("한글 é 😀"), "\"한글 é 😀\"");
    EXPECT_EQ(JsonWriter::Quote("raw\xb0\xa1.txt"), "\"raw\xEF\xBF\xBD\xEF\xBF\xBD.txt\"");
    EXPECT_EQ(JsonWriter::Quote("\xC0\xAF"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\"");  // overlong
    EXPECT_EQ(JsonWriter::Quote("\xED\xA0\x80"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"");
    EXPECT_EQ(JsonWriter::Quote("\xF4\x90\x80\x80").substr(0, 4), "\"\xEF\xBF\xBD");
    EXPECT_EQ(JsonWriter::Quote("\xE2\x82"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\"");  // cut short
}

}  // namespace
}  // namespace Zarn
