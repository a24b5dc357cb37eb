#include "ui/ConsoleTrashApi.h"

#include <optional>

#include "core/JsonWriter.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/MountTrash.h"
#include "share/MountManager.h"
#include "ui/ConsoleApi.h"

namespace Zarn {
namespace {

void EmptyTrash(HttpRequest& request, const MountManager& mounts) {
    std::string wanted;
    (void)request.GetFormParameter("mount", wanted);
    bool all = wanted == "all";
    std::optional<Mount> named = all ? std::nullopt : mounts.GetMount(wanted);
    if (!all && (!named || !named->is_folder)) {
        return ConsoleApi::SendError(request, 404, "Not Found", "mount",
                                     Translate("그런 폴더 마운트가 없습니다."));
    }
    for (const std::string& name : all ? mounts.ListNames() : std::vector<std::string>{wanted}) {
        std::optional<Mount> mount = mounts.GetMount(name);
        if (!mount || !mount->is_folder) continue;
        if (!MountTrash::Empty(mount->local_path)) {
            return ConsoleApi::SendError(
                request, 500, "Internal Server Error", "mount",
                FormatTranslated("%s의 휴지통을 비우지 못했습니다.", name.c_str()));
        }
        LogTranslated(kLogProgress, "%s의 휴지통을 비웠습니다.", name.c_str());
    }
    ConsoleApi::SendJson(request, 200, "OK", ConsoleTrashApi::Json(mounts));
}

}  // namespace

bool ConsoleTrashApi::Serve(HttpRequest& request, std::string_view endpoint,
                            const MountManager& mounts) {
    if (endpoint == "trash") {
        ConsoleApi::SendJson(request, 200, "OK", Json(mounts));
    } else if (endpoint == "trash/empty") {
        EmptyTrash(request, mounts);
    } else {
        return false;
    }
    return true;
}

std::string ConsoleTrashApi::Json(const MountManager& mounts) {
    JsonWriter json;
    json.BeginObject().Key("mounts").BeginArray();
    for (const std::string& name : mounts.ListNames()) {
        std::optional<Mount> mount = mounts.GetMount(name);
        if (!mount || !mount->is_folder) continue;
        MountTrash::Summary summary = MountTrash::Measure(mount->local_path);
        json.BeginObject()
            .Member("name", name)
            .Member("files", summary.files)
            .Member("bytes", summary.bytes)
            .EndObject();
    }
    json.EndArray().EndObject();
    return json.Text();
}

}  // namespace Zarn
