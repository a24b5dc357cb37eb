#include "skin/Crc32.h"

#include <array>

namespace Teko {
namespace {

constexpr uint32_t kReflectedPolynomial = 0xEDB88320u;

// One entry per byte value: the register after shifting that byte through it. Built by the
// compiler, so concurrent first use needs no guard.
constexpr std::array<uint32_t, 256> MakeTable() {
    std::array<uint32_t, 256> table{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value & 1u) != 0 ? (value >> 1) ^ kReflectedPolynomial : value >> 1;
        }
        table[byte] = value;
    }
    return table;
}

constexpr std::array<uint32_t, 256> kTable = MakeTable();

}  // namespace

void Crc32::Update(std::string_view bytes) {
    uint32_t state = state_;
    for (char c : bytes) {
        state = kTable[(state ^ static_cast<unsigned char>(c)) & 0xFFu] ^ (state >> 8);
    }
    state_ = state;
}

uint32_t Crc32::Of(std::string_view bytes) {
    Crc32 crc;
    crc.Update(bytes);
    return crc.Value();
}

}  // namespace Teko
