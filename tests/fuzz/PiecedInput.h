#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace Zarn {

// An input that says how to cut its bytes: piece sizes, a newline, then the bytes.
struct PiecedInput {
    std::string_view pieces;
    std::string_view bytes;

    // Nothing for an input without the newline, which libFuzzer is then told to drop.
    static std::optional<PiecedInput> From(const uint8_t* data, size_t size) {
        const std::string_view input(reinterpret_cast<const char*>(data), size);
        const size_t newline = input.find('\n');
        if (newline == std::string_view::npos) return std::nullopt;
        return PiecedInput{input.substr(0, newline), input.substr(newline + 1)};
    }
};

}  // namespace Zarn
