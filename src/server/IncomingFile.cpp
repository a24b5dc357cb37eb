#include "server/IncomingFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string_view>
#include <tuple>

#include "core/PathUtil.h"
#include "core/StringUtil.h"

namespace Zarn {
namespace {

constexpr unsigned kMaxAttempts = 10000;
constexpr std::string_view kTemporaryPrefix = "uploading_";
constexpr std::string_view kTemporaryExtension = ".LUMIDROP";

// The name cut to at most `bytes`, without splitting a UTF-8 sequence.
std::string CutName(std::string_view name, size_t bytes) {
    if (name.size() <= bytes) return std::string(name);
    size_t end = bytes;
    while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80)
        --end;
    return std::string(name.substr(0, end));
}

// A rename that fails with EEXIST instead of replacing the target. File systems without
// RENAME_NOREPLACE get the same promise from link(), which never replaces either.
bool RenameWithoutReplacing(int folder, const std::string& from, const std::string& to) {
    if (::renameat2(folder, from.c_str(), folder, to.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno != EINVAL && errno != ENOSYS) return false;
    if (::linkat(folder, from.c_str(), folder, to.c_str(), 0) != 0) return false;
    ::unlinkat(folder, from.c_str(), 0);
    return true;
}

// The temporary files of running uploads in this process, by folder and name. A file
// is registered before it is created and forgotten after it is gone, so the clean-up
// (which holds the same lock) never sees one of ours half made.
class RunningUploads {
public:
    using Key = std::tuple<dev_t, ino_t, std::string>;

    static RunningUploads& Instance() {
        static RunningUploads instance;
        return instance;
    }
    [[nodiscard]] std::mutex& Mutex() { return mutex_; }
    // The caller holds Mutex() for these three.
    void Add(const Key& key) { keys_.insert(key); }
    void Remove(const Key& key) { keys_.erase(key); }
    [[nodiscard]] bool Has(const Key& key) const { return keys_.contains(key); }

private:
    std::mutex mutex_;
    std::set<Key> keys_;
};

std::optional<RunningUploads::Key> KeyOf(int folder, const std::string& name) {
    struct stat info {};
    if (::fstat(folder, &info) != 0) return std::nullopt;
    return RunningUploads::Key{info.st_dev, info.st_ino, name};
}

// Another process (a second server sharing the folder) locks the files it writes too.
bool IsLockedElsewhere(int folder, const char* name) {
    UniqueFd fd(::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd.IsValid()) return true;
    return ::flock(fd.Get(), LOCK_EX | LOCK_NB) != 0;
}

}  // namespace

IncomingFile::IncomingFile(std::string folder, std::string name)
    : owned_folder_(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)),
      folder_fd_(owned_folder_.Get()),
      folder_(std::move(folder)),
      name_(std::move(name)) {}

IncomingFile::~IncomingFile() {
    Discard();
}

bool IncomingFile::IsTemporaryName(std::string_view name) {
    // In any spelling: on FAT and exFAT drives "UPLOADING_A.lumidrop" opens the same file.
    size_t prefix = kTemporaryPrefix.size();
    size_t extension = kTemporaryExtension.size();
    return name.size() > prefix + extension &&
           EqualsIgnoringCase(name.substr(0, prefix), kTemporaryPrefix) &&
           EqualsIgnoringCase(name.substr(name.size() - extension), kTemporaryExtension);
}

bool IncomingFile::IsResumableName(std::string_view name) {
    return IsTemporaryName(name) &&
           EqualsIgnoringCase(name.substr(kTemporaryPrefix.size(), 4), "tus-");
}

int IncomingFile::RemoveStale(int folder_fd) {
    UniqueFd listing(::openat(folder_fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!listing.IsValid()) return 0;
    std::unique_ptr<DIR, int (*)(DIR*)> dir(::fdopendir(listing.Get()), ::closedir);
    if (!dir) return 0;
    (void)listing.Release();  // the DIR owns it now
    int removed = 0;
    RunningUploads& running = RunningUploads::Instance();
    std::lock_guard hold(running.Mutex());
    while (const dirent* entry = ::readdir(dir.get())) {
        if (!IsTemporaryName(entry->d_name) || IsResumableName(entry->d_name)) continue;
        std::optional<RunningUploads::Key> key = KeyOf(folder_fd, entry->d_name);
        if (!key || running.Has(*key) || IsLockedElsewhere(folder_fd, entry->d_name)) continue;
        if (::unlinkat(folder_fd, entry->d_name, 0) == 0) ++removed;
    }
    return removed;
}

std::string IncomingFile::NumberedName(const std::string& name, unsigned number) {
    std::string suffix = Concat({"(", std::to_string(number), ")"});
    // A name that was stored at the limit must still get a number that fits, or the
    // upload is received whole only to fail at the rename.
    size_t room = kMaxNameBytes - suffix.size();
    size_t dot = name.rfind('.');
    if (dot != std::string::npos && dot != 0) {
        std::string_view extension = std::string_view(name).substr(dot);
        if (extension.size() < room) {
            std::string stem =
                CutName(std::string_view(name).substr(0, dot), room - extension.size());
            if (!stem.empty()) return Concat({stem, suffix, extension});
        }
    }
    return CutName(name, room) + suffix;
}

bool IncomingFile::Create() {
    const std::string prefix(kTemporaryPrefix);
    const std::string extension(kTemporaryExtension);
    if (folder_fd_ < 0) return false;
    RunningUploads& running = RunningUploads::Instance();
    // Room for the prefix, the extension and a number; a long name is cut for the
    // temporary file only.
    std::string stem = CutName(name_, kMaxNameBytes - prefix.size() - extension.size() - 8);
    for (unsigned attempt = 1; attempt <= kMaxAttempts; ++attempt) {
        std::string candidate =
            Concat({prefix, attempt == 1 ? stem : NumberedName(stem, attempt), extension});
        std::optional<RunningUploads::Key> key = KeyOf(folder_fd_, candidate);
        if (!key) return false;
        std::lock_guard hold(running.Mutex());
        int fd = ::openat(folder_fd_, candidate.c_str(),
                          O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
        if (fd >= 0) {
            fd_.Reset(fd);
            (void)::flock(fd, LOCK_EX | LOCK_NB);
            running.Add(*key);
            temporary_name_ = candidate;
            temporary_path_ = JoinPath(folder_, candidate);
            return true;
        }
        if (errno != EEXIST) return false;
    }
    return false;
}

bool IncomingFile::Write(const char* bytes, size_t length) {
    return writer_.Write(fd_.Get(), bytes, length);
}

bool IncomingFile::Commit() {
    // A file that is given its name is whole on the disk first: a power cut after the
    // visitor was told it arrived must not leave it empty or cut short under that name.
    // Closing can be where a network file system reports a lost write.
    if (!WriteBehind::Sync(fd_.Get()) || ::close(fd_.Release()) != 0) {
        Discard();
        return false;
    }
    std::optional<std::string> placed = MoveIntoPlace(folder_fd_, temporary_name_, name_);
    if (!placed) {
        Discard();
        return false;
    }
    final_name_ = *placed;
    Forget();
    return true;
}

std::optional<std::string> IncomingFile::MoveIntoPlace(int folder_fd,
                                                       const std::string& temporary_name,
                                                       const std::string& name) {
    for (unsigned number = 0; number <= kMaxAttempts; ++number) {
        std::string candidate = number == 0 ? name : NumberedName(name, number);
        if (RenameWithoutReplacing(folder_fd, temporary_name, candidate)) {
            // The new name lasts through a crash only once the folder's entry is on the disk.
            UniqueFd folder(::openat(folder_fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
            if (folder.IsValid()) (void)::fsync(folder.Get());
            return candidate;
        }
        if (errno != EEXIST) break;
    }
    return std::nullopt;
}

void IncomingFile::Discard() {
    fd_.Reset();
    if (!temporary_name_.empty()) ::unlinkat(folder_fd_, temporary_name_.c_str(), 0);
    Forget();
}

void IncomingFile::Forget() {
    if (temporary_name_.empty()) return;
    RunningUploads& running = RunningUploads::Instance();
    std::optional<RunningUploads::Key> key = KeyOf(folder_fd_, temporary_name_);
    std::lock_guard hold(running.Mutex());
    if (key) running.Remove(*key);
    temporary_name_.clear();
    temporary_path_.clear();
}

}  // namespace Zarn
