#include "core/EmbeddedResources.h"

namespace Zarn {

std::optional<std::string_view> FindEmbeddedResource(std::string_view name) {
    for (const EmbeddedResource& resource : AllEmbeddedResources()) {
        if (name == resource.name) return resource.Bytes();
    }
    return std::nullopt;
}

}  // namespace Zarn
