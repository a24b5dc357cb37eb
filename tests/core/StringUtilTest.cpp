#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "core/StringUtil.h"

namespace Zarn {
namespace {

TEST(StringUtilTest, TrimDropsBlanksAtBothEndsOnly) {
    EXPECT_EQ(Trim(" \t a b \r\n"), "a b");
    EXPECT_EQ(Trim("\r\n\t "), "");
    EXPECT_EQ(Trim(""), "");
    EXPECT_EQ(Trim("x"), "x");
    EXPECT_EQ(Trim("--x--", "-"), "x");
}

TEST(StringUtilTest, ParseLeadingDecimalSkipsLeadersAndSaturates) {
    struct Case {
        const char* text;
        uint64_t value;
    };
    const Case cases[] = {
        {"42", 42},
        {"42abc", 42},
        {"abc42x", 42},
        {"  7 8", 7},
        {"", 0},
        {"none", 0},
        {"18446744073709551615", UINT64_MAX},
        {"18446744073709551616", UINT64_MAX},
        {"99999999999999999999999", UINT64_MAX},
        {"1844674407370955161", 1844674407370955161ull},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(ParseLeadingDecimal(c.text), c.value);
    }
}

}  // namespace
}  // namespace Zarn
