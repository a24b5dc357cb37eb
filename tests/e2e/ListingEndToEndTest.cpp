// Folder listings and name searches of the real program, read back row by row: what each
// row says (name, link, exact and readable size, date, and a result's folder), in which
// order, that long listings arrive whole, what a search finds and what it must leave out,
// and its bound on a generated tree of 100,000 entries.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/StringUtil.h"
#include "core/UrlCodec.h"
#include "support/RunningShare.h"

namespace Zarn {
namespace {

using testing::Contains;
using testing::HttpResponse;

struct Row {
    std::string link, name, size, date;
    std::string folder = {};  // only in search results
    bool operator==(const Row&) const = default;
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << "{" << row.link << " | " << row.name << " | " << row.size << " | " << row.date << " | "
         << row.folder << "}";
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
        std::string folder;
        if (cells.size() == 4) folder = cells[1], cells.erase(cells.begin() + 1);
        EXPECT_EQ(cells.size(), 3u) << row;
        cells.resize(3);
        // The exact byte count; the cell itself reads "1.2 MB".
        size_t bytes = row.find("data-bytes=\"");
        std::string size =
            bytes == std::string_view::npos
                ? cells[1]
                : std::string(row.substr(bytes + 12, row.find('"', bytes + 12) - bytes - 12));
        rows.push_back({std::string(row.substr(href + 6, row.find('"', href + 6) - href - 6)),
                        cells[0], size, cells[2], folder});
    }
    return rows;
}

// A search's results as folder, name (escaped as the page has it) and link.
std::vector<std::array<std::string, 3>> Found(const std::string& page) {
    std::vector<std::array<std::string, 3>> found;
    for (const Row& row : RowsOf(page))
        found.push_back({row.folder, row.name, row.link});
    return found;
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

    [[nodiscard]] HttpResponse Search(const std::string& folder, const std::string& words) const {
        return Visit(UrlEncode(folder) + "?action=Search&q=" + UrlEncode(words));
    }

    std::optional<std::string> saved_zone_;
};

TEST_F(ListingEndToEndTest, RowsShowEscapedNamesSizesAndLocalDatesInOrder) {
    std::filesystem::create_directories(share_ / "alpha & beta");
    std::filesystem::create_directories(share_ / "Zeta");
    std::filesystem::create_directories(share_ / ".hidden folder");
    share_.Write(".hidden", "x");
    WriteFile("<q\"'&>.txt", 1234567, 1709247570);  // leap day, just before midnight in winter
    WriteFile("A.txt", 0, 1704063600);  // new year's midnight: the UTC date is the old year's
    WriteFile("b.txt", 5000000000, 1711846799);  // the last minute of winter time
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
        {"b.txt", "b.txt", "5,000,000,000", "2024-03-31 AM 01:59"},
        {"%ed%95%9c%ea%b8%80.txt", "\xed\x95\x9c\xea\xb8\x80.txt", "12", "1970-01-01 AM 01:00"},
    };
    EXPECT_EQ(RowsOf(page.body), expected);
    EXPECT_TRUE(Contains(page.body, "title=\"5,000,000,000 bytes\">5.0 GB<"));
    EXPECT_TRUE(Contains(page.body, "title=\"5,001,234,580 bytes\">5.0 GB<"))
        << "the total of the sizes";
    EXPECT_FALSE(Contains(page.body, ".hidden"));
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
    auto name = [](int i) {
        char text[32];
        std::snprintf(text, sizeof text, "file-%05d.txt", i);
        return std::string(text);
    };
    for (int i = kFiles - 1; i >= 0; --i)
        WriteFile(name(i), static_cast<uint64_t>(i), 1700000000 + i % 7);
    share_.Write("sub/inner.txt", "inner");
    Start();
    TCPSocket client = testing::ConnectTo(port_);
    testing::SendAll(client, "GET /docs/ HTTP/1.1\r\nHost: t\r\n\r\n");
    bool chunked = false;
    HttpResponse page = testing::ReadResponse(client, false, &chunked);
    EXPECT_TRUE(chunked);
    std::vector<Row> rows = RowsOf(page.body);
    ASSERT_EQ(rows.size(), static_cast<size_t>(kFiles + 1));
    for (int i = 0; i < kFiles; ++i)
        ASSERT_EQ(rows[i + 1].name, name(i));
    EXPECT_EQ(rows.back(),
              (Row{"file%2d02999.txt", "file-02999.txt", "2,999", "2023-11-14 PM 11:13"}));
    EXPECT_TRUE(page.body.ends_with("</html>\n")) << page.body.substr(page.body.size() - 200);
    testing::SendAll(client, "GET /docs/sub/inner.txt HTTP/1.1\r\nHost: t\r\n\r\n");
    EXPECT_EQ(testing::ReadResponse(client).body, "inner");

    HttpResponse old = testing::Fetch(port_, "GET /docs/ HTTP/1.0\r\n\r\n");
    EXPECT_EQ(RowsOf(old.body), rows);
    EXPECT_TRUE(old.body.ends_with("</html>\n"));
}

TEST_F(ListingEndToEndTest, SearchFindsEveryWordInAnyCaseAndShowsOnlyWhatTheVisitorMaySee) {
    namespace fs = std::filesystem;
    const std::string hostile = "<b>\"x\"&'report 2023'.txt";
    share_.Write("Reports/Annual REPORT 2023.pdf", "");
    fs::resize_file(share_ / "Reports/Annual REPORT 2023.pdf", 1400000);
    fs::create_directories(share_ / "Reports/2023 report");
    share_.Write("Reports/report 2022.txt", "only one of the words");
    share_.Write(hostile, "x");
    share_.Write(".report 2023.txt", "hidden");
    share_.Write(".secret/report 2023.txt", "inside a hidden folder");
    fs::create_symlink("Reports/Annual REPORT 2023.pdf", share_ / "alias report 2023.pdf");
    fs::create_symlink("..", share_ / "Reports/loop");
    outside_.Write("report 2023 outside.txt", "out of the mount");
    fs::create_symlink(outside_.Path(), share_ / "outside");
    share_.Write("Ελλάδα/ΣΟΦΊΑ.txt", "");
    share_.Write("한국/사진 모음.zip", "");
    testing::TempFolder closed;
    closed.Write("plan secret.txt", "");
    share_.Write("plan secret.txt", "");
    Start("canRootAccess=1\r\nmounts+=closed|" + closed.Path() +
          "|x|yes|x|no\r\nauthorities+=.anonymous|closed|2\r\n");

    HttpResponse page = Search("/docs/", "report 2023");
    ASSERT_EQ(page.status, 200);
    const std::vector<std::array<std::string, 3>> expected{
        {"/docs/", "&lt;b&gt;&quot;x&quot;&amp;&#39;report 2023&#39;.txt",
         UrlEncode("/docs/" + hostile)},
        {"/docs/", "alias report 2023.pdf", "/docs/alias%20report%202023.pdf"},
        {"/docs/Reports/", "2023 report", "/docs/Reports/2023%20report/"},
        {"/docs/Reports/", "Annual REPORT 2023.pdf", "/docs/Reports/Annual%20REPORT%202023.pdf"},
    };
    EXPECT_EQ(Found(page.body), expected);
    EXPECT_TRUE(Contains(page.body, "<span class=\"search-count\">4</span>"));
    EXPECT_FALSE(Contains(page.body, "search-note"));
    // The links lead where they say, through the link inside the mount too.
    EXPECT_EQ(Visit("/docs/alias%20report%202023.pdf").status, 200);
    EXPECT_EQ(Visit(expected[0][2]).body, "x");

    auto greek = Found(Search("/docs/", "σοφία").body);
    ASSERT_EQ(greek.size(), 1u);
    EXPECT_EQ(greek[0][0], "/docs/Ελλάδα/");
    auto korean = Found(Search("/docs/한국/", "사진").body);
    ASSERT_EQ(korean.size(), 1u);
    EXPECT_EQ(korean[0][1], "사진 모음.zip");

    HttpResponse hostile_query = Search("/docs/Reports/", "<script>alert(1)</script> x");
    EXPECT_TRUE(Contains(hostile_query.body, "&lt;script&gt;alert(1)&lt;/script&gt; x"));
    EXPECT_FALSE(Contains(hostile_query.body, "<script>alert"));
    EXPECT_TRUE(Contains(hostile_query.body, "Nothing found."));
    EXPECT_EQ(Search("/docs/nowhere/", "report").status, 404);

    // Only where the visitor may list.
    EXPECT_EQ(Search("/closed/", "plan").status, 401);
    const std::vector<std::array<std::string, 3>> everywhere{
        {"/docs/", "plan secret.txt", "/docs/plan%20secret.txt"}};
    EXPECT_EQ(Found(Search("/", "SECRET plan").body), everywhere);
}

// Every folder holds 1,000 entries; 1,200 of the 100,000 match.
TEST_F(ListingEndToEndTest, SearchStopsAtAThousandResultsWithANoteAndWalksALargeTreeQuickly) {
    bool in_memory = std::filesystem::is_directory("/dev/shm");
    testing::TempFolder tree(in_memory ? "/dev/shm" : std::filesystem::temp_directory_path());
    for (int folder = 0; folder < 100; ++folder) {
        std::string path = tree / ("folder-" + std::to_string(folder));
        ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);
        for (int file = 0; file < 999; ++file) {
            char name[64];
            std::snprintf(name, sizeof name, "/%s-%03d",
                          folder < 12 && file < 100 ? "match" : "file", file);
            int fd = ::open((path + name).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
            ASSERT_GE(fd, 0);
            ::close(fd);
        }
    }
    Start("mounts+=tree|" + tree.Path() + "|x|yes|x|no\r\n");
    HttpResponse bounded = Search("/tree/", "match");
    EXPECT_EQ(RowsOf(bounded.body).size(), 1000u);
    EXPECT_TRUE(
        Contains(bounded.body, "More than 1,000 entries match; the first 1,000 are shown."));

    auto start = std::chrono::steady_clock::now();
    HttpResponse everything = Search("/tree/", "no such name");
    auto took = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start);
    EXPECT_TRUE(Contains(everything.body, "Nothing found."));
    RecordProperty("search_100000_entries_ms", static_cast<int>(took.count()));
    std::printf("A search through 100,000 entries took %lld ms\n",
                static_cast<long long>(took.count()));
}

}  // namespace
}  // namespace Zarn
