#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "server/ListingRows.h"

namespace Zarn {
namespace {

struct Named {
    std::string name;
    bool is_folder = false;

    bool operator==(const Named&) const = default;
};

// What a page would show, row by row, after sorting.
std::vector<Named> SortedByRows(const std::vector<Named>& entries) {
    ListingRows rows;
    for (const Named& entry : entries) {
        if (entry.is_folder) {
            rows.AddFolder(entry.name);
        } else {
            rows.AddFile(entry.name, 0, 0);
        }
    }
    rows.Sort();
    std::vector<Named> sorted;
    for (size_t i = 0; i < rows.Count(); ++i) {
        rows.Select(i);
        // The names below need no escaping, so "$name" is the name itself.
        sorted.push_back({std::string(rows.Lookup("$name").value_or("?")),
                          rows.Lookup("$is_folder").has_value()});
    }
    return sorted;
}

// Folders first, then plain byte order.
std::vector<Named> SortedPlainly(std::vector<Named> entries) {
    std::sort(entries.begin(), entries.end(), [](const Named& a, const Named& b) {
        return a.is_folder != b.is_folder ? a.is_folder : a.name < b.name;
    });
    return entries;
}

std::vector<Named> Files(std::initializer_list<const char*> names) {
    std::vector<Named> files;
    for (const char* name : names)
        files.push_back({name, false});
    return files;
}

TEST(ListingRowsTest, SortsFoldersFirstThenByBytes) {
    const std::vector<std::vector<Named>> cases = {
        {},
        Files({"only"}),
        // One name the start of the others, and names that differ only past eight bytes
        // after their common start.
        Files({"IMG_0001.JPG", "IMG_", "IMG_0001.JPG.bak", "IMG_0001.JPEG", "IMG_0001"}),
        Files({"photo-2024-01-01-a.jpg", "photo-2024-01-01-b.jpg", "photo-2024-01-01.jpg"}),
        // Bytes above 0x7f sort after ASCII, as unsigned bytes.
        Files({"\xed\x95\x9c", "z", "\xff", "Z", "a", "\x80"}),
        {{"b", true}, {"a", false}, {"c", true}, {"B", false}, {"a", true}},
        // A zero byte inside a name (a mount name may hold one) ties with the padding.
        {{std::string("x\0", 2), false}, {"x", false}, {std::string("x\0\1", 3), false}},
    };
    for (const std::vector<Named>& entries : cases) {
        SCOPED_TRACE(entries.size());
        EXPECT_EQ(SortedByRows(entries), SortedPlainly(entries));
    }
}

TEST(ListingRowsTest, SortsRandomNamesLikePlainByteOrder) {
    std::mt19937 random(20241123);
    const std::string alphabet("ab\0\xff-", 5);
    for (int round = 0; round < 200; ++round) {
        std::vector<Named> entries;
        std::string start(random() % 12, 'p');
        for (int i = static_cast<int>(random() % 40); i > 0; --i) {
            std::string name = start;
            for (int length = static_cast<int>(random() % 14); length > 0; --length)
                name += alphabet[random() % alphabet.size()];
            entries.push_back({name, random() % 4 == 0});
        }
        SCOPED_TRACE(round);
        ASSERT_EQ(SortedByRows(entries), SortedPlainly(entries));
    }
}

}  // namespace
}  // namespace Zarn
