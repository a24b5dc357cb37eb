#include "core/FileAttributes.h"

namespace Zarn {

uint32_t AttributesFromStat(std::string_view name, const struct stat& info) {
    uint32_t attributes = 0;
    if (S_ISDIR(info.st_mode)) attributes |= kAttributeDirectory;
    if (name.starts_with('.')) attributes |= kAttributeHidden;
    if ((info.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0) attributes |= kAttributeReadOnly;
    return attributes == 0 ? kAttributeNormal : attributes;
}

uint32_t GetFileAttributes(const std::string& path) {
    struct stat info {};
    if (path.empty() || ::stat(path.c_str(), &info) != 0) return kInvalidAttributes;
    size_t slash = path.find_last_not_of('/');
    std::string_view trimmed = std::string_view(path).substr(0, slash + 1);
    size_t name_start = trimmed.rfind('/');
    std::string_view name =
        name_start == std::string_view::npos ? trimmed : trimmed.substr(name_start + 1);
    return AttributesFromStat(name, info);
}

}  // namespace Zarn
