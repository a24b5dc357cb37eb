#include "skin/HuffmanCode.h"

namespace Teko {

bool HuffmanCode::Build(std::span<const uint8_t> lengths) {
    count_.fill(0);
    longest_ = 0;
    if (lengths.size() > kMaxSymbols) return false;
    for (uint8_t length : lengths) {
        if (length > kMaxBits) return false;
        ++count_[length];
    }
    count_[0] = 0;

    // Each length doubles the codes available; whatever the shorter codes left over must
    // cover this length's codes, and nothing may be left at the end.
    int32_t unused = 1;
    for (unsigned bits = 1; bits <= kMaxBits; ++bits) {
        unused = unused * 2 - count_[bits];
        if (unused < 0) return false;
    }
    size_t used = 0;
    unsigned longest = 0;
    for (unsigned bits = 1; bits <= kMaxBits; ++bits) {
        used += count_[bits];
        if (count_[bits] != 0) longest = bits;
    }
    bool lone_one_bit_code = used == 1 && count_[1] == 1;
    if (unused > 0 && used != 0 && !lone_one_bit_code) return false;
    longest_ = longest;

    std::array<uint16_t, kMaxBits + 2> next_slot{};
    for (unsigned bits = 1; bits <= kMaxBits; ++bits) {
        next_slot[bits + 1] = static_cast<uint16_t>(next_slot[bits] + count_[bits]);
    }
    for (size_t symbol = 0; symbol < lengths.size(); ++symbol) {
        if (lengths[symbol] != 0) {
            symbols_[next_slot[lengths[symbol]]++] = static_cast<uint16_t>(symbol);
        }
    }
    return true;
}

int HuffmanCode::Decode(BitReader& reader) const {
    // Codes of one length are consecutive numbers starting at `first`; the first code one bit
    // longer follows the last of them, doubled.
    int32_t code = 0;
    int32_t first = 0;
    int32_t slot = 0;
    for (unsigned bits = 1; bits <= longest_; ++bits) {
        uint32_t bit = 0;
        if (!reader.Read(1, bit)) return kTruncated;
        code |= static_cast<int32_t>(bit);
        int32_t count = count_[bits];
        if (code - first < count) return symbols_[static_cast<size_t>(slot + code - first)];
        slot += count;
        first = (first + count) << 1;
        code <<= 1;
    }
    return kInvalidCode;
}

}  // namespace Teko
