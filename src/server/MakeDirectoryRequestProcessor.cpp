#include "server/MakeDirectoryRequestProcessor.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <optional>

#include "core/StringUtil.h"
#include "core/UniqueFd.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/RequestPath.h"
#include "server/TextFormat.h"
#include "share/MountManager.h"

namespace Zarn {

bool MakeDirectoryRequestProcessor::IsAcceptableName(const std::string& name) {
    if (name.empty() || name == "." || name == "..") return false;
    for (char c : name) {
        auto byte = static_cast<unsigned char>(c);
        if (c == '/' || byte < 0x20 || byte == 0x7F) return false;
    }
    return true;
}

void MakeDirectoryRequestProcessor::MakeDirectory(HttpRequest& request) {
    std::string message = Translate("폴더를 만들지 못했습니다.");
    std::string name;
    if (!request.GetQueryParameter("name", name)) (void)request.GetFormParameter("name", name);
    name = std::string(Trim(name));
    std::optional<LocalTarget> target = mounts_.ResolveTarget(request.GetPath());
    struct stat info {};
    bool made = false;
    if (name.empty()) {
        message = Translate("폴더 이름이 입력되지 않았습니다.");
    } else if (!target || !target->Stat(info)) {
        message = Translate("폴더를 만들도록 지정된 폴더가 존재하지 않습니다.");
    } else if (!S_ISDIR(info.st_mode)) {
        message = Translate("업로드가 금지된 폴더입니다.");
    } else if (IsAcceptableName(name) && IsVisibleName(name, show_hidden_)) {
        UniqueFd folder = target->Open(O_PATH | O_DIRECTORY);
        made = folder.IsValid() && ::mkdirat(folder.Get(), name.c_str(), 0755) == 0;
    }
    HtmlPageSender pages(request, page_);
    if (made) {
        LogTranslated(kLogProgress, "MakeDirectory 성공 - %s", name.c_str());
        pages.SendRedirect(".");
        return;
    }
    LogTranslated(kLogConnection, "MakeDirectory 실패 : %s - %s", message.c_str(), name.c_str());
    pages.SendMessagePage(Translate("폴더 만들기 실패"), HtmlEscape(message), false);
}

}  // namespace Zarn
