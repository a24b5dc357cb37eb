#pragma once

#include <optional>
#include <span>
#include <string_view>

namespace Zarn {

// A file of the project's res/ folder, built into the executable.
struct EmbeddedResource {
    const char* name;  // path below res/, e.g. "Language/English.wul"
    const unsigned char* data;
    size_t size;

    [[nodiscard]] std::string_view Bytes() const {
        return {reinterpret_cast<const char*>(data), size};
    }
};

// Every built-in resource, in name order.
[[nodiscard]] std::span<const EmbeddedResource> AllEmbeddedResources();

// The bytes of one built-in resource, or nothing.
[[nodiscard]] std::optional<std::string_view> FindEmbeddedResource(std::string_view name);

}  // namespace Zarn
