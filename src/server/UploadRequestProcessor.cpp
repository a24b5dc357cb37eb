#include "server/UploadRequestProcessor.h"

#include <fcntl.h>

#include <algorithm>

#include "core/StringUtil.h"
#include "core/UniqueFd.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/IncomingFile.h"
#include "server/MakeDirectoryRequestProcessor.h"
#include "server/RequestPath.h"
#include "server/TextFormat.h"
#include "server/UploadProgressTable.h"
#include "share/MountManager.h"

namespace Zarn {

std::optional<std::string> UploadRequestProcessor::StoredName(std::string_view sent) {
    size_t separator = sent.find_last_of("/\\");
    std::string name(separator == std::string_view::npos ? sent : sent.substr(separator + 1));
    if (!MakeDirectoryRequestProcessor::IsAcceptableName(name)) return std::nullopt;
    // No folder can hold it; refused now, it is not received only to fail at the rename.
    if (name.size() > IncomingFile::kMaxNameBytes) return std::nullopt;
    return name;
}

void UploadRequestProcessor::ReceiveFile(HttpRequest& request) {
    LogTranslated(kLogProgress, "ReceiveFile 시작");
    request_ = &request;
    total_ = request.GetContentLength();
    started_ = progress_.Now();
    // Marks the transfer as an upload before the first body byte is read, so that the
    // upload speed limit holds from the start.
    request.GetTransferStatus().SetTotalSize(kDirectionUpload, total_);
    request.GetTransferStatus().SetPosition(kDirectionUpload, 0);
    // Entries are otherwise purged only when a progress page is asked for.
    progress_.Purge();

    std::string path = request.GetPath();
    if (!path.empty() && path.back() != '/') path += '/';
    virtual_folder_ = "/" + path;
    std::optional<LocalTarget> target = mounts_.ResolveTarget(path);
    UniqueFd folder = target ? target->Open(O_PATH | O_DIRECTORY) : UniqueFd();
    has_key_ = request.GetQueryParameter("key", key_);
    if (!has_key_) {
        results_.push_back({Translate("GET[key]가 없습니다."), false});
    } else if (!folder.IsValid()) {
        results_.push_back({Translate("업로드 대상으로 지정된 폴더가 존재하지 않습니다."), false});
        Publish(UploadProgress::kFailed);
    } else {
        // Whatever a killed program left half-received here goes before anything new.
        IncomingFile::RemoveStale(folder.Get());
        try {
            ReceiveParts(request, {folder.Get(), target->local_path});
        } catch (const std::exception& error) {
            // The connection broke or the transfer was kicked: no answer can be sent.
            Publish(UploadProgress::kFailed);
            LogTranslated(kLogConnection, "ReceiveFile 실패: (%s)", error.what());
            throw;
        }
    }
    bool succeeded = AllSucceeded();
    if (succeeded) {
        LogTranslated(kLogProgress, "ReceiveFile 성공");
    } else {
        LogTranslated(kLogConnection, "ReceiveFile 실패: (%s)", results_.front().text.c_str());
    }
    SendAnswer(request, succeeded);
}

void UploadRequestProcessor::ReceiveParts(HttpRequest& request, const Folder& folder) {
    MultipartPart part;
    while (request.ReadNextPart(part)) {
        if (part.name != "uploadfile") continue;
        std::string sent(Trim(part.file_name, "\r\n\t "));
        if (sent.empty() && !part.has_malformed_file_name) continue;  // a file input left empty
        LogTranslated(kLogProgress, "파일: %s", sent.c_str());
        std::optional<std::string> name =
            part.has_malformed_file_name ? std::nullopt : StoredName(sent);
        if (!name || !IsVisibleName(*name, show_hidden_)) {
            results_.push_back(
                {FormatTranslated("%s: 파일을 열지 못했습니다.", sent.c_str()), false});
            continue;
        }
        results_.push_back(ReceivePart(request, folder, *name));
    }
    if (results_.empty()) results_.push_back({Translate("올릴 파일이 없습니다."), false});
    // Finished only after the last file, so that a progress page never ends between two.
    Publish(AllSucceeded() ? UploadProgress::kFinished : UploadProgress::kFailed);
}

UploadRequestProcessor::Result UploadRequestProcessor::ReceivePart(HttpRequest& request,
                                                                   const Folder& folder,
                                                                   const std::string& name) {
    TransferStatusReporter& status = request.GetTransferStatus();
    IncomingFile file(folder.fd, folder.path, name);
    if (!file.Create()) {
        return {FormatTranslated("%s: 파일을 열지 못했습니다.", name.c_str()), false};
    }
    current_name_ = name;
    // The owner's transfer list names the file arriving, not the upload form's address.
    status.SetTarget(virtual_folder_ + name);
    Publish(UploadProgress::kRunning);

    std::vector<char> buffer;
    uint64_t stored = 0;
    bool ended = false;
    while (!ended) {
        uint64_t allowance =
            std::clamp<uint64_t>(status.GetWriteAllowance(kDirectionUpload), 1, kMaxBufferBytes);
        buffer.resize(allowance);
        size_t filled = 0;
        while (filled < buffer.size() && !ended) {
            int got = request.ReadPartData(buffer.data() + filled,
                                           static_cast<int>(buffer.size() - filled), ended);
            LogTranslated(kLogTrace, "%d byte received.", got);
            filled += static_cast<size_t>(got);
            // Progress follows each read, not each write: a slow upload fills the buffer
            // for minutes, and an entry left unchanged for a minute is purged.
            if (got > 0) CountReceived(static_cast<uint64_t>(got));
        }
        if (filled == 0) break;
        if (!file.Write(buffer.data(), filled)) {
            return {FormatTranslated("%s: 파일에 쓸 수 없습니다.", name.c_str()), false};
        }
        stored += filled;
    }
    // The body ended before the part did: what arrived is not the whole file.
    if (request.IsMultipartBroken()) {
        return {FormatTranslated("%s: 업로드가 실패했습니다.", name.c_str()), false};
    }
    if (!file.Commit()) {
        return {FormatTranslated("%s: 업로드 후 파일 이름 변경 실패", name.c_str()), false};
    }
    return {FormatTranslated("%s: %s 바이트를 받았습니다.", file.GetFinalName().c_str(),
                             GroupDigits(stored).c_str()),
            true};
}

void UploadRequestProcessor::CountReceived(uint64_t bytes) {
    received_ += bytes;
    request_->GetTransferStatus().SetPosition(kDirectionUpload, received_);
    Publish(UploadProgress::kRunning);
}

bool UploadRequestProcessor::AllSucceeded() const {
    return std::all_of(results_.begin(), results_.end(),
                       [](const Result& result) { return result.succeeded; });
}

void UploadRequestProcessor::Publish(int state) {
    if (!has_key_) return;
    // The transfer's own figure covers the last five seconds; before that much time has
    // passed it mostly measures how fast the socket buffers emptied, so the average since
    // the post began is shown instead.
    uint32_t elapsed = progress_.Now() - started_;
    uint64_t speed = elapsed < kRecentSpeedMilliseconds
                         ? received_ * 1000 / std::max<uint32_t>(elapsed, 1)
                         : request_->GetTransferStatus().GetSpeed(kDirectionUpload);
    progress_.Put(key_, {.state = state,
                         .file_name = current_name_,
                         .received = received_,
                         .total = total_,
                         .bytes_per_second = speed});
}

void UploadRequestProcessor::SendAnswer(HttpRequest& request, bool succeeded) {
    std::string content;
    for (const Result& result : results_) {
        if (!content.empty()) content += "\r\n";
        // The skin's upload script tells a failed upload by this class.
        content += Concat({result.succeeded ? "<p class=\"upload-result\">"
                                            : "<p class=\"upload-result upload-failed\">",
                           HtmlEscape(result.text), "</p>"});
    }
    // An upload is a long exchange that a browser does not follow with another request on
    // the same connection; closing spares a thread the idle wait.
    HtmlPageSender::Context context = page_;
    context.keep_alive = false;
    HtmlPageSender(request, context)
        .SendMessagePage(succeeded ? Translate("업로드 완료") : Translate("업로드 실패"), content,
                         false);
}

}  // namespace Zarn
