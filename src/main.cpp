#include <malloc.h>
#include <pthread.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "background/UpdateIPStringThread.h"
#include "background/VersionCheckThread.h"
#include "config/HomeFolder.h"
#include "config/KorvelConfig.h"
#include "core/PathUtil.h"
#include "core/TekoFile.h"
#include "core/UrlCodec.h"
#include "core/Version.h"
#include "i18n/LocalizationStringTable.h"
#include "i18n/Translate.h"
#include "log/CrashReporter.h"
#include "log/Log.h"
#include "log/LogQueue.h"
#include "log/LogWriter.h"
#include "net/Networking.h"
#include "net/SocketError.h"
#include "server/KorvelServer.h"
#include "server/ShippedPluginInstaller.h"
#include "skin/SkinManager.h"
#include "ui/CommandLine.h"
#include "ui/ConsoleAddressFile.h"
#include "ui/ConsoleServer.h"
#include "ui/ConsoleToken.h"
#include "ui/CtlCommand.h"
#include "ui/DataFileReloader.h"
#include "ui/FirstRunSetup.h"
#include "ui/InitCommand.h"
#include "ui/LogHistory.h"
#include "ui/ServiceCommand.h"
#include "ui/SingleInstanceLock.h"
#include "ui/SystemdNotifier.h"

namespace {

using namespace Zarn;

bool AddCommandLineMounts(const CommandLine& line, MountManager& mounts) {
    for (const auto& [name, path] : line.mounts) {
        struct stat info {};
        std::string local = MakeAbsolutePath(path);
        if (::stat(local.c_str(), &info) != 0) {
            std::fprintf(stderr, "lumidrop: cannot mount %s: %s does not exist\n", name.c_str(),
                         local.c_str());
            return false;
        }
        Mount mount{.name = name, .local_path = local, .is_folder = S_ISDIR(info.st_mode)};
        bool saved =
            mounts.GetMount(name) ? mounts.ModifyMount(name, mount) : mounts.AddMount(mount);
        if (!saved) std::fprintf(stderr, "lumidrop: the mount %s was not saved\n", name.c_str());
    }
    return true;
}

// The second start on a home folder points the owner to the running program's console
// instead, when that program has published where it listens.
int ReportRunningInstance(const std::string& home) {
    std::fprintf(stderr, "lumidrop: Korvel Lumidrop is already running with the home folder %s\n",
                 home.c_str());
    std::optional<int> port = ConsoleAddressFile::Read(home);
    std::optional<std::string> token = ConsoleToken::LoadOrCreate(home);
    if (port && token) {
        std::printf("Owner's console: http://127.0.0.1:%d/?token=%s\n", *port, token->c_str());
    }
    return 1;
}

// Waits for a stop signal; a SIGHUP in between reloads the data files.
void WaitForStop(const sigset_t& signals, DataFileReloader& reloader, SystemdNotifier& notifier,
                 const std::function<std::string()>& status) {
    for (;;) {
        int received = 0;
        if (sigwait(&signals, &received) != 0 || received != SIGHUP) return;
        notifier.Reloading();
        (void)reloader.Reload();
        notifier.Ready(status());
    }
}

int Serve(const CommandLine& line) {
    // A file-size limit must fail the one write that crosses it, as a full disk does, not
    // end the whole server; start-up already writes (the shipped plug-ins' libraries).
    ::signal(SIGXFSZ, SIG_IGN);
    // Whoever reads the start-up lines may go away (a script that read the address); a
    // later line to them must fail, not end the server.
    ::signal(SIGPIPE, SIG_IGN);

    std::string home = HomeFolder::Resolve(line.home);
    std::string settings_path = JoinPath(home, KorvelConfig::kFileName);
    bool fresh = TekoFile::GetFileSize(settings_path) == TekoFile::kInvalidSize;
    KorvelConfig config(settings_path);
    if (fresh) {
        config.uiLanguageFile = FirstRunSetup::LanguageFromLocale();
        (void)config.Save();
    }
    SingleInstanceLock instance;
    if (config.singleInstance && !instance.Acquire(home)) return ReportRunningInstance(home);

    LogQueue log_queue;
    LogWriter log_writer({.home = home, .queue = &log_queue, .write_file = [&config] {
                              return config.writeLog.load();
                          }});
    log_writer.Install();
    CrashReporter::Install(home);
    SetLogMask(kDefaultLogMask);
    SetDefaultUrlCodepage(config.defaultUrlCodepage);
    LocalizationStringTable::InstallShippedLanguages(home);
    (void)ShippedPluginInstaller::Install(home);
    LocalizationStringTable::Instance().LoadLanguage(home, config.uiLanguageFile);
    for (const std::string& report : CrashReporter::MentionReports(home))
        LogTranslated(kLogNotice, "지난 실행이 비정상 종료되었습니다. 보고서: %s", report.c_str());
    SkinManager::Instance().LoadAll(home, config.defaultSkin);

    // Every thread started from here on inherits the blocked signals; only sigwait below
    // receives them.
    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGINT);
    sigaddset(&stop_signals, SIGTERM);
    sigaddset(&stop_signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

    KorvelServer server(config, SkinManager::Instance(), home);
    // What start-up has logged so far reaches standard error before this function's own
    // messages do, so that they read in the order they happened.
    log_writer.Flush();
    if (server.GetMounts().HadLoadProblems()) {
        std::fprintf(stderr, "lumidrop: some mounts in %s could not be read and were skipped\n",
                     settings_path.c_str());
    }
    if (!AddCommandLineMounts(line, server.GetMounts())) return 2;
    server.GetAccounts().ApplyPendingRights();
    // Sharing the owner stopped stays stopped at the next launch, unless this very command
    // line asks for a port or a share.
    bool serve = fresh || config.wasRunning || line.port || !line.mounts.empty();
    int port = line.port.value_or(config.port);
    bool listening = serve && server.Start(port);
    if (serve && !listening) {
        int code = LastSocketError();
        log_writer.Flush();
        std::fprintf(stderr, "lumidrop: cannot listen on port %d: %s%s\n", port, ErrorText(code),
                     code == 10013 || code == 10048 ? " (choose another port with --port N)" : "");
        // A new home has no sharing to keep yet, and its owner picks the port in the
        // console's first-run wizard (port 80, the default, is for root alone).
        if (!fresh) return 1;
    }
    // The start-up line waits for the address (the check server's time-outs bound it);
    // the revision check runs on beside the server.
    std::unique_ptr<VersionCheckThread> version_check;
    if (config.useVersionCheck) {
        version_check = std::make_unique<VersionCheckThread>();
        if (!version_check->Start()) version_check.reset();
    }
    UpdateIPStringThread address_finder({.config = &config});
    if (address_finder.Start()) address_finder.Join();
    server.SetDisplayAddress(address_finder.GetAddress());
    if (listening) {
        std::printf("%s listening on http://%s:%d/\n", kProductName,
                    server.GetDisplayAddress().c_str(), server.GetPort());
    } else if (serve) {
        std::printf("%s: sharing is not started yet; choose its port in the owner's console\n",
                    kProductName);
    } else {
        std::printf("%s: sharing is stopped, as it was left; start it from the owner's console\n",
                    kProductName);
    }
    std::fflush(stdout);

    // The owner's console. Without it the visitors are still served: another program
    // holding its port (a second home, say) is no reason to stop sharing.
    LogHistory log_history(log_queue);
    std::optional<std::string> token = ConsoleToken::LoadOrCreate(home);
    ConsoleServer console({.token = token.value_or(""),
                           .port = {},
                           .api = {.config = &config,
                                   .server = &server,
                                   .log = &log_history,
                                   .new_home = fresh,
                                   .newer_revision = [&version_check] {
                                       return version_check ? version_check->GetNewerRevision() : 0;
                                   }}});
    int console_port = line.console_port.value_or(config.consolePort);
    if (token && console.Start(console_port)) {
        // Published before the line is printed: whoever read the line may at once start a
        // second program or a `ctl` command that looks for the file.
        (void)ConsoleAddressFile::Publish(home, console.GetPort());
        std::printf("Owner's console: http://127.0.0.1:%d/?token=%s\n", console.GetPort(),
                    token->c_str());
        std::fflush(stdout);
    } else {
        int code = LastSocketError();
        log_writer.Flush();
        std::fprintf(stderr, "lumidrop: the owner's console cannot listen on port %d: %s\n",
                     console_port, token ? ErrorText(code) : "no console.token could be made");
        // Stopped sharing without a console would be a program nobody can reach.
        if (!listening) return 1;
    }

    SystemdNotifier notifier = SystemdNotifier::FromEnvironment();
    // Told again after each reload: the owner may have stopped or moved the listener since.
    auto status = [&server, &console] {
        int port_now = server.GetPort();
        std::string text = port_now >= 0 ? "Sharing on port " + std::to_string(port_now)
                                         : std::string("Sharing stopped");
        if (console.GetPort() > 0) {
            text +=
                "; owner's console on http://127.0.0.1:" + std::to_string(console.GetPort()) + "/";
        }
        return text;
    };
    notifier.Ready(status());
    DataFileReloader reloader(config, server, SkinManager::Instance(), home);
    WaitForStop(stop_signals, reloader, notifier, status);
    notifier.Stopping();
    bool was_running = server.GetPort() >= 0;
    console.Stop();
    ConsoleAddressFile::Withdraw(home);
    server.Stop();
    CriticalSectionLock hold(config.GetLock());
    config.wasRunning = was_running;
    (void)config.Save();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    // Transfer buffers of up to 1 MiB, one per running upload, are mapped and given back to
    // the system when freed. Left to itself, glibc raises its mapping threshold once the
    // first such buffer is freed and serves the later ones from the per-thread arenas,
    // where they stay resident after their request: an hour of mixed load then grew the
    // program by a tenth while less than 4 MB of it was in use.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    if (argc > 1 && std::strcmp(argv[1], "ctl") == 0) {
        return Zarn::CtlCommand::Run(std::vector<std::string>(argv + 2, argv + argc));
    }
    if (argc > 1 && std::strcmp(argv[1], "init") == 0) {
        return Zarn::InitCommand::Run(
            std::vector<std::string>(argv + 2, argv + argc),
            {.find_address = [](Zarn::KorvelConfig& config) {
                return Zarn::UpdateIPStringThread({.config = &config}).ComputeAddress();
            }});
    }
    if (argc > 1 && std::strcmp(argv[1], "service") == 0)
        return Zarn::ServiceCommand::Run(argc, argv);
    std::string error;
    std::optional<Zarn::CommandLine> line =
        Zarn::CommandLine::Parse(std::vector<std::string>(argv + 1, argv + argc), error);
    if (!line) {
        std::fprintf(stderr, "lumidrop: %s (try --help)\n", error.c_str());
        return 2;
    }
    if (line->show_help) {
        std::fputs(Zarn::CommandLine::HelpText().c_str(), stdout);
        return 0;
    }
    if (line->show_version) {
        std::printf("%s %s (revision %d)\n", Zarn::kProductName, Zarn::kVersionText,
                    Zarn::kRevision);
        return 0;
    }
    return Serve(*line);
}
