#include "skin/Crc32.h"

#include <array>
#include <cstring>

#include "skin/Crc32Folding.h"

namespace Teko {
namespace {

constexpr uint32_t kReflectedPolynomial = 0xEDB88320u;
constexpr int kSlices = 8;

using Tables = std::array<std::array<uint32_t, 256>, kSlices>;

// Slicing by eight: table[k][b] is the register after byte b followed by k zero bytes, so
// eight bytes fold in with eight independent look-ups instead of a chain of eight. Long
// runs go to Crc32Folding where the processor allows; the tables take short pieces, the
// tails and processors without it. Built by the compiler, so concurrent first use needs no
// guard.
constexpr Tables MakeTables() {
    Tables tables{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value & 1u) != 0 ? (value >> 1) ^ kReflectedPolynomial : value >> 1;
        }
        tables[0][byte] = value;
    }
    for (uint32_t byte = 0; byte < 256; ++byte) {
        for (int slice = 1; slice < kSlices; ++slice) {
            uint32_t previous = tables[slice - 1][byte];
            tables[slice][byte] = (previous >> 8) ^ tables[0][previous & 0xFFu];
        }
    }
    return tables;
}

constexpr Tables kTables = MakeTables();

uint32_t LoadLittleEndian(const char* bytes) {
    unsigned char b[4];
    std::memcpy(b, bytes, 4);
    return static_cast<uint32_t>(b[0]) | static_cast<uint32_t>(b[1]) << 8 |
           static_cast<uint32_t>(b[2]) << 16 | static_cast<uint32_t>(b[3]) << 24;
}

uint32_t UpdateByTables(uint32_t state, const char* at, size_t left) {
    for (; left >= 8; left -= 8, at += 8) {
        uint32_t low = LoadLittleEndian(at) ^ state;
        uint32_t high = LoadLittleEndian(at + 4);
        state = kTables[7][low & 0xFFu] ^ kTables[6][(low >> 8) & 0xFFu] ^
                kTables[5][(low >> 16) & 0xFFu] ^ kTables[4][low >> 24] ^ kTables[3][high & 0xFFu] ^
                kTables[2][(high >> 8) & 0xFFu] ^ kTables[1][(high >> 16) & 0xFFu] ^
                kTables[0][high >> 24];
    }
    for (; left > 0; --left, ++at) {
        state = kTables[0][(state ^ static_cast<unsigned char>(*at)) & 0xFFu] ^ (state >> 8);
    }
    return state;
}

}  // namespace

void Crc32::Update(std::string_view bytes) {
    uint32_t state = state_;
    const char* at = bytes.data();
    size_t left = bytes.size();
    if (left >= Crc32Folding::kMinBytes && Crc32Folding::IsAvailable()) {
        size_t whole = left - left % Crc32Folding::kBlockBytes;
        state = Crc32Folding::Update(state, at, whole);
        at += whole;
        left -= whole;
    }
    state_ = UpdateByTables(state, at, left);
}

uint32_t Crc32::Of(std::string_view bytes) {
    Crc32 crc;
    crc.Update(bytes);
    return crc.Value();
}

uint32_t Crc32::OfByTables(std::string_view bytes) {
    return ~UpdateByTables(0xFFFFFFFFu, bytes.data(), bytes.size());
}

}  // namespace Teko
