#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "server/HtmlPageSender.h"

namespace Zarn {

class HttpRequest;
class MountManager;
class UploadProgressTable;
struct MultipartPart;

// Receives the files of a multipart post ("uploadfile" parts) into the folder the post
// was sent to, publishing the progress under the request's "key" for the progress page.
// Each file streams through one fixed buffer into a temporary file and takes its real
// name only when complete, never replacing an existing file. The folder is the one the
// post names inside its mount, never one a link leads to outside it. Answers with a
// message page holding one result line per file.
class UploadRequestProcessor {
public:
    // The largest piece written to the file at once, whatever the speed limit allows.
    static constexpr uint64_t kMaxBufferBytes = 1 << 20;
    // How long the transfer must run before its recent speed is what the progress shows.
    static constexpr uint32_t kRecentSpeedMilliseconds = 5000;

    // With `show_hidden` off, files named with a leading "." are refused: they would not
    // be shared.
    UploadRequestProcessor(MountManager& mounts, UploadProgressTable& progress,
                           HtmlPageSender::Context page, bool show_hidden = false)
        : mounts_(mounts), progress_(progress), page_(std::move(page)), show_hidden_(show_hidden) {}
    virtual ~UploadRequestProcessor() = default;

    // Throws what the connection throws; the files of a broken upload are deleted.
    void ReceiveFile(HttpRequest& request);

    // The name a file sent as `sent` is stored under: its last component after "/" or
    // "\" (old browsers send a whole path). Nothing for a name no folder should hold or
    // can hold (longer than the file system takes).
    [[nodiscard]] static std::optional<std::string> StoredName(std::string_view sent);

private:
    // The target folder, held open for the whole post.
    struct Folder {
        int fd;
        std::string path;
    };

    struct Result {
        std::string text;
        bool succeeded = false;
    };

    void ReceiveParts(HttpRequest& request, const Folder& folder);
    Result ReceivePart(HttpRequest& request, const Folder& folder, const std::string& name);
    // Counts bytes of the current file that arrived and publishes the progress.
    void CountReceived(uint64_t bytes);
    // Stores the progress of the post under its key, for the file being received.
    void Publish(int state);
    [[nodiscard]] bool AllSucceeded() const;
    void SendAnswer(HttpRequest& request, bool succeeded);

    MountManager& mounts_;
    UploadProgressTable& progress_;
    HtmlPageSender::Context page_;
    bool show_hidden_;

    std::string key_;
    bool has_key_ = false;
    std::string current_name_;
    std::string virtual_folder_;  // "/inbox/": the target folder as visitors name it
    uint64_t total_ = 0;
    uint64_t received_ = 0;
    uint32_t started_ = 0;
    HttpRequest* request_ = nullptr;
    std::vector<Result> results_;
};

}  // namespace Zarn
