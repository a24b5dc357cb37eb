#pragma once

#include <string>

#include "server/HtmlPageSender.h"

namespace Zarn {

class HttpRequest;
class MountManager;

// Creates a sub-folder in a mounted folder ("?action=MakeDirectory&name=..."). Success
// answers with a redirect to the folder's listing; every failure becomes a message page.
// A name that could reach outside the folder (a "/", "." or "..") or that holds NUL or
// control characters is refused, and so is a name that visitors could not see. The folder
// is made inside the mount, never through a link that leads out of it.
class MakeDirectoryRequestProcessor {
public:
    // With `show_hidden` off, names beginning with "." are refused: they would not be shared.
    MakeDirectoryRequestProcessor(MountManager& mounts, HtmlPageSender::Context page,
                                  bool show_hidden = false)
        : mounts_(mounts), page_(std::move(page)), show_hidden_(show_hidden) {}
    virtual ~MakeDirectoryRequestProcessor() = default;

    void MakeDirectory(HttpRequest& request);

    // Whether a client may name a new folder (or file) so.
    [[nodiscard]] static bool IsAcceptableName(const std::string& name);

private:
    MountManager& mounts_;
    HtmlPageSender::Context page_;
    bool show_hidden_;
};

}  // namespace Zarn
