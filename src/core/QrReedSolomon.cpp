#include "core/QrReedSolomon.h"

#include <algorithm>

namespace Zarn {

QrReedSolomon::QrReedSolomon(int degree) {
    // Built as the product of (x + 2^i); `product` keeps the leading 1 while it grows.
    std::vector<uint8_t> product{1};
    uint8_t root = 1;
    for (int i = 0; i < degree; ++i) {
        std::vector<uint8_t> next(product.size() + 1, 0);
        for (size_t j = 0; j < product.size(); ++j) {
            next[j] ^= product[j];
            next[j + 1] ^= Multiply(product[j], root);
        }
        product = std::move(next);
        root = Multiply(root, 2);
    }
    generator_.assign(product.begin() + 1, product.end());
}

uint8_t QrReedSolomon::Multiply(uint8_t a, uint8_t b) {
    unsigned result = 0;
    unsigned shifted = a;
    for (unsigned rest = b; rest != 0; rest >>= 1) {
        if (rest & 1) result ^= shifted;
        shifted <<= 1;
        if (shifted & 0x100) shifted ^= 0x11D;
    }
    return static_cast<uint8_t>(result);
}

std::vector<uint8_t> QrReedSolomon::Remainder(std::span<const uint8_t> data) const {
    std::vector<uint8_t> remainder(generator_.size(), 0);
    for (uint8_t byte : data) {
        uint8_t factor = byte ^ remainder.front();
        std::rotate(remainder.begin(), remainder.begin() + 1, remainder.end());
        remainder.back() = 0;
        for (size_t i = 0; i < generator_.size(); ++i)
            remainder[i] ^= Multiply(generator_[i], factor);
    }
    return remainder;
}

}  // namespace Zarn
