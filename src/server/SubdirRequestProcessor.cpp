#include "server/SubdirRequestProcessor.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "config/KorvelConfig.h"
#include "core/JsonWriter.h"
#include "core/StringUtil.h"
#include "core/TekoFileFind.h"
#include "core/TextEncoding.h"
#include "core/UniqueFd.h"
#include "core/UrlCodec.h"
#include "http/HttpRequest.h"
#include "http/ResponseHead.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/ListRequestProcessor.h"
#include "share/AccountManager.h"
#include "share/LocalTarget.h"
#include "share/MountManager.h"

namespace Zarn {
namespace {

std::string Document(const std::string& address, const std::vector<std::string>& folders) {
    JsonWriter json;
    json.BeginObject().Member("path", address).Key("folders").BeginArray();
    for (const std::string& name : folders) {
        json.BeginObject().Member("name", name).Member("link", UrlEncode(name) + "/").EndObject();
    }
    json.EndArray().EndObject();
    return json.Text();
}

}  // namespace

void SubdirRequestProcessor::SendSubdirs(HttpRequest& request) {
    LogTranslated(kLogProgress, "SendSubdirs 시작");
    const std::string& path = request.GetPath();
    std::vector<std::string> folders;
    errno = 0;  // tells a folder that is missing from one that could not be opened just now
    if (path.empty()) {
        folders = RootFolders();
    } else if (path.back() != '/' || !ReadFolders(path, folders)) {
        HtmlPageSender(request, options_.page).SendOpenFailure(errno);
        LogTranslated(kLogProgress, "SendSubdirs 성공");
        return;
    }
    std::sort(folders.begin(), folders.end());
    std::string body = Document(Concat({"/", path}), folders);
    request.SendHead(ResponseHead(200, "OK")
                         .Add("Content-Type", "application/json; charset=utf-8")
                         .Add("Cache-Control", "no-store")
                         .Add("X-Content-Type-Options", "nosniff")
                         .SetContentLength(body.size())
                         .AllowKeepAlive());
    request.Send(body);
    request.EndResponse();
    LogTranslated(kLogProgress, "SendSubdirs 성공");
}

std::vector<std::string> SubdirRequestProcessor::RootFolders() const {
    std::vector<std::string> folders;
    for (const std::string& name : options_.mounts->ListNames()) {
        std::optional<Mount> mount = options_.mounts->GetMount(name);
        std::optional<uint32_t> rights = options_.accounts->GetRights(options_.user, name);
        if (mount && mount->is_folder && rights && (*rights & kRightList) != 0) {
            folders.push_back(name);
        }
    }
    return folders;
}

bool SubdirRequestProcessor::ReadFolders(const std::string& path,
                                         std::vector<std::string>& folders) const {
    std::optional<LocalTarget> target = options_.mounts->ResolveTarget(path);
    if (!target) return false;
    UniqueFd folder = target->Open(O_PATH | O_DIRECTORY);
    if (!folder.IsValid()) return false;
    bool show_hidden = options_.config->showHiddenFiles;
    TekoFileFind find;
    errno = 0;
    bool found = find.FindFirstIn(folder.Get(), "*");
    // An empty list would tell the tree the folder has none.
    if (!found && IsOutOfDescriptors(errno)) return false;
    for (; found; found = find.FindNext()) {
        // A name that is not UTF-8 could not come back from the tree: a browser's link
        // to it would be read in the URL code page and name another folder.
        if (find.IsDirectory() && ListRequestProcessor::IsListed(find, show_hidden, &*target) &&
            IsValidUtf8(find.GetName())) {
            folders.push_back(find.GetName());
        }
    }
    return true;
}

}  // namespace Zarn
