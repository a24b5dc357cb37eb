#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "server/ListingRows.h"
#include "share/MimeTypeTable.h"
#include "support/LogCapture.h"
#include "template/TextTemplate.h"

namespace Zarn {
namespace {

// Folders first, then plain byte order: bytes above 0x7f sort as unsigned, a real zero byte
// ties with the padding of a short name, and names differ only past a long common start
// or past the first eight bytes after it.
TEST(ListingRowsTest, SortsFoldersFirstThenByPlainBytes) {
    using namespace std::string_literals;
    ListingRows rows;
    for (const std::string& file :
         {"pp\xff"s, "ppabcdefgh1"s, "pp"s, "pp\0"s, "ppabcdefgh"s, "pp-"s, "pp\0a"s})
        rows.AddFile(file, 0, 0);
    rows.AddFolder("ppz");
    rows.AddFolder("ppA");
    rows.Sort();
    std::vector<std::string> sorted;
    for (size_t i = 0; i < rows.Count(); ++i) {
        rows.Select(i);
        // None of these names needs escaping, so "$name" is the name itself.
        sorted.emplace_back(rows.Lookup("$name").value_or("?"));
        if (rows.Lookup("$is_folder")) sorted.back() += "/";
    }
    EXPECT_EQ(sorted, (std::vector<std::string>{"ppA/", "ppz/", "pp", "pp\0"s, "pp\0a"s, "pp-",
                                                "ppabcdefgh", "ppabcdefgh1", "pp\xff"}));
}

// The skin decides what it can preview from "$mime", so a row must carry exactly the type
// the download will be sent with, escaped, and never a type for a folder.
TEST(ListingRowsTest, FilesCarryTheirEscapedTypeFoldersNone) {
    MimeTypeTable types;
    types.Load("image/png\tpng\ntext/x-<odd>&\tq\n");
    ListingRows rows(&types);
    rows.AddFolder("pictures.png");
    rows.AddFile("b.PNG", 1, 0);
    rows.AddFile("c.q", 1, 0);
    rows.AddFile("d", 1, 0);
    rows.Sort();
    std::vector<std::string> found;
    for (size_t i = 0; i < rows.Count(); ++i) {
        rows.Select(i);
        // A date ends in its minutes; the type must not run on into it.
        std::string_view date = rows.Lookup("$date").value_or("?");
        std::string& row = found.emplace_back(
            date.empty() || std::isdigit(static_cast<unsigned char>(date.back())) ? "" : date);
        row.append(date.empty() ? "|" : "dated|").append(rows.Lookup("$mime").value_or("none"));
    }
    EXPECT_EQ(found,
              (std::vector<std::string>{"|none", "dated|image/png", "dated|text/x-&lt;odd&gt;&amp;",
                                        "dated|application/octet-stream"}));

    ListingRows untyped;
    untyped.AddFile("b.png", 1, 0);
    untyped.Select(0);
    EXPECT_EQ(untyped.Lookup("$mime"), "");
}

std::unique_ptr<ListingRows> NumberedFiles(int count) {
    auto rows = std::make_unique<ListingRows>();
    for (int i = 0; i < count; ++i)
        rows->AddFile("file" + std::to_string(i) + ".txt", 1234567, 1700000000);
    rows->Sort();
    return rows;
}

size_t Occurrences(const std::string& text, std::string_view part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

// The shipped page lists a folder of 100,000 files whole, while a page that nests the list
// in itself (a skin's slip, or a hostile skin) stops at the render's work limit instead of
// pinning a thread for the square of the folder.
TEST(ListingRowsTest, ABigFolderRendersWholeButALoopInALoopOverItStops) {
    std::ifstream file(LUMIDROP_SOURCE_DIR "/res/skin/skin.html", std::ios::binary);
    std::ostringstream skin;
    skin << file.rdbuf();
    TextTemplate page;
    page.Parse(skin.str());
    TextContent listing;
    listing.SetScalar("$show_files", "1");
    listing.SetRecordList("$files", NumberedFiles(100000));
    testing::LogCapture log;
    MemoryOutputStream whole;
    EXPECT_TRUE(page.Write(listing, whole));
    EXPECT_EQ(Occurrences(whole.Data(), "class=\"entry-name\""), 100000u);
    EXPECT_NE(whole.Data().find("file99999.txt"), std::string::npos);
    EXPECT_NE(whole.Data().find("</html>"), std::string::npos);
    EXPECT_TRUE(log.Lines().empty());

    TextTemplate square;
    square.Parse("#foreach($files)#foreach($files)$name#end#end");
    TextContent folder;
    folder.SetRecordList("$files", NumberedFiles(5000));
    MemoryOutputStream cut;
    EXPECT_FALSE(square.Write(folder, cut));
    EXPECT_LT(cut.Data().size(), size_t{5000} * 5000 * 8);
    EXPECT_EQ(log.Lines().size(), 1u);
}

}  // namespace
}  // namespace Zarn
