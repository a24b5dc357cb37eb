// A CGI program's output, fed as the pipe delivers it: in pieces of any size. Where the
// header block ends, what it says and the head it makes must not depend on the pieces.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "PiecedInput.h"
#include "http/ResponseHead.h"
#include "server/CgiHeaderBlock.h"

using namespace Zarn;

namespace {

struct Outcome {
    size_t taken = 0;
    CgiHeaderBlock::State state = CgiHeaderBlock::State::kIncomplete;
    std::string head;

    bool operator==(const Outcome&) const = default;
};

Outcome Feed(std::string_view output, std::string_view pieces) {
    CgiHeaderBlock block;
    Outcome outcome;
    size_t position = 0;
    size_t piece = 0;
    while (position < output.size() && block.GetState() == CgiHeaderBlock::State::kIncomplete) {
        size_t count = output.size() - position;
        if (!pieces.empty()) {
            count =
                std::min<size_t>(count, 1 + static_cast<uint8_t>(pieces[piece++ % pieces.size()]));
        }
        const size_t taken = block.Feed(output.substr(position, count));
        if (taken > count) __builtin_trap();
        outcome.taken += taken;
        // A block that takes less than it was given has ended; the rest is body.
        if (taken < count && block.GetState() == CgiHeaderBlock::State::kIncomplete) {
            __builtin_trap();
        }
        position += count;
    }
    outcome.state = block.GetState();
    if (outcome.state == CgiHeaderBlock::State::kComplete) {
        block.ToResponseHead().WriteTo(ResponseTerms{}, "date", outcome.head);
    }
    return outcome;
}

}  // namespace

// The input: piece sizes, a newline, then the program's output.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::optional<PiecedInput> input = PiecedInput::From(data, size);
    if (!input) return -1;
    const Outcome whole = Feed(input->bytes, {});
    if (!(whole == Feed(input->bytes, input->pieces))) __builtin_trap();
    if (whole.taken > CgiHeaderBlock::kMaxBytes + 1) __builtin_trap();
    return 0;
}
