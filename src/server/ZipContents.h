#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

#include "server/ZipStreamWriter.h"
#include "share/LocalTarget.h"

namespace Zarn {

// What a zip download holds: files and folders of one mounted folder, gathered before the
// first byte goes so that the archive's length is known, and read again by path while it
// streams. Visitors get what the listing shows them: hidden names stay out unless hidden
// files are shared, links count only where they stay inside the mount (unless the owner
// shares links out), and a link back into its own ancestors is not followed twice. What
// cannot be read is left out with a log line. Used by one request's thread.
class ZipContents {
public:
    // `target` is the requested folder.
    ZipContents(LocalTarget target, bool show_hidden);

    // Adds `name` (a path below the requested folder; empty for the folder itself) under
    // `archive_name`: a file, or a folder with everything visitors may see below it. False,
    // with nothing added, when visitors may not see it or it cannot be read.
    bool Add(const std::string& name, const std::string& archive_name);

    [[nodiscard]] const std::vector<ZipStreamWriter::Entry>& GetEntries() const { return entries_; }
    // The entry's file, opened for reading (invalid for a folder entry or a failed open).
    [[nodiscard]] UniqueFd OpenEntry(size_t index) const;

private:
    // A folder the walk is inside: its visible entries, by name, each flagged when a
    // folder, and how many of them were taken.
    struct Level {
        std::string relative;
        std::string archive_name;
        std::vector<std::pair<std::string, bool>> children;
        size_t next = 0;
    };

    [[nodiscard]] bool AddFolder(const std::string& relative, const std::string& archive_name);
    // Adds the folder's own entry and a level for its walk; false, with nothing added, when
    // it cannot be read or lies inside itself through a link.
    [[nodiscard]] bool EnterFolder(const std::string& relative, const std::string& archive_name,
                                   std::vector<Level>& levels);
    [[nodiscard]] bool AddFile(const std::string& relative, const std::string& archive_name);
    // The visible entries of the folder at `relative`, by name, each flagged when a folder.
    [[nodiscard]] std::vector<std::pair<std::string, bool>> ListVisible(
        int folder_fd, const std::string& relative);

    LocalTarget target_;
    std::string base_;  // the requested folder, below the mount's folder
    bool show_hidden_;
    std::vector<ZipStreamWriter::Entry> entries_;
    std::vector<std::string> relatives_;                 // beside entries_; empty for a folder
    std::vector<std::pair<dev_t, ino_t>> open_folders_;  // beside the levels of the walk
};

}  // namespace Zarn
