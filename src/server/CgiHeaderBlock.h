#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "http/ResponseHead.h"

namespace Zarn {

// The header block a CGI program writes in front of its body (RFC 3875 section 6.3),
// gathered from its output piece by piece and turned into our own response head. Lines
// end in LF or CRLF; the block ends with an empty line. Used by one connection thread.
class CgiHeaderBlock {
public:
    // A program that has not finished its headers by now is not speaking CGI.
    static constexpr size_t kMaxBytes = 64 * 1024;

    enum class State { kIncomplete, kComplete, kMalformed };

    // Takes the next bytes of the program's output; returns how many of them belong to the
    // block. Once the block is complete (or found malformed) it takes no more, and the
    // bytes it left are the start of the body.
    size_t Feed(std::string_view bytes);
    [[nodiscard]] State GetState() const { return state_; }

    // The head the complete block asks for: "Status:" gives the code and reason,
    // "Location:" without a Status a 302, a "Content-Length:" the framing; the framing and
    // connection headers are ours to write and are dropped, every other line is passed on.
    [[nodiscard]] ResponseHead ToResponseHead() const;

private:
    // Reads the lines of the finished block; false when one is not a header line.
    [[nodiscard]] bool ParseLines();
    [[nodiscard]] bool TakeField(std::string_view name, std::string_view value);

    std::string text_;
    size_t scanned_ = 0;
    State state_ = State::kIncomplete;
    int code_ = 200;
    std::string reason_ = "OK";
    bool has_status_ = false;
    bool has_location_ = false;
    std::optional<uint64_t> content_length_;
    std::vector<std::pair<std::string, std::string>> fields_;
};

}  // namespace Zarn
