#include "server/PluginRequestProcessor.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "core/ConfinedFolder.h"
#include "core/TekoFile.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/DownloadRequestProcessor.h"
#include "server/HtmlPageSender.h"
#include "server/PluginManager.h"

namespace Zarn {

void PluginRequestProcessor::SendResource(HttpRequest& request, const MimeTypeTable& types) {
    std::string name;
    std::string file;
    std::shared_ptr<const LoadedPlugin> plugin;
    errno = 0;  // tells a file that is missing from one that could not be opened just now
    if (request.GetQueryParameter("plugin", name) && request.GetQueryParameter("file", file))
        plugin = plugins_.Find(name);
    // Confined: no "..", no absolute path and no link leads out of the plug-in's folder.
    std::optional<ConfinedFolder> folder;
    if (plugin) folder = ConfinedFolder::Open(plugin->GetStatus().folder, true);
    UniqueFd opened;
    struct stat info {};
    if (folder && !file.empty()) opened = folder->OpenBelow(file, O_RDONLY | O_NONBLOCK | O_NOCTTY);
    auto bytes = std::make_unique<TekoFile>();
    std::string path = folder ? folder->GetPath() + file : file;
    if (!opened.IsValid() || ::fstat(opened.Get(), &info) != 0 ||
        !bytes->OpenForReading(std::move(opened), path)) {
        return pages_.SendOpenFailure(errno);
    }
    DownloadRequestProcessor(std::move(bytes), path, info, {.types = &types, .pages = &pages_})
        .SendFile(request);
}

void PluginRequestProcessor::Run(HttpRequest& request, const LoadedPlugin& plugin,
                                 PluginRequest::Visitor visitor) {
    LumidropRequest call(request, std::move(visitor));
    int result = plugin.OnRequest(&call);
    if (!call.Finish(result)) {
        request.Log(kLogError, "Plug-in %s failed", plugin.GetName().c_str());
        pages_.SendErrorPage(500, "Internal Server Error",
                             Translate("플러그인이 요청을 처리하지 못했습니다."));
    }
}

}  // namespace Zarn
