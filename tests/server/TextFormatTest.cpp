#include <gtest/gtest.h>

#include "server/RequestPath.h"
#include "server/TextFormat.h"

namespace Zarn {
namespace {

TEST(TextFormatTest, EscapesMarkupAndGroupsDigits) {
    EXPECT_EQ(HtmlEscape("<img src=x onerror=\"alert('1')\">&"),
              "&lt;img src=x onerror=&quot;alert(&#39;1&#39;)&quot;&gt;&amp;");
    EXPECT_EQ(HtmlEscape("한글 plain"), "한글 plain");
    EXPECT_EQ(GroupDigits(uint64_t{1234567}), "1,234,567");
    EXPECT_EQ(GroupDigits(uint64_t{999}), "999");
    EXPECT_EQ(GroupDigits(uint64_t{1000}), "1,000");
    EXPECT_EQ(GroupDigits(uint64_t{0}), "0");
    EXPECT_EQ(GroupDigits(int64_t{-1234}), "-1,234");
    EXPECT_EQ(GroupDigits(UINT64_MAX), "18,446,744,073,709,551,615");
    EXPECT_EQ(HeaderSafe("a\r\nSet-Cookie: x\0y"), "aSet-Cookie: x");
}

TEST(TextFormatTest, WritesListingDatesOnATwelveHourClock) {
    struct Case {
        int hour, minute;
        const char* text;
    };
    const Case cases[] = {{0, 5, "2026-11-22 AM 12:05"},
                          {11, 59, "2026-11-22 AM 11:59"},
                          {12, 0, "2026-11-22 PM 12:00"},
                          {13, 0, "2026-11-22 PM 01:00"},
                          {23, 7, "2026-11-22 PM 11:07"}};
    for (const Case& c : cases) {
        std::tm time{};
        time.tm_year = 126;
        time.tm_mon = 10;
        time.tm_mday = 22;
        time.tm_hour = c.hour;
        time.tm_min = c.minute;
        EXPECT_EQ(FormatListingDate(time), c.text);
    }
}

TEST(RequestPathTest, ValidatesAndNormalisesPaths) {
    struct Case {
        const char* path;
        bool valid;
        const char* normal;
    };
    const Case cases[] = {
        {"", true, ""},
        {"docs/a.txt", true, "docs/a.txt"},
        {"docs/", true, "docs/"},
        {"docs/...", true, "docs/..."},
        {"/x", false, "x"},
        {"docs//a", false, "docs/a"},
        {"a/../b", false, "b"},
        {"../../etc/passwd", false, "etc/passwd"},
        {"a/./b/", false, "a/b/"},
        {"a/..", false, ""},
        {"a/b/..", false, "a/"},
        {".", false, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(IsValidRequestPath(c.path), c.valid);
        EXPECT_EQ(NormalizeRequestPath(c.path), c.normal);
        EXPECT_TRUE(IsValidRequestPath(NormalizeRequestPath(c.path)));
    }
    EXPECT_EQ(MountNameOf("docs/a/b"), "docs");
    EXPECT_EQ(MountNameOf("docs"), "docs");
}

}  // namespace
}  // namespace Zarn
