// Where a program's header block ends and what it says; that the pieces the pipe delivers
// change neither, the fuzzing harness checks, and the relayed statuses the CGI end-to-end
// test shows.

#include <gtest/gtest.h>

#include "server/CgiHeaderBlock.h"

namespace Zarn {
namespace {

TEST(CgiHeaderBlockTest, EndsAtTheBlankLineAndRefusesWhatCouldSplitAHeader) {
    using State = CgiHeaderBlock::State;
    const struct {
        std::string output;
        State state;
        std::string head_part;  // expected inside the written head
        size_t taken;           // for a complete block
    } cases[] = {
        {"Status: 404\nX-A:  spaced  \n\nrest", State::kComplete,
         "HTTP/1.1 404 Not Found\r\nX-A: spaced\r\n", 28},
        {"Content-Length: 4\nDate: never\n\nabcd", State::kComplete, "Content-Length: 4\r\nDate: D",
         31},
        {"\r\nbody", State::kMalformed, "", 0},
        {"X-Split: a\rInjected: b\n\n", State::kMalformed, "", 0},
        {" folded: x\n\n", State::kMalformed, "", 0},
        {"Status: 2000 Big\n\n", State::kMalformed, "", 0},
        {"Content-Length: 12abc\n\n", State::kMalformed, "", 0},
        {"Content-Type: text/plain\r\n", State::kIncomplete, "", 0},
        {"X: " + std::string(CgiHeaderBlock::kMaxBytes, 'x'), State::kMalformed, "", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.output.substr(0, 40));
        CgiHeaderBlock block;
        size_t taken = block.Feed(c.output);
        EXPECT_EQ(block.GetState(), c.state);
        if (c.state != State::kComplete) continue;
        EXPECT_EQ(taken, c.taken);
        std::string head;
        block.ToResponseHead().WriteTo({}, "D", head);
        EXPECT_NE(head.find(c.head_part), std::string::npos) << head;
    }
}

}  // namespace
}  // namespace Zarn
