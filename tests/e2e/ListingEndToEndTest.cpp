// Folder listings of the real program, read back row by row: what each row says (name,
// link, exact and readable size, date), in which order, and that long listings arrive whole.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cctype>
#include <cstdlib>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/StringUtil.h"
#include "support/RunningShare.h"

namespace Zarn {
namespace {

using testing::Contains;
using testing::HttpResponse;

struct Row {
    std::string link, name, size, date;
    bool operator==(const Row&) const = default;
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << "{" << row.link << " | " << row.name << " | " << row.size << " | " << row.date << "}";
}

// The text of one cell (up to the next "<td" or the row's end), tags taken out.
std::string CellText(std::string_view row, size_t start) {
    std::string text;
    bool in_tag = false;
    for (char c : row.substr(start, row.find("<td", start) - start)) {
        if (c == '<') in_tag = true;
        if (!in_tag) text += c;
        if (c == '>') in_tag = false;
    }
    return std::string(Trim(text));
}

// The rows of the listing's entries, in page order; rows without a link are left out.
std::vector<Row> RowsOf(const std::string& page) {
    std::vector<Row> rows;
    size_t body = page.find("<tbody class=\"entries\">");
    size_t end = page.find("</tbody>", body);
    if (body == std::string::npos || end == std::string::npos) return rows;
    std::string_view entries = std::string_view(page).substr(body, end - body);
    for (size_t at = entries.find("<tr"); at != std::string_view::npos;) {
        size_t next = entries.find("<tr", at + 3);
        std::string_view row = entries.substr(at, next - at);
        at = next;
        size_t href = row.find("href=\"");
        if (href == std::string_view::npos) continue;  // the "empty folder" line
        std::vector<std::string> cells;
        for (size_t td = row.find("<td"); td != std::string_view::npos;
             td = row.find("<td", td + 3))
            cells.push_back(CellText(row, row.find('>', td) + 1));
        EXPECT_EQ(cells.size(), 3u) << row;
        cells.resize(3);
        // The exact byte count; the cell itself reads "1.2 MB".
        size_t bytes = row.find("data-bytes=\"");
        std::string size =
            bytes == std::string_view::npos
                ? cells[1]
                : std::string(row.substr(bytes + 12, row.find('"', bytes + 12) - bytes - 12));
        rows.push_back({std::string(row.substr(href + 6, row.find('"', href + 6) - href - 6)),
                        cells[0], size, cells[2]});
    }
    return rows;
}

class ListingEndToEndTest : public testing::RunningShare {
protected:
    // A zone written out in full, so that the dates below need no time zone files: one
    // hour east of UTC, two in summer, changing at 01:00 UTC on the last Sundays of March
    // and October.
    void SetUp() override {
        if (const char* zone = std::getenv("TZ")) saved_zone_ = zone;
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

    std::optional<std::string> saved_zone_;
};

TEST_F(ListingEndToEndTest, RowsShowEscapedNamesSizesAndLocalDatesInOrder) {
    std::filesystem::create_directories(share_ / "alpha & beta");
    std::filesystem::create_directories(share_ / "Zeta");
    std::filesystem::create_directories(share_ / ".hidden folder");
    share_.Write(".hidden", "x");
    WriteFile("<q\"'&>.txt", 1234567, 1709247570);  // leap day, just before midnight in winter
    WriteFile("A.txt", 0, 1704063600);    // new year's midnight: the UTC date is the old year's
    WriteFile("B.txt", 999, 1709247570);  // the leap day file's second, another between them
    WriteFile("b.txt", 5000000000, 1711846799);  // the last minute of winter time
    WriteFile("c.txt", 1000, 1711846800);        // and the first of summer time
    WriteFile("%41.txt", 1, 1719829800);         // noon in summer time
    WriteFile("\xed\x95\x9c\xea\xb8\x80.txt", 12, 0);
    Start();
    HttpResponse page = Visit("/docs/");
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
    EXPECT_TRUE(testing::Contains(page.body, "title=\"5,000,000,000 bytes\">5.0 GB<"));
    EXPECT_TRUE(testing::Contains(page.body, "title=\"999 bytes\">999 bytes<"));
    EXPECT_TRUE(testing::Contains(page.body, "title=\"5,001,236,579 bytes\">5.0 GB<"))
        << "the total of the sizes";
    EXPECT_FALSE(testing::Contains(page.body, ".hidden"));
}

// What the skin's pages name must be there to fetch: every skin file of the listing, of
// an error page and of the files they name in turn (the upload form, the style sheet and
// its pictures). Template text left in a page would show in the browser as it is.
TEST_F(ListingEndToEndTest, PagesNameOnlySkinFilesTheServerHandsOut) {
    share_.Write("a.txt", "a");
    Start("authorities+=.anonymous|docs|15\r\n");
    std::set<std::string> fetched;
    std::function<void(const std::string&, const std::string&)> fetch_named;
    fetch_named = [&](const std::string& text, const std::string& folder) {
        for (const std::string opener : {"src=\"", "href=\"", "url(\""}) {
            for (size_t at = text.find(opener); at != std::string::npos;
                 at = text.find(opener, at + 1)) {
                size_t begin = at + opener.size();
                std::string url = text.substr(begin, text.find('"', begin) - begin);
                if (!Contains(url, "action=SkinFile")) continue;
                url = (url.starts_with("/") ? "" : folder) + url.substr(0, url.find('#'));
                if (!fetched.insert(url).second) continue;
                HttpResponse file = Visit(url);
                EXPECT_EQ(file.status, 200) << url << " named in " << folder;
                std::string path = url.substr(0, url.find('?'));
                if (path.ends_with(".html") || path.ends_with(".css"))
                    fetch_named(file.body, path.substr(0, path.rfind('/') + 1));
            }
        }
    };
    for (const char* target : {"/docs/", "/missing/"}) {
        std::string page = Visit(target).body;
        for (size_t at = page.find('$'); at != std::string::npos; at = page.find('$', at + 1))
            EXPECT_FALSE(
                at + 1 < page.size() &&
                (std::isalnum(static_cast<unsigned char>(page[at + 1])) || page[at + 1] == '_'))
                << target << ": " << page.substr(at, 20);
        for (const char* directive : {"#if", "#else", "#end", "#foreach", "#U(", "#QU("})
            EXPECT_FALSE(Contains(page, directive)) << target << ": " << directive;
        fetch_named(page, "");
    }
    EXPECT_GT(fetched.size(), 10u);
}

// Far longer than what the server writes at once, so the page leaves in many pieces: in
// chunks to a client of HTTP/1.1, which may go on using the connection after the last one,
// and to the close for one of HTTP/1.0.
TEST_F(ListingEndToEndTest, LongListingsArriveWholeAndSortedInChunksOrToTheClose) {
    constexpr int kFiles = 3000;
    for (int i = kFiles - 1; i >= 0; --i) {
        char name[32];
        std::snprintf(name, sizeof name, "file-%05d.txt", i);
        WriteFile(name, static_cast<uint64_t>(i), 1700000000 + i % 7);
    }
    share_.Write("sub/inner.txt", "inner");
    Start();
    TCPSocket client = testing::ConnectTo(port_);
    testing::SendAll(client, "GET /docs/ HTTP/1.1\r\nHost: t\r\n\r\n");
    bool chunked = false;
    HttpResponse page = testing::ReadResponse(client, false, &chunked);
    EXPECT_TRUE(chunked);
    std::vector<Row> rows = RowsOf(page.body);
    ASSERT_EQ(rows.size(), static_cast<size_t>(kFiles + 1));
    for (int i = 0; i < kFiles; ++i) {
        char name[32], link[32], size[16];
        std::snprintf(name, sizeof name, "file-%05d.txt", i);
        std::snprintf(link, sizeof link, "file%%2d%05d.txt", i);
        std::snprintf(size, sizeof size, i < 1000 ? "%d" : "%d,%03d", i < 1000 ? i : i / 1000,
                      i % 1000);
        ASSERT_EQ(rows[i + 1], (Row{link, name, size, "2023-11-14 PM 11:13"}));
    }
    EXPECT_TRUE(page.body.ends_with("</html>\n")) << page.body.substr(page.body.size() - 200);
    testing::SendAll(client, "GET /docs/sub/inner.txt HTTP/1.1\r\nHost: t\r\n\r\n");
    EXPECT_EQ(testing::ReadResponse(client).body, "inner");

    HttpResponse old = testing::Fetch(port_, "GET /docs/ HTTP/1.0\r\n\r\n");
    EXPECT_EQ(RowsOf(old.body), rows);
    EXPECT_TRUE(old.body.ends_with("</html>\n"));
}

}  // namespace
}  // namespace Zarn
