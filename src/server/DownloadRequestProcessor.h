#pragma once

#include <string>

#include "http/ByteRangeSet.h"

namespace Zarn {

class HttpRequest;

// Sends one local file as the body of a response, whole (200) or one byte range (206),
// reporting progress to the transfer status, which paces the writes to the speed limit.
// Made by the dispatcher for one request on its connection thread.
class DownloadRequestProcessor {
public:
    // `ranges` is used only when `ranged` is set, and must then be resolved.
    DownloadRequestProcessor(std::string local_path, bool ranged, ByteRangeSet ranges);
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
};

}  // namespace Zarn
