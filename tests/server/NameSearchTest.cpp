// The two bounds of a search, which the end-to-end tests cannot reach on purpose: a result
// count chosen small, and a deadline already past.

#include <gtest/gtest.h>

#include <string>

#include "server/NameSearch.h"
#include "share/LocalTarget.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

TEST(NameSearchTest, StopsAtTheResultCountOrTheDeadlineAndSaysWhich) {
    testing::TempFolder share;
    constexpr int kFiles = 300;  // past the first look at the clock
    for (int i = 0; i < kFiles; ++i)
        share.Write("match-" + std::to_string(i), "");
    std::optional<ConfinedFolder> folder = ConfinedFolder::Open(share.Path(), true);
    ASSERT_TRUE(folder);
    LocalTarget target{.folder = std::move(*folder), .relative = "", .local_path = share.Path()};

    NameSearch unbounded({.query = "MATCH"});
    unbounded.Search(target, "/docs/");
    EXPECT_EQ(unbounded.GetMatches().size(), static_cast<size_t>(kFiles));
    EXPECT_EQ(unbounded.GetBound(), NameSearch::Bound::kNone);

    NameSearch few({.query = "match", .max_results = 10});
    few.Search(target, "/docs/");
    EXPECT_EQ(few.GetMatches().size(), 10u);
    EXPECT_EQ(few.GetBound(), NameSearch::Bound::kResults);

    NameSearch late({.query = "match", .deadline = NameSearch::Clock::now()});
    late.Search(target, "/docs/");
    EXPECT_LT(late.GetMatches().size(), static_cast<size_t>(kFiles));
    EXPECT_EQ(late.GetBound(), NameSearch::Bound::kTime);
    // Once bounded, further folders add nothing.
    size_t found = late.GetMatches().size();
    late.Search(target, "/again/");
    EXPECT_EQ(late.GetMatches().size(), found);
}

}  // namespace
}  // namespace Zarn
