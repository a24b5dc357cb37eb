#include <gtest/gtest.h>

#include <random>
#include <string>

#include "skin/Crc32.h"

namespace Teko {
namespace {

// Published check values of the CRC-32 that zip, gzip and PNG share, whole and fed in
// random pieces (some empty).
TEST(Crc32Test, MatchesKnownValuesWholeAndInRandomPieces) {
    const std::pair<std::string, uint32_t> known[] = {
        {"", 0x00000000u},
        {"123456789", 0xCBF43926u},
        {"The quick brown fox jumps over the lazy dog", 0x414FA339u},
        {std::string(32, '\xFF'), 0xFF6CAB0Bu},
    };
    std::mt19937 random(32);
    for (const auto& [bytes, value] : known) {
        SCOPED_TRACE(bytes);
        EXPECT_EQ(Crc32::Of(bytes), value);
        Crc32 crc;
        for (size_t offset = 0, piece; offset < bytes.size(); offset += piece) {
            piece = random() % 20;
            crc.Update(std::string_view(bytes).substr(offset, piece));
        }
        EXPECT_EQ(crc.Value(), value);
    }
}

}  // namespace
}  // namespace Teko
