#include <gtest/gtest.h>

#include "share/MimeTypeTable.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::TempFolder;

TEST(MimeTypeTableTest, BuiltInTableAnswersByLastExtension) {
    TempFolder home;
    MimeTypeTable table;
    table.LoadFromHome(home.Path());
    const std::pair<const char*, const char*> cases[] = {
        {"a.JPG", "image/jpeg"},
        {"archive.tar.gz", "application/x-gzip"},
        {"dir/sub.dir/noext", "application/octet-stream"},
        {"weird.", "application/octet-stream"},
    };
    for (const auto& [file_name, type] : cases)
        EXPECT_EQ(table.LookupFileName(file_name), type) << file_name;
}

TEST(MimeTypeTableTest, ExternalFileWinsAndKeepsTheLineRules) {
    TempFolder home;
    home.Write("mime-type.txt",
               "text/plain txt\r\n"
               "text/plain\r\n"  // a bare type before CR: files without extension
               "\r\n"
               "  image/png \t png  PNG\r\n"  // keys kept as written: PNG never matches
               "text/x-later txt\r\n"         // a later line wins
               "application/only-type");      // last line, no line end: adds nothing
    MimeTypeTable table;
    table.LoadFromHome(home.Path());
    EXPECT_EQ(table.LookupFileName("README"), "text/plain");
    EXPECT_EQ(table.LookupFileName("a.txt"), "text/x-later");
    EXPECT_EQ(table.LookupFileName("a.png"), "image/png");
    EXPECT_EQ(table.Lookup("only-type"), "application/octet-stream");

    MimeTypeTable without_cr;
    without_cr.Load("text/plain txt\ntext/plain");
    EXPECT_EQ(without_cr.LookupFileName("README"), "application/octet-stream");
}

TEST(MimeTypeTableTest, OverlongLineEndsTheTableInsteadOfHanging) {
    MimeTypeTable table;
    table.Load("text/plain txt\nx/long " + std::string(200, 'e') + "\nimage/png png\n");
    EXPECT_EQ(table.Lookup("txt"), "text/plain");
    EXPECT_EQ(table.Lookup("png"), "application/octet-stream");
    // 126 characters, then a CR: 127 still fit.
    table.Load("x/t " + std::string(122, 'e') + "\r\nimage/png png\n");
    EXPECT_EQ(table.Lookup("png"), "image/png");
}

}  // namespace
}  // namespace Zarn
