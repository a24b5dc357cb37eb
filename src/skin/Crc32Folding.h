#pragma once

#include <cstddef>
#include <cstdint>

namespace Teko {

// The zip CRC-32 by carry-less multiplication: sixty-four bytes folded in per step with a
// handful of multiplications, several times the speed of table look-ups, on processors
// that have the instruction (checked at run time; elsewhere Crc32 keeps to its tables).
// Where the processor also multiplies 512-bit registers, long runs take those, 256 bytes
// per step.
class Crc32Folding {
public:
    // At least this many bytes, in whole blocks, are folded; Crc32 takes the rest.
    static constexpr size_t kMinBytes = 64;
    static constexpr size_t kBlockBytes = 16;
    // From this many bytes on, the 512-bit registers are used where available.
    static constexpr size_t kWideMinBytes = 256;

    [[nodiscard]] static bool IsAvailable();
    // The register `state` (not inverted) after `length` more bytes: a multiple of
    // kBlockBytes, at least kMinBytes. Only when IsAvailable().
    [[nodiscard]] static uint32_t Update(uint32_t state, const char* bytes, size_t length);

    // Whether Update takes the 512-bit registers for runs of kWideMinBytes or more.
    [[nodiscard]] static bool IsWideAvailable();
    // As Update, but with 128-bit registers only whatever the processor offers, so that the
    // two can be held against each other.
    [[nodiscard]] static uint32_t UpdateNarrow(uint32_t state, const char* bytes, size_t length);
};

}  // namespace Teko
