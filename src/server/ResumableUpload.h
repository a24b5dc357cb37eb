#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "core/UniqueFd.h"
#include "core/WriteBehind.h"

namespace Zarn {

// One resumable upload kept in its target folder between the requests that feed it: the
// bytes received so far in "uploading_tus-ID.LUMIDROP", whose size is the upload's offset,
// and what its creation said in "uploading_tus-ID.info.LUMIDROP" beside it. Nothing else
// holds its state, so an upload outlives dropped connections and restarts of the program.
// Both names are temporary ones: never listed nor served, and the completed file takes its
// real name by the same no-overwrite rename as a multipart upload.
// An object is used by one connection thread; Lock() keeps a second writer away from the
// same upload, in this process or another.
class ResumableUpload {
public:
    // An upload that receives nothing for this long is given up and its files deleted.
    static constexpr std::time_t kIdleSeconds = 24 * 60 * 60;

    struct Description {
        std::string name;                // the name the file takes when complete
        std::optional<uint64_t> length;  // nothing while the client defers it
        std::string metadata;            // the creation's Upload-Metadata, as sent
    };

    // A new, empty upload with a fresh random id in the folder open as `folder_fd`
    // (borrowed; it must outlive the object). Nothing when the folder takes no file.
    [[nodiscard]] static std::optional<ResumableUpload> Create(int folder_fd,
                                                               Description description);
    // The upload of this id in the folder, as of `now`. Nothing when there is none; an
    // upload idle for too long is deleted here and is then none either.
    [[nodiscard]] static std::optional<ResumableUpload> Open(int folder_fd, std::string_view id,
                                                             std::time_t now);
    // Deletes the uploads in the folder idle for too long as of `now`; how many.
    static int RemoveExpired(int folder_fd, std::time_t now);
    // A length or offset as the protocol writes it: decimal digits only; nothing for
    // anything else, so that "12abc" or "-1" never reads as a number.
    [[nodiscard]] static std::optional<uint64_t> ParseNumber(std::string_view text);
    // 32 lower-case hexadecimal digits, as Create makes them.
    [[nodiscard]] static bool IsValidId(std::string_view id);
    // The length of an upload this process completed within the last hour (the latest
    // thousand or so); nothing for any other id.
    [[nodiscard]] static std::optional<uint64_t> FinishedLength(std::string_view id,
                                                                std::time_t now);

    [[nodiscard]] const std::string& GetId() const { return id_; }
    [[nodiscard]] const Description& GetDescription() const { return description_; }
    // The bytes received so far: whatever the file holds, so never more than it holds.
    [[nodiscard]] uint64_t GetOffset() const;
    // When the upload will be given up unless more arrives.
    [[nodiscard]] std::time_t GetExpiry() const;

    // Takes the upload for this object alone until it is destroyed; false when another
    // request holds it.
    [[nodiscard]] bool Lock();
    // Fixes a deferred length; false when it cannot be recorded.
    [[nodiscard]] bool SetLength(uint64_t length);
    // Appends the bytes; true when all were written.
    [[nodiscard]] bool Append(const char* bytes, size_t length);
    // Waits until the received bytes are on the disk: a finished file is whole before it
    // takes its name.
    [[nodiscard]] bool Sync();
    // Gives the complete file its name (numbered when taken) and forgets the upload, but
    // for its length (FinishedLength). The name given; nothing when no name could be
    // given, and the upload stays as it was.
    [[nodiscard]] std::optional<std::string> Complete(std::time_t now);
    // Deletes the upload's files.
    void Remove();

private:
    ResumableUpload(int folder_fd, std::string id, Description description, UniqueFd data)
        : folder_fd_(folder_fd),
          id_(std::move(id)),
          description_(std::move(description)),
          data_(std::move(data)) {}

    [[nodiscard]] bool WriteDescription() const;

    int folder_fd_;
    std::string id_;
    Description description_;
    UniqueFd data_;
    WriteBehind writer_;
};

}  // namespace Zarn
