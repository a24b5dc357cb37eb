#include <gtest/gtest.h>

#include "share/MimeTypeTable.h"
#include "support/LogCapture.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::LogCapture;
using testing::TempFolder;

TEST(MimeTypeTableTest, BuiltInTableAnswersByLastExtension) {
    TempFolder home;
    LogCapture capture;
    MimeTypeTable table;
    table.LoadFromHome(home.Path());
    EXPECT_TRUE(capture.Contains(kLogNotice, "내장 mime-type.txt를 로드함.."));
    struct Case {
        const char* file_name;
        const char* type;
    };
    const Case cases[] = {
        {"a.JPG", "image/jpeg"},
        {"a.jpg", "image/jpeg"},
        {"archive.tar.gz", "application/x-gzip"},
        {"README", "application/octet-stream"},
        {"song.mp3", "audio/mpeg3"},
        {"clip.qt", "video/quicktime"},
        {"page.htm", "text/html"},
        {"data.xml", "text/xml"},
        {"report.xlsx", "application/vnd.openxmlformats"},
        {"picture.bmp", "image/x-MS-bmp"},
        {"dir/sub.dir/noext", "application/octet-stream"},
        {"weird.", "application/octet-stream"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file_name);
        EXPECT_EQ(table.LookupFileName(c.file_name), c.type);
    }
    EXPECT_EQ(table.Lookup("tar.gz"), "application/x-gzip");  // kept, though never asked
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
    LogCapture capture;
    MimeTypeTable table;
    table.LoadFromHome(home.Path());
    EXPECT_TRUE(capture.Contains(kLogNotice, "외부 mime-type.txt를 로드함.."));
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
    table.Load("text/plain txt\nimage/gif gif\nx/long " + std::string(200, 'e') +
               "\nimage/png png\n");
    EXPECT_EQ(table.Lookup("txt"), "text/plain");
    EXPECT_EQ(table.Lookup("gif"), "image/gif");
    EXPECT_EQ(table.Lookup("png"), "application/octet-stream");

    MimeTypeTable fits;
    std::string line = "x/t " + std::string(122, 'e');  // 126 characters, then a CR: 127
    fits.Load(line + "\r\nimage/png png\n");
    EXPECT_EQ(fits.Lookup("png"), "image/png");
}

}  // namespace
}  // namespace Zarn
