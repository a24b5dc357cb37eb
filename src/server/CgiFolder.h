#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Zarn {

struct Mount;

// The folder the owner names for CGI programs: which of its files may run, and whether a
// shared folder covers it. Programs run only from there, never from what visitors can
// read or upload into. Stateless; any thread.
class CgiFolder {
public:
    // The full path of the program `name` in `folder` when it may run: one path segment,
    // not hidden, a regular file directly in the folder (a link is not followed) with an
    // execute bit. Nothing otherwise.
    [[nodiscard]] static std::optional<std::string> FindProgram(const std::string& folder,
                                                                std::string_view name);
    // The name of a folder mount that is `folder` or holds it, links resolved on both
    // sides; nothing when none does.
    [[nodiscard]] static std::optional<std::string> FindCoveringMount(
        const std::string& folder, const std::vector<Mount>& mounts);
};

}  // namespace Zarn
