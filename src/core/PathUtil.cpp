#include "core/PathUtil.h"

#include <unistd.h>

#include <cerrno>
#include <vector>

namespace Zarn {
namespace {

std::string CurrentDirectory() {
    std::vector<char> buffer(4096);
    while (::getcwd(buffer.data(), buffer.size()) == nullptr) {
        if (errno != ERANGE || buffer.size() > (1u << 20)) return "/";
        buffer.resize(buffer.size() * 2);
    }
    return buffer.data();
}

}  // namespace

std::string MakeAbsolutePath(std::string_view path) {
    std::string joined =
        path.starts_with('/') ? std::string(path) : JoinPath(CurrentDirectory(), path);
    std::vector<std::string_view> segments;
    std::string_view rest = joined;
    while (!rest.empty()) {
        size_t slash = rest.find('/');
        std::string_view segment = rest.substr(0, slash);
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
        if (segment.empty() || segment == ".") continue;
        if (segment == "..") {
            if (!segments.empty()) segments.pop_back();
            continue;
        }
        segments.push_back(segment);
    }
    std::string result;
    for (std::string_view segment : segments) {
        result += '/';
        result += segment;
    }
    return result.empty() ? "/" : result;
}

std::string JoinPath(std::string_view folder, std::string_view name) {
    if (folder.empty()) return std::string(name);
    std::string result(folder);
    if (result.back() != '/') result += '/';
    while (name.starts_with('/'))
        name.remove_prefix(1);
    result += name;
    return result;
}

}  // namespace Zarn
