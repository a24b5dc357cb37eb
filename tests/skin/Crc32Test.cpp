#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "skin/Crc32.h"

namespace Teko {
namespace {

struct KnownValue {
    std::string bytes;
    uint32_t crc;
};

// Published check values of the CRC-32 that zip, gzip and PNG share.
const KnownValue kKnownValues[] = {
    {"", 0x00000000u},
    {"a", 0xE8B7BE43u},
    {"abc", 0x352441C2u},
    {"123456789", 0xCBF43926u},
    {"The quick brown fox jumps over the lazy dog", 0x414FA339u},
    {std::string(32, '\0'), 0x190A55ADu},
    {std::string(32, '\xFF'), 0xFF6CAB0Bu},
};

TEST(Crc32Test, MatchesKnownValuesWholeAndInRandomPieces) {
    std::mt19937 random(32);
    for (const KnownValue& known : kKnownValues) {
        SCOPED_TRACE(known.bytes);
        EXPECT_EQ(Crc32::Of(known.bytes), known.crc);
        for (int round = 0; round < 8; ++round) {
            Crc32 crc;
            for (size_t offset = 0; offset < known.bytes.size();) {
                size_t piece = std::uniform_int_distribution<size_t>(0, 5)(random);
                crc.Update(std::string_view(known.bytes).substr(offset, piece));
                offset += piece;
            }
            EXPECT_EQ(crc.Value(), known.crc);
        }
    }
}

}  // namespace
}  // namespace Teko
