#pragma once

#include <functional>
#include <string>

namespace Zarn {

// Visits everything below a folder however deep it goes, by descriptors alone: each step
// opens a name relative to the folder it lies in, so no path is ever built (a tree may be
// far deeper than PATH_MAX), and a few descriptors serve any depth. Links are never
// followed: a link is an entry like a file. Iterative, so a thread's small stack does not
// bound the depth either. Stateless; any thread may walk, one walk per call.
class FolderTreeWalk {
public:
    // Each hook is told one entry by the folder it lies in (open, readable) and its name;
    // false marks the walk as incomplete and the walk goes on. Either may be left empty.
    using Hook = std::function<bool(int folder_fd, const std::string& name)>;

    struct Hooks {
        Hook on_entry;        // everything that is not a folder, links included
        Hook on_folder_left;  // a folder below the top, after everything in it
    };

    // Walks the folder open as `top_fd` (borrowed). True when every folder was read and
    // every hook succeeded; a folder that cannot be opened is passed over, and the walk
    // stops early when the tree moved under it so that the way back up leads elsewhere.
    [[nodiscard]] static bool Walk(int top_fd, const Hooks& hooks);
};

}  // namespace Zarn
