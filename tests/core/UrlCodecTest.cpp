#include <gtest/gtest.h>

#include <string>

#include "core/UrlCodec.h"

namespace Zarn {
namespace {

struct TextCase {
    std::string input;
    std::string expected;
};

TEST(UrlCodecTest, EncodeKeepsOnlyPlainCharactersAndWritesLowerCaseHex) {
    const TextCase cases[] = {
        {"azAZ09_./", "azAZ09_./"},
        {"a b", "a%20b"},
        {"1+1", "1%2b1"},
        {"100%", "100%25"},
        {"a-b~c?d=e&f", "a%2db%7ec%3fd%3de%26f"},
        {"한", "%ed%95%9c"},
        {std::string("\0\xff", 2), "%00%ff"},
    };
    for (const TextCase& c : cases) {
        SCOPED_TRACE(c.input);
        EXPECT_EQ(UrlEncode(c.input), c.expected);
    }
}

TEST(UrlCodecTest, PercentDecodeTakesOnlyCompleteEscapes) {
    const TextCase cases[] = {
        {"%41", "A"},
        {"%4a%4A", "JJ"},
        {"a%4", "a%4"},
        {"a%", "a%"},
        {"%", "%"},
        {"%zz", "%zz"},
        {"%4g", "%4g"},
        {"%g4", "%g4"},
        {"+", "+"},
        {"a+b%20c", "a+b c"},
        {"%%41", "%A"},
        {"%2541", "%41"},
        {"%00", std::string(1, '\0')},
        {"", ""},
    };
    for (const TextCase& c : cases) {
        SCOPED_TRACE(c.input);
        EXPECT_EQ(PercentDecode(c.input), c.expected);
    }
}

TEST(UrlCodecTest, EveryByteSurvivesEncodeThenDecode) {
    std::string bytes;
    for (int i = 0; i < 256; ++i)
        bytes += static_cast<char>(i);
    bytes += bytes;
    EXPECT_EQ(PercentDecode(UrlEncode(bytes)), bytes);
}

TEST(UrlCodecTest, DecodeUrlTextPrefersUtf8ThenTheCodePage) {
    const TextCase cases[] = {
        {"%ED%95%9C", "한"},               // already UTF-8
        {"%C7%D1%B1%DB.txt", "한글.txt"},  // code page 949
        {"%FF%FE", "\xFF\xFE"},            // valid in neither: kept
        {"%C7", "\xC7"},                   // a lead byte without its partner
        {"a+b%20c", "a+b c"},
    };
    for (const TextCase& c : cases) {
        SCOPED_TRACE(c.input);
        EXPECT_EQ(DecodeUrlText(c.input, 949), c.expected);
    }
    EXPECT_EQ(DecodeUrlText("%C7%D1", 12345), "\xC7\xD1");
}

}  // namespace
}  // namespace Zarn
