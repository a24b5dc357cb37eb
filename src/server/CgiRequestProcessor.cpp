#include "server/CgiRequestProcessor.h"

#include <atomic>
#include <cstring>

#include "config/KorvelConfig.h"
#include "core/StringUtil.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/CgiEnvironment.h"
#include "server/CgiFolder.h"
#include "server/CgiRelay.h"
#include "server/ChildProcess.h"
#include "share/MountManager.h"

namespace Zarn {
namespace {

constexpr std::string_view kSegment = "cgi-bin";

// So that a covered folder is reported once, not on every request.
std::atomic<bool> g_shared_folder_reported{false};

void SendNotFound(HtmlPageSender& pages) {
    pages.SendErrorPage(404, "Not Found", Translate("찾을 수 없습니다."));
}

}  // namespace

bool CgiRequestProcessor::Handles(const std::string& path, KorvelConfig& config,
                                  const MountManager& mounts) {
    if (!path.starts_with(kSegment) ||
        (path.size() > kSegment.size() && path[kSegment.size()] != '/')) {
        return false;
    }
    {
        CriticalSectionLock hold(config.GetLock());
        if (config.cgiFolder.empty()) return false;
    }
    return !mounts.GetMount(std::string(kSegment));
}

bool CgiRequestProcessor::IsFolderShared(const std::string& folder) const {
    std::vector<Mount> mounts;
    for (const std::string& name : options_.mounts->ListNames()) {
        if (std::optional<Mount> mount = options_.mounts->GetMount(name))
            mounts.push_back(std::move(*mount));
    }
    std::optional<std::string> covering = CgiFolder::FindCoveringMount(folder, mounts);
    if (!covering) {
        g_shared_folder_reported = false;
        return false;
    }
    if (!g_shared_folder_reported.exchange(true)) {
        LogTranslated(kLogNotice, "CGI 폴더가 공유 폴더 %s 안에 있어 CGI를 쓰지 않습니다.",
                      covering->c_str());
    }
    return true;
}

void CgiRequestProcessor::Process(HttpRequest& request) {
    HtmlPageSender pages(request, options_.page);
    std::string folder;
    {
        CriticalSectionLock hold(options_.config->GetLock());
        folder = options_.config->cgiFolder;
    }
    // "cgi-bin/NAME/more": NAME is the program, "/more" what the program is asked for.
    std::string_view rest = std::string_view(request.GetPath()).substr(kSegment.size());
    if (rest.starts_with('/')) rest.remove_prefix(1);
    std::string_view name = rest.substr(0, rest.find('/'));
    if (folder.empty() || IsFolderShared(folder)) return SendNotFound(pages);
    std::optional<std::string> program = CgiFolder::FindProgram(folder, name);
    if (!program) return SendNotFound(pages);
    Run(request, pages, folder, *program);
}

void CgiRequestProcessor::Run(HttpRequest& request, HtmlPageSender& pages,
                              const std::string& folder, const std::string& program) {
    std::string name = program.substr(program.rfind('/') + 1);
    std::string_view path = request.GetPath();
    std::string script_name = Concat({"/", kSegment, "/", name});
    CgiEnvironment::Script script{
        .name = script_name,
        .path_info = std::string(path.substr(std::min(path.size(), script_name.size() - 1))),
        .server_port = options_.server_port};
    LogTranslated(kLogProgress, "Process 시작 - %s", name.c_str());
    int error = 0;
    std::optional<ChildProcess> child =
        ChildProcess::Start({.program = program,
                             .folder = folder,
                             .environment = CgiEnvironment::Build(request, script)},
                            error);
    if (!child) {
        LogTranslated(kLogError, "Process 실패: (%s: %s)", name.c_str(), std::strerror(error));
        return pages.SendErrorPage(500, "Internal Server Error",
                                   Translate("CGI 프로그램을 실행하지 못했습니다."));
    }
    CgiRelay::Outcome outcome;
    try {
        outcome =
            CgiRelay(request, *child, name, std::chrono::seconds(options_.config->GetCgiTimeout()))
                .Run();
    } catch (const std::exception& failure) {
        LogTranslated(kLogConnection, "Process 실패: (%s: %s)", name.c_str(), failure.what());
        throw;
    }
    if (outcome == CgiRelay::Outcome::kAnswered) {
        child->End(ChildProcess::kTermGrace);
        LogTranslated(kLogProgress, "Process 성공 - %s", name.c_str());
        return;
    }
    child->End(std::chrono::milliseconds(0));
    bool timed_out = outcome == CgiRelay::Outcome::kTimedOut;
    LogTranslated(kLogError, "Process 실패: (%s: %s)", name.c_str(),
                  timed_out ? "time-out" : "no header block");
    if (timed_out) {
        return pages.SendErrorPage(504, "Gateway Timeout",
                                   Translate("CGI 프로그램이 제때 응답하지 않았습니다."));
    }
    pages.SendErrorPage(502, "Bad Gateway",
                        Translate("CGI 프로그램이 올바른 응답을 보내지 않았습니다."));
}

}  // namespace Zarn
