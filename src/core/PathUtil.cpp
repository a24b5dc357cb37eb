#include "core/PathUtil.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
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

bool MakeFolders(const std::string& path) {
    if (path.empty()) return false;
    struct stat info {};
    if (::stat(path.c_str(), &info) == 0) return S_ISDIR(info.st_mode);
    std::string parent = FolderOf(path);
    if (parent != path && parent != "." && !MakeFolders(parent)) return false;
    return ::mkdir(path.c_str(), 0755) == 0 || errno == EEXIST;
}

std::string FolderOf(std::string_view path) {
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) return ".";
    return slash == 0 ? "/" : std::string(path.substr(0, slash));
}

bool RenameWithoutReplacing(int from_folder, const std::string& from, int to_folder,
                            const std::string& to) {
    if (::renameat2(from_folder, from.c_str(), to_folder, to.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno != EINVAL && errno != ENOSYS) return false;
    // EINVAL is also how the kernel refuses a folder moved into itself; only a file
    // system without RENAME_NOREPLACE lets the plain checks below through.
    struct stat source {};
    struct stat taken {};
    if (::fstatat(from_folder, from.c_str(), &source, AT_SYMLINK_NOFOLLOW) != 0) return false;
    if (!S_ISDIR(source.st_mode)) {
        // link() never replaces either.
        if (::linkat(from_folder, from.c_str(), to_folder, to.c_str(), 0) != 0) return false;
        ::unlinkat(from_folder, from.c_str(), 0);
        return true;
    }
    if (::fstatat(to_folder, to.c_str(), &taken, AT_SYMLINK_NOFOLLOW) == 0) {
        errno = EEXIST;
        return false;
    }
    return ::renameat(from_folder, from.c_str(), to_folder, to.c_str()) == 0;
}

}  // namespace Zarn
