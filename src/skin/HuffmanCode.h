#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "skin/BitReader.h"

namespace Teko {

// A canonical prefix code of a deflate block (RFC 1951, section 3.2.2), defined by the code
// length of each symbol alone. Decoding follows the code bit by bit, so a damaged stream can
// at worst name a symbol the code does not hold; the caller rejects symbols its alphabet
// reserves. Read-only after Build(): threads may share a built code.
class HuffmanCode {
public:
    static constexpr unsigned kMaxBits = 15;
    static constexpr size_t kMaxSymbols = 288;
    // What Decode() returns instead of a symbol.
    static constexpr int kTruncated = -1;
    static constexpr int kInvalidCode = -2;

    // False when the lengths over-subscribe the code space, leave part of it unused (except
    // a lone one-bit code, which RFC 1951 allows for a block with one distance), name more than
    // kMaxSymbols symbols or exceed kMaxBits; the code then decodes nothing. All lengths zero
    // build a code with no symbols.
    [[nodiscard]] bool Build(std::span<const uint8_t> lengths);

    // The next symbol, kTruncated when the input ends inside a code, kInvalidCode as soon as
    // the bits read can no longer lead to a symbol.
    [[nodiscard]] int Decode(BitReader& reader) const;

private:
    // count_[n]: how many symbols have an n-bit code.
    std::array<uint16_t, kMaxBits + 1> count_{};
    // Bits past the longest code can only lead into unused code space.
    unsigned longest_ = 0;
    // The symbols ordered by code length, then by value, which is the order of their codes.
    std::array<uint16_t, kMaxSymbols> symbols_{};
};

}  // namespace Teko
