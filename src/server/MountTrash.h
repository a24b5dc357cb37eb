#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

#include "core/UniqueFd.h"

namespace Zarn {

// The trash of one folder mount: ".lumidrop-trash" at the mount's root, where what
// visitors delete waits until the owner empties it, so that a mistake is never final.
// Each deletion lands under a time stamp with the entry's path in the mount kept below it
// ("20261123-211500/music/a.mp3"), so the owner can tell what came from where and nothing
// in the trash ever replaces anything. Visitors never see the folder (RequestPath hides
// its name everywhere). Holds nothing but the mount's folder descriptor, borrowed; any
// thread may use it, one object per request.
class MountTrash {
public:
    static constexpr std::string_view kFolderName = ".lumidrop-trash";

    enum class Outcome {
        kMoved,
        kOtherDevice,  // the entry lies on another file system than the mount's root
        kFailed,       // errno tells why
    };
    struct Summary {
        uint64_t files = 0;  // everything but folders
        uint64_t bytes = 0;
    };

    // `root_fd`: the mount's folder, open (O_PATH is enough) for as long as this object.
    explicit MountTrash(int root_fd) : root_fd_(root_fd) {}

    // Moves `name` out of the folder open as `folder_fd`, whose path below the mount's
    // root is `folder_relative` ("" or "a/b/"), into the trash under a stamp made from
    // `now` (local time). `stored_as` receives its path inside the trash.
    [[nodiscard]] Outcome Take(int folder_fd, std::string_view folder_relative,
                               const std::string& name, std::time_t now, std::string& stored_as);

    // What the trash of the mount at this local folder holds; zero when it has none.
    [[nodiscard]] static Summary Measure(const std::string& mount_path);
    // Deletes everything in it, links as links; true when it is gone.
    [[nodiscard]] static bool Empty(const std::string& mount_path);

private:
    // The folder `relative` below a fresh or existing stamp folder, made as needed.
    [[nodiscard]] UniqueFd OpenDestination(const std::string& stamp, std::string_view relative);

    int root_fd_;
};

}  // namespace Zarn
