#include "server/KorvelHttpRequestHandler.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <ctime>

#include "config/KorvelConfig.h"
#include "core/StringUtil.h"
#include "core/TekoFile.h"
#include "core/UniqueFd.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "net/socket_exception.h"
#include "server/AdminRequestProcessor.h"
#include "server/CgiRequestProcessor.h"
#include "server/DownloadRequestProcessor.h"
#include "server/IdentificationRequestProcessor.h"
#include "server/ListRequestProcessor.h"
#include "server/LoadedPlugin.h"
#include "server/MakeDirectoryRequestProcessor.h"
#include "server/PluginManager.h"
#include "server/PluginRequestProcessor.h"
#include "server/RequestOrigin.h"
#include "server/RequestPath.h"
#include "server/SearchRequestProcessor.h"
#include "server/SubdirRequestProcessor.h"
#include "server/SystemRequestProcessor.h"
#include "server/TextFormat.h"
#include "server/TusRequestProcessor.h"
#include "server/UploadProgressTable.h"
#include "server/UploadRequestProcessor.h"
#include "server/UploadStatusReportingRequestProcessor.h"
#include "server/ZipRequestProcessor.h"
#include "share/AccountManager.h"
#include "share/IpFilter.h"
#include "share/MountManager.h"
#include "skin/SkinManager.h"
#include "transfer/ConnectionCountLimitManager.h"

namespace Zarn {
namespace {

std::string QueryValue(const HttpRequest& request, const std::string& name) {
    std::string value;
    (void)request.GetQueryParameter(name, value);
    return value;
}

bool IsSystemFile(const std::string& path, const MountManager& mounts) {
    return (path == "robots.txt" || path == "favicon.ico") && !mounts.GetMount(path);
}

void SendNotFound(HtmlPageSender& pages) {
    pages.SendErrorPage(404, "Not Found", Translate("찾을 수 없습니다."));
}

// Whatever creates or changes something on the server; such requests must come from
// this server's own pages.
bool ChangesState(const HttpRequest& request, const std::string& action,
                  const PluginManager* plugins) {
    HttpMethod method = request.GetMethod();
    if (method == HttpMethod::kPost || method == HttpMethod::kPatch ||
        method == HttpMethod::kDelete || action == "MakeDirectory") {
        return true;
    }
    // An action plug-in acts on the entries ticked in the listing, by GET like the page's
    // form; only a view plug-in may be linked to from elsewhere.
    if (action != "Plugin" || plugins == nullptr) return false;
    std::shared_ptr<const LoadedPlugin> plugin = plugins->Find(QueryValue(request, "plugin"));
    return plugin && !plugin->IsView();
}

// Methods that only resumable uploads speak; anywhere else they are as unknown as any.
bool IsUnknownMethod(const HttpRequest& request, const std::string& action) {
    HttpMethod method = request.GetMethod();
    bool resumable_only = method == HttpMethod::kPatch || method == HttpMethod::kDelete ||
                          method == HttpMethod::kOptions;
    return method == HttpMethod::kOther || (resumable_only && action != "tus");
}

// A second query parameter makes it an ordinary request for the folder.
bool IsSubdirRequest(const HttpRequest& request, const std::string& action) {
    return action == "Subdir" && request.GetQueryParameters().size() == 1;
}

VisitorScope ScopeOf(const KorvelHttpRequestHandler::Services& services, const std::string& user,
                     HtmlPageSender::Context page) {
    return {.config = services.config,
            .mounts = services.mounts,
            .accounts = services.accounts,
            .types = services.types,
            .user = user,
            .page = std::move(page)};
}

void SendSubdirs(HttpRequest& request, const KorvelHttpRequestHandler::Services& services,
                 const std::string& user, HtmlPageSender::Context page) {
    SubdirRequestProcessor(ScopeOf(services, user, std::move(page))).SendSubdirs(request);
}

void SendSearchResults(HttpRequest& request, const KorvelHttpRequestHandler::Services& services,
                       const std::string& user, HtmlPageSender::Context page) {
    SearchRequestProcessor(ScopeOf(services, user, std::move(page))).SendResults(request);
}

}  // namespace

HtmlPageSender::Context KorvelHttpRequestHandler::PageContext() const {
    HtmlPageSender::Context context{.skins = services_.skins, .server_port = services_.port()};
    if (services_.config->skinDevelopersMode) {
        context.before_render = [this] { ReloadSkinsForDevelopers(); };
    }
    return context;
}

SystemRequestProcessor KorvelHttpRequestHandler::SystemFiles() const {
    return SystemRequestProcessor(
        {.files = services_.system_files, .skins = services_.skins, .types = services_.types});
}

void KorvelHttpRequestHandler::HandleRequest(HttpRequest& request) {
    try {
        Dispatch(request);
    } catch (const socket_exception&) {
        throw;
    } catch (const std::exception& error) {
        request.Log(kLogError, "Exception: %s", error.what());
        if (request.IsResponseBegun()) throw;
        HtmlPageSender(request, PageContext())
            .SendErrorPage(500, "Internal Server Error", HtmlEscape(error.what()));
    }
}

void KorvelHttpRequestHandler::ReloadSkinsForDevelopers() const {
    if (!services_.config->skinDevelopersMode) return;
    // Skin authors see their edits at once. Only the reload itself is serialised: a page
    // renders from the set it started with, so a slow client holds up nobody.
    std::string default_skin;
    {
        // The owner may choose another skin from the console meanwhile.
        CriticalSectionLock hold_settings(services_.config->GetLock());
        default_skin = services_.config->defaultSkin;
    }
    CriticalSectionLock hold(SkinManager::DevelopersModeLock());
    services_.skins->LoadAll(services_.home, default_skin);
}

void KorvelHttpRequestHandler::Dispatch(HttpRequest& request) {
    HtmlPageSender pages(request, PageContext());
    // A CGI program takes a body of any size on its input.
    if (request.IsFormTooLarge() &&
        !CgiRequestProcessor::Handles(request.GetPath(), *services_.config, *services_.mounts)) {
        return pages.SendErrorPage(413, "Payload Too Large", Translate("요청이 너무 큽니다."));
    }
    const std::string& path = request.GetPath();
    std::string action = QueryValue(request, "action");
    size_t query_count = request.GetQueryParameters().size();

    // HEAD asks what GET would answer, so it must not change anything either.
    bool changes_state = ChangesState(request, action, services_.plugins);
    bool refused_head = request.IsHead() && changes_state;
    if (IsUnknownMethod(request, action) || refused_head || path.find('\0') != std::string::npos) {
        return pages.SendErrorPage(400, "Bad Request", Translate("잘못된 요청입니다."));
    }
    if (!IsValidRequestPath(path))
        return pages.SendRedirect(Concat({"/", NormalizeRequestPath(path)}));
    if (request.GetMethod() != HttpMethod::kPost && path.empty() && query_count == 1 &&
        action == "identify") {
        return IdentificationRequestProcessor().Identify(request);
    }
    if (IsSystemFile(path, *services_.mounts)) return SystemFiles().SendSystemFile(request);
    if (action == "SkinFile" && query_count == 1) {
        ReloadSkinsForDevelopers();
        return SystemFiles().SendSkinFile(request);
    }
    // Before the IP filter: a plug-in's scripts and pictures are public by design.
    if (action == "PluginResource") {
        return PluginRequestProcessor(*services_.plugins, pages)
            .SendResource(request, *services_.types);
    }
    if (!services_.ip_filter->IsAdmitted(request.GetClientAddress())) {
        return pages.SendErrorPage(403, "Forbidden",
                                   Translate("이 주소에서는 접근할 수 없습니다."));
    }
    if (changes_state && IsCrossSiteRequest(request)) {
        return pages.SendErrorPage(403, "Forbidden",
                                   Translate("다른 사이트에서 보낸 요청은 받지 않습니다."));
    }
    if (action == "UploadStatus" && query_count == 2) {
        return UploadStatusReportingRequestProcessor(*services_.uploads).SendStatus(request);
    }

    const AuthenticationInfo* credentials = request.GetAuthenticationInfo();
    std::string user = request.GetUserName();
    if (!services_.accounts->CheckPassword(user, credentials ? credentials->password : "")) {
        return pages.SendLoginRefused();
    }
    if (action == "Login" && user.empty()) return pages.SendLoginRefused();
    if (action == "Logout") return pages.SendLogoutPage();
    if (CgiRequestProcessor::Handles(path, *services_.config, *services_.mounts)) {
        return CgiRequestProcessor({.config = services_.config,
                                    .mounts = services_.mounts,
                                    .page = PageContext(),
                                    .server_port = services_.port()})
            .Process(request);
    }

    std::string selected;
    if ((request.GetFormParameter("selectedFiles", selected) ||
         request.GetQueryParameter("selectedFiles", selected)) &&
        !IsValidSelection(selected)) {
        return pages.SendRedirect(Concat({"/", NormalizeRequestPath(path)}));
    }
    DispatchMounted(request, pages, user.empty() ? AccountManager::kAnonymous : user);
}

void KorvelHttpRequestHandler::DispatchMounted(HttpRequest& request, HtmlPageSender& pages,
                                               const std::string& user) {
    const std::string& path = request.GetPath();
    std::string action = QueryValue(request, "action");
    ListRequestProcessor::Options listing{.config = services_.config,
                                          .mounts = services_.mounts,
                                          .page = PageContext(),
                                          .plugins = services_.plugins,
                                          .types = services_.types};
    if (path.empty()) {
        if (!services_.config->canRootAccess) {
            return pages.SendErrorPage(403, "Forbidden",
                                       Translate("루트 폴더에 접근할 수 없습니다."));
        }
        if (IsSubdirRequest(request, action)) {
            return SendSubdirs(request, services_, user, PageContext());
        }
        if (action == "Search") return SendSearchResults(request, services_, user, PageContext());
        return ListRequestProcessor(std::move(listing)).SendList(request);
    }
    std::string mount(MountNameOf(path));
    bool show_hidden = services_.config->showHiddenFiles;
    // What is not listed is not shared either: hidden names and half-received uploads
    // are missing to visitors, whatever they ask of them.
    if (!services_.mounts->GetMount(mount) || !IsVisiblePath(path, show_hidden)) {
        return SendNotFound(pages);
    }
    std::optional<uint32_t> rights = services_.accounts->GetRights(user, mount);
    if (!rights) return pages.SendLoginRefused();

    if (IsSubdirRequest(request, action)) {
        if ((*rights & kRightList) == 0) return pages.SendLoginRefused();
        return SendSubdirs(request, services_, user, PageContext());
    }
    if (action == "Search") {
        if ((*rights & kRightList) == 0) return pages.SendLoginRefused();
        return SendSearchResults(request, services_, user, PageContext());
    }
    if (action == "Plugin") return RunPlugin(request, pages, user, *rights);
    if (AdminRequestProcessor::IsAction(action) && request.GetMethod() == HttpMethod::kPost) {
        if ((*rights & kRightAdmin) == 0) return pages.SendLoginRefused();
        return AdminRequestProcessor({.mounts = services_.mounts,
                                      .page = PageContext(),
                                      .show_hidden = show_hidden,
                                      .user = user})
            .Run(request, action);
    }
    if (action == "tus") {
        if ((*rights & kRightUpload) == 0) return pages.SendLoginRefused();
        return TusRequestProcessor({.mounts = services_.mounts,
                                    .progress = services_.uploads,
                                    .show_hidden = show_hidden,
                                    .now = std::time(nullptr)})
            .Process(request);
    }
    if (action == "Zip") return SendZip(request, pages, *rights);
    if (request.GetMethod() == HttpMethod::kPost && request.IsMultipart()) {
        if ((*rights & kRightUpload) == 0) return pages.SendLoginRefused();
        return UploadRequestProcessor(*services_.mounts, *services_.uploads, PageContext(),
                                      show_hidden)
            .ReceiveFile(request);
    }
    if (action == "MakeDirectory") {
        if ((*rights & kRightUpload) == 0) return pages.SendLoginRefused();
        return MakeDirectoryRequestProcessor(*services_.mounts, PageContext(), show_hidden)
            .MakeDirectory(request);
    }
    // A path that leads out of its mount through a link is missing, like one that is.
    // errno tells that from a mount folder that could not be opened for want of descriptors.
    errno = 0;
    std::optional<LocalTarget> target = services_.mounts->ResolveTarget(path);
    if (!target) return pages.SendOpenFailure(errno);
    // One open serves both the look at what the path is and the download, which spares
    // every download a second walk of its path. O_NONBLOCK: a FIFO must not hold the open.
    UniqueFd opened = target->Open(O_RDONLY | O_NONBLOCK | O_NOCTTY);
    if (!opened.IsValid() && IsOutOfDescriptors(errno)) return pages.SendOpenFailure(errno);
    struct stat info {};
    bool found = opened.IsValid() ? ::fstat(opened.Get(), &info) == 0 : target->Stat(info);
    if (!found) return pages.SendOpenFailure(errno);
    if (S_ISDIR(info.st_mode)) {
        if ((*rights & kRightList) == 0) return pages.SendLoginRefused();
        listing.rights = *rights;
        listing.local_path = target->local_path;
        listing.target = &*target;
        return ListRequestProcessor(std::move(listing)).SendList(request);
    }
    if ((*rights & kRightDownload) == 0) return pages.SendLoginRefused();
    ServeFile(request, pages, *target, std::move(opened), info);
}

void KorvelHttpRequestHandler::RunPlugin(HttpRequest& request, HtmlPageSender& pages,
                                         const std::string& user, uint32_t rights) {
    const std::string& path = request.GetPath();
    std::shared_ptr<const LoadedPlugin> plugin =
        services_.plugins->Find(QueryValue(request, "plugin"));
    if (!plugin) return SendNotFound(pages);
    uint32_t needed = plugin->GetNeededRights();
    if ((rights & needed) != needed) return pages.SendLoginRefused();
    // Plug-ins answer for folders only.
    std::optional<LocalTarget> target = services_.mounts->ResolveTarget(path);
    struct stat info {};
    if (!target || !target->Stat(info) || !S_ISDIR(info.st_mode)) return SendNotFound(pages);
    CounterToken token;
    if (!AcquireDownloadToken(request, pages, token)) return;
    PluginRequestProcessor(*services_.plugins, pages)
        .Run(request, *plugin,
             {.mounts = services_.mounts,
              .accounts = services_.accounts,
              .user = user == AccountManager::kAnonymous ? std::string() : user,
              .rights = rights,
              .show_hidden = services_.config->showHiddenFiles});
}

bool KorvelHttpRequestHandler::AcquireDownloadToken(HttpRequest& request, HtmlPageSender& pages,
                                                    CounterToken& token) {
    try {
        services_.limits->Acquire(token, request.GetClientAddress());
        return true;
    } catch (const ConnectionCountLimitException& refusal) {
        bool total = refusal.GetLimit() == ConnectionCountLimitException::kTotalLimit;
        pages.SendErrorPage(503, "Service Unavailable",
                            total ? Translate("동시 다운로드 수가 한도에 이르렀습니다.")
                                  : Translate("이 주소의 동시 다운로드 수가 한도에 이르렀습니다."));
        return false;
    }
}

void KorvelHttpRequestHandler::SendZip(HttpRequest& request, HtmlPageSender& pages,
                                       uint32_t rights) {
    // An archive of a folder shows what the folder holds, so it takes the right to list
    // it as well as the right to download.
    constexpr uint32_t kNeeded = kRightList | kRightDownload;
    if ((rights & kNeeded) != kNeeded) return pages.SendLoginRefused();
    errno = 0;
    std::optional<LocalTarget> target = services_.mounts->ResolveTarget(request.GetPath());
    struct stat info {};
    if (!target || !target->Stat(info)) return pages.SendOpenFailure(errno);
    if (!S_ISDIR(info.st_mode)) return SendNotFound(pages);
    CounterToken token;
    if (!AcquireDownloadToken(request, pages, token)) return;
    ZipRequestProcessor(std::move(*target), services_.config->showHiddenFiles).SendZip(request);
}

void KorvelHttpRequestHandler::ServeFile(HttpRequest& request, HtmlPageSender& pages,
                                         const LocalTarget& target, UniqueFd opened,
                                         const struct stat& info) {
    auto file = std::make_unique<TekoFile>();
    // OpenForReading refuses all but files.
    if (!file->OpenForReading(std::move(opened), target.local_path)) {
        return pages.SendErrorPage(500, "Internal Server Error",
                                   Translate("파일을 열지 못했습니다."));
    }
    CounterToken token;
    if (!AcquireDownloadToken(request, pages, token)) return;
    DownloadRequestProcessor(std::move(file), target.local_path, info,
                             {.types = services_.types, .pages = &pages})
        .SendFile(request);
}

}  // namespace Zarn
