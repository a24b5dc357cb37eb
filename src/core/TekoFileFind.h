#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>

namespace Zarn {

// Enumerates the entries of one folder that match a pattern such as "skin/*" or
// "Language/*.wul" ("*" any run of characters, "?" one character, ASCII letters compared
// without case, "*.*" everything). The entries "." and ".." are reported like any other;
// IsDots() is true for every name that begins with a dot, so callers that skip dot
// entries also skip hidden files. One object is used by one thread.
class TekoFileFind {
public:
    TekoFileFind() = default;
    ~TekoFileFind() = default;
    TekoFileFind(const TekoFileFind&) = delete;
    TekoFileFind& operator=(const TekoFileFind&) = delete;

    // Starts a new search (ending one still active); false when nothing matches.
    [[nodiscard]] bool FindFirst(const std::string& pattern);
    // The same inside a folder held open (the descriptor is borrowed), with a pattern for
    // the names only.
    [[nodiscard]] bool FindFirstIn(int folder_fd, const std::string& name_pattern);
    // Moves to the next matching entry; false at the end.
    [[nodiscard]] bool FindNext();
    void Close();

    [[nodiscard]] const std::string& GetName() const { return name_; }
    [[nodiscard]] uint32_t GetAttributes() const { return attributes_; }
    [[nodiscard]] uint64_t GetSize() const;
    [[nodiscard]] time_t GetLastWriteTime() const { return info_.st_mtime; }
    [[nodiscard]] time_t GetLastAccessTime() const { return info_.st_atime; }
    // Linux keeps no creation time in struct stat; the status-change time stands in.
    [[nodiscard]] time_t GetCreationTime() const { return info_.st_ctime; }
    [[nodiscard]] bool IsDirectory() const;
    [[nodiscard]] bool IsDots() const { return name_.starts_with('.'); }
    // The entry itself is a symbolic link (its status above is that of its target).
    [[nodiscard]] bool IsLink() const { return is_link_; }

    // The wildcard rule above, exposed for callers that filter names themselves.
    [[nodiscard]] static bool MatchesPattern(const std::string& pattern, const std::string& name);

private:
    struct DirCloser {
        void operator()(DIR* dir) const { ::closedir(dir); }
    };

    std::unique_ptr<DIR, DirCloser> dir_;
    std::string folder_;
    std::string name_pattern_;
    std::string name_;
    struct stat info_ {};
    uint32_t attributes_ = 0;
    bool is_link_ = false;
};

}  // namespace Zarn
