#include "server/IncomingFile.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "core/PathUtil.h"
#include "core/StringUtil.h"

namespace Zarn {
namespace {

constexpr unsigned kMaxAttempts = 10000;

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
bool RenameWithoutReplacing(const std::string& from, const std::string& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno != EINVAL && errno != ENOSYS) return false;
    if (::link(from.c_str(), to.c_str()) != 0) return false;
    ::unlink(from.c_str());
    return true;
}

}  // namespace

IncomingFile::~IncomingFile() {
    Discard();
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
    const std::string prefix = "uploading_";
    const std::string extension = ".LUMIDROP";
    // Room for the prefix, the extension and a number; a long name is cut for the
    // temporary file only.
    std::string stem = CutName(name_, kMaxNameBytes - prefix.size() - extension.size() - 8);
    for (unsigned attempt = 1; attempt <= kMaxAttempts; ++attempt) {
        std::string candidate =
            Concat({prefix, attempt == 1 ? stem : NumberedName(stem, attempt), extension});
        std::string path = JoinPath(folder_, candidate);
        int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd >= 0) {
            fd_.Reset(fd);
            temporary_path_ = path;
            return true;
        }
        if (errno != EEXIST) return false;
    }
    return false;
}

bool IncomingFile::Write(const char* bytes, size_t length) {
    while (length > 0) {
        ssize_t written = ::write(fd_.Get(), bytes, length);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes += written;
        length -= static_cast<size_t>(written);
    }
    return true;
}

bool IncomingFile::Commit() {
    // Closing can be where a full disk or a network file system reports a lost write.
    if (::close(fd_.Release()) != 0) {
        Discard();
        return false;
    }
    for (unsigned number = 0; number <= kMaxAttempts; ++number) {
        std::string candidate = number == 0 ? name_ : NumberedName(name_, number);
        if (RenameWithoutReplacing(temporary_path_, JoinPath(folder_, candidate))) {
            final_name_ = candidate;
            temporary_path_.clear();
            return true;
        }
        if (errno != EEXIST) break;
    }
    Discard();
    return false;
}

void IncomingFile::Discard() {
    fd_.Reset();
    if (!temporary_path_.empty()) ::unlink(temporary_path_.c_str());
    temporary_path_.clear();
}

}  // namespace Zarn
