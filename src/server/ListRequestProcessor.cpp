#include "server/ListRequestProcessor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "config/KorvelConfig.h"
#include "core/StringUtil.h"
#include "core/TekoFileFind.h"
#include "core/UniqueFd.h"
#include "core/UrlCodec.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/ListingRows.h"
#include "server/PluginManager.h"
#include "server/RequestPath.h"
#include "server/TextFormat.h"
#include "share/AccountManager.h"
#include "share/LocalTarget.h"
#include "share/MountManager.h"
#include "skin/SkinManager.h"

namespace Zarn {
namespace {

void SetFreeSpace(TextContent& page, int folder_fd) {
    struct statvfs info {};
    if (::fstatvfs(folder_fd, &info) != 0) {
        page.SetScalar("$free_space", "");
        return;
    }
    uint64_t free_bytes = static_cast<uint64_t>(info.f_bavail) * info.f_frsize;
    page.SetScalar("$free_space", GroupDigits(free_bytes));
    page.SetScalar("$free_space_readable", ReadableSize(free_bytes, ByteWords::Translated()));
}

}  // namespace

void ListRequestProcessor::SendList(HttpRequest& request) {
    LogTranslated(kLogProgress, "SendList 시작");
    const std::string& path = request.GetPath();
    if (path.empty()) {
        SendRoot(request);
    } else if (path.back() != '/') {
        HtmlPageSender(request, options_.page).SendRedirect(Concat({"/", path, "/"}));
    } else {
        SendFolder(request);
    }
    LogTranslated(kLogProgress, "SendList 성공");
}

void ListRequestProcessor::SendRoot(HttpRequest& request) {
    auto rows = std::make_unique<ListingRows>();
    for (const std::string& name : options_.mounts->ListNames())
        rows->AddFolder(name);
    TextContent page;
    page.SetScalar("$address", "/");
    page.SetScalar("$content", Translate("주소: /"));
    SetPluginRows(page, false);
    SendPage(request, std::move(rows), std::move(page), false);
}

void ListRequestProcessor::SendFolder(HttpRequest& request) {
    const std::string& path = request.GetPath();
    std::string_view inside = path;
    inside.remove_prefix(std::min(inside.size(), inside.find('/') + 1));
    bool show_upper = !inside.empty() || options_.config->canRootAccess;
    bool upload_allowed = (options_.rights & kRightUpload) != 0;
    TextContent page;
    page.SetScalar("$address", HtmlEscape(Concat({"/", path})));
    page.SetScalar("$content", Translate("주소: /") + HtmlEscape(path));
    UniqueFd folder =
        options_.target != nullptr
            ? options_.target->Open(O_PATH | O_DIRECTORY)
            : UniqueFd(::open(options_.local_path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder.IsValid() && IsOutOfDescriptors(errno)) {
        return HtmlPageSender(request, options_.page).SendOpenFailure(errno);
    }
    if (show_upper) SetFreeSpace(page, folder.Get());
    if (upload_allowed) page.SetScalar("$upload_path", UrlEncode(Concat({"/", path})));
    // The skin offers delete, rename and move only to whom the server will allow them.
    if ((options_.rights & kRightAdmin) != 0) page.SetScalar("$can_admin", "1");
    if ((options_.rights & kRightList) != 0 && (options_.rights & kRightDownload) != 0)
        page.SetScalar("$zip_allowed", "1");
    SetPluginRows(page, true);
    std::unique_ptr<ListingRows> rows = ReadFolder(folder.Get());
    // An empty page would tell the visitor the folder is empty.
    if (!rows) return HtmlPageSender(request, options_.page).SendOpenFailure(EMFILE);
    SendPage(request, std::move(rows), std::move(page), show_upper);
}

void ListRequestProcessor::SetPluginRows(TextContent& page, bool in_folder) const {
    std::vector<TextContent::Record> views;
    std::vector<TextContent::Record> actions;
    if (in_folder && options_.plugins != nullptr) {
        for (const auto& plugin : options_.plugins->Loaded()) {
            uint32_t needed = plugin->GetNeededRights();
            if ((options_.rights & needed) != needed) continue;
            const std::string& name = plugin->GetName();
            TextContent::Record row{{"$name", HtmlEscape(name)},
                                    {"$title", HtmlEscape(Translate(name))}};
            (plugin->IsView() ? views : actions).push_back(std::move(row));
        }
    }
    page.SetList("$view_plugins", std::move(views));
    page.SetList("$action_plugins", std::move(actions));
}

bool ListRequestProcessor::IsListed(const TekoFileFind& find, bool show_hidden,
                                    const LocalTarget* target) {
    const std::string& name = find.GetName();
    if (name == "." || name == ".." || !IsVisibleName(name, show_hidden)) return false;
    // A link that leads out of the mount would only answer "not found".
    struct stat info {};
    return !find.IsLink() || target == nullptr ||
           target->folder.StatBelow(target->Below(name), info);
}

std::unique_ptr<ListingRows> ListRequestProcessor::ReadFolder(int folder_fd) const {
    auto rows = std::make_unique<ListingRows>(options_.types);
    TekoFileFind find;
    errno = 0;
    bool found = folder_fd >= 0 && find.FindFirstIn(folder_fd, "*");
    if (!found && IsOutOfDescriptors(errno)) return nullptr;
    for (; found; found = find.FindNext()) {
        if (!IsListed(find, options_.config->showHiddenFiles, options_.target)) continue;
        if (find.IsDirectory()) {
            rows->AddFolder(find.GetName());
        } else {
            rows->AddFile(find.GetName(), find.GetSize(), find.GetLastWriteTime());
        }
    }
    return rows;
}

void ListRequestProcessor::SendPage(HttpRequest& request, std::unique_ptr<ListingRows> rows,
                                    TextContent page, bool show_upper) {
    rows->Sort();
    if (show_upper) page.SetScalar("$display_upper", "1");
    SendRows(request, std::move(rows), std::move(page));
}

void ListRequestProcessor::SendRows(HttpRequest& request, std::unique_ptr<ListingRows> rows,
                                    TextContent page) {
    uint64_t total = rows->GetTotalBytes();
    page.SetScalar("$show_files", "1");
    page.SetRecordList("$files", std::move(rows));
    page.SetScalar("$total_size", GroupDigits(total));
    page.SetScalar("$total_size_readable", ReadableSize(total, ByteWords::Translated()));
    std::vector<TextContent::Record> skins;
    if (options_.page.skins != nullptr) {
        for (const std::string& name : options_.page.skins->ListNames()) {
            skins.push_back({{"$name", HtmlEscape(name)}});
        }
    }
    page.SetList("$skins", std::move(skins));
    HtmlPageSender(request, options_.page).Render(page);
}

}  // namespace Zarn
