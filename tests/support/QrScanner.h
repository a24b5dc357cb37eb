#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "core/QrCode.h"
#include "support/TempFolder.h"

namespace Zarn::testing {

// A symbol as a grid of modules, true = dark, indexed [y][x].
using QrGrid = std::vector<std::vector<bool>>;

inline QrGrid GridOf(const QrCode& code) {
    QrGrid grid(static_cast<size_t>(code.Size()), std::vector<bool>(code.Size()));
    for (int y = 0; y < code.Size(); ++y) {
        for (int x = 0; x < code.Size(); ++x)
            grid[y][x] = code.Module(x, y);
    }
    return grid;
}

// Reads the grid as a phone would, with Debian's zbarimg (zbar-tools), from a bitmap with a
// quiet zone of four modules, `scale` pixels per module. The bytes it holds, exactly, or
// nothing when zbarimg finds no symbol. Its complaints (it looks for a desktop bus) stay
// out of the answer.
inline std::optional<std::string> ScanQr(const QrGrid& grid, int scale = 4) {
    TempFolder folder;
    const int border = 4;
    int modules = static_cast<int>(grid.size()) + 2 * border;
    int pixels = modules * scale;
    std::string image = "P5\n" + std::to_string(pixels) + " " + std::to_string(pixels) + "\n255\n";
    for (int py = 0; py < pixels; ++py) {
        for (int px = 0; px < pixels; ++px) {
            int x = px / scale - border;
            int y = py / scale - border;
            bool inside = x >= 0 && y >= 0 && x < static_cast<int>(grid.size()) &&
                          y < static_cast<int>(grid.size());
            image += static_cast<char>(inside && grid[y][x] ? 0 : 255);
        }
    }
    folder.Write("symbol.pgm", image);
    std::string command =
        "zbarimg --quiet --raw -Sbinary '" + (folder / "symbol.pgm") + "' 2>/dev/null";
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) return std::nullopt;
    std::string output;
    char buffer[4096];
    for (size_t got; (got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        output.append(buffer, got);
    int status = ::pclose(pipe);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
    return output;
}

}  // namespace Zarn::testing
