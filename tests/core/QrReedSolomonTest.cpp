// The error-correction codewords against the worked example of the QR Code standard; a
// fault here leaves symbols that read only while undamaged.

#include <gtest/gtest.h>

#include <vector>

#include "core/QrReedSolomon.h"

namespace Zarn {
namespace {

TEST(QrReedSolomonTest, MatchesTheStandardsWorkedExample) {
    // "01234567" as version 1-M: its 16 data codewords and the 10 that protect them.
    const std::vector<uint8_t> data = {0x10, 0x20, 0x0C, 0x56, 0x61, 0x80, 0xEC, 0x11,
                                       0xEC, 0x11, 0xEC, 0x11, 0xEC, 0x11, 0xEC, 0x11};
    const std::vector<uint8_t> check = {0xA5, 0x24, 0xD4, 0xC1, 0xED, 0x36, 0xC7, 0x87, 0x2C, 0x55};
    EXPECT_EQ(QrReedSolomon(10).Remainder(data), check);
}

}  // namespace
}  // namespace Zarn
