#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace Zarn {

class HttpRequest;
class UploadProgressTable;
struct UploadProgress;

// The progress page of an upload ("?action=UploadStatus&key=K"): one long response that
// the upload form's hidden frame loads, made of script pieces calling
// parent.onUpdateUpload(message) and parent.onUpdateProgress(percent). It looks the key
// up once a second while the upload has not begun (giving up after ten tries), every
// three seconds while it runs, and ends with the upload.
class UploadStatusReportingRequestProcessor {
public:
    static constexpr int kMaxMisses = 10;
    static constexpr std::chrono::milliseconds kMissWait{1000};
    static constexpr std::chrono::milliseconds kRunningWait{3000};

    // Waits between two looks; returns false when the server is stopping.
    using Sleep = std::function<bool(std::chrono::milliseconds)>;

    // By default the waits end early when the server stops.
    explicit UploadStatusReportingRequestProcessor(UploadProgressTable& progress,
                                                   Sleep sleep = nullptr)
        : progress_(progress), sleep_(std::move(sleep)) {}
    virtual ~UploadStatusReportingRequestProcessor() = default;

    void SendStatus(HttpRequest& request);

    // The entry as the form shows it: the file name (escaped) in bold, then the end or
    // the figures. HTML.
    [[nodiscard]] static std::string StatusText(const UploadProgress& entry);
    [[nodiscard]] static int Percent(const UploadProgress& entry);
    // One script piece of the response.
    [[nodiscard]] static std::string ScriptChunk(const std::string& message, int progress);

private:
    [[nodiscard]] bool Wait(HttpRequest& request, std::chrono::milliseconds wait);

    UploadProgressTable& progress_;
    Sleep sleep_;
};

}  // namespace Zarn
