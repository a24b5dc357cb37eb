#include <gtest/gtest.h>

#include <random>
#include <string>

#include "skin/Crc32.h"
#include "skin/Crc32Folding.h"

namespace Teko {
namespace {

// Fed in random pieces shorter than `bound`, some empty.
uint32_t CrcInPieces(std::string_view bytes, size_t bound, std::mt19937& random) {
    Crc32 crc;
    for (size_t offset = 0, piece; offset < bytes.size(); offset += piece) {
        piece = random() % bound;
        crc.Update(bytes.substr(offset, piece));
    }
    return crc.Value();
}

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
        EXPECT_EQ(CrcInPieces(bytes, 20, random), value);
    }
}

// A bit at a time, straight from the definition: nothing shared with the code under test.
uint32_t BitwiseCrc(std::string_view bytes) {
    uint32_t state = 0xFFFFFFFFu;
    for (char c : bytes) {
        state ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit)
            state = (state & 1u) != 0 ? (state >> 1) ^ 0xEDB88320u : state >> 1;
    }
    return ~state;
}

// Long inputs take the folding path where the processor has it (512-bit folds where it has
// those, else 128-bit) and the tables elsewhere; every path must agree with the definition
// at every length around their block sizes, from odd alignments, whole, in pieces that
// switch paths mid-stream and continued from a running register: a wrong constant or a lost
// lane shows at some length only.
TEST(Crc32Test, EveryPathAgreesWithTheDefinitionAtEveryLengthAndAlignment) {
    std::mt19937 random(7);
    std::string data(70000, '\0');
    for (char& c : data)
        c = static_cast<char>(random());
    for (size_t start : {0, 1, 3, 5, 7, 13, 31}) {
        for (size_t length = 0; length <= 4096; ++length) {
            std::string_view bytes = std::string_view(data).substr(start, length);
            ASSERT_EQ(Crc32::Of(bytes), Crc32::OfByTables(bytes)) << length << " from " << start;
            if (length <= 300) {
                ASSERT_EQ(Crc32::OfByTables(bytes), BitwiseCrc(bytes)) << length;
            }
        }
    }
    const uint32_t whole = BitwiseCrc(data);
    EXPECT_EQ(Crc32::Of(data), whole);
    EXPECT_EQ(CrcInPieces(data, 1000, random), whole);

    if (!Crc32Folding::IsAvailable()) GTEST_SKIP() << "no carry-less multiplication here";
    std::string_view bytes(data);
    for (size_t length = Crc32Folding::kMinBytes; length <= 4096; length += 16) {
        for (size_t start : {1, 7}) {
            const char* at = bytes.data() + start;
            // A register already under way, as for every piece after a file's first.
            uint32_t running = ~Crc32::OfByTables(bytes.substr(0, start));
            uint32_t expected = ~Crc32::OfByTables(bytes.substr(0, start + length));
            ASSERT_EQ(Crc32Folding::Update(running, at, length), expected) << length;
            ASSERT_EQ(Crc32Folding::UpdateNarrow(running, at, length), expected) << length;
        }
    }
    if (!Crc32Folding::IsWideAvailable()) GTEST_SKIP() << "no 512-bit multiplication here";
}

}  // namespace
}  // namespace Teko
