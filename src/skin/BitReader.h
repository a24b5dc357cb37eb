#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Teko {

// Reads a deflate stream's bits in the order RFC 1951 (section 3.1.1) packs them: each byte
// from its least significant bit up, multi-bit fields least significant bit first. It never
// looks past the end of the borrowed bytes; a read that would is refused and consumes nothing.
// Bytes are taken into the bit buffer only as a read needs them, so after AlignToByte() no
// whole byte is held back and TakeBytes() continues exactly where the bits stopped.
// One object per thread; the bytes must outlive it.
class BitReader {
public:
    static constexpr unsigned kMaxReadBits = 32;

    explicit BitReader(std::string_view input) : input_(input) {}

    // The next `count` bits (at most kMaxReadBits) as a number; false when the input ends first.
    [[nodiscard]] bool Read(unsigned count, uint32_t& value) {
        while (bit_count_ < count) {
            if (position_ == input_.size()) return false;
            bit_buffer_ |= uint64_t{static_cast<unsigned char>(input_[position_++])} << bit_count_;
            bit_count_ += 8;
        }
        value = static_cast<uint32_t>(bit_buffer_ & ((uint64_t{1} << count) - 1));
        bit_buffer_ >>= count;
        bit_count_ -= count;
        return true;
    }

    // Drops the rest of a partly read byte.
    void AlignToByte() {
        bit_buffer_ >>= bit_count_ % 8;
        bit_count_ -= bit_count_ % 8;
    }

    // The next `count` whole bytes, after AlignToByte(); false when fewer remain.
    [[nodiscard]] bool TakeBytes(size_t count, std::string_view& bytes) {
        if (bit_count_ != 0 || count > input_.size() - position_) return false;
        bytes = input_.substr(position_, count);
        position_ += count;
        return true;
    }

private:
    std::string_view input_;
    size_t position_ = 0;
    uint64_t bit_buffer_ = 0;
    unsigned bit_count_ = 0;
};

}  // namespace Teko
