#pragma once

#include <string>
#include <vector>

#include "server/VisitorScope.h"

namespace Zarn {

class HttpRequest;

// Answers "?action=Subdir": the sub-folders of one folder as a small JSON document, which
// the default skin's folder tree loads as its nodes open. Folders are chosen by the
// listing's own rules, so the tree never shows what the listing hides. At the root the
// folders are the folder mounts the visitor may list. One object per request, on the
// connection's thread; the dispatcher has checked the path, the mount and the right to
// list before it gets here.
class SubdirRequestProcessor {
public:
    using Options = VisitorScope;

    explicit SubdirRequestProcessor(Options options) : options_(std::move(options)) {}
    virtual ~SubdirRequestProcessor() = default;

    // Sends the document, or 404 when the path does not name a folder (a path without its
    // trailing "/" included: the document's links are relative to the folder).
    void SendSubdirs(HttpRequest& request);

private:
    [[nodiscard]] std::vector<std::string> RootFolders() const;
    // False when the path is not a folder inside its mount.
    [[nodiscard]] bool ReadFolders(const std::string& path,
                                   std::vector<std::string>& folders) const;

    Options options_;
};

}  // namespace Zarn
