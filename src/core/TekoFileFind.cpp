#include "core/TekoFileFind.h"

#include <fcntl.h>
#include <unistd.h>

#include "core/FileAttributes.h"

namespace Zarn {
namespace {

char FoldCase(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

bool TekoFileFind::MatchesPattern(const std::string& pattern, const std::string& name) {
    if (pattern == "*" || pattern == "*.*") return true;
    // Greedy scan that backtracks only to the latest star: time linear in
    // pattern × name, never exponential.
    size_t p = 0, n = 0;
    size_t star = std::string::npos, star_name = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            star_name = n;
        } else if (p < pattern.size() &&
                   (pattern[p] == '?' || FoldCase(pattern[p]) == FoldCase(name[n]))) {
            ++p;
            ++n;
        } else if (star != std::string::npos) {
            p = star + 1;
            n = ++star_name;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*')
        ++p;
    return p == pattern.size();
}

bool TekoFileFind::FindFirst(const std::string& pattern) {
    Close();
    size_t slash = pattern.rfind('/');
    folder_ = slash == std::string::npos ? "." : pattern.substr(0, slash == 0 ? 1 : slash);
    name_pattern_ = slash == std::string::npos ? pattern : pattern.substr(slash + 1);
    if (name_pattern_.empty()) return false;
    dir_.reset(::opendir(folder_.c_str()));
    if (!dir_) return false;
    return FindNext();
}

bool TekoFileFind::FindFirstIn(int folder_fd, const std::string& name_pattern) {
    Close();
    folder_.clear();
    name_pattern_ = name_pattern;
    if (name_pattern_.empty()) return false;
    int fd = ::openat(folder_fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return false;
    dir_.reset(::fdopendir(fd));
    if (!dir_) {
        ::close(fd);
        return false;
    }
    return FindNext();
}

bool TekoFileFind::FindNext() {
    if (!dir_) return false;
    while (const dirent* entry = ::readdir(dir_.get())) {
        std::string name = entry->d_name;
        if (!MatchesPattern(name_pattern_, name)) continue;
        struct stat info {};
        // A dangling symbolic link still shows, as the link itself.
        if (::fstatat(::dirfd(dir_.get()), entry->d_name, &info, 0) != 0 &&
            ::fstatat(::dirfd(dir_.get()), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
            continue;
        }
        is_link_ = entry->d_type == DT_LNK;
        if (entry->d_type == DT_UNKNOWN) {
            struct stat own {};
            is_link_ =
                ::fstatat(::dirfd(dir_.get()), entry->d_name, &own, AT_SYMLINK_NOFOLLOW) == 0 &&
                S_ISLNK(own.st_mode);
        }
        name_ = std::move(name);
        info_ = info;
        attributes_ = AttributesFromStat(name_, info_);
        return true;
    }
    return false;
}

void TekoFileFind::Close() {
    dir_.reset();
    name_.clear();
    info_ = {};
    attributes_ = 0;
    is_link_ = false;
}

uint64_t TekoFileFind::GetSize() const {
    return IsDirectory() ? 0 : static_cast<uint64_t>(info_.st_size);
}

bool TekoFileFind::IsDirectory() const {
    return (attributes_ & kAttributeDirectory) != 0;
}

}  // namespace Zarn
