#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

#include "http/RequestHead.h"
#include "http/ResponseHead.h"

namespace Zarn {

class HttpRequest;
class MountManager;
class ResumableUpload;
class UploadProgressTable;

// Resumable uploads into a folder, as the tus 1.0.0 protocol has them (core, creation with
// a deferred length, termination, expiration), on "?action=tus" of the target folder:
// POST creates an upload and names it in Location ("?action=tus&id=ID"), HEAD asks its
// offset, PATCH appends at that offset, DELETE gives it up, OPTIONS tells what is spoken.
// The bytes go through the request's transfer status like a multipart upload's, so the
// upload speed limit and the owner's list of transfers cover them, and the progress table
// shows each upload under its id. The caller has checked the upload right and that the
// request is not cross-site. One object per request, on its connection thread.
class TusRequestProcessor {
public:
    static constexpr const char* kVersion = "1.0.0";
    // The largest piece written at once, whatever the speed limit allows.
    static constexpr uint64_t kMaxBufferBytes = 1 << 20;

    struct Options {
        MountManager* mounts = nullptr;
        UploadProgressTable* progress = nullptr;
        bool show_hidden = false;
        // Seconds since the epoch; tests move it to see uploads expire.
        std::time_t now = 0;
    };

    explicit TusRequestProcessor(Options options) : options_(std::move(options)) {}

    // Answers the request whole; throws what the connection throws. A PATCH cut off by
    // its connection keeps every byte that arrived.
    void Process(HttpRequest& request);

    // The file name an upload's Upload-Metadata asks for: its "filename" or else its
    // "name" (base64 values), reduced and checked like a multipart upload's. Nothing when
    // there is none or it is not acceptable.
    [[nodiscard]] static std::optional<std::string> NameOf(const std::string& metadata,
                                                           bool show_hidden);

private:
    // The answer to the request; every upload it opens is closed when it returns.
    [[nodiscard]] ResponseHead Decide(HttpRequest& request);
    [[nodiscard]] ResponseHead Create(const HttpRequest& request, int folder_fd,
                                      const std::string& folder);
    [[nodiscard]] ResponseHead Describe(const ResumableUpload& upload);
    // HEAD of an upload completed within the idle day: all of it arrived. Else 404.
    [[nodiscard]] ResponseHead DescribeFinished(HttpMethod method, const std::string& id) const;
    [[nodiscard]] ResponseHead Append(HttpRequest& request, ResumableUpload& upload,
                                      const std::string& folder);
    // Reads the body into the upload; false when the disk refused a write.
    [[nodiscard]] bool ReceiveInto(HttpRequest& request, ResumableUpload& upload, uint64_t offset,
                                   uint64_t end);
    [[nodiscard]] ResponseHead Finish(ResumableUpload& upload);
    [[nodiscard]] ResponseHead Terminate(ResumableUpload& upload);
    void Publish(const ResumableUpload& upload, int state, uint64_t received);
    // Logs why the upload's file could not be written or named, shows it failed at its
    // offset, and answers 500.
    [[nodiscard]] ResponseHead Failed(const ResumableUpload& upload, const char* reason);
    // Sends the head with the protocol's version, empty, keeping the connection.
    static void Answer(HttpRequest& request, ResponseHead head);

    Options options_;
    uint64_t bytes_per_second_ = 0;  // for the progress page only
};

}  // namespace Zarn
