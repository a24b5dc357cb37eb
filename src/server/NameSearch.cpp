#include "server/NameSearch.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>

#include "core/CaseFold.h"
#include "core/StringUtil.h"
#include "core/UniqueFd.h"
#include "server/RequestPath.h"
#include "share/LocalTarget.h"

namespace Zarn {
namespace {

struct DirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};
using DirHandle = std::unique_ptr<DIR, DirCloser>;

// Reading the clock for every entry would cost more than matching the name.
constexpr size_t kEntriesBetweenClockReads = 256;

std::string JoinRelative(const std::string& folder, std::string_view name) {
    if (folder.empty()) return std::string(name);
    return Concat({folder, folder.back() == '/' ? "" : "/", name});
}

}  // namespace

NameSearch::NameSearch(Options options) : options_(std::move(options)) {
    for (std::string_view word : Split(options_.query, ' ')) {
        for (std::string_view part : Split(word, '\t')) {
            if (!part.empty()) words_.push_back(FoldCase(part));
        }
    }
}

void NameSearch::Search(const LocalTarget& target, const std::string& address) {
    std::vector<Pending> level{{target.relative, address}};
    while (!level.empty() && bound_ == Bound::kNone) {
        std::vector<Pending> next;
        for (const Pending& folder : level) {
            ReadFolder(target, folder, next);
            if (bound_ != Bound::kNone) return;
        }
        level = std::move(next);
    }
}

void NameSearch::ReadFolder(const LocalTarget& target, const Pending& folder,
                            std::vector<Pending>& next) {
    // Through the mount's folder, so that a link on the way is checked as a download's is.
    UniqueFd opened = target.folder.OpenBelow(folder.relative, O_RDONLY | O_DIRECTORY);
    struct stat info {};
    if (!opened.IsValid() && IsOutOfDescriptors(errno)) {
        // Results without a whole branch would read as complete.
        bound_ = Bound::kDescriptors;
        return;
    }
    if (!opened.IsValid() || ::fstat(opened.Get(), &info) != 0) return;
    if (!visited_.emplace(info.st_dev, info.st_ino).second) return;
    DirHandle dir(::fdopendir(opened.Get()));
    if (!dir) return;
    (void)opened.Release();  // the DIR owns it now
    int dir_fd = ::dirfd(dir.get());
    while (const dirent* entry = ::readdir(dir.get())) {
        if (IsPastDeadline()) return;
        std::string_view name = entry->d_name;
        if (name == "." || name == ".." || !IsVisibleName(name, options_.show_hidden)) continue;
        unsigned char type = entry->d_type;
        bool have_info = false;
        if (type == DT_UNKNOWN) {
            if (::fstatat(dir_fd, entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
            type = S_ISLNK(info.st_mode) ? DT_LNK : S_ISDIR(info.st_mode) ? DT_DIR : DT_REG;
            have_info = type != DT_LNK;
        }
        std::string relative;
        if (type == DT_LNK) {
            // Where a link may not lead, the listing does not show it either.
            relative = JoinRelative(folder.relative, name);
            if (!target.folder.StatBelow(relative, info)) continue;
            type = S_ISDIR(info.st_mode) ? DT_DIR : DT_REG;
            have_info = true;
        }
        bool is_folder = type == DT_DIR;
        if (IsMatch(name)) {
            if (matches_.size() == options_.max_results) {
                bound_ = Bound::kResults;
                return;
            }
            if (!is_folder && !have_info && ::fstatat(dir_fd, entry->d_name, &info, 0) != 0)
                continue;
            matches_.push_back({.folder = folder.address,
                                .name = std::string(name),
                                .is_folder = is_folder,
                                .bytes = is_folder ? 0 : static_cast<uint64_t>(info.st_size),
                                .modified = is_folder ? 0 : info.st_mtime});
        }
        if (is_folder) {
            if (relative.empty()) relative = JoinRelative(folder.relative, name);
            next.push_back({std::move(relative), Concat({folder.address, name, "/"})});
        }
    }
}

bool NameSearch::IsMatch(std::string_view name) {
    if (words_.empty()) return false;
    folded_.clear();
    AppendFoldedCase(folded_, name);
    for (const std::string& word : words_) {
        if (folded_.find(word) == std::string::npos) return false;
    }
    return true;
}

bool NameSearch::IsPastDeadline() {
    if (++examined_ % kEntriesBetweenClockReads != 0) return false;
    if (Clock::now() < options_.deadline) return false;
    bound_ = Bound::kTime;
    return true;
}

}  // namespace Zarn
