// The header block parser, fed from memory in pieces of every size: where a piece ends must
// never change where the block ends or what it says.

#include <gtest/gtest.h>

#include <random>

#include "server/CgiHeaderBlock.h"

namespace Zarn {
namespace {

struct Parsed {
    CgiHeaderBlock::State state;
    std::string head;  // the written head, for a complete block
    std::string body;  // the output the block left
};

Parsed FeedInPieces(const std::string& output, uint32_t seed) {
    CgiHeaderBlock block;
    std::mt19937 random(seed);
    Parsed parsed{};
    bool ended = false;
    for (size_t at = 0; at < output.size();) {
        size_t piece = std::uniform_int_distribution<size_t>(1, 7)(random);
        std::string_view bytes = std::string_view(output).substr(at, piece);
        size_t used = block.Feed(bytes);
        if (block.GetState() == CgiHeaderBlock::State::kComplete && !ended)
            parsed.body = output.substr(at + used);
        ended = block.GetState() != CgiHeaderBlock::State::kIncomplete;
        at += bytes.size();
    }
    parsed.state = block.GetState();
    if (parsed.state == CgiHeaderBlock::State::kComplete)
        block.ToResponseHead().WriteTo({}, "D", parsed.head);
    return parsed;
}

TEST(CgiHeaderBlockTest, FindsTheBlockAndItsMeaningWhereverThePiecesEnd) {
    using State = CgiHeaderBlock::State;
    const struct {
        std::string output;
        State state;
        std::string head_part;  // expected inside the written head
        std::string body;
    } cases[] = {
        {"Content-Type: text/plain\r\n\r\nbody\r\n\r\n", State::kComplete,
         "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n", "body\r\n\r\n"},
        {"Status: 404\nX-A:  spaced  \n\nrest", State::kComplete,
         "HTTP/1.1 404 Not Found\r\nX-A: spaced\r\n", "rest"},
        {"Location: /x\r\nStatus: 303 Look there\r\n\r\n", State::kComplete,
         "HTTP/1.1 303 Look there\r\nLocation: /x\r\n", ""},
        {"Content-Length: 4\nDate: never\n\nabcd", State::kComplete, "Content-Length: 4\r\nDate: D",
         "abcd"},
        {"\r\nbody", State::kMalformed, "", ""},
        {"X-Split: a\rInjected: b\n\n", State::kMalformed, "", ""},
        {" folded: x\n\n", State::kMalformed, "", ""},
        {"Status: 2000 Big\n\n", State::kMalformed, "", ""},
        {"Content-Length: 12abc\n\n", State::kMalformed, "", ""},
        {"Content-Type: text/plain\r\n", State::kIncomplete, "", ""},
        {"X: " + std::string(CgiHeaderBlock::kMaxBytes, 'x'), State::kMalformed, "", ""},
    };
    for (const auto& c : cases) {
        for (uint32_t seed = 1; seed <= 5; ++seed) {
            SCOPED_TRACE(c.output.substr(0, 40) + " seed " + std::to_string(seed));
            Parsed parsed = FeedInPieces(c.output, seed);
            EXPECT_EQ(parsed.state, c.state);
            if (c.state != State::kComplete) continue;
            EXPECT_NE(parsed.head.find(c.head_part), std::string::npos) << parsed.head;
            EXPECT_EQ(parsed.body, c.body);
        }
    }
}

}  // namespace
}  // namespace Zarn
