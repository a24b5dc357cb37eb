#include "server/UploadStatusReportingRequestProcessor.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <thread>

#include "core/ManualResetEvent.h"
#include "core/StringUtil.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "server/TextFormat.h"
#include "server/UploadProgressTable.h"

namespace Zarn {
namespace {

// The message as the body of a single-quoted script string. The message's own markup
// stays; a file name in it is already HTML-escaped, so it holds no "<" to end the script.
// A line break (only a translation could bring one) would end the string.
std::string ScriptString(const std::string& message) {
    std::string quoted;
    quoted.reserve(message.size() + 8);
    for (char c : message) {
        if (c == '\\' || c == '\'') {
            quoted += '\\';
            quoted += c;
        } else if (c == '\n') {
            quoted += "\\n";
        } else if (c == '\r') {
            quoted += "\\r";
        } else {
            quoted += c;
        }
    }
    return quoted;
}

}  // namespace

std::string UploadStatusReportingRequestProcessor::StatusText(const UploadProgress& entry) {
    std::string text = Concat({"<b>", HtmlEscape(entry.file_name), "</b><br/>"});
    if (entry.state == UploadProgress::kFinished) {
        return Concat(
            {text, Translate("업로드가 끝났습니다. "),
             "<a href=\"#\" onClick=\"if(opener)opener.location.reload();self.close();\">",
             Translate("[확인]"), "</a>"});
    }
    if (entry.state == UploadProgress::kFailed) {
        return text + Translate("업로드가 실패했습니다.");
    }
    uint64_t received_kb = entry.received / 1024;
    if (entry.total == 0) return Concat({text, GroupDigits(received_kb), " KB"});
    uint64_t total_kb = entry.total / 1024;
    uint64_t speed_kb = entry.bytes_per_second / 1024;
    uint64_t seconds =
        (total_kb > received_kb ? total_kb - received_kb : 0) / std::max<uint64_t>(speed_kb, 1);
    char figures[256];
    std::snprintf(figures, sizeof figures,
                  "%s KB / %s KB &nbsp;(%1.1lf%%) &nbsp;%s KB/s &nbsp;%3d:%02d:%02d",
                  GroupDigits(received_kb).c_str(), GroupDigits(total_kb).c_str(),
                  static_cast<double>(entry.received) * 100.0 / static_cast<double>(entry.total),
                  GroupDigits(speed_kb).c_str(), static_cast<int>(seconds / 3600),
                  static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60));
    return text + figures;
}

int UploadStatusReportingRequestProcessor::Percent(const UploadProgress& entry) {
    if (entry.state == UploadProgress::kFinished) return 100;
    if (entry.total == 0) return 0;
    return static_cast<int>(std::min<uint64_t>(entry.received * 100 / entry.total, 100));
}

std::string UploadStatusReportingRequestProcessor::ScriptChunk(const std::string& message,
                                                               int progress) {
    return Concat({"\n\n<script type='text/javascript' language='JavaScript'>",
                   "parent.onUpdateUpload('", ScriptString(message), "');\n",
                   "parent.onUpdateProgress(", std::to_string(progress), ");\n", "</script>\n"});
}

bool UploadStatusReportingRequestProcessor::Wait(HttpRequest& request,
                                                 std::chrono::milliseconds wait) {
    if (sleep_) return sleep_(wait);
    const ManualResetEvent* stop = request.GetTransferStatus().GetStopEvent();
    if (stop != nullptr) return !stop->WaitFor(wait);
    std::this_thread::sleep_for(wait);
    return true;
}

void UploadStatusReportingRequestProcessor::SendStatus(HttpRequest& request) {
    std::string key;
    (void)request.GetQueryParameter("key", key);
    // The page grows for as long as the upload runs and ends with the connection.
    request.SendHead(ResponseHead(200, "OK").Add("Content-Type", "text/html").SetStreamed());
    const std::string head = "<meta http-equiv='Content-Type' content='text/html; charset=utf-8'>";
    request.Send(head.data(), head.size());

    progress_.Purge();
    std::string message = Translate("업로드 준비 중.");
    int progress = 0;
    int misses = 0;
    std::chrono::milliseconds wait{0};
    for (;;) {
        if (wait.count() > 0 && !Wait(request, wait)) break;
        if (std::optional<UploadProgress> entry = progress_.Find(key)) {
            message = StatusText(*entry);
            progress = Percent(*entry);
            bool running = entry->state != UploadProgress::kFinished &&
                           entry->state != UploadProgress::kFailed;
            wait = running ? kRunningWait : std::chrono::milliseconds(0);
        } else if (++misses < kMaxMisses) {
            message += ".";
            wait = kMissWait;
        } else {
            message = Translate("업로드가 실패했습니다.");
            wait = std::chrono::milliseconds(0);
        }
        std::string chunk = ScriptChunk(message, progress);
        request.Send(chunk.data(), chunk.size());
        if (wait.count() == 0) break;
    }
    request.EndResponse();
}

}  // namespace Zarn
