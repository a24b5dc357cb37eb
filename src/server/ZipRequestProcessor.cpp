#include "server/ZipRequestProcessor.h"

#include <unistd.h>

#include <algorithm>
#include <memory>
#include <set>
#include <stdexcept>

#include "core/StringUtil.h"
#include "core/UrlCodec.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/ZipContents.h"
#include "server/ZipStreamWriter.h"

namespace Zarn {
namespace {

// Large enough that the checksum and the sends run at disk rate, small enough to stay in
// the processor's cache between the read and the send.
constexpr size_t kBufferBytes = 256 * 1024;

// The last segment of the request path: the mount's name at its root.
std::string FolderNameOf(std::string_view path) {
    while (path.ends_with('/'))
        path.remove_suffix(1);
    return std::string(path.substr(path.rfind('/') + 1));
}

// Every line of a posted selection once, in the order given.
std::vector<std::string> SelectedNames(HttpRequest& request) {
    std::string lines;
    std::vector<std::string> names;
    if (request.GetMethod() != HttpMethod::kPost ||
        !request.GetFormParameter("selectedFiles", lines)) {
        return names;
    }
    std::set<std::string> seen;
    for (std::string_view line : Split(lines, '\n')) {
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (!line.empty() && seen.emplace(line).second) names.emplace_back(line);
    }
    return names;
}

// Copies the file's promised bytes into the archive. A file that shrank since it was
// measured can no longer fill the length announced, so the response must break off.
void CopyFile(HttpRequest& request, ZipStreamWriter& writer, int file, uint64_t size,
              char* buffer) {
    TransferStatusReporter& status = request.GetTransferStatus();
    for (uint64_t done = 0; done < size;) {
        uint64_t allowed = std::max<uint64_t>(status.GetWriteAllowance(kDirectionDownload), 1);
        size_t want = static_cast<size_t>(std::min<uint64_t>({size - done, kBufferBytes, allowed}));
        ssize_t got = ::pread(file, buffer, want, static_cast<off_t>(done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) throw std::runtime_error("A file shrank while it was being zipped");
        writer.Write(std::string_view(buffer, static_cast<size_t>(got)));
        done += static_cast<uint64_t>(got);
    }
}

void StreamArchive(HttpRequest& request, const ZipContents& contents) {
    TransferStatusReporter& status = request.GetTransferStatus();
    uint64_t sent = 0;
    ZipStreamWriter writer([&](std::string_view bytes, bool record) {
        // A header alone would cost a send and a packet of its own per file.
        if (record) {
            request.SendWithNext(bytes);
        } else {
            request.Send(bytes);
        }
        sent += bytes.size();
        status.SetPosition(kDirectionDownload, sent);
    });
    auto buffer = std::make_unique_for_overwrite<char[]>(kBufferBytes);
    const std::vector<ZipStreamWriter::Entry>& entries = contents.GetEntries();
    for (size_t i = 0; i < entries.size(); ++i) {
        writer.Begin(entries[i]);
        if (entries[i].name.ends_with('/')) continue;
        UniqueFd file = contents.OpenEntry(i);
        if (!file.IsValid()) throw std::runtime_error("A file vanished while it was being zipped");
        CopyFile(request, writer, file.Get(), entries[i].size, buffer.get());
        if (!writer.End()) throw std::logic_error("A zip entry ended short of its size");
    }
    writer.Finish();
}

}  // namespace

std::string ZipRequestProcessor::DispositionOf(const std::string& folder_name) {
    std::string ascii;
    for (char c : folder_name) {
        auto byte = static_cast<unsigned char>(c);
        bool plain = byte >= 0x20 && byte < 0x7F && c != '"' && c != '\\';
        ascii += plain ? c : '_';
    }
    return Concat({"attachment; filename=\"", ascii, ".zip\"; filename*=UTF-8''",
                   UrlEncode(folder_name), ".zip"});
}

void ZipRequestProcessor::SendZip(HttpRequest& request) {
    std::string folder_name = FolderNameOf(request.GetPath());
    LogTranslated(kLogProgress, "Zip 시작 - %s", folder_name.c_str());
    std::vector<std::string> selected = SelectedNames(request);
    ZipContents contents(std::move(folder_), show_hidden_);
    if (selected.empty()) (void)contents.Add("", folder_name + "/");
    for (const std::string& name : selected)
        (void)contents.Add(name, name);

    uint64_t size = ZipStreamWriter::ArchiveSize(contents.GetEntries());
    ResponseHead head(200, "OK");
    head.Add("Content-Type", "application/zip")
        .Add("Content-Disposition", DispositionOf(folder_name))
        .Add("X-Content-Type-Options", "nosniff")
        .Add("Cache-Control", "no-store");
    head.SetContentLength(size).AllowKeepAlive();
    if (!request.IsHead()) {
        request.GetTransferStatus().SetTotalSize(kDirectionDownload, size);
        request.GetTransferStatus().SetPosition(kDirectionDownload, 0);
    }
    request.SendHead(head);
    try {
        if (!request.IsHead()) StreamArchive(request, contents);
    } catch (const std::exception& error) {
        LogTranslated(kLogConnection, "Zip 실패: (%s)", error.what());
        throw;
    }
    request.EndResponse();
    LogTranslated(kLogProgress, "Zip 성공 - %s", folder_name.c_str());
}

}  // namespace Zarn
