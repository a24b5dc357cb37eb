#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "skin/BitReader.h"
#include "skin/HuffmanCode.h"

namespace Teko {

// Decompresses a raw deflate stream (RFC 1951: stored, fixed and dynamic Huffman blocks)
// into a buffer the caller sized to the exact decompressed length it expects, such as the
// size a zip entry declares. The decoder never allocates, never reads past the input and
// never writes past the buffer: a stream that would produce more bytes, ends before filling
// the buffer, or breaks any rule of the format is reported, not followed. Bytes after the
// final block are ignored. Each call stands alone, so any number of threads may inflate.
class Inflater {
public:
    enum class Result {
        kOk,
        kTruncated,             // the input ends before the final block does
        kInvalidBlockType,      // block type 3
        kStoredLengthMismatch,  // a stored block's length and its complement disagree
        kInvalidCodeLengths,    // a dynamic block's header describes no usable code
        kInvalidSymbol,         // bits that name no symbol, or a symbol the format reserves
        kDistanceTooFar,        // a match reaching before the first byte of the output
        kOutputOverflow,        // the stream holds more bytes than the buffer
        kOutputShort,           // the final block ends before the buffer is full
    };

    [[nodiscard]] static Result Inflate(std::string_view compressed, std::span<char> output);

private:
    Inflater(std::string_view compressed, std::span<char> output)
        : reader_(compressed), output_(output) {}

    [[nodiscard]] Result Run();
    [[nodiscard]] Result CopyStoredBlock();
    [[nodiscard]] Result ReadDynamicCodes(HuffmanCode& literals, HuffmanCode& distances);
    [[nodiscard]] Result ReadCodeLengths(const HuffmanCode& length_code,
                                         std::span<uint8_t> lengths);
    [[nodiscard]] Result DecodeBlock(const HuffmanCode& literals, const HuffmanCode& distances);
    [[nodiscard]] Result DecodeMatch(int length_symbol, const HuffmanCode& distances);

    BitReader reader_;
    std::span<char> output_;
    size_t written_ = 0;
};

}  // namespace Teko
