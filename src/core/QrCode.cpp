#include "core/QrCode.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "core/QrReedSolomon.h"

namespace Zarn {
namespace {

// Level M, versions 1..40: error correction codewords per block, and blocks.
constexpr uint8_t kEccPerBlock[QrCode::kMaxVersion] = {
    10, 16, 26, 18, 24, 16, 18, 22, 22, 26, 30, 22, 22, 24, 24, 28, 28, 26, 26, 26,
    26, 28, 28, 28, 28, 28, 28, 28, 28, 28, 28, 28, 28, 28, 28, 28, 28, 28, 28, 28};
constexpr uint8_t kBlocks[QrCode::kMaxVersion] = {
    1,  1,  1,  2,  2,  4,  4,  4,  5,  5,  5,  8,  9,  9,  10, 10, 11, 13, 14, 16,
    17, 17, 18, 20, 21, 23, 25, 26, 28, 29, 31, 33, 35, 37, 38, 40, 43, 45, 47, 49};

struct Layout {
    int total_codewords;
    int data_codewords;
    int blocks;
    int ecc_per_block;
};

Layout LayoutOf(const QrMatrix& matrix, int version) {
    int total = matrix.DataModuleCount() / 8;
    int blocks = kBlocks[version - 1];
    int ecc = kEccPerBlock[version - 1];
    return {total, total - blocks * ecc, blocks, ecc};
}

// Mode, count and data bits, the terminator, and the pad codewords that fill the rest.
std::vector<uint8_t> DataCodewords(std::string_view bytes, int version, int capacity) {
    std::vector<uint8_t> out;
    uint32_t pending = 0;
    int pending_bits = 0;
    auto put = [&](uint32_t value, int bits) {
        for (int i = bits - 1; i >= 0; --i) {
            pending = (pending << 1) | ((value >> i) & 1);
            if (++pending_bits == 8) {
                out.push_back(static_cast<uint8_t>(pending));
                pending = 0;
                pending_bits = 0;
            }
        }
    };
    put(0b0100, 4);
    put(static_cast<uint32_t>(bytes.size()), version < 10 ? 8 : 16);
    for (char byte : bytes)
        put(static_cast<uint8_t>(byte), 8);
    // Up to four zero bits end the data, then zeros to the byte boundary.
    for (int i = 0; i < 4 && static_cast<int>(out.size()) < capacity; ++i)
        put(0, 1);
    if (pending_bits > 0) put(0, 8 - pending_bits);
    for (uint8_t pad = 0xEC; static_cast<int>(out.size()) < capacity; pad ^= 0xEC ^ 0x11)
        out.push_back(pad);
    return out;
}

// Splits the data into blocks, the later ones a codeword longer when it does not divide
// evenly, and reads them out a codeword of each in turn, error correction after the data.
std::vector<uint8_t> Interleave(const std::vector<uint8_t>& data, const Layout& layout) {
    int short_blocks = layout.blocks - layout.total_codewords % layout.blocks;
    int short_data = layout.total_codewords / layout.blocks - layout.ecc_per_block;
    QrReedSolomon code(layout.ecc_per_block);
    std::vector<std::vector<uint8_t>> blocks;
    std::vector<std::vector<uint8_t>> checks;
    size_t start = 0;
    for (int i = 0; i < layout.blocks; ++i) {
        size_t length = static_cast<size_t>(short_data + (i < short_blocks ? 0 : 1));
        blocks.emplace_back(data.begin() + static_cast<long>(start),
                            data.begin() + static_cast<long>(start + length));
        checks.push_back(code.Remainder(blocks.back()));
        start += length;
    }
    std::vector<uint8_t> out;
    for (size_t i = 0; i <= static_cast<size_t>(short_data); ++i) {
        for (const std::vector<uint8_t>& block : blocks)
            if (i < block.size()) out.push_back(block[i]);
    }
    for (size_t i = 0; i < static_cast<size_t>(layout.ecc_per_block); ++i) {
        for (const std::vector<uint8_t>& check : checks)
            out.push_back(check[i]);
    }
    return out;
}

}  // namespace

std::optional<QrCode> QrCode::Encode(std::string_view bytes) {
    return Encode(bytes, -1);
}

std::optional<QrCode> QrCode::Encode(std::string_view bytes, int mask) {
    if (bytes.size() > kMaxBytes) return std::nullopt;
    for (int version = 1; version <= kMaxVersion; ++version) {
        QrMatrix matrix(version);
        Layout layout = LayoutOf(matrix, version);
        size_t needed_bits = 4 + (version < 10 ? 8 : 16) + bytes.size() * 8;
        if (needed_bits > static_cast<size_t>(layout.data_codewords) * 8) continue;
        matrix.PlaceCodewords(
            Interleave(DataCodewords(bytes, version, layout.data_codewords), layout));
        std::optional<QrMatrix> best;
        int best_mask = 0;
        int best_penalty = 0;
        for (int candidate = 0; candidate < 8; ++candidate) {
            if (mask >= 0 && candidate != mask) continue;
            QrMatrix masked = matrix;
            masked.ApplyMask(candidate);
            masked.DrawFormat(candidate);
            int penalty = mask >= 0 ? 0 : masked.Penalty();
            if (best && penalty >= best_penalty) continue;
            best = std::move(masked);
            best_mask = candidate;
            best_penalty = penalty;
        }
        return QrCode(version, best_mask, std::move(*best));
    }
    return std::nullopt;
}

std::string QrCode::ToSvg(int border) const {
    border = std::max(border, 0);
    int side = Size() + 2 * border;
    char piece[160];
    std::snprintf(piece, sizeof piece,
                  "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %d %d\" "
                  "shape-rendering=\"crispEdges\"><rect width=\"%d\" height=\"%d\" "
                  "fill=\"#fff\"/><path fill=\"#000\" d=\"",
                  side, side, side, side);
    std::string svg = piece;
    // One rectangle per run of dark modules in a row keeps the path short.
    for (int y = 0; y < Size(); ++y) {
        for (int x = 0; x < Size();) {
            if (!Module(x, y)) {
                ++x;
                continue;
            }
            int run = 1;
            while (Module(x + run, y))
                ++run;
            std::snprintf(piece, sizeof piece, "M%d %dh%dv1h-%dz", x + border, y + border, run,
                          run);
            svg += piece;
            x += run;
        }
    }
    svg += "\"/></svg>";
    return svg;
}

}  // namespace Zarn
