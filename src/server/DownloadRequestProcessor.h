#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>

#include "core/TekoFile.h"

namespace Zarn {

class HtmlPageSender;
class HttpRequest;
class MimeTypeTable;
class ResponseHead;

// Sends one opened local file as the body of a response: whole (200), one byte range
// (206), or nothing when the client's copy is current (304). Sends the file's validators
// (ETag, Last-Modified) and honours If-None-Match, If-Modified-Since and If-Range; reports
// progress to the transfer status, which paces the writes to the speed limit. Made by the
// dispatcher for one request on its connection thread.
class DownloadRequestProcessor {
public:
    struct Context {
        const MimeTypeTable* types = nullptr;
        HtmlPageSender* pages = nullptr;  // for the 416 and 501 pages
    };

    // `file` is open for reading; `local_path` names it (its extension gives the type) and
    // `info` is its status.
    DownloadRequestProcessor(std::unique_ptr<TekoFile> file, std::string local_path,
                             const struct stat& info, Context context);

    // Never lets a standard exception out: a broken connection or a kicked transfer is
    // logged ("SendFile 실패: (%s)") and the connection is then left to end.
    void SendFile(HttpRequest& request);

private:
    void Send(HttpRequest& request);
    // The headers every answer about the file carries.
    void AddFileHeaders(ResponseHead& head) const;

    std::unique_ptr<TekoFile> file_;
    std::string local_path_;
    struct stat info_;
    Context context_;
};

}  // namespace Zarn
