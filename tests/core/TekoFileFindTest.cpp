#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>
#include <set>
#include <string>

#include "core/FileAttributes.h"
#include "core/TekoFileFind.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::TempFolder;

struct Entry {
    uint32_t attributes;
    bool dots;
    uint64_t size;
};

std::map<std::string, Entry> FindAll(const std::string& pattern) {
    std::map<std::string, Entry> found;
    TekoFileFind find;
    for (bool more = find.FindFirst(pattern); more; more = find.FindNext())
        found[find.GetName()] = {find.GetAttributes(), find.IsDots(), find.GetSize()};
    return found;
}

void Populate(const TempFolder& folder) {
    folder.Write("a.wul", "alpha");
    folder.Write("B.WUL", "beta");
    folder.Write("notes.txt", "0123456789");
    folder.Write(".profile", "p");
    ASSERT_EQ(::mkdir((folder / "skin").c_str(), 0755), 0);
}

TEST(TekoFileFindTest, StarListsEveryEntryWithItsAttributesAndNoMatchFindsNothing) {
    TempFolder folder;
    Populate(folder);
    std::map<std::string, Entry> found = FindAll(folder / "*");
    std::set<std::string> names;
    for (const auto& [name, entry] : found)
        names.insert(name);
    EXPECT_EQ(names, (std::set<std::string>{".", "..", ".profile", "B.WUL", "a.wul", "notes.txt",
                                            "skin"}));

    EXPECT_EQ(found["skin"].attributes, kAttributeDirectory);
    EXPECT_EQ(found["skin"].size, 0u);
    EXPECT_EQ(found["."].attributes, kAttributeDirectory | kAttributeHidden);
    EXPECT_EQ(found[".profile"].attributes, kAttributeHidden);
    EXPECT_EQ(found["notes.txt"].attributes, kAttributeNormal);
    EXPECT_EQ(found["notes.txt"].size, 10u);

    for (const char* dotted : {".", "..", ".profile"})
        EXPECT_TRUE(found[dotted].dots) << dotted;
    for (const char* plain : {"skin", "a.wul", "notes.txt"})
        EXPECT_FALSE(found[plain].dots) << plain;

    TekoFileFind find;
    EXPECT_FALSE(find.FindFirst(folder / "*.zip"));
    EXPECT_FALSE(find.FindFirst(folder / "missing/*"));
    EXPECT_FALSE(find.FindNext());
}

TEST(FileAttributesTest, DescribesWhatStatReports) {
    TempFolder folder;
    Populate(folder);
    folder.Write("locked", "x");
    ASSERT_EQ(::chmod((folder / "locked").c_str(), 0444), 0);
    EXPECT_EQ(GetFileAttributes(folder / "missing"), kInvalidAttributes);
    EXPECT_EQ(GetFileAttributes(folder / "notes.txt"), kAttributeNormal);
    EXPECT_EQ(GetFileAttributes(folder / ".profile"), kAttributeHidden);
    EXPECT_EQ(GetFileAttributes(folder / "locked"), kAttributeReadOnly);
    EXPECT_EQ(GetFileAttributes(folder / "skin/"), kAttributeDirectory);
    EXPECT_EQ(GetFileAttributes(""), kInvalidAttributes);
}

TEST(TekoFileFindTest, MatchesWildcardsWithoutCase) {
    struct Case {
        std::string pattern;
        std::string name;
        bool matches;
    };
    const Case cases[] = {
        {"*.wul", "English.WUL", true},
        {"*.wul", "English.wul.bak", false},
        {"*.*", "no-extension", true},
        {"?.txt", "a.txt", true},
        {"?.txt", "ab.txt", false},
        {"?.txt", ".txt", false},
        {"a*b", "ab", true},
        {"a*b", "axxbxxb", true},
        {"a*b", "axxbxxc", false},
        {"*", "", true},
        {"a*", "", false},
        {"", "", true},
        {"", "a", false},
        {"Skin**", "skin", true},
        // Backtracking over every star would take ages on these.
        {"*a*a*a*a*a*a*a*b", std::string(5000, 'a'), false},
        {"*a*a*a*a*a*a*a*b", std::string(5000, 'a') + "b", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.pattern + " ~ " + c.name.substr(0, 20));
        EXPECT_EQ(TekoFileFind::MatchesPattern(c.pattern, c.name), c.matches);
    }
}

}  // namespace
}  // namespace Zarn
