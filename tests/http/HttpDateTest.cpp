#include <gtest/gtest.h>

#include "http/HttpDate.h"
#include "http/Validators.h"

namespace Zarn {
namespace {

// The three forms of RFC 9110 §5.6.7; that what we write reads back is the fuzz harness's
// to check.
TEST(HttpDateTest, FormatsAndReadsEveryFormAClientMaySend) {
    EXPECT_EQ(HttpDate::Format(0), "Thu, 01 Jan 1970 00:00:00 GMT");
    EXPECT_EQ(HttpDate::Format(951782400), "Tue, 29 Feb 2000 00:00:00 GMT");
    for (const char* text : {" Mon, 23 Nov 2026 00:00:00 GMT ", "Monday, 23-Nov-26 00:00:00 GMT",
                             "Mon Nov 23 00:00:00 2026"}) {
        EXPECT_EQ(HttpDate::Parse(text), 1795392000) << text;
    }
    EXPECT_EQ(HttpDate::Parse("Sunday, 06-Nov-94 08:49:37 GMT"), 784111777);
    EXPECT_EQ(HttpDate::Parse("Sun Nov  6 08:49:37 1994"), 784111777);
    // What is not a date never matches a file's time.
    for (const char* text :
         {"", "yesterday", "Mon, 23 Nov 2026 00:00:00", "Mon, 23 Foo 2026 00:00:00 GMT",
          "Mon, 23 Nov 2026 24:00:00 GMT", "Mon, 2 Nov 2026 00:00:00 GMT", "Mon,",
          "Sun Nov 6 08:49:37 1994", "\"abc\""}) {
        EXPECT_FALSE(HttpDate::Parse(text)) << text;
    }
}

TEST(ValidatorsTest, ConditionalHeadersAgainstAFile) {
    struct stat info {};
    info.st_dev = 0x801;
    info.st_ino = 1234;
    info.st_size = 4096;
    info.st_mtim.tv_sec = 1795392000;
    info.st_mtim.tv_nsec = 5;
    Validators file = Validators::OfFile(info);
    const std::string& tag = file.GetEntityTag();
    ASSERT_TRUE(tag.starts_with('"') && tag.ends_with('"'));

    // Any change of the file's identity, size or time changes the tag.
    for (auto change :
         {+[](struct stat& s) { s.st_ino++; }, +[](struct stat& s) { s.st_size++; },
          +[](struct stat& s) { s.st_mtim.tv_nsec++; }, +[](struct stat& s) { s.st_dev++; }}) {
        struct stat other = info;
        change(other);
        EXPECT_NE(Validators::OfFile(other).GetEntityTag(), tag);
    }

    // 304 for a matching tag or a later date, and If-Range against the tag, cross the
    // socket in the end-to-end tests; here, the forms they do not send.
    auto headers = [](std::string name, std::string value) {
        return HeaderMap{{std::move(name), std::move(value)}};
    };
    EXPECT_TRUE(file.IsNotModified(headers("IF-NONE-MATCH", "\"x\", W/" + tag)));
    EXPECT_TRUE(file.IsNotModified(headers("IF-NONE-MATCH", "*")));
    EXPECT_FALSE(file.IsNotModified(headers("IF-MODIFIED-SINCE", "garbage")));
    // If-None-Match decides alone when both come.
    EXPECT_FALSE(file.IsNotModified(
        {{"IF-NONE-MATCH", "\"other\""}, {"IF-MODIFIED-SINCE", "Tue, 24 Nov 2026 00:00:00 GMT"}}));
    EXPECT_FALSE(file.AllowsRange(headers("IF-RANGE", "W/" + tag)));  // needs a strong match
    EXPECT_TRUE(file.AllowsRange(headers("IF-RANGE", "Mon, 23 Nov 2026 00:00:00 GMT")));
    EXPECT_FALSE(file.AllowsRange(headers("IF-RANGE", "Tue, 24 Nov 2026 00:00:00 GMT")));

    EXPECT_NE(Validators::OfBytes("abc").GetEntityTag(), Validators::OfBytes("abd").GetEntityTag());
    EXPECT_FALSE(Validators::OfBytes("abc").IsNotModified(
        headers("IF-MODIFIED-SINCE", "Tue, 24 Nov 2026 00:00:00 GMT")));
}

}  // namespace
}  // namespace Zarn
