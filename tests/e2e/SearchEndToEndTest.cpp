// Searching names through the real program: what is found (every word, any case, any
// script), what stays out (hidden names, links out of the mount, mounts the visitor may not
// list), how results reach the page (escaped, with working links and their folders), and
// the result bound on a generated tree of 100,000 entries.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "core/UrlCodec.h"
#include "support/RunningShare.h"

namespace Zarn {
namespace {

using testing::Contains;
using testing::HttpResponse;

struct Found {
    std::string folder, name, link;
    bool operator==(const Found&) const = default;
};

void PrintTo(const Found& found, std::ostream* out) {
    *out << "{" << found.folder << " | " << found.name << " | " << found.link << "}";
}

std::string Between(std::string_view text, std::string_view open, std::string_view close) {
    size_t start = text.find(open);
    if (start == std::string_view::npos) return {};
    start += open.size();
    return std::string(text.substr(start, text.find(close, start) - start));
}

// The result rows in page order, as the page has them (names still escaped).
std::vector<Found> ResultsOf(const std::string& page) {
    std::vector<Found> found;
    std::string entries = Between(page, "<tbody class=\"entries\">", "</tbody>");
    for (size_t at = entries.find("<tr"); at != std::string::npos;) {
        size_t next = entries.find("<tr", at + 3);
        std::string row = entries.substr(at, next - at);
        at = next;
        if (!Contains(row, "entry-name")) continue;
        std::string name_cell = Between(row, "class=\"entry-name\"", "</a>");
        found.push_back({Between(Between(row, "class=\"col-folder\"", "</td>"), "\">", "</a>"),
                         name_cell.substr(name_cell.find('>') + 1), Between(row, "href=\"", "\"")});
    }
    return found;
}

class SearchEndToEndTest : public testing::RunningShare {
protected:
    [[nodiscard]] HttpResponse Search(const std::string& folder, const std::string& words) const {
        return Visit(UrlEncode(folder) + "?action=Search&q=" + UrlEncode(words));
    }
};

TEST_F(SearchEndToEndTest, FindsEveryWordInAnyCaseAndShowsOnlyWhatTheVisitorMaySee) {
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
    const std::vector<Found> expected{
        {"/docs/", "&lt;b&gt;&quot;x&quot;&amp;&#39;report 2023&#39;.txt",
         UrlEncode("/docs/" + hostile)},
        {"/docs/", "alias report 2023.pdf", "/docs/alias%20report%202023.pdf"},
        {"/docs/Reports/", "2023 report", "/docs/Reports/2023%20report/"},
        {"/docs/Reports/", "Annual REPORT 2023.pdf", "/docs/Reports/Annual%20REPORT%202023.pdf"},
    };
    EXPECT_EQ(ResultsOf(page.body), expected);
    EXPECT_TRUE(Contains(page.body, "title=\"1,400,000 bytes\">1.4 MB<")) << "readable sizes";
    EXPECT_TRUE(Contains(page.body, "<span class=\"search-count\">4</span>"));
    EXPECT_FALSE(Contains(page.body, "search-note"));
    // The links lead where they say, through the link inside the mount too.
    EXPECT_EQ(Visit("/docs/alias%20report%202023.pdf").status, 200);
    EXPECT_EQ(Visit(expected[0].link).body, "x");

    std::vector<Found> greek = ResultsOf(Search("/docs/", "σοφία").body);
    ASSERT_EQ(greek.size(), 1u);
    EXPECT_EQ(greek[0].folder, "/docs/Ελλάδα/");
    std::vector<Found> korean = ResultsOf(Search("/docs/한국/", "사진").body);
    ASSERT_EQ(korean.size(), 1u);
    EXPECT_EQ(korean[0].name, "사진 모음.zip");

    HttpResponse hostile_query = Search("/docs/Reports/", "<script>alert(1)</script> x");
    EXPECT_TRUE(Contains(hostile_query.body, "&lt;script&gt;alert(1)&lt;/script&gt; x"));
    EXPECT_FALSE(Contains(hostile_query.body, "<script>alert"));
    EXPECT_TRUE(Contains(hostile_query.body, "Nothing found."));
    EXPECT_EQ(Search("/docs/nowhere/", "report").status, 404);

    // Only where the visitor may list.
    EXPECT_EQ(Search("/closed/", "plan").status, 401);
    const std::vector<Found> everywhere{{"/docs/", "plan secret.txt", "/docs/plan%20secret.txt"}};
    EXPECT_EQ(ResultsOf(Search("/", "SECRET plan").body), everywhere);
}

// Every folder holds 1,000 entries; 1,200 of the 100,000 match.
TEST_F(SearchEndToEndTest, StopsAtAThousandResultsWithANoteAndWalksALargeTreeQuickly) {
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
    EXPECT_EQ(ResultsOf(bounded.body).size(), 1000u);
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
