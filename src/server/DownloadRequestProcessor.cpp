#include "server/DownloadRequestProcessor.h"

#include <sys/stat.h>

#include <stdexcept>

#include "core/StringUtil.h"
#include "http/ByteRangeSet.h"
#include "http/HttpDate.h"
#include "http/HttpRequest.h"
#include "http/Validators.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/HtmlPageSender.h"
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

DownloadRequestProcessor::DownloadRequestProcessor(std::unique_ptr<TekoFile> file,
                                                   std::string local_path, const struct stat& info,
                                                   Context context)
    : file_(std::move(file)), local_path_(std::move(local_path)), info_(info), context_(context) {}

void DownloadRequestProcessor::SendFile(HttpRequest& request) {
    LogTranslated(kLogProgress, "SendFile 시작");
    try {
        Send(request);
        LogTranslated(kLogProgress, "SendFile 성공");
    } catch (const std::exception& error) {
        LogTranslated(kLogConnection, "SendFile 실패: (%s)", error.what());
    }
}

void DownloadRequestProcessor::AddFileHeaders(ResponseHead& head) const {
    std::string type = context_.types->Lookup(ExtensionOf(local_path_));
    head.Add("Content-Type", type);
    // Shared files come from visitors too. A browser must neither guess a script type
    // into a file nor run a page's scripts as this server: the page still shows, but in
    // an origin of its own that holds no visitor's credentials.
    head.Add("X-Content-Type-Options", "nosniff");
    if (IsActiveDocument(type)) head.Add("Content-Security-Policy", "sandbox");
    head.Add("Accept-Ranges", "bytes");
}

void DownloadRequestProcessor::Send(HttpRequest& request) {
    if (!file_ || !file_->IsOpen()) throw std::runtime_error("Cannot open file");
    Validators validators = Validators::OfFile(info_);
    std::string last_modified = HttpDate::Format(*validators.GetLastModified());

    if (validators.IsNotModified(request.GetHeaders())) {
        request.SendHead(ResponseHead(304, "Not Modified")
                             .Add("ETag", validators.GetEntityTag())
                             .Add("Last-Modified", last_modified)
                             .AllowKeepAlive());
        return request.EndResponse();
    }

    auto size = static_cast<uint64_t>(info_.st_size);
    ByteRangeSet ranges;
    std::string range_header;
    // A Range for another version of the file than the client holds would splice two
    // versions together, so it is ignored and the whole file goes.
    bool ranged = request.GetHeader("RANGE", range_header) &&
                  validators.AllowsRange(request.GetHeaders()) && ranges.Parse(range_header);
    if (ranged && !ranges.Resolve(size)) {
        return context_.pages->SendErrorPage(416, "Requested Range Not Satisfiable",
                                             Translate("요청한 범위가 파일에 없습니다."));
    }
    if (ranged && ranges.GetRanges().size() > 1) {
        return context_.pages->SendErrorPage(501, "Not Implemented",
                                             Translate("여러 범위는 지원하지 않습니다."));
    }

    uint64_t start = 0;
    uint64_t length = size;
    ResponseHead head(200, "OK");
    if (ranged) {
        const ByteRangeSet::Range& range = ranges.GetRanges().front();
        start = range.first;
        length = range.last - range.first + 1;
        head = ResponseHead(206, "Partial Content");
        head.Add("Content-range", ranges.ContentRangeValue());
    }
    AddFileHeaders(head);
    head.Add("ETag", validators.GetEntityTag()).Add("Last-Modified", last_modified);
    head.SetContentLength(length).AllowKeepAlive();
    if (!request.IsHead()) {
        // Progress shows as a part of the whole file, also for a range.
        TransferStatusReporter& status = request.GetTransferStatus();
        status.SetTotalSize(kDirectionDownload, size);
        status.SetPosition(kDirectionDownload, start);
    }
    request.SendHead(head);
    request.SendFileBody(file_->GetHandle(), start, length);
    request.EndResponse();
}

}  // namespace Zarn
