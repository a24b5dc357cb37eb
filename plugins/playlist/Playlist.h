#pragma once

#include <optional>
#include <string>
#include <vector>

#include "HostRequest.h"

namespace Zarn {

// An .m3u8 playlist of a folder's audio and video files: the visitor's selection, or
// every such file when nothing is selected. Each entry is an absolute address on the host
// the visitor reached, so a media player given the playlist fetches the files as
// downloads.
class Playlist {
public:
    explicit Playlist(const HostRequest& request);

    // Answers the request with the playlist, or with an error when the request names no
    // host to point to or no media file; false when the visitor has gone.
    [[nodiscard]] bool Send() const;

private:
    [[nodiscard]] std::vector<std::string> RequestedNames() const;
    [[nodiscard]] bool IsPlayable(const std::string& name) const;
    [[nodiscard]] std::string Body(const std::string& host) const;
    [[nodiscard]] std::string Disposition() const;
    [[nodiscard]] bool SendText(int status, const char* reason, const std::string& text) const;
    [[nodiscard]] std::string Translate(const char* key) const;

    const HostRequest& request_;
    std::string folder_;
    std::vector<std::string> names_;
};

// The Host header's value when it can stand in an address as it is (a name or an IPv4 or
// bracketed IPv6 address, and a port), else nothing.
[[nodiscard]] std::optional<std::string> UsableHost(const std::optional<std::string>& header);

}  // namespace Zarn
