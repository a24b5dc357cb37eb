// Folder listings of the real program, read back row by row: what each row says (name,
// link, size, date), in which order, and that long listings arrive whole.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/StringUtil.h"
#include "support/HttpClient.h"
#include "support/ProgramRunner.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::Get;
using testing::HttpResponse;
using testing::ProgramRunner;
using testing::TempFolder;

struct Row {
    std::string link;
    std::string name;
    std::string size;
    std::string date;

    bool operator==(const Row&) const = default;
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << "{" << row.link << " | " << row.name << " | " << row.size << " | " << row.date << "}";
}

// The text of markup with its tags taken out; character references stay as they are.
std::string TextOf(std::string_view html) {
    std::string text;
    bool in_tag = false;
    for (char c : html) {
        if (c == '<') in_tag = true;
        if (!in_tag) text += c;
        if (c == '>') in_tag = false;
    }
    return std::string(Trim(text));
}

// The cells of one table row, whether or not the markup closes them.
std::vector<std::string> CellsOf(std::string_view row) {
    std::vector<std::string> cells;
    size_t at = row.find("<td");
    while (at != std::string_view::npos) {
        size_t start = row.find('>', at) + 1;
        size_t next = row.find("<td", start);
        std::string_view cell =
            row.substr(start, next == std::string_view::npos ? row.size() - start : next - start);
        cells.push_back(TextOf(cell));
        at = next;
    }
    return cells;
}

// The rows of the listing's entries, in page order.
std::vector<Row> RowsOf(const std::string& page) {
    std::vector<Row> rows;
    size_t body = page.find("<tbody class=\"entries\">");
    size_t end = page.find("</tbody>", body);
    if (body == std::string::npos || end == std::string::npos) return rows;
    std::string_view entries = std::string_view(page).substr(body, end - body);
    for (size_t at = entries.find("<tr"); at != std::string_view::npos;) {
        size_t next = entries.find("<tr", at + 3);
        std::string_view row =
            entries.substr(at, next == std::string_view::npos ? entries.size() - at : next - at);
        at = next;
        size_t href = row.find("href=\"");
        if (href == std::string_view::npos) continue;  // the "empty folder" line
        href += 6;
        std::vector<std::string> cells = CellsOf(row);
        if (cells.size() < 3) {
            ADD_FAILURE() << "a row without three cells: " << row;
            continue;
        }
        rows.push_back({.link = std::string(row.substr(href, row.find('"', href) - href)),
                        .name = cells[0],
                        .size = cells[1],
                        .date = cells[2]});
    }
    return rows;
}

class ListingEndToEndTest : public ::testing::Test {
protected:
    // A zone written out in full, so that the dates below need no time zone files: one
    // hour east of UTC, two in summer, changing at 01:00 UTC on the last Sundays of March
    // and October.
    void SetUp() override {
        const char* zone = std::getenv("TZ");
        if (zone != nullptr) saved_zone_ = zone;
        ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    }
    void TearDown() override {
        if (saved_zone_) {
            ::setenv("TZ", saved_zone_->c_str(), 1);
        } else {
            ::unsetenv("TZ");
        }
    }

    void WriteFile(const std::string& name, uint64_t size, time_t modified) {
        share_.Write(name, "");
        std::filesystem::resize_file(share_ / name, size);  // sparse: sizes cost no disk
        const timespec times[2] = {{modified, 0}, {modified, 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, (share_ / name).c_str(), times, 0), 0) << name;
    }

    std::unique_ptr<ProgramRunner> Start() {
        home_.Write("mount.ini", "mounts+=docs|" + share_.Path() +
                                     "|x|yes|x|no\r\nuiLanguageFile=English.wul\r\n");
        return std::make_unique<ProgramRunner>(home_.Path());
    }

    TempFolder share_;
    TempFolder home_;
    std::optional<std::string> saved_zone_;
};

TEST_F(ListingEndToEndTest, RowsShowEscapedNamesSizesAndLocalDatesInOrder) {
    std::filesystem::create_directory(share_ / "alpha & beta");
    std::filesystem::create_directory(share_ / "Zeta");
    std::filesystem::create_directory(share_ / ".hidden folder");
    share_.Write(".hidden", "x");
    // Leap day, just before midnight in winter time.
    WriteFile("<q\"'&>.txt", 1234567, 1709247570);
    // New year's midnight: the UTC date is still the old year.
    WriteFile("A.txt", 0, 1704063600);
    // The same second as the leap day file, with another one between them in the listing.
    WriteFile("B.txt", 999, 1709247570);
    // The last minute of winter time and the first of summer time.
    WriteFile("b.txt", 5000000000, 1711846799);
    WriteFile("c.txt", 1000, 1711846800);
    // Noon in summer time, and the epoch itself.
    WriteFile("%41.txt", 1, 1719829800);
    WriteFile("\xed\x95\x9c\xea\xb8\x80.txt", 12, 0);

    auto program = Start();
    HttpResponse page = Get(program->Port(), "/docs/");
    ASSERT_EQ(page.status, 200);
    const std::vector<Row> expected{
        {"Zeta/", "Zeta", "", ""},
        {"alpha%20%26%20beta/", "alpha &amp; beta", "", ""},
        {"%2541.txt", "%41.txt", "1", "2024-07-01 PM 12:30"},
        {"%3cq%22%27%26%3e.txt", "&lt;q&quot;&#39;&amp;&gt;.txt", "1,234,567",
         "2024-02-29 PM 11:59"},
        {"A.txt", "A.txt", "0", "2024-01-01 AM 12:00"},
        {"B.txt", "B.txt", "999", "2024-02-29 PM 11:59"},
        {"b.txt", "b.txt", "5,000,000,000", "2024-03-31 AM 01:59"},
        {"c.txt", "c.txt", "1,000", "2024-03-31 AM 03:00"},
        {"%ed%95%9c%ea%b8%80.txt", "\xed\x95\x9c\xea\xb8\x80.txt", "12", "1970-01-01 AM 01:00"},
    };
    EXPECT_EQ(RowsOf(page.body), expected);
    EXPECT_NE(page.body.find(">5,001,236,579<"), std::string::npos) << "the total of the sizes";
    EXPECT_EQ(page.body.find("hidden"), std::string::npos);
}

// Far longer than what the server writes at once, so the page leaves in many pieces.
TEST_F(ListingEndToEndTest, LongListingsArriveWholeAndSorted) {
    constexpr int kFiles = 3000;
    for (int i = kFiles - 1; i >= 0; --i) {
        char name[32];
        std::snprintf(name, sizeof name, "file-%05d.txt", i);
        WriteFile(name, static_cast<uint64_t>(i), 1700000000 + i % 7);
    }
    auto program = Start();
    HttpResponse page = Get(program->Port(), "/docs/");
    ASSERT_EQ(page.status, 200);
    std::vector<Row> rows = RowsOf(page.body);
    ASSERT_EQ(rows.size(), static_cast<size_t>(kFiles));
    for (int i = 0; i < kFiles; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "file-%05d.txt", i);
        char link[32];
        std::snprintf(link, sizeof link, "file%%2d%05d.txt", i);
        char size[16];
        std::snprintf(size, sizeof size, i < 1000 ? "%d" : "%d,%03d", i < 1000 ? i : i / 1000,
                      i % 1000);
        ASSERT_EQ(rows[i], (Row{link, name, size, "2023-11-14 PM 11:13"}));
    }
    EXPECT_TRUE(page.body.ends_with("</html>\n")) << page.body.substr(page.body.size() - 200);
}

}  // namespace
}  // namespace Zarn
