#include "server/TusRequestProcessor.h"

#include <fcntl.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "core/Base64.h"
#include "core/StringUtil.h"
#include "core/UniqueFd.h"
#include "core/UrlCodec.h"
#include "http/HttpDate.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/HtmlPageSender.h"
#include "server/RequestPath.h"
#include "server/ResumableUpload.h"
#include "server/UploadProgressTable.h"
#include "server/UploadRequestProcessor.h"
#include "share/MountManager.h"

namespace Zarn {
namespace {

constexpr const char* kExtensions = "creation,creation-defer-length,termination,expiration";

std::optional<uint64_t> NumberHeader(const HttpRequest& request, const std::string& name) {
    std::string value;
    if (!request.GetHeader(name, value)) return std::nullopt;
    return ResumableUpload::ParseNumber(Trim(value));
}

// What the disk can still take; nothing when it does not say.
std::optional<uint64_t> FreeBytes(int folder_fd) {
    struct statvfs volume {};
    if (::fstatvfs(folder_fd, &volume) != 0) return std::nullopt;
    return static_cast<uint64_t>(volume.f_bavail) * volume.f_frsize;
}

}  // namespace

std::optional<std::string> TusRequestProcessor::NameOf(const std::string& metadata,
                                                       bool show_hidden) {
    std::optional<std::string> file_name, name;
    for (std::string_view pair : Split(metadata, ',')) {
        pair = Trim(pair);
        size_t blank = pair.find(' ');
        std::string_view key = pair.substr(0, blank);
        std::string value =
            blank == std::string_view::npos ? std::string() : Base64Decode(pair.substr(blank + 1));
        if (key == "filename" && !file_name) file_name = value;
        if (key == "name" && !name) name = value;
    }
    // Uppy sends "name" and plain tus clients "filename"; a client may send both.
    std::optional<std::string> sent = file_name ? file_name : name;
    if (!sent) return std::nullopt;
    std::optional<std::string> stored = UploadRequestProcessor::StoredName(Trim(*sent, "\r\n\t "));
    if (!stored || !IsVisibleName(*stored, show_hidden)) return std::nullopt;
    return stored;
}

void TusRequestProcessor::Process(HttpRequest& request) {
    // Every upload opened for the request is closed before the answer leaves: the client
    // may send its next request on another connection the moment it has the answer, and
    // must not find the upload still held.
    Answer(request, Decide(request));
}

ResponseHead TusRequestProcessor::Decide(HttpRequest& request) {
    HttpMethod method = request.GetMethod();
    if (method == HttpMethod::kOptions) {
        return ResponseHead(204, "No Content")
            .Add("Tus-Version", kVersion)
            .Add("Tus-Extension", kExtensions);
    }
    std::string version;
    if (!request.GetHeader("TUS-RESUMABLE", version) || Trim(version) != kVersion) {
        return ResponseHead(412, "Precondition Failed").Add("Tus-Version", kVersion);
    }
    std::string folder = request.GetPath();
    if (folder.back() != '/') folder += '/';
    errno = 0;  // tells what is missing from what could not be opened just now
    std::optional<LocalTarget> target = options_.mounts->ResolveTarget(folder);
    UniqueFd folder_fd = target ? target->Open(O_PATH | O_DIRECTORY) : UniqueFd();
    if (!folder_fd.IsValid()) {
        return IsOutOfDescriptors(errno) ? HtmlPageSender::OutOfDescriptors(request)
                                         : ResponseHead(404, "Not Found");
    }
    if (method == HttpMethod::kPost) return Create(request, folder_fd.Get(), folder);

    if (method == HttpMethod::kGet) {
        return ResponseHead(405, "Method Not Allowed")
            .Add("Allow", "OPTIONS, POST, HEAD, PATCH, DELETE");
    }
    std::string id;
    (void)request.GetQueryParameter("id", id);
    std::optional<ResumableUpload> upload =
        ResumableUpload::Open(folder_fd.Get(), id, options_.now);
    // A 404 would make the client give the upload up; a 503 makes it come back.
    if (!upload && IsOutOfDescriptors(errno)) return HtmlPageSender::OutOfDescriptors(request);
    if (!upload) return DescribeFinished(method, id);
    if (method == HttpMethod::kHead) return Describe(*upload);
    if (method == HttpMethod::kPatch) return Append(request, *upload, folder);
    return Terminate(*upload);
}

ResponseHead TusRequestProcessor::Create(const HttpRequest& request, int folder_fd,
                                         const std::string& folder) {
    std::string deferral;
    bool deferred = request.GetHeader("UPLOAD-DEFER-LENGTH", deferral);
    std::optional<uint64_t> length = NumberHeader(request, "UPLOAD-LENGTH");
    std::string metadata;
    (void)request.GetHeader("UPLOAD-METADATA", metadata);
    std::optional<std::string> name = NameOf(metadata, options_.show_hidden);
    if (deferred ? Trim(deferral) != "1" || length : !length) {
        return ResponseHead(400, "Bad Request");
    }
    // Keys and base64 values are printable ASCII; anything else (a lone CR above all) would
    // come back verbatim in the head that answers HEAD.
    bool printable =
        std::all_of(metadata.begin(), metadata.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
    if (!name || !printable) return ResponseHead(400, "Bad Request");
    // Creation is when a folder's abandoned uploads are looked for: nobody else comes by.
    ResumableUpload::RemoveExpired(folder_fd, options_.now);
    std::optional<uint64_t> free_bytes = FreeBytes(folder_fd);
    if (length && free_bytes && *length > *free_bytes) {
        return ResponseHead(413, "Payload Too Large");
    }
    std::optional<ResumableUpload> upload = ResumableUpload::Create(
        folder_fd, {.name = *name, .length = length, .metadata = std::string(Trim(metadata))});
    if (!upload) {
        LogTranslated(kLogConnection, "ReceiveFile 실패: (%s)",
                      Translate("파일을 열지 못했습니다.").c_str());
        return ResponseHead(500, "Internal Server Error");
    }
    LogTranslated(kLogProgress, "ReceiveFile 시작");
    LogTranslated(kLogProgress, "파일: %s", name->c_str());
    // Each new upload adds a row; rows nobody has updated for a while go first, as the
    // multipart path does, or resumable uploads alone would grow the table for ever.
    options_.progress->Purge();
    Publish(*upload, UploadProgress::kRunning, 0);
    // An empty file is complete at once: clients send no piece for it.
    if (length == 0u) {
        ResponseHead finished = Finish(*upload);
        if (finished.GetCode() != 204) return finished;
    }
    std::string location;
    AppendUrlEncoded(location, "/" + folder);
    return ResponseHead(201, "Created")
        .Add("Location", Concat({location, "?action=tus&id=", upload->GetId()}))
        .Add("Upload-Expires", HttpDate::Format(upload->GetExpiry()));
}

ResponseHead TusRequestProcessor::DescribeFinished(HttpMethod method, const std::string& id) const {
    std::optional<uint64_t> length = ResumableUpload::FinishedLength(id, options_.now);
    if (!length || method != HttpMethod::kHead) return ResponseHead(404, "Not Found");
    return ResponseHead(200, "OK")
        .Add("Upload-Offset", std::to_string(*length))
        .Add("Upload-Length", std::to_string(*length))
        .Add("Cache-Control", "no-store");
}

ResponseHead TusRequestProcessor::Describe(const ResumableUpload& upload) {
    const ResumableUpload::Description& description = upload.GetDescription();
    ResponseHead head(200, "OK");
    head.Add("Upload-Offset", std::to_string(upload.GetOffset()));
    if (description.length) {
        head.Add("Upload-Length", std::to_string(*description.length));
    } else {
        head.Add("Upload-Defer-Length", "1");
    }
    if (!description.metadata.empty()) head.Add("Upload-Metadata", description.metadata);
    // An offset from a cache would make the client skip or repeat bytes.
    head.Add("Cache-Control", "no-store");
    head.Add("Upload-Expires", HttpDate::Format(upload.GetExpiry()));
    return head;
}

ResponseHead TusRequestProcessor::Append(HttpRequest& request, ResumableUpload& upload,
                                         const std::string& folder) {
    std::string type;
    if (!request.GetHeader("CONTENT-TYPE", type) ||
        ToLowerAscii(Trim(type)) != "application/offset+octet-stream") {
        return ResponseHead(415, "Unsupported Media Type");
    }
    std::optional<uint64_t> claimed = NumberHeader(request, "UPLOAD-OFFSET");
    if (!claimed) return ResponseHead(400, "Bad Request");
    // A client that lost its connection comes back while the old request may still be
    // writing; it is told to wait rather than interleave with it.
    if (!upload.Lock()) return ResponseHead(423, "Locked");
    uint64_t offset = upload.GetOffset();
    if (*claimed != offset) return ResponseHead(409, "Conflict");

    std::string length_text;
    if (request.GetHeader("UPLOAD-LENGTH", length_text)) {
        std::optional<uint64_t> length = ResumableUpload::ParseNumber(Trim(length_text));
        std::optional<uint64_t> known = upload.GetDescription().length;
        if (!length || *length < offset || (known && *known != *length)) {
            return ResponseHead(400, "Bad Request");
        }
        if (!known && !upload.SetLength(*length)) {
            return ResponseHead(500, "Internal Server Error");
        }
    }
    std::optional<uint64_t> length = upload.GetDescription().length;
    uint64_t end = offset + request.GetContentLength();
    if (length && end > *length) return ResponseHead(400, "Bad Request");

    // The owner's transfer list names the file arriving, not the protocol's address.
    request.GetTransferStatus().SetTarget(Concat({"/", folder, upload.GetDescription().name}));
    // Not synced here: after a power cut a journaling file system keeps a prefix of what was
    // written, never more, so the offset a client asks for afterwards is one the file
    // holds, and the client sends the rest again. Only a finished file must be whole.
    if (!ReceiveInto(request, upload, offset, end)) return Failed(upload, "파일에 쓸 수 없습니다.");
    if (length && upload.GetOffset() == *length) return Finish(upload);
    return ResponseHead(204, "No Content")
        .Add("Upload-Offset", std::to_string(upload.GetOffset()))
        .Add("Upload-Expires", HttpDate::Format(upload.GetExpiry()));
}

bool TusRequestProcessor::ReceiveInto(HttpRequest& request, ResumableUpload& upload,
                                      uint64_t offset, uint64_t end) {
    TransferStatusReporter& status = request.GetTransferStatus();
    // Marked as an upload before the first body byte is read, so the speed limit holds
    // from the start.
    status.SetTotalSize(kDirectionUpload, upload.GetDescription().length.value_or(0));
    status.SetPosition(kDirectionUpload, offset);
    std::vector<char> buffer;
    for (uint64_t position = offset; position < end;) {
        uint64_t allowance = std::clamp<uint64_t>(status.GetWriteAllowance(kDirectionUpload), 1,
                                                  std::min(kMaxBufferBytes, end - position));
        buffer.resize(allowance);
        int got = request.ReceiveBody(buffer.data(), static_cast<int>(buffer.size()));
        if (got <= 0) break;
        // Written as it arrives: a connection that breaks keeps what came before.
        if (!upload.Append(buffer.data(), static_cast<size_t>(got))) return false;
        position += static_cast<uint64_t>(got);
        status.SetPosition(kDirectionUpload, position);
        bytes_per_second_ = status.GetSpeed(kDirectionUpload);
        Publish(upload, UploadProgress::kRunning, position);
    }
    return true;
}

ResponseHead TusRequestProcessor::Finish(ResumableUpload& upload) {
    uint64_t length = upload.GetOffset();
    if (!upload.Sync()) return Failed(upload, "파일에 쓸 수 없습니다.");
    std::optional<std::string> stored = upload.Complete(options_.now);
    if (!stored) return Failed(upload, "업로드 후 파일 이름 변경 실패");
    LogTranslated(kLogProgress, "파일: %s", stored->c_str());
    LogTranslated(kLogProgress, "ReceiveFile 성공");
    Publish(upload, UploadProgress::kFinished, length);
    return ResponseHead(204, "No Content").Add("Upload-Offset", std::to_string(length));
}

ResponseHead TusRequestProcessor::Terminate(ResumableUpload& upload) {
    if (!upload.Lock()) return ResponseHead(423, "Locked");
    upload.Remove();
    Publish(upload, UploadProgress::kFailed, 0);
    return ResponseHead(204, "No Content");
}

void TusRequestProcessor::Publish(const ResumableUpload& upload, int state, uint64_t received) {
    options_.progress->Put(upload.GetId(), {.state = state,
                                            .file_name = upload.GetDescription().name,
                                            .received = received,
                                            .total = upload.GetDescription().length.value_or(0),
                                            .bytes_per_second = bytes_per_second_});
}

ResponseHead TusRequestProcessor::Failed(const ResumableUpload& upload, const char* reason) {
    LogTranslated(kLogConnection, "ReceiveFile 실패: (%s)", Translate(reason).c_str());
    Publish(upload, UploadProgress::kFailed, upload.GetOffset());
    return ResponseHead(500, "Internal Server Error");
}

void TusRequestProcessor::Answer(HttpRequest& request, ResponseHead head) {
    request.SendHead(head.Add("Tus-Resumable", kVersion).SetContentLength(0).AllowKeepAlive());
    request.EndResponse();
}

}  // namespace Zarn
