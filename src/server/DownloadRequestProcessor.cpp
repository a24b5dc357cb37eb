#include "server/DownloadRequestProcessor.h"

#include <stdexcept>

#include "core/StringUtil.h"
#include "core/TekoFile.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "share/MimeTypeTable.h"

namespace Zarn {
namespace {

// The text after the last ".", when no "/" follows it.
std::string_view ExtensionOf(std::string_view path) {
    size_t dot = path.rfind('.');
    if (dot == std::string_view::npos || path.find('/', dot) != std::string_view::npos) return {};
    return path.substr(dot + 1);
}

// Types a browser renders as a document that can run scripts: HTML, XHTML, SVG and every
// XML type (an XML file can pull in script through XSLT or an XHTML namespace).
bool IsActiveDocument(std::string_view type) {
    std::string lower = ToLowerAscii(type.substr(0, type.find(';')));
    return lower.find("html") != std::string::npos || lower.find("svg") != std::string::npos ||
           lower.ends_with("/xml") || lower.ends_with("+xml");
}

}  // namespace

DownloadRequestProcessor::DownloadRequestProcessor(std::string local_path, bool ranged,
                                                   ByteRangeSet ranges,
                                                   std::unique_ptr<TekoFile> file)
    : local_path_(std::move(local_path)),
      ranged_(ranged),
      ranges_(std::move(ranges)),
      file_(std::move(file)) {}

void DownloadRequestProcessor::SendFile(HttpRequest& request) {
    LogTranslated(kLogProgress, "SendFile 시작");
    try {
        Send(request);
        LogTranslated(kLogProgress, "SendFile 성공");
    } catch (const std::exception& error) {
        LogTranslated(kLogConnection, "SendFile 실패: (%s)", error.what());
    }
}

void DownloadRequestProcessor::Send(HttpRequest& request) {
    if (!file_) file_ = std::make_unique<TekoFile>();
    if (!file_->IsOpen() && !file_->Open(local_path_, TekoFile::kModeRead)) {
        throw std::runtime_error("Cannot open file");
    }
    TekoFile& file = *file_;
    uint64_t size = file.GetSize();
    uint64_t start = 0;
    uint64_t length = size;
    if (ranged_ && !ranges_.GetRanges().empty()) {
        const ByteRangeSet::Range& range = ranges_.GetRanges().front();
        start = range.first;
        length = range.last - range.first + 1;
        request.BeginResponse(206, "Partial Content");
        request.SendHeader("Content-range", ranges_.ContentRangeValue());
    } else {
        request.BeginResponse(200, "OK");
    }
    // Progress shows as a part of the whole file, also for a range.
    TransferStatusReporter& status = request.GetTransferStatus();
    status.SetTotalSize(kDirectionDownload, size);
    status.SetPosition(kDirectionDownload, start);
    request.SendHeader("Content-Length", std::to_string(length));
    std::string type = MimeTypeTable::Instance().Lookup(ExtensionOf(local_path_));
    request.SendHeader("Content-Type", type);
    // Shared files come from visitors too. A browser must neither guess a script type
    // into a file nor run a page's scripts as this server: the page still shows, but in
    // an origin of its own that holds no visitor's credentials.
    request.SendHeader("X-Content-Type-Options", "nosniff");
    if (IsActiveDocument(type)) request.SendHeader("Content-Security-Policy", "sandbox");
    request.SendFileBody(file.GetHandle(), start, length);
    request.EndResponse();
}

}  // namespace Zarn
