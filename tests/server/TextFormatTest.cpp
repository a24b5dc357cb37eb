#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>

#include "server/RequestPath.h"
#include "server/TextFormat.h"

namespace Zarn {
namespace {

// Dates and digits of ordinary size the listing end-to-end test reads off real rows; here
// the escapes and the ends of the ranges no folder reaches.
TEST(TextFormatTest, EscapesAndFormatsToTheEndsOfTheirRanges) {
    EXPECT_EQ(HtmlEscape("<img src=x onerror=\"alert('1')\">& 한글"),
              "&lt;img src=x onerror=&quot;alert(&#39;1&#39;)&quot;&gt;&amp; 한글");
    EXPECT_EQ(HeaderSafe("a\r\nSet-Cookie: x\0y"), "aSet-Cookie: x");

    std::string appended = "x";
    AppendGroupedDigits(appended, UINT64_MAX);
    EXPECT_EQ(appended, "x18,446,744,073,709,551,615");
    EXPECT_EQ(GroupDigits(uint64_t{100000}), "100,000");
    EXPECT_EQ(GroupDigits(int64_t{-1234}), "-1,234");
    EXPECT_EQ(GroupDigits(INT64_MIN), "-9,223,372,036,854,775,808");

    // Half up, and a unit up once rounding reaches a thousand; a single byte is no plural.
    const std::pair<uint64_t, std::string_view> sizes[] = {
        {0, "0 bytes"},     {1, "1 byte"},           {999, "999 bytes"}, {1049, "1.0 kB"},
        {1050, "1.1 kB"},   {99949, "99.9 kB"},      {99950, "100 kB"},  {999499, "999 kB"},
        {999500, "1.0 MB"}, {UINT64_MAX, "18.4 EB"},
    };
    for (const auto& [bytes, expected] : sizes)
        EXPECT_EQ(ReadableSize(bytes, {.one = "1 byte", .many = "bytes"}), expected) << bytes;
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
    // Drives that ignore case open the trash and half-received files by any spelling.
    for (const char* name :
         {".LumiDrop-Trash", "UPLOADING_a.txt.lumidrop", "Uploading_tus-1.Lumidrop"})
        EXPECT_FALSE(IsVisibleName(name, true)) << name;
    EXPECT_TRUE(IsVisibleName("uploading_.txt", false));
}

}  // namespace
}  // namespace Zarn
