#pragma once

#include <string>
#include <string_view>

namespace Zarn {

class HttpRequest;
class MountManager;

// The console's trash endpoints: "trash" tells, per folder mount, how many files and bytes
// its trash holds; "trash/empty" (form field mount=NAME, or "all") empties it for good
// and answers with the new figures. Holds nothing of its own; any connection thread may
// call it.
class ConsoleTrashApi {
public:
    [[nodiscard]] static bool IsChange(std::string_view endpoint) {
        return endpoint == "trash/empty";
    }
    // False when the endpoint is not one of these.
    [[nodiscard]] static bool Serve(HttpRequest& request, std::string_view endpoint,
                                    const MountManager& mounts);
    // {"mounts":[{"name","files","bytes"}, ...]}, single-file mounts left out.
    [[nodiscard]] static std::string Json(const MountManager& mounts);
};

}  // namespace Zarn
