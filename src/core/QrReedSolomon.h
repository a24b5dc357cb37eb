#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace Zarn {

// The Reed-Solomon code of QR Code symbols: arithmetic in GF(256) modulo
// x^8 + x^4 + x^3 + x^2 + 1, and the error-correction codewords for a block of data under
// the generator polynomial whose roots are 2^0 .. 2^(degree-1). Immutable once built; any
// thread may use it.
class QrReedSolomon {
public:
    // `degree` is the number of error-correction codewords per block (at least 1).
    explicit QrReedSolomon(int degree);

    // The `degree` codewords that follow `data` in its block: the remainder of
    // data(x) * x^degree divided by the generator, highest power first.
    [[nodiscard]] std::vector<uint8_t> Remainder(std::span<const uint8_t> data) const;

    [[nodiscard]] static uint8_t Multiply(uint8_t a, uint8_t b);

private:
    // Highest power first; the leading coefficient, always 1, is left out.
    std::vector<uint8_t> generator_;
};

}  // namespace Zarn
