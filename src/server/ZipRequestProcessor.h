#pragma once

#include <string>

#include "share/LocalTarget.h"

namespace Zarn {

class HttpRequest;

// Answers "?action=Zip" on a folder: the whole folder (GET), or the names a form posts in
// "selectedFiles", as one zip archive named after the folder, streamed as it is made with
// its exact length announced first. Memory stays flat whatever the files weigh; a visitor
// who goes away ends it at the next send. The dispatcher has checked the rights and holds
// the download token. Used by one request's thread.
class ZipRequestProcessor {
public:
    ZipRequestProcessor(LocalTarget folder, bool show_hidden)
        : folder_(std::move(folder)), show_hidden_(show_hidden) {}

    void SendZip(HttpRequest& request);

    // The Content-Disposition value that saves the archive as NAME.zip: an ASCII name for
    // old clients and the UTF-8 one of RFC 6266 for the others.
    [[nodiscard]] static std::string DispositionOf(const std::string& folder_name);

private:
    LocalTarget folder_;
    bool show_hidden_;
};

}  // namespace Zarn
