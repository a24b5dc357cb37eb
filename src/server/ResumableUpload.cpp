#include "server/ResumableUpload.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <memory>
#include <mutex>
#include <set>

#include "core/FileContents.h"
#include "core/StringUtil.h"
#include "server/IncomingFile.h"

namespace Zarn {
namespace {

constexpr std::string_view kPrefix = "uploading_tus-";
constexpr size_t kIdDigits = 32;
constexpr size_t kMaxDescriptionBytes = 64 * 1024;

std::string DataName(std::string_view id) {
    return Concat({kPrefix, id, ".LUMIDROP"});
}
std::string InfoName(std::string_view id) {
    return Concat({kPrefix, id, ".info.LUMIDROP"});
}
std::string PendingInfoName(std::string_view id) {
    return Concat({kPrefix, id, ".new.LUMIDROP"});
}

std::optional<std::string> NewId() {
    unsigned char random[kIdDigits / 2];
    if (::getrandom(random, sizeof random, 0) != static_cast<ssize_t>(sizeof random)) {
        return std::nullopt;
    }
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string id;
    for (unsigned char byte : random) {
        id += kDigits[byte >> 4];
        id += kDigits[byte & 0xF];
    }
    return id;
}

std::optional<std::string> ReadSmallFile(int folder_fd, const std::string& name) {
    UniqueFd fd(::openat(folder_fd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd.IsValid()) return std::nullopt;
    std::string text(kMaxDescriptionBytes, '\0');
    ssize_t got = ::read(fd.Get(), text.data(), text.size());
    if (got < 0) return std::nullopt;
    text.resize(static_cast<size_t>(got));
    return text;
}

std::optional<ResumableUpload::Description> ParseDescription(std::string_view text) {
    ResumableUpload::Description description;
    for (std::string_view line : Split(text, '\n')) {
        size_t equals = line.find('=');
        if (equals == std::string_view::npos) continue;
        std::string_view key = line.substr(0, equals), value = line.substr(equals + 1);
        if (key == "name") description.name = value;
        if (key == "metadata") description.metadata = value;
        if (key == "length") description.length = ResumableUpload::ParseNumber(value);
        if (key == "length" && !description.length) return std::nullopt;
    }
    if (description.name.empty()) return std::nullopt;
    return description;
}

// The newest change to either file of the upload; nothing when neither exists.
std::optional<std::time_t> LastChange(int folder_fd, std::string_view id) {
    std::optional<std::time_t> last;
    for (const std::string& name : {DataName(id), InfoName(id)}) {
        struct stat info {};
        if (::fstatat(folder_fd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
        last = std::max(last.value_or(info.st_mtime), info.st_mtime);
    }
    return last;
}

void RemoveFiles(int folder_fd, std::string_view id) {
    ::unlinkat(folder_fd, InfoName(id).c_str(), 0);
    ::unlinkat(folder_fd, PendingInfoName(id).c_str(), 0);
    ::unlinkat(folder_fd, DataName(id).c_str(), 0);
}

// A client whose answer to the last piece was lost asks for the offset again, and must
// hear "all of it" rather than "unknown upload", or it sends the whole file a second time.
// Kept in memory, not beside the files, so that the owner's folders hold no leftovers.
// A client asks again within seconds, so an hour is plenty; and the count is bounded, so
// that a day of steady uploads does not grow the program.
constexpr std::time_t kFinishedSeconds = 60 * 60;
constexpr size_t kMaxFinished = 1024;

struct FinishedUploads {
    std::mutex lock;
    std::map<std::string, std::pair<uint64_t, std::time_t>> lengths;  // id: length, when
};

FinishedUploads& Finished() {
    static FinishedUploads finished;
    return finished;
}

}  // namespace

std::optional<uint64_t> ResumableUpload::ParseNumber(std::string_view text) {
    // Nineteen digits always fit 64 bits; nobody uploads more than that anyway.
    if (text.empty() || text.size() > 19) return std::nullopt;
    uint64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return std::nullopt;
        value = value * 10 + static_cast<uint64_t>(c - '0');
    }
    return value;
}

bool ResumableUpload::IsValidId(std::string_view id) {
    return id.size() == kIdDigits && std::all_of(id.begin(), id.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
           });
}

std::optional<ResumableUpload> ResumableUpload::Create(int folder_fd, Description description) {
    std::optional<std::string> id = NewId();
    if (!id) return std::nullopt;
    ResumableUpload upload(folder_fd, *id, std::move(description), UniqueFd());
    // The description first: a data file without one is a crash's leftover, never an upload.
    if (!upload.WriteDescription()) return std::nullopt;
    upload.data_.Reset(::openat(folder_fd, DataName(*id).c_str(),
                                O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                0644));
    if (!upload.data_.IsValid()) {
        upload.Remove();
        return std::nullopt;
    }
    return upload;
}

std::optional<ResumableUpload> ResumableUpload::Open(int folder_fd, std::string_view id,
                                                     std::time_t now) {
    if (!IsValidId(id)) return std::nullopt;
    std::optional<std::time_t> last = LastChange(folder_fd, id);
    if (!last) return std::nullopt;
    if (now - *last >= kIdleSeconds) {
        RemoveFiles(folder_fd, id);
        return std::nullopt;
    }
    std::optional<std::string> text = ReadSmallFile(folder_fd, InfoName(id));
    std::optional<Description> description = text ? ParseDescription(*text) : std::nullopt;
    if (!description) return std::nullopt;
    UniqueFd data(::openat(folder_fd, DataName(id).c_str(),
                           O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!data.IsValid()) return std::nullopt;
    return ResumableUpload(folder_fd, std::string(id), std::move(*description), std::move(data));
}

int ResumableUpload::RemoveExpired(int folder_fd, std::time_t now) {
    UniqueFd listing(::openat(folder_fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!listing.IsValid()) return 0;
    std::unique_ptr<DIR, int (*)(DIR*)> dir(::fdopendir(listing.Get()), ::closedir);
    if (!dir) return 0;
    (void)listing.Release();  // the DIR owns it now
    std::set<std::string> ids;
    while (const dirent* entry = ::readdir(dir.get())) {
        std::string_view name = entry->d_name;
        if (!IncomingFile::IsResumableName(name)) continue;
        std::string_view id = name.substr(kPrefix.size(), kIdDigits);
        if (IsValidId(id)) ids.emplace(id);
    }
    int removed = 0;
    for (const std::string& id : ids) {
        std::optional<std::time_t> last = LastChange(folder_fd, id);
        if (!last || now - *last < kIdleSeconds) continue;
        // One that a request is feeding right now is not idle, whatever its times say.
        UniqueFd data(::openat(folder_fd, DataName(id).c_str(),
                               O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (data.IsValid() && ::flock(data.Get(), LOCK_EX | LOCK_NB) != 0) continue;
        RemoveFiles(folder_fd, id);
        ++removed;
    }
    return removed;
}

uint64_t ResumableUpload::GetOffset() const {
    struct stat info {};
    if (::fstat(data_.Get(), &info) != 0) return 0;
    return static_cast<uint64_t>(info.st_size);
}

std::time_t ResumableUpload::GetExpiry() const {
    return LastChange(folder_fd_, id_).value_or(0) + kIdleSeconds;
}

bool ResumableUpload::Lock() {
    return ::flock(data_.Get(), LOCK_EX | LOCK_NB) == 0;
}

bool ResumableUpload::SetLength(uint64_t length) {
    description_.length = length;
    return WriteDescription();
}

bool ResumableUpload::Append(const char* bytes, size_t length) {
    return writer_.Write(data_.Get(), bytes, length);
}

bool ResumableUpload::Sync() {
    return WriteBehind::Sync(data_.Get());
}

std::optional<uint64_t> ResumableUpload::FinishedLength(std::string_view id, std::time_t now) {
    FinishedUploads& finished = Finished();
    std::lock_guard hold(finished.lock);
    auto found = finished.lengths.find(std::string(id));
    if (found == finished.lengths.end() || now - found->second.second >= kFinishedSeconds) {
        return std::nullopt;
    }
    return found->second.first;
}

std::optional<std::string> ResumableUpload::Complete(std::time_t now) {
    uint64_t length = GetOffset();
    std::optional<std::string> placed =
        IncomingFile::MoveIntoPlace(folder_fd_, DataName(id_), description_.name);
    if (!placed) return placed;
    RemoveFiles(folder_fd_, id_);
    FinishedUploads& finished = Finished();
    std::lock_guard hold(finished.lock);
    std::erase_if(finished.lengths, [now](const auto& entry) {
        return now - entry.second.second >= kFinishedSeconds;
    });
    if (finished.lengths.size() >= kMaxFinished) {
        finished.lengths.erase(std::min_element(
            finished.lengths.begin(), finished.lengths.end(),
            [](const auto& a, const auto& b) { return a.second.second < b.second.second; }));
    }
    finished.lengths[id_] = {length, now};
    return placed;
}

void ResumableUpload::Remove() {
    RemoveFiles(folder_fd_, id_);
}

bool ResumableUpload::WriteDescription() const {
    std::string text =
        Concat({"name=", description_.name, "\nmetadata=", description_.metadata, "\n"});
    if (description_.length)
        text += Concat({"length=", std::to_string(*description_.length), "\n"});
    // Written aside and renamed over the old one, so a crash leaves one or the other whole.
    std::string pending = PendingInfoName(id_);
    UniqueFd fd(::openat(folder_fd_, pending.c_str(),
                         O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644));
    bool written = fd.IsValid() && WriteFully(fd.Get(), text) && ::fsync(fd.Get()) == 0;
    fd.Reset();
    if (!written ||
        ::renameat(folder_fd_, pending.c_str(), folder_fd_, InfoName(id_).c_str()) != 0) {
        ::unlinkat(folder_fd_, pending.c_str(), 0);
        return false;
    }
    return true;
}

}  // namespace Zarn
