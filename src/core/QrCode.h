#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/QrMatrix.h"

namespace Zarn {

// A QR Code symbol (ISO/IEC 18004) holding bytes in byte mode at error correction level M,
// in the smallest version that holds them, for a phone's camera to read an address off
// the screen. Immutable once made; any thread may read it.
class QrCode {
public:
    static constexpr int kMaxVersion = 40;
    // What the largest version holds at level M.
    static constexpr size_t kMaxBytes = 2331;

    // The symbol for `bytes` with the data mask of the lowest penalty; nothing when they
    // are more than the largest version holds.
    [[nodiscard]] static std::optional<QrCode> Encode(std::string_view bytes);
    // The same with the data mask (0..7) chosen by the caller.
    [[nodiscard]] static std::optional<QrCode> Encode(std::string_view bytes, int mask);

    [[nodiscard]] int Version() const { return version_; }
    [[nodiscard]] int Mask() const { return mask_; }
    // Modules along one side, without the quiet zone.
    [[nodiscard]] int Size() const { return matrix_.Size(); }
    // Whether the module is dark; false outside the symbol.
    [[nodiscard]] bool Module(int x, int y) const { return matrix_.IsDark(x, y); }
    [[nodiscard]] int Penalty() const { return matrix_.Penalty(); }

    // A scalable image: a white square with `border` light modules round the symbol and
    // one path for all dark modules, one unit per module, drawn without anti-aliasing.
    [[nodiscard]] std::string ToSvg(int border = 4) const;

private:
    QrCode(int version, int mask, QrMatrix matrix)
        : version_(version), mask_(mask), matrix_(std::move(matrix)) {}

    int version_;
    int mask_;
    QrMatrix matrix_;
};

}  // namespace Zarn
