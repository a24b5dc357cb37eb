#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "core/UniqueFd.h"
#include "core/WriteBehind.h"

namespace Zarn {

// A file being received into a folder: written under a temporary name of its own and
// moved to its real name only once complete, without ever replacing a file that is
// already there. Until then nothing but the temporary file exists; destroying an
// uncommitted IncomingFile deletes it, so a broken upload leaves no trace. The temporary
// file is locked and registered while it is written, so that the clean-up of leftovers
// from a killed program never takes a running upload's file.
// Used by one thread.
class IncomingFile {
public:
    // The longest file name Linux file systems take, in bytes.
    static constexpr size_t kMaxNameBytes = 255;

    // Into the folder open as `folder_fd` (borrowed; it must outlive this object), so
    // that every step happens in the folder that was checked, whatever links change.
    IncomingFile(int folder_fd, std::string folder, std::string name)
        : folder_fd_(folder_fd), folder_(std::move(folder)), name_(std::move(name)) {}
    // Into the folder at this path.
    IncomingFile(std::string folder, std::string name);
    ~IncomingFile();
    IncomingFile(const IncomingFile&) = delete;
    IncomingFile& operator=(const IncomingFile&) = delete;

    // Creates "uploading_NAME.LUMIDROP" in the folder, or with NAME numbered as below from 2
    // on when another upload of the same name is running. False when the folder does
    // not take the file.
    [[nodiscard]] bool Create();
    // True when every byte was written.
    [[nodiscard]] bool Write(const char* bytes, size_t length);
    // Waits until the file is on the disk, closes it and gives it the name it was sent
    // with, or NAME(1).EXT, NAME(2).EXT and so on when that is taken. False when the disk
    // lost bytes or no name could be given; the temporary file is then deleted.
    [[nodiscard]] bool Commit();

    [[nodiscard]] const std::string& GetTemporaryPath() const { return temporary_path_; }
    // The name the file was stored under, after Commit.
    [[nodiscard]] const std::string& GetFinalName() const { return final_name_; }

    // NAME(N).EXT: the number goes before the last "." (not a leading one), or at the end.
    // NAME gives up whole characters from its end so that the result fits in kMaxNameBytes;
    // an EXT too long to leave NAME a character counts as part of NAME.
    [[nodiscard]] static std::string NumberedName(const std::string& name, unsigned number);

    // Renames `temporary_name` in the folder to `name`, or to NAME(1).EXT and so on when
    // that is taken, never replacing a file. The name given; nothing when none could be.
    [[nodiscard]] static std::optional<std::string> MoveIntoPlace(int folder_fd,
                                                                  const std::string& temporary_name,
                                                                  const std::string& name);

    // True for "uploading_" ... ".LUMIDROP": half-received files, never shown nor served.
    [[nodiscard]] static bool IsTemporaryName(std::string_view name);
    // The files of resumable uploads ("uploading_tus-" ... ".LUMIDROP"): temporary too, but
    // waiting for their client to come back, so they are not leftovers.
    [[nodiscard]] static bool IsResumableName(std::string_view name);
    // Deletes the temporary files in the folder that no running upload holds: the
    // leftovers of a program that was killed. Returns how many were deleted.
    static int RemoveStale(int folder_fd);

private:
    void Discard();
    // Drops the temporary name from the running uploads' register.
    void Forget();

    UniqueFd owned_folder_;
    int folder_fd_ = -1;
    std::string folder_;
    std::string name_;
    std::string temporary_name_;
    std::string temporary_path_;
    std::string final_name_;
    UniqueFd fd_;
    WriteBehind writer_;
};

}  // namespace Zarn
