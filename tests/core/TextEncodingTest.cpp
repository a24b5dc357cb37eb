#include <gtest/gtest.h>

#include <string>

#include "core/TextEncoding.h"

namespace Zarn {
namespace {

TEST(TextEncodingTest, RecognisesWellFormedUtf8Only) {
    struct Case {
        std::string bytes;
        bool valid;
    };
    const Case cases[] = {
        {"", true},
        {"plain ASCII", true},
        {"한글", true},
        {"\xF0\x9F\x98\x80", true},   // U+1F600
        {"\xF4\x8F\xBF\xBF", true},   // U+10FFFF, the last code point
        {"\xC0\x80", false},          // overlong NUL
        {"\xE0\x80\xAF", false},      // overlong "/"
        {"\xED\xA0\x80", false},      // a surrogate
        {"\xF4\x90\x80\x80", false},  // past U+10FFFF
        {"\xED\x95", false},          // cut short
        {"a\x80", false},             // stray continuation byte
        {"\xFF", false},
        {"\xC7\xD1", false},  // code page 949
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.bytes));
        EXPECT_EQ(IsValidUtf8(c.bytes), c.valid);
    }
}

TEST(TextEncodingTest, Codepage949RoundTrips) {
    const std::string text = "한글 파일 이름.txt";
    std::optional<std::string> encoded = ConvertFromUtf8(text, 949);
    ASSERT_TRUE(encoded.has_value());
    EXPECT_FALSE(IsValidUtf8(*encoded));
    EXPECT_EQ(encoded->substr(0, 2), "\xC7\xD1");
    EXPECT_EQ(ConvertToUtf8(*encoded, 949), text);
}

TEST(TextEncodingTest, UnknownCodepageOrUnmappableTextGivesNothing) {
    EXPECT_EQ(ConvertToUtf8("abc", 12345), std::nullopt);
    EXPECT_EQ(ConvertFromUtf8("abc", 12345), std::nullopt);
    EXPECT_EQ(ConvertToUtf8("\xFF\xFF", 949), std::nullopt);
    EXPECT_EQ(ConvertToUtf8("\xC7", 949), std::nullopt);
    EXPECT_EQ(ConvertFromUtf8("\xF0\x9F\x98\x80", 949), std::nullopt);
}

}  // namespace
}  // namespace Zarn
