#include "server/AdminRequestProcessor.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "core/JsonWriter.h"
#include "core/PathUtil.h"
#include "core/StringUtil.h"
#include "core/UniqueFd.h"
#include "core/UrlCodec.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/IncomingFile.h"
#include "server/MakeDirectoryRequestProcessor.h"
#include "server/MountTrash.h"
#include "server/RequestPath.h"
#include "server/TextFormat.h"
#include "share/LocalTarget.h"
#include "share/MountManager.h"

namespace Zarn {

struct AdminRequestProcessor::Folder {
    std::string mount;
    LocalTarget target;
    UniqueFd fd;           // the folder itself, reached inside the mount
    std::string relative;  // below the mount's root, without a trailing "/"
};

namespace {

std::string_view ReasonOf(int code) {
    switch (code) {
        case 200:
            return "OK";
        case 400:
            return "Bad Request";
        case 404:
            return "Not Found";
        case 409:
            return "Conflict";
        default:
            return "Internal Server Error";
    }
}

std::string Parameter(HttpRequest& request, const std::string& name) {
    std::string value;
    if (!request.GetFormParameter(name, value)) (void)request.GetQueryParameter(name, value);
    return value;
}

// One name per line; browsers may send form lines ended by CR LF.
std::vector<std::string> SelectedNames(HttpRequest& request) {
    std::vector<std::string> names;
    std::string lines = Parameter(request, "selectedFiles");
    for (std::string_view line : Split(lines, '\n')) {
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (!line.empty()) names.emplace_back(line);
    }
    return names;
}

bool WantsJson(const HttpRequest& request) {
    std::string accept;
    return request.GetHeader("ACCEPT", accept) &&
           accept.find("application/json") != std::string::npos;
}

std::string WithoutTrailingSlash(std::string_view path) {
    while (path.ends_with('/'))
        path.remove_suffix(1);
    return std::string(path);
}

}  // namespace

AdminRequestProcessor::Result AdminRequestProcessor::Failure(const std::string& name, int error,
                                                             int done) {
    switch (error) {
        case EEXIST:
        case ENOTEMPTY:
            return {409, FormatTranslated("%s: 같은 이름이 이미 있습니다.", name.c_str()), done};
        case EINVAL:
            return {409, FormatTranslated("%s: 폴더를 그 안으로 옮길 수 없습니다.", name.c_str()),
                    done};
        case EXDEV:
            return {409,
                    FormatTranslated("%s: 다른 파일 시스템으로는 옮길 수 없습니다.", name.c_str()),
                    done};
        case ENOENT:
            return {404, FormatTranslated("%s: 찾을 수 없습니다.", name.c_str()), done};
        default:
            return {
                500,
                FormatTranslated("%s: 바꾸지 못했습니다. (%s)", name.c_str(), std::strerror(error)),
                done};
    }
}

bool AdminRequestProcessor::IsUsableName(const std::string& name) const {
    return name.size() <= IncomingFile::kMaxNameBytes &&
           MakeDirectoryRequestProcessor::IsAcceptableName(name) &&
           IsVisibleName(name, options_.show_hidden);
}

std::optional<AdminRequestProcessor::Result> AdminRequestProcessor::CheckEntry(
    const Folder& folder, const std::string& name) const {
    if (!IsUsableName(name)) {
        return Result{400, FormatTranslated("%s: 이름을 쓸 수 없습니다.", name.c_str())};
    }
    // Through the mount's confinement: a link that leads out of it is missing here as it
    // is from the listing.
    struct stat info {};
    if (!folder.target.folder.StatBelow(folder.target.Below(name), info)) {
        return Result{404, FormatTranslated("%s: 찾을 수 없습니다.", name.c_str())};
    }
    return std::nullopt;
}

void AdminRequestProcessor::Run(HttpRequest& request, const std::string& action) {
    Answer(request, action, Perform(request, action));
}

AdminRequestProcessor::Result AdminRequestProcessor::Perform(HttpRequest& request,
                                                             const std::string& action) {
    const std::string& path = request.GetPath();
    std::string mount_name(MountNameOf(path));
    std::optional<Mount> mount = options_.mounts->GetMount(mount_name);
    if (!mount || !mount->is_folder) {
        return {400, Translate("파일 하나를 공유하는 마운트에서는 할 수 없습니다.")};
    }
    std::optional<LocalTarget> target = options_.mounts->ResolveTarget(path);
    UniqueFd fd = target ? target->Open(O_PATH | O_DIRECTORY) : UniqueFd();
    if (!fd.IsValid()) return {404, Translate("찾을 수 없습니다.")};
    std::vector<std::string> names = SelectedNames(request);
    if (names.empty()) return {400, Translate("선택한 항목이 없습니다.")};
    std::string relative = WithoutTrailingSlash(target->relative);
    Folder folder{std::move(mount_name), std::move(*target), std::move(fd), std::move(relative)};
    if (action == "Delete") return Delete(folder, names);
    if (action == "Rename") return Rename(folder, names, Parameter(request, "newName"));
    return Move(folder, names, Parameter(request, "target"));
}

AdminRequestProcessor::Result AdminRequestProcessor::Delete(const Folder& folder,
                                                            const std::vector<std::string>& names) {
    MountTrash trash(folder.target.folder.GetHandle());
    std::string folder_relative = folder.relative.empty() ? "" : folder.relative + "/";
    int done = 0;
    for (const std::string& name : names) {
        if (std::optional<Result> refusal = CheckEntry(folder, name)) {
            refusal->done = done;
            return *refusal;
        }
        std::string stored_as;
        switch (trash.Take(folder.fd.Get(), folder_relative, name, options_.clock(), stored_as)) {
            case MountTrash::Outcome::kMoved:
                break;
            case MountTrash::Outcome::kOtherDevice:
                return Failure(name, EXDEV, done);
            case MountTrash::Outcome::kFailed:
                return Failure(name, errno, done);
        }
        LogTranslated(kLogProgress, "Delete 성공 - %s : %s -> %s", options_.user.c_str(),
                      name.c_str(), stored_as.c_str());
        ++done;
    }
    return {200, FormatTranslated("%d개를 휴지통으로 옮겼습니다.", done), done};
}

AdminRequestProcessor::Result AdminRequestProcessor::Rename(const Folder& folder,
                                                            const std::vector<std::string>& names,
                                                            const std::string& new_name_field) {
    if (names.size() != 1) return {400, Translate("이름은 한 번에 하나만 바꿀 수 있습니다.")};
    const std::string& name = names.front();
    std::string new_name(Trim(new_name_field));
    if (std::optional<Result> refusal = CheckEntry(folder, name)) return *refusal;
    if (!IsUsableName(new_name)) {
        return {400, FormatTranslated("%s: 이름을 쓸 수 없습니다.", new_name.c_str())};
    }
    if (!RenameWithoutReplacing(folder.fd.Get(), name, folder.fd.Get(), new_name)) {
        return Failure(new_name, errno, 0);
    }
    LogTranslated(kLogProgress, "Rename 성공 - %s : %s -> %s", options_.user.c_str(), name.c_str(),
                  new_name.c_str());
    return {200,
            FormatTranslated("%s의 이름을 %s(으)로 바꿨습니다.", name.c_str(), new_name.c_str()),
            1};
}

AdminRequestProcessor::Result AdminRequestProcessor::Move(const Folder& folder,
                                                          const std::vector<std::string>& names,
                                                          const std::string& target_field) {
    // A site path, as the listing's own addresses and the folder tree's links are.
    std::string_view target = Trim(target_field);
    std::string path = target.starts_with('/') ? WithoutTrailingSlash(target.substr(1)) : "";
    if (path.empty() || !IsValidRequestPath(path) || MountNameOf(path) != folder.mount ||
        !IsVisiblePath(path, options_.show_hidden)) {
        return {400, FormatTranslated("%s: 옮길 곳은 같은 마운트 안의 폴더여야 합니다.",
                                      std::string(target).c_str())};
    }
    std::optional<LocalTarget> destination = options_.mounts->ResolveTarget(path);
    UniqueFd destination_fd = destination ? destination->Open(O_PATH | O_DIRECTORY) : UniqueFd();
    if (!destination_fd.IsValid()) {
        return {404, FormatTranslated("%s: 찾을 수 없습니다.", std::string(target).c_str())};
    }
    std::string destination_relative = WithoutTrailingSlash(destination->relative);
    int done = 0;
    for (const std::string& name : names) {
        if (std::optional<Result> refusal = CheckEntry(folder, name)) {
            refusal->done = done;
            return *refusal;
        }
        std::string moved = folder.relative.empty() ? name : Concat({folder.relative, "/", name});
        // The kernel refuses this too (EINVAL), even where a link hides the relation.
        if (destination_relative == moved || destination_relative.starts_with(moved + "/")) {
            return Failure(name, EINVAL, done);
        }
        if (!RenameWithoutReplacing(folder.fd.Get(), name, destination_fd.Get(), name)) {
            return Failure(name, errno, done);
        }
        LogTranslated(kLogProgress, "Move 성공 - %s : %s -> /%s/", options_.user.c_str(),
                      name.c_str(), path.c_str());
        ++done;
    }
    return {200, FormatTranslated("%d개를 %s(으)로 옮겼습니다.", done, std::string(target).c_str()),
            done};
}

void AdminRequestProcessor::Answer(HttpRequest& request, const std::string& action,
                                   const Result& result) {
    if (result.code != 200) {
        LogTranslated(kLogProgress, "%s 실패 - %s : %s", action.c_str(), options_.user.c_str(),
                      result.message.c_str());
    }
    if (WantsJson(request)) {
        JsonWriter json;
        json.BeginObject()
            .Member("ok", result.code == 200)
            .Member("message", result.message)
            .Member("done", result.done)
            .EndObject();
        request.SendHead(ResponseHead(result.code, ReasonOf(result.code))
                             .Add("Content-Type", "application/json; charset=utf-8")
                             .Add("Cache-Control", "no-store")
                             .SetContentLength(json.Text().size())
                             .AllowKeepAlive());
        request.Send(json.Text());
        request.EndResponse();
        return;
    }
    if (result.code != 200) {
        HtmlPageSender(request, options_.page)
            .SendErrorPage(result.code, std::string(ReasonOf(result.code)),
                           HtmlEscape(result.message));
        return;
    }
    // See Other: the browser fetches the listing with GET, so a reload repeats nothing.
    std::string folder = Concat({"/", WithoutTrailingSlash(request.GetPath()), "/"});
    request.SendHead(ResponseHead(303, "See Other")
                         .Add("Location", UrlEncode(folder))
                         .SetContentLength(0)
                         .AllowKeepAlive());
    request.EndResponse();
}

}  // namespace Zarn
