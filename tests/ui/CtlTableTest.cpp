#include <gtest/gtest.h>

#include "ui/CtlTable.h"

namespace Zarn {
namespace {

TEST(CtlTableTest, LinesUpColumnsByTerminalWidthAndShowsSpeedsAsPeopleReadThem) {
    CtlTable table;
    table.Add({"ACCOUNT", "MOUNT", "RIGHTS"});
    table.Add({"한글", "docs", "ld--"});        // two columns per syllable
    table.Add({"\xC3\xA9t\xC3\xA9", "x", ""});  // accented letters take one
    table.Add({"bob", "pictures"});             // a short row
    EXPECT_EQ(table.Text(),
              "ACCOUNT  MOUNT     RIGHTS\n"
              "한글     docs      ld--\n"
              "\xC3\xA9t\xC3\xA9      x\n"
              "bob      pictures\n");

    EXPECT_EQ(CtlTable::Speed(1023), "1023 B/s");
    EXPECT_EQ(CtlTable::Speed(1536), "1.5 KiB/s");
    EXPECT_EQ(CtlTable::Speed(3.5 * 1024 * 1024), "3.5 MiB/s");
    EXPECT_EQ(CtlTable::Speed(1e15), "931322.6 GiB/s");
    EXPECT_EQ(CtlTable::Duration(3723), "1:02:03");
    EXPECT_EQ(CtlTable::Duration(100 * 3600 + 59), "100:00:59");
}

}  // namespace
}  // namespace Zarn
