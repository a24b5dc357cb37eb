#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The entry points must leave the library although everything else stays hidden.
#pragma GCC visibility push(default)
#include "lumidrop/plugin.h"
#pragma GCC visibility pop

namespace Zarn {

// One visible entry of a shared folder.
struct FolderEntry {
    std::string name;
    bool is_folder = false;
};

// A header of a response.
using HeaderLine = std::pair<std::string, std::string>;

// The host's functions for one request, with std::string in and out. Valid only during
// the OnRequest call that made it; used by that call's thread alone.
class HostRequest {
public:
    HostRequest(const LumidropHost& host, LumidropRequest* request)
        : host_(host), request_(request) {}

    // The request's folder ("music/live/").
    [[nodiscard]] std::string Path() const;
    [[nodiscard]] std::optional<std::string> Query(const char* name) const;
    [[nodiscard]] std::optional<std::string> Header(const char* name) const;
    [[nodiscard]] std::string Translate(const char* key) const;
    [[nodiscard]] std::string Escape(const std::string& text) const;
    [[nodiscard]] std::string UrlEncode(const std::string& text) const;
    // The local file of a virtual path, or nothing when the visitor may not reach it with
    // these rights.
    [[nodiscard]] std::optional<std::string> LocalPath(const std::string& virtual_path,
                                                       unsigned needed_rights) const;

    // The visible files and sub-folders of the request's folder in natural order
    // ("pic-2" before "pic-10"): no dot-names, nothing the host hides or that leads out
    // of the mount. Empty when the folder cannot be read.
    [[nodiscard]] std::vector<FolderEntry> ListFolder() const;

    // Sends a whole response; false when the visitor has gone.
    [[nodiscard]] bool Send(int status, const char* reason, const std::vector<HeaderLine>& headers,
                            std::string_view body) const;

private:
    const LumidropHost& host_;
    LumidropRequest* request_;
};

// Whether the name ends in "." and one of the extensions (lower case), in any case.
[[nodiscard]] bool HasExtension(std::string_view name,
                                std::span<const std::string_view> extensions);

// Orders names as people count: digit runs by their value, the rest byte by byte with
// ASCII letters folded.
[[nodiscard]] bool NaturalLess(std::string_view left, std::string_view right);

}  // namespace Zarn
