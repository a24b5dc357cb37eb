#pragma once

#include <cstdint>
#include <string_view>

namespace Teko {

// CRC-32 as zip archives store it (the IEEE polynomial, bit-reflected, with the register
// preset to all ones and inverted at the end). Feed the bytes in any number of pieces; the
// value after the last piece equals Of() over all of them. One object per thread.
class Crc32 {
public:
    void Update(std::string_view bytes);
    [[nodiscard]] uint32_t Value() const { return ~state_; }

    [[nodiscard]] static uint32_t Of(std::string_view bytes);
    // Of() by slicing by eight alone, whatever the processor offers: the reference that the
    // folding paths are held to.
    [[nodiscard]] static uint32_t OfByTables(std::string_view bytes);

private:
    uint32_t state_ = 0xFFFFFFFFu;
};

}  // namespace Teko
