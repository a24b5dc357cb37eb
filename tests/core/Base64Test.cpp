#include <gtest/gtest.h>

#include <string>

#include "core/Base64.h"

namespace Zarn {
namespace {

TEST(Base64Test, EncodesTheStandardVectors) {
    EXPECT_EQ(Base64Encode(""), "");
    EXPECT_EQ(Base64Encode("f"), "Zg==");
    EXPECT_EQ(Base64Encode("fo"), "Zm8=");
    EXPECT_EQ(Base64Encode("foo"), "Zm9v");
    EXPECT_EQ(Base64Encode("foob"), "Zm9vYg==");
    EXPECT_EQ(Base64Encode("foobar"), "Zm9vYmFy");
    EXPECT_EQ(Base64Encode("\xfb\xff"), "+/8=");
}

TEST(Base64Test, BinaryOfEveryShortLengthRoundTrips) {
    std::string all;
    for (int i = 0; i < 20; ++i)
        all += static_cast<char>((i * 97 + 251) & 0xFF);
    for (size_t length = 0; length <= all.size(); ++length) {
        std::string bytes = all.substr(0, length);
        std::string encoded = Base64Encode(bytes);
        EXPECT_EQ(encoded.size() % 4, 0u);
        EXPECT_EQ(Base64Decode(encoded), bytes) << "length " << length;
    }
}

TEST(Base64Test, DecodeSkipsForeignCharactersAndStopsAtPadding) {
    struct Case {
        const char* text;
        const char* expected;
    };
    const Case cases[] = {
        {"dXNlcjpwYXNz", "user:pass"},
        {" dXNl\r\ncjp\twYX*Nz!", "user:pass"},
        {"Zm9v=YmFy", "foo"},
        {"Zg", "f"},
        {"Zm8", "fo"},
        {"=Zm9v", ""},
        {"", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(Base64Decode(c.text), c.expected);
    }
}

}  // namespace
}  // namespace Zarn
