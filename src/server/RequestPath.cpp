#include "server/RequestPath.h"

#include <vector>

#include "core/StringUtil.h"
#include "server/IncomingFile.h"
#include "server/MountTrash.h"

namespace Zarn {

bool IsValidRequestPath(std::string_view path) {
    if (path.empty()) return true;
    if (path.front() == '/' || path.find("//") != std::string_view::npos) return false;
    for (std::string_view segment : Split(path, '/')) {
        if (segment == "." || segment == "..") return false;
    }
    return true;
}

bool IsValidSelection(std::string_view lines) {
    for (std::string_view line : Split(lines, '\n')) {
        // Forms end their lines with CR LF and every reader of a selection drops the CR, so
        // the line is judged as it will be read: "..\r" is "..".
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (!IsValidRequestPath(line)) return false;
    }
    return true;
}

std::string NormalizeRequestPath(std::string_view path) {
    std::vector<std::string_view> kept;
    for (std::string_view segment : Split(path, '/')) {
        if (segment.empty() || segment == ".") continue;
        if (segment == "..") {
            if (!kept.empty()) kept.pop_back();
            continue;
        }
        kept.push_back(segment);
    }
    std::string normal;
    for (std::string_view segment : kept) {
        if (!normal.empty()) normal += '/';
        normal += segment;
    }
    bool trailing =
        !path.empty() && (path.back() == '/' || path.ends_with("/.") || path.ends_with("/.."));
    if (trailing && !normal.empty()) normal += '/';
    return normal;
}

bool IsVisibleName(std::string_view name, bool show_hidden) {
    if (IncomingFile::IsTemporaryName(name)) return false;
    // What visitors deleted stays the owner's business, whatever else is shared; in any
    // spelling, which names the same folder on a FAT or exFAT drive.
    if (EqualsIgnoringCase(name, MountTrash::kFolderName)) return false;
    return show_hidden || !name.starts_with('.');
}

bool IsVisiblePath(std::string_view path, bool show_hidden) {
    size_t slash = path.find('/');
    if (slash == std::string_view::npos) return true;
    for (std::string_view segment : Split(path.substr(slash + 1), '/')) {
        if (!segment.empty() && !IsVisibleName(segment, show_hidden)) return false;
    }
    return true;
}

std::string_view MountNameOf(std::string_view path) {
    return path.substr(0, path.find('/'));
}

}  // namespace Zarn
