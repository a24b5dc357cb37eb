#include "core/FileContents.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>

#include "core/PathUtil.h"
#include "core/UniqueFd.h"

namespace Zarn {

std::optional<std::string> ReadWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (in.bad()) return std::nullopt;
    return bytes;
}

bool WriteFully(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

bool WriteFileAtomically(const std::string& path, std::string_view bytes, int mode) {
    std::string temporary = path + ".tmp";
    UniqueFd fd(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
    if (!fd.IsValid()) return false;
    // An older temporary file may carry looser bits than asked for.
    bool written = ::fchmod(fd.Get(), static_cast<mode_t>(mode)) == 0 &&
                   WriteFully(fd.Get(), bytes) && ::fsync(fd.Get()) == 0;
    fd.Reset();
    if (!written || ::rename(temporary.c_str(), path.c_str()) != 0) {
        int error = errno;
        ::unlink(temporary.c_str());
        errno = error;  // the caller may want to say why
        return false;
    }
    // The rename is durable only once the folder's entry is on the disk too.
    UniqueFd folder(::open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.IsValid()) ::fsync(folder.Get());
    return true;
}

}  // namespace Zarn
