#include "core/QrMatrix.h"

#include <algorithm>
#include <cstdlib>

namespace Zarn {
namespace {

// The remainder of `value` (already shifted past its check bits) divided by `generator`
// over GF(2); `degree` is the generator's highest power.
uint32_t BchRemainder(uint32_t value, uint32_t generator, int degree) {
    for (int bit = 31; bit >= degree; --bit) {
        if (value & (1u << bit)) value ^= generator << (bit - degree);
    }
    return value;
}

bool MaskSelects(int mask, int x, int y) {
    switch (mask) {
        case 0:
            return (x + y) % 2 == 0;
        case 1:
            return y % 2 == 0;
        case 2:
            return x % 3 == 0;
        case 3:
            return (x + y) % 3 == 0;
        case 4:
            return (y / 2 + x / 3) % 2 == 0;
        case 5:
            return x * y % 2 + x * y % 3 == 0;
        case 6:
            return (x * y % 2 + x * y % 3) % 2 == 0;
        default:
            return ((x + y) % 2 + x * y % 3) % 2 == 0;
    }
}

// Rules 1 and 3 for one row or column: runs of five or more alike, and the 1:1:3:1:1
// pattern of a finder with four light modules on one side. Beyond the edge counts as light,
// as the quiet zone is.
int LinePenalty(const std::vector<bool>& line) {
    int score = 0;
    int run = 0;
    for (size_t i = 0; i < line.size(); ++i) {
        run = i > 0 && line[i] == line[i - 1] ? run + 1 : 1;
        if (run == 5) score += 3;
        if (run > 5) score += 1;
    }
    static constexpr bool kFinder[] = {true, false, true, true, true, false, true};
    auto at = [&](long i) { return i >= 0 && i < static_cast<long>(line.size()) && line[i]; };
    auto light = [&](long from) {
        for (long i = from; i < from + 4; ++i)
            if (at(i)) return false;
        return true;
    };
    for (long start = 0; start + 7 <= static_cast<long>(line.size()); ++start) {
        bool matches = true;
        for (long i = 0; i < 7 && matches; ++i)
            matches = at(start + i) == kFinder[i];
        if (matches && (light(start - 4) || light(start + 7))) score += 40;
    }
    return score;
}

}  // namespace

QrMatrix::QrMatrix(int version)
    : size_(version * 4 + 17),
      dark_(static_cast<size_t>(size_ * size_), 0),
      function_(static_cast<size_t>(size_ * size_), 0) {
    for (int i = 0; i < size_; ++i) {
        SetFunction(6, i, i % 2 == 0);
        SetFunction(i, 6, i % 2 == 0);
    }
    DrawFinder(3, 3);
    DrawFinder(size_ - 4, 3);
    DrawFinder(3, size_ - 4);
    std::vector<int> centres = AlignmentCentres(version);
    for (int cy : centres) {
        for (int cx : centres) {
            bool under_finder = (cx == 6 && cy == 6) || (cx == 6 && cy == centres.back()) ||
                                (cx == centres.back() && cy == 6);
            if (!under_finder) DrawAlignment(cx, cy);
        }
    }
    // Reserved now, written once the mask is chosen.
    DrawFormat(0);
    DrawVersion(version);
}

bool QrMatrix::IsDark(int x, int y) const {
    if (x < 0 || y < 0 || x >= size_ || y >= size_) return false;
    return dark_[static_cast<size_t>(y * size_ + x)] != 0;
}

int QrMatrix::DataModuleCount() const {
    return static_cast<int>(std::count(function_.begin(), function_.end(), 0));
}

void QrMatrix::Set(int x, int y, bool dark) {
    dark_[static_cast<size_t>(y * size_ + x)] = dark ? 1 : 0;
}

void QrMatrix::SetFunction(int x, int y, bool dark) {
    Set(x, y, dark);
    function_[static_cast<size_t>(y * size_ + x)] = 1;
}

void QrMatrix::DrawFinder(int centre_x, int centre_y) {
    // Rings at distance 0..3 from the centre are the pattern, distance 4 its separator.
    for (int dy = -4; dy <= 4; ++dy) {
        for (int dx = -4; dx <= 4; ++dx) {
            int x = centre_x + dx;
            int y = centre_y + dy;
            if (x < 0 || y < 0 || x >= size_ || y >= size_) continue;
            int ring = std::max(std::abs(dx), std::abs(dy));
            SetFunction(x, y, ring != 2 && ring != 4);
        }
    }
}

void QrMatrix::DrawAlignment(int centre_x, int centre_y) {
    for (int dy = -2; dy <= 2; ++dy) {
        for (int dx = -2; dx <= 2; ++dx)
            SetFunction(centre_x + dx, centre_y + dy, std::max(std::abs(dx), std::abs(dy)) != 1);
    }
}

void QrMatrix::DrawFormat(int mask) {
    uint16_t bits = FormatBits(mask);
    auto bit = [bits](int i) { return ((bits >> i) & 1) != 0; };
    // Beside the top-left finder: down column 8, then leftwards along row 8, stepping
    // over the timing patterns.
    for (int i = 0; i <= 5; ++i)
        SetFunction(8, i, bit(i));
    SetFunction(8, 7, bit(6));
    SetFunction(8, 8, bit(7));
    SetFunction(7, 8, bit(8));
    for (int i = 9; i < 15; ++i)
        SetFunction(14 - i, 8, bit(i));
    // The copy: along row 8 under the top-right finder, then down column 8 beside the
    // bottom-left one, above which one module is always dark.
    for (int i = 0; i < 8; ++i)
        SetFunction(size_ - 1 - i, 8, bit(i));
    for (int i = 8; i < 15; ++i)
        SetFunction(8, size_ - 15 + i, bit(i));
    SetFunction(8, size_ - 8, true);
}

void QrMatrix::DrawVersion(int version) {
    if (version < 7) return;
    uint32_t bits = VersionBits(version);
    for (int i = 0; i < 18; ++i) {
        bool dark = ((bits >> i) & 1) != 0;
        int across = size_ - 11 + i % 3;
        int along = i / 3;
        SetFunction(across, along, dark);
        SetFunction(along, across, dark);
    }
}

void QrMatrix::PlaceCodewords(const std::vector<uint8_t>& codewords) {
    size_t total_bits = codewords.size() * 8;
    size_t next = 0;
    bool upward = true;
    // Two columns at a time from the right edge; the vertical timing pattern's column is
    // stepped over as a whole.
    for (int right = size_ - 1; right >= 1; right -= 2) {
        if (right == 6) right = 5;
        for (int step = 0; step < size_; ++step) {
            int y = upward ? size_ - 1 - step : step;
            for (int x = right; x >= right - 1; --x) {
                if (function_[static_cast<size_t>(y * size_ + x)]) continue;
                bool dark = next < total_bits && ((codewords[next / 8] >> (7 - next % 8)) & 1);
                Set(x, y, dark);
                ++next;
            }
        }
        upward = !upward;
    }
}

void QrMatrix::ApplyMask(int mask) {
    for (int y = 0; y < size_; ++y) {
        for (int x = 0; x < size_; ++x) {
            size_t at = static_cast<size_t>(y * size_ + x);
            if (!function_[at] && MaskSelects(mask, x, y)) dark_[at] ^= 1;
        }
    }
}

int QrMatrix::Penalty() const {
    int score = 0;
    std::vector<bool> row(static_cast<size_t>(size_));
    std::vector<bool> column(static_cast<size_t>(size_));
    for (int i = 0; i < size_; ++i) {
        for (int j = 0; j < size_; ++j) {
            row[static_cast<size_t>(j)] = IsDark(j, i);
            column[static_cast<size_t>(j)] = IsDark(i, j);
        }
        score += LinePenalty(row) + LinePenalty(column);
    }
    for (int y = 0; y + 1 < size_; ++y) {
        for (int x = 0; x + 1 < size_; ++x) {
            bool dark = IsDark(x, y);
            if (IsDark(x + 1, y) == dark && IsDark(x, y + 1) == dark &&
                IsDark(x + 1, y + 1) == dark)
                score += 3;
        }
    }
    // Ten points for every full five percent that the dark share strays from half.
    long total = static_cast<long>(dark_.size());
    long dark = std::count(dark_.begin(), dark_.end(), 1);
    score += static_cast<int>(std::labs(20 * dark - 10 * total) / total) * 10;
    return score;
}

uint16_t QrMatrix::FormatBits(int mask) {
    // Level M is 00 in the two bits before the mask number.
    uint32_t data = static_cast<uint32_t>(mask & 7);
    uint32_t check = BchRemainder(data << 10, 0x537, 10);
    return static_cast<uint16_t>(((data << 10) | check) ^ 0x5412);
}

uint32_t QrMatrix::VersionBits(int version) {
    uint32_t data = static_cast<uint32_t>(version);
    return (data << 12) | BchRemainder(data << 12, 0x1F25, 12);
}

std::vector<int> QrMatrix::AlignmentCentres(int version) {
    if (version < 2) return {};
    int count = version / 7 + 2;
    int last = version * 4 + 10;
    // Evenly spaced back from the last by the smallest even step that reaches column 6;
    // the standard's table keeps that rule everywhere but at version 32, spaced by 26.
    int span = last - 6;
    int step = version == 32 ? 26 : (span + count - 2) / (count - 1);
    step += step % 2;
    std::vector<int> centres(static_cast<size_t>(count));
    centres.front() = 6;
    for (int i = count - 1; i >= 1; --i)
        centres[static_cast<size_t>(i)] = last - (count - 1 - i) * step;
    return centres;
}

}  // namespace Zarn
