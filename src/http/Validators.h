#pragma once

#include <sys/stat.h>

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "http/RequestHead.h"

namespace Zarn {

// What tells one version of a served thing from another (its entity tag and modification
// time), and the conditional request headers checked against them (RFC 9110, section 13).
class Validators {
public:
    // A strong tag from device, inode, size and modification time: a file replaced,
    // rewritten or touched gets a new one. Last-Modified is the modification time.
    [[nodiscard]] static Validators OfFile(const struct stat& info);
    // A strong tag from the bytes themselves, for what is served from memory.
    [[nodiscard]] static Validators OfBytes(std::string_view bytes);

    // With its quotes, as the ETag header carries it.
    [[nodiscard]] const std::string& GetEntityTag() const { return entity_tag_; }
    [[nodiscard]] std::optional<std::time_t> GetLastModified() const { return last_modified_; }

    // The client's copy is current (If-None-Match, or failing that If-Modified-Since), so
    // a GET or HEAD is answered 304.
    [[nodiscard]] bool IsNotModified(const HeaderMap& headers) const;
    // A Range header may be honoured: there is no If-Range, or it names this version.
    [[nodiscard]] bool AllowsRange(const HeaderMap& headers) const;

private:
    std::string entity_tag_;
    std::optional<std::time_t> last_modified_;
};

}  // namespace Zarn
