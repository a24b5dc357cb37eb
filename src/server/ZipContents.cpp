#include "server/ZipContents.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

#include "core/StringUtil.h"
#include "core/TekoFileFind.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/ListRequestProcessor.h"
#include "server/RequestPath.h"

namespace Zarn {
namespace {

constexpr int kReadFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY;

std::string Join(const std::string& folder, const std::string& name) {
    if (folder.empty()) return name;
    if (name.empty()) return folder;
    return folder.back() == '/' ? folder + name : folder + "/" + name;
}

void LogLeftOut(const std::string& relative) {
    LogTranslated(kLogError, "zip에서 뺀 항목: %s", relative.c_str());
}

}  // namespace

ZipContents::ZipContents(LocalTarget target, bool show_hidden)
    : target_(std::move(target)), base_(target_.relative), show_hidden_(show_hidden) {}

bool ZipContents::Add(const std::string& name, const std::string& archive_name) {
    for (std::string_view segment : Split(name, '/')) {
        if (!segment.empty() && !IsVisibleName(segment, show_hidden_)) return false;
    }
    std::string relative = Join(base_, name);
    struct stat info {};
    if (!target_.folder.StatBelow(relative, info)) {
        LogLeftOut(relative);
        return false;
    }
    if (S_ISDIR(info.st_mode)) {
        std::string folder_name = archive_name.ends_with('/') ? archive_name : archive_name + "/";
        return AddFolder(relative, folder_name);
    }
    return AddFile(relative, archive_name);
}

bool ZipContents::AddFile(const std::string& relative, const std::string& archive_name) {
    // Opened, not only looked at: what cannot be read now is left out now, while the
    // archive's length can still change.
    UniqueFd file = target_.folder.OpenBelow(relative, kReadFlags);
    struct stat info {};
    if (!file.IsValid() || ::fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode)) {
        LogLeftOut(relative);
        return false;
    }
    entries_.push_back({.name = archive_name,
                        .size = static_cast<uint64_t>(info.st_size),
                        .modified = info.st_mtime});
    relatives_.push_back(relative);
    return true;
}

bool ZipContents::AddFolder(const std::string& relative, const std::string& archive_name) {
    // A loop, not a recursion: visitors who may upload can make a tree thousands of folders
    // deep, one new folder at a time, and a connection thread's stack is small.
    std::vector<Level> levels;
    if (!EnterFolder(relative, archive_name, levels)) return false;
    while (!levels.empty()) {
        Level& level = levels.back();
        if (level.next == level.children.size()) {
            levels.pop_back();
            open_folders_.pop_back();
            continue;
        }
        const auto& [name, is_folder] = level.children[level.next++];
        std::string child = Join(level.relative, name);
        if (is_folder) {
            (void)EnterFolder(child, level.archive_name + name + "/", levels);
        } else {
            (void)AddFile(child, level.archive_name + name);
        }
    }
    return true;
}

bool ZipContents::EnterFolder(const std::string& relative, const std::string& archive_name,
                              std::vector<Level>& levels) {
    UniqueFd folder = target_.folder.OpenBelow(relative, O_RDONLY | O_DIRECTORY);
    struct stat info {};
    if (!folder.IsValid() || ::fstat(folder.Get(), &info) != 0) {
        LogLeftOut(relative);
        return false;
    }
    std::pair<dev_t, ino_t> identity{info.st_dev, info.st_ino};
    if (std::find(open_folders_.begin(), open_folders_.end(), identity) != open_folders_.end()) {
        LogLeftOut(relative);  // a link to a folder it lies in would never end
        return false;
    }
    entries_.push_back({.name = archive_name, .size = 0, .modified = info.st_mtime});
    relatives_.emplace_back();
    open_folders_.push_back(identity);
    // Read whole and closed before the walk goes down: a descriptor held per level would
    // run the process out of them in a deep tree.
    levels.push_back({.relative = relative,
                      .archive_name = archive_name,
                      .children = ListVisible(folder.Get(), relative)});
    return true;
}

std::vector<std::pair<std::string, bool>> ZipContents::ListVisible(int folder_fd,
                                                                   const std::string& relative) {
    // The listing's own test, so that the archive never holds what the page hides.
    target_.relative = relative;
    std::vector<std::pair<std::string, bool>> names;
    TekoFileFind find;
    for (bool found = find.FindFirstIn(folder_fd, "*"); found; found = find.FindNext()) {
        if (ListRequestProcessor::IsListed(find, show_hidden_, &target_)) {
            names.emplace_back(find.GetName(), find.IsDirectory());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

UniqueFd ZipContents::OpenEntry(size_t index) const {
    if (index >= relatives_.size() || relatives_[index].empty()) return UniqueFd();
    return target_.folder.OpenBelow(relatives_[index], kReadFlags);
}

}  // namespace Zarn
