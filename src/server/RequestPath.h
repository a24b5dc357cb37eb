#pragma once

#include <string>
#include <string_view>

namespace Zarn {

// The checks every request path (decoded, without its leading "/") passes before anything
// is served from it.

// Valid: empty, or not beginning with "/", without "//", and without a "." or ".."
// segment. Anything else is answered with a redirect to its normal form.
[[nodiscard]] bool IsValidRequestPath(std::string_view path);

// The "selectedFiles" of a form or query: names one per line, each relative to the
// request's folder, each valid as above (so none absolute and none with "..").
[[nodiscard]] bool IsValidSelection(std::string_view lines);

// Repeated slashes collapsed, "." segments dropped, ".." segments resolved (never above
// the root); a trailing slash is kept. "/x" gives "x", "a/../b" gives "b".
[[nodiscard]] std::string NormalizeRequestPath(std::string_view path);

// Whether visitors may see, fetch or make an entry of this name: never a half-received
// upload nor the trash, and a name beginning with "." only when hidden files are shared.
[[nodiscard]] bool IsVisibleName(std::string_view name, bool show_hidden);

// The same for every segment of a request path below its mount (the mount's own name is
// the owner's choice and always counts as visible).
[[nodiscard]] bool IsVisiblePath(std::string_view path, bool show_hidden);

// The first segment (the mount name) and what follows it.
[[nodiscard]] std::string_view MountNameOf(std::string_view path);

}  // namespace Zarn
