#include "ui/ConsoleMountsApi.h"

#include <sys/stat.h>

#include <algorithm>

#include "config/KorvelConfig.h"
#include "core/JsonWriter.h"
#include "core/PathUtil.h"
#include "core/TekoFileFind.h"
#include "core/UrlCodec.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "share/AccountManager.h"
#include "ui/ConsoleApi.h"
#include "ui/ConsoleSharingApi.h"
#include "ui/SharingRules.h"

namespace Zarn {
namespace {

// Hidden entries last, each group in byte order.
bool ListedBefore(const std::string& a, const std::string& b) {
    bool a_hidden = a.starts_with('.');
    bool b_hidden = b.starts_with('.');
    if (a_hidden != b_hidden) return b_hidden;
    return a < b;
}

void WriteNames(JsonWriter& json, const char* key, std::vector<std::string>& names) {
    std::sort(names.begin(), names.end(), ListedBefore);
    json.Key(key).BeginArray();
    for (const std::string& name : names)
        json.String(name);
    json.EndArray();
}

}  // namespace

void ConsoleMountsApi::WriteMount(JsonWriter& json, const Mount& mount) {
    // A single file is served at its bare name; a folder's listing wants the slash.
    std::string link = UrlEncode("/" + mount.name + (mount.is_folder ? "/" : ""));
    json.BeginObject()
        .Member("name", mount.name)
        .Member("path", mount.local_path)
        .Member("isFolder", mount.is_folder)
        .Member("note", mount.note)
        .Member("option", mount.option)
        .Member("link", link)
        .EndObject();
}

void ConsoleMountsApi::SendMounts(HttpRequest& request) {
    JsonWriter json;
    json.BeginArray();
    for (const std::string& name : mounts_.ListNames()) {
        if (std::optional<Mount> mount = mounts_.GetMount(name)) WriteMount(json, *mount);
    }
    json.EndArray();
    ConsoleApi::SendJson(request, 200, "OK", json.Text());
}

void ConsoleMountsApi::SendMount(HttpRequest& request, const std::string& name) {
    std::optional<Mount> mount = mounts_.GetMount(name);
    if (!mount) {
        return ConsoleApi::SendError(request, 404, "Not Found", "name",
                                     Translate("그런 공유가 없습니다."));
    }
    JsonWriter json;
    WriteMount(json, *mount);
    ConsoleApi::SendJson(request, 200, "OK", json.Text());
}

bool ConsoleMountsApi::ReadForm(HttpRequest& request, const std::string& original, Mount& mount) {
    // An edit keeps what the form leaves out; an addition starts from nothing.
    for (auto [field, value] :
         {std::pair{"name", &mount.name}, std::pair{"path", &mount.local_path},
          std::pair{"note", &mount.note}}) {
        if (original.empty() || ConsoleSharingApi::HasField(request, field)) {
            *value = ConsoleSharingApi::Field(request, field);
        }
    }
    std::optional<SharingRules::Refusal> fault;
    if (!ConsoleSharingApi::ReadSwitch(request, "isFolder", mount.is_folder, mount.is_folder)) {
        fault = SharingRules::Refusal{400, "isFolder", TranslationKey("값이 올바르지 않습니다.")};
    } else if (!ConsoleSharingApi::ReadSwitch(request, "option", mount.option, mount.option)) {
        fault = SharingRules::Refusal{400, "option", TranslationKey("값이 올바르지 않습니다.")};
    } else {
        // Stored without "." or ".." segments or doubled slashes, as a picker would give it.
        if (mount.local_path.starts_with('/'))
            mount.local_path = MakeAbsolutePath(mount.local_path);
        fault = SharingRules::FindMountFault(mounts_, mount, original);
    }
    if (!fault) return true;
    ConsoleApi::SendError(request, fault->code, fault->code == 409 ? "Conflict" : "Bad Request",
                          fault->field, Translate(fault->key));
    return false;
}

void ConsoleMountsApi::Add(HttpRequest& request) {
    Mount mount;
    if (!ReadForm(request, "", mount)) return;
    {
        // The picker opens next time where this mount was found.
        CriticalSectionLock hold(config_.GetLock());
        config_.lastAddMountDirectory =
            mount.is_folder ? mount.local_path : FolderOf(mount.local_path);
    }
    if (!mounts_.AddMount(mount)) {
        if (!mounts_.GetMount(mount.name)) {
            return ConsoleApi::SendError(request, 409, "Conflict", "name",
                                         Translate("같은 이름의 공유가 이미 있습니다."));
        }
        return ConsoleApi::SendSaveFailure(request);
    }
    // Grants the settings file kept for a mount of this name apply now, as they would
    // after a restart.
    accounts_.ApplyPendingRights();
    SendMount(request, mount.name);
}

void ConsoleMountsApi::Edit(HttpRequest& request) {
    std::string original = ConsoleSharingApi::Field(request, "original");
    std::optional<Mount> mount = mounts_.GetMount(original);
    if (!mount) {
        return ConsoleApi::SendError(request, 404, "Not Found", "original",
                                     Translate("그런 공유가 없습니다."));
    }
    if (!ReadForm(request, original, *mount)) return;
    bool saved = mounts_.ModifyMount(original, *mount);
    if (!saved && !mounts_.GetMount(mount->name)) {
        // Removed or taken by a concurrent change between the check and the edit.
        return ConsoleApi::SendError(request, 409, "Conflict", "name",
                                     Translate("같은 이름의 공유가 이미 있습니다."));
    }
    // The grants in the file name the mount; the registry keeps them by identifier.
    if (mount->name != original) saved = accounts_.Save() && saved;
    if (!saved) return ConsoleApi::SendSaveFailure(request);
    SendMount(request, mount->name);
}

void ConsoleMountsApi::Remove(HttpRequest& request) {
    std::string name = ConsoleSharingApi::Field(request, "name");
    if (!mounts_.RemoveMount(name)) {
        if (!mounts_.GetMount(name)) {
            return ConsoleApi::SendError(request, 404, "Not Found", "name",
                                         Translate("그런 공유가 없습니다."));
        }
        return ConsoleApi::SendSaveFailure(request);
    }
    // Drops the removed mount's grants from the file, so that a later mount of the same
    // name does not inherit them.
    if (!accounts_.Save()) return ConsoleApi::SendSaveFailure(request);
    ConsoleApi::SendOk(request);
}

void ConsoleMountsApi::SendFolder(HttpRequest& request) {
    std::string path;
    if (!request.GetQueryParameter("path", path) || path.empty()) {
        CriticalSectionLock hold(config_.GetLock());
        path = config_.lastAddMountDirectory;
    }
    if (!path.starts_with('/') || path.find('\0') != std::string::npos) {
        return ConsoleApi::SendError(request, 400, "Bad Request", "path",
                                     Translate("경로는 /로 시작하는 절대 경로여야 합니다."));
    }
    path = MakeAbsolutePath(path);
    std::vector<std::string> folders;
    std::vector<std::string> files;
    TekoFileFind find;
    // "." is always there, so finding nothing means the folder cannot be read.
    bool more = find.FindFirst(JoinPath(path, "*"));
    if (!more) {
        struct stat info {};
        bool exists = ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
        return ConsoleApi::SendError(
            request, exists ? 403 : 404, exists ? "Forbidden" : "Not Found", "path",
            exists ? Translate("폴더를 읽을 수 없습니다.") : Translate("그 폴더가 없습니다."));
    }
    for (; more; more = find.FindNext()) {
        const std::string& name = find.GetName();
        if (name == "." || name == "..") continue;
        (find.IsDirectory() ? folders : files).push_back(name);
    }
    JsonWriter json;
    json.BeginObject().Member("path", path).Key("parent");
    if (path == "/") {
        json.Null();
    } else {
        json.String(FolderOf(path));
    }
    WriteNames(json, "folders", folders);
    WriteNames(json, "files", files);
    json.EndObject();
    ConsoleApi::SendJson(request, 200, "OK", json.Text());
}

}  // namespace Zarn
