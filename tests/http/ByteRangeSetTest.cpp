#include <gtest/gtest.h>

#include <vector>

#include "http/ByteRangeSet.h"

namespace Zarn {
namespace {

// How overlapping and touching ranges merge is the fuzz harness's to check against each
// range resolved alone; here, each kind of range and the edges of the entity.
TEST(ByteRangeSetTest, ResolvesToTheContentRangeOfTheFirstRange) {
    struct Case {
        const char* header;
        uint64_t total;
        const char* content_range;  // nullptr: the set does not resolve (416)
        size_t ranges;
    };
    const Case cases[] = {
        {"bytes=0-99", 1000, "bytes 0-99/1000", 1},
        {"bytes=-100", 1000, "bytes 900-999/1000", 1},
        {"bytes=500-", 1000, "bytes 500-999/1000", 1},
        {"bytes=200-299,0-99", 1000, "bytes 0-99/1000", 2},
        {" bytes = 1-1 , 3-4 ", 10, "bytes 1-1/10", 2},
        {"bytes=0-1000", 1000, nullptr, 0},
        {"bytes=1000-", 1000, nullptr, 0},
        {"bytes=5000-5999", 1000, nullptr, 0},
        {"bytes=-5000", 1000, "bytes 0-999/1000", 1},  // a long suffix means all of it
        {"bytes=-0", 1000, nullptr, 0},
        {"bytes=0-", 0, nullptr, 0},
        {"bytes=-1", 0, nullptr, 0},
        {"bytes=0-0", 1, "bytes 0-0/1", 1},
        {"bytes=0-18446744073709551615", 1000, nullptr, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.header);
        ByteRangeSet set;
        ASSERT_TRUE(set.Parse(c.header));
        if (c.content_range == nullptr) {
            EXPECT_FALSE(set.Resolve(c.total));
            continue;
        }
        ASSERT_TRUE(set.Resolve(c.total));
        EXPECT_EQ(set.ContentRangeValue(), c.content_range);
        EXPECT_EQ(set.GetRanges().size(), c.ranges);
        EXPECT_FALSE(set.Resolve(c.total));  // once only
    }
}

// A suffix was sorted as if it began at byte 0 before its place was known, so it came
// first and the client's first range was dropped: 950-999 went out instead of 100-199.
TEST(ByteRangeSetTest, SuffixAfterAClosedRangeIsPlacedOnlyOnceTheSizeIsKnown) {
    for (const char* header : {"bytes=100-199,-50", "bytes=-50,100-199"}) {
        SCOPED_TRACE(header);
        ByteRangeSet set;
        ASSERT_TRUE(set.Parse(header));
        ASSERT_EQ(set.GetRanges().size(), 2u);
        ASSERT_TRUE(set.Resolve(1000));
        EXPECT_EQ(set.ContentRangeValue(), "bytes 100-199/1000");
        using Range = ByteRangeSet::Range;
        const std::vector<Range> resolved = {{ByteRangeSet::Kind::kClosed, 100, 199},
                                             {ByteRangeSet::Kind::kSuffix, 950, 999}};
        EXPECT_EQ(set.GetRanges(), resolved);
    }
}

TEST(ByteRangeSetTest, RefusesWhatIsNotAByteRangeList) {
    const char* bad[] = {"items=0-1", "bytes",        "0-99",      "bytes=",
                         "bytes=5",   "bytes=0-99,x", "Bytes=0-1", "bytes=9-5"};
    for (const char* header : bad) {
        SCOPED_TRACE(header);
        ByteRangeSet set;
        EXPECT_FALSE(set.Parse(header));
    }
}

}  // namespace
}  // namespace Zarn
