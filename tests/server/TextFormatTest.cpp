#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "core/StringUtil.h"
#include "server/RequestPath.h"
#include "server/TextFormat.h"

namespace Zarn {
namespace {

TEST(TextFormatTest, EscapesMarkupAndHeaders) {
    EXPECT_EQ(HtmlEscape("<img src=x onerror=\"alert('1')\">& 한글"),
              "&lt;img src=x onerror=&quot;alert(&#39;1&#39;)&quot;&gt;&amp; 한글");
    EXPECT_EQ(HeaderSafe("a\r\nSet-Cookie: x\0y"), "aSet-Cookie: x");
}

// The listing's formatters write digits themselves; printf and std::to_string are the
// yardsticks they must match.
std::string DateByPrintf(const std::tm& local) {
    int hour = local.tm_hour % 12;
    char text[64];
    std::snprintf(text, sizeof text, "%04lld-%02d-%02d %2s %02d:%02d",
                  static_cast<long long>(local.tm_year) + 1900, local.tm_mon + 1, local.tm_mday,
                  local.tm_hour < 12 ? "AM" : "PM", hour == 0 ? 12 : hour, local.tm_min);
    return text;
}

std::string DigitsByToString(uint64_t value) {
    std::string digits = std::to_string(value);
    std::string grouped;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) grouped += ',';
        grouped += digits[i];
    }
    return grouped;
}

TEST(TextFormatTest, FastFormattersAgreeWithPrintf) {
    // Local times in a zone spelled out in full (no zone files needed), every 17 minutes
    // across leap days, new years and the ends of the four-digit years.
    const char* saved = std::getenv("TZ");
    std::string saved_zone = saved == nullptr ? "" : saved;
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    ::tzset();
    const time_t starts[] = {-2203977600,  -86400,           951696000,    1709164800,
                             1703980800,   4107456000,       253402214400, 253402300800,
                             -62167219200, 67767976233316800};
    int compared = 0;
    for (time_t start : starts) {
        for (time_t time = start; time < start + 3 * 86400; time += 17 * 60) {
            std::tm local{};
            if (::localtime_r(&time, &local) == nullptr) continue;
            std::string appended = "x";
            AppendListingDate(appended, local);
            ASSERT_EQ(appended, Concat({"x", DateByPrintf(local)})) << time;
            ++compared;
        }
    }
    EXPECT_GT(compared, 2000);
    saved == nullptr ? ::unsetenv("TZ") : ::setenv("TZ", saved_zone.c_str(), 1);
    ::tzset();

    std::tm midnight{};
    midnight.tm_year = 126;
    midnight.tm_mday = 22;
    midnight.tm_min = 5;
    EXPECT_EQ(FormatListingDate(midnight), "2026-01-22 AM 12:05");

    std::vector<uint64_t> numbers{0, UINT64_MAX, UINT64_MAX - 1};
    for (uint64_t power = 1; power <= UINT64_MAX / 10; power *= 10) {
        numbers.insert(numbers.end(), {power - 1, power, power + 1, power * 10 - 1});
    }
    for (uint64_t number : numbers) {
        std::string appended = "x";
        AppendGroupedDigits(appended, number);
        EXPECT_EQ(appended, Concat({"x", DigitsByToString(number)}));
        EXPECT_EQ(GroupDigits(number), DigitsByToString(number));
    }
    EXPECT_EQ(GroupDigits(int64_t{-1234}), "-1,234");
    EXPECT_EQ(GroupDigits(INT64_MIN), "-9,223,372,036,854,775,808");
}

TEST(TextFormatTest, ReadableSizesRoundHalfUpAndMoveUpAUnitAtAThousand) {
    const std::pair<uint64_t, std::string_view> cases[] = {
        {0, "0 bytes"},          {999, "999 bytes"},       {1000, "1.0 kB"},
        {1049, "1.0 kB"},        {1050, "1.1 kB"},         {99949, "99.9 kB"},
        {99950, "100 kB"},       {999499, "999 kB"},       {999500, "1.0 MB"},
        {1400000, "1.4 MB"},     {84586532864, "84.6 GB"}, {999999999999999999, "1.0 EB"},
        {UINT64_MAX, "18.4 EB"},
    };
    for (const auto& [bytes, expected] : cases) {
        EXPECT_EQ(ReadableSize(bytes, "bytes"), expected) << bytes;
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
    // Drives that ignore case open the trash and half-received files by any spelling.
    for (const char* name :
         {".LumiDrop-Trash", "UPLOADING_a.txt.lumidrop", "Uploading_tus-1.Lumidrop"})
        EXPECT_FALSE(IsVisibleName(name, true)) << name;
    EXPECT_TRUE(IsVisibleName("uploading_.txt", false));
    EXPECT_EQ(MountNameOf("docs/a/b"), "docs");
    EXPECT_EQ(MountNameOf("docs"), "docs");
}

}  // namespace
}  // namespace Zarn
