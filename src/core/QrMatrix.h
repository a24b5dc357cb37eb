#pragma once

#include <cstdint>
#include <vector>

namespace Zarn {

// The grid of one QR Code symbol while it is built: the function patterns of its version
// (finders, separators, timing, alignment, the reserved format and version areas), the
// codewords laid along the zigzag path, a data mask and the format information for error
// correction level M. A value; one thread builds it, any may read a finished one.
class QrMatrix {
public:
    // A grid of `version` (1..40) with its function patterns drawn and the data area light.
    explicit QrMatrix(int version);

    [[nodiscard]] int Size() const { return size_; }
    // Dark; false outside the grid.
    [[nodiscard]] bool IsDark(int x, int y) const;
    // Modules left for codewords once every function pattern has its place.
    [[nodiscard]] int DataModuleCount() const;

    // Lays the bits of `codewords`, first bit first, from the bottom-right corner; modules
    // left over stay light as the remainder bits.
    void PlaceCodewords(const std::vector<uint8_t>& codewords);
    // Inverts the data modules that pattern `mask` (0..7) selects; a second call undoes it.
    void ApplyMask(int mask);
    // Writes both copies of the format information for level M and `mask`.
    void DrawFormat(int mask);
    // The sum of the four penalty rules of the standard; the lowest score wins.
    [[nodiscard]] int Penalty() const;

    // The 15 format bits for level M and `mask`, the BCH code added and the fixed pattern
    // applied; bit 14 is the first of the sequence.
    [[nodiscard]] static uint16_t FormatBits(int mask);
    // The 18 version bits with their BCH code, for versions 7 and up.
    [[nodiscard]] static uint32_t VersionBits(int version);
    // Centres of the alignment patterns along either axis (empty for version 1).
    [[nodiscard]] static std::vector<int> AlignmentCentres(int version);

private:
    void Set(int x, int y, bool dark);
    void SetFunction(int x, int y, bool dark);
    void DrawFinder(int centre_x, int centre_y);
    void DrawAlignment(int centre_x, int centre_y);
    void DrawVersion(int version);

    int size_;
    std::vector<uint8_t> dark_;
    std::vector<uint8_t> function_;
};

}  // namespace Zarn
