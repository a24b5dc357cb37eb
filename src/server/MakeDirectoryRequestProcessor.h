#pragma once

#include <string>

#include "server/HtmlPageSender.h"

namespace Zarn {

class HttpRequest;
class MountManager;

// Creates a sub-folder in a mounted folder ("?action=MakeDirectory&name=..."). Success
// answers with a redirect to the folder's listing; every failure becomes a message page.
// A name that could reach outside the folder (a "/", "." or "..") or that holds NUL or
// control characters is refused.
class MakeDirectoryRequestProcessor {
public:
    MakeDirectoryRequestProcessor(MountManager& mounts, HtmlPageSender::Context page)
        : mounts_(mounts), page_(page) {}
    virtual ~MakeDirectoryRequestProcessor() = default;

    void MakeDirectory(HttpRequest& request);

    // Whether a client may name a new folder (or file) so.
    [[nodiscard]] static bool IsAcceptableName(const std::string& name);

private:
    MountManager& mounts_;
    HtmlPageSender::Context page_;
};

}  // namespace Zarn
