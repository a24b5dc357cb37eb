#include <gtest/gtest.h>

#include <string>

#include "core/TekoFileFind.h"

namespace Zarn {
namespace {

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
