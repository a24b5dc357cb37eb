#pragma once

#include <memory>
#include <string>

#include "core/TekoFile.h"
#include "http/ByteRangeSet.h"

namespace Zarn {

class HttpRequest;

// Sends one local file as the body of a response, whole (200) or one byte range (206),
// reporting progress to the transfer status, which paces the writes to the speed limit.
// Made by the dispatcher for one request on its connection thread.
class DownloadRequestProcessor {
public:
    // `ranges` is used only when `ranged` is set, and must then be resolved. `file` is the
    // file already opened by the caller, or null to open it here.
    DownloadRequestProcessor(std::string local_path, bool ranged, ByteRangeSet ranges,
                             std::unique_ptr<TekoFile> file = nullptr);
    virtual ~DownloadRequestProcessor() = default;

    // Never lets a standard exception out: a file that cannot be opened, a broken
    // connection or a kicked transfer is logged ("SendFile 실패: (%s)") and the connection
    // is then left to end.
    void SendFile(HttpRequest& request);

private:
    void Send(HttpRequest& request);

    std::string local_path_;
    bool ranged_;
    ByteRangeSet ranges_;
    std::unique_ptr<TekoFile> file_;
};

}  // namespace Zarn
