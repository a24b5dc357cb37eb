#include "ui/CtlConnection.h"

#include "config/KorvelConfig.h"
#include "core/FileContents.h"
#include "core/PathUtil.h"
#include "core/StringUtil.h"
#include "ui/ConsoleAddressFile.h"
#include "ui/ConsoleToken.h"
#include "ui/OfflineConsole.h"
#include "ui/SingleInstanceLock.h"

namespace Zarn {
namespace {

std::string ReadToken(const std::string& home) {
    std::optional<std::string> text = ReadWholeFile(JoinPath(home, ConsoleToken::kFileName));
    std::string token(Trim(text.value_or("")));
    return ConsoleToken::IsWellFormed(token) ? token : std::string();
}

// The port the running program's console listens on: as it published it, or as mount.ini
// sets it (0 there means a free port, which only the published file tells).
int ConsolePort(const std::string& home) {
    if (std::optional<int> published = ConsoleAddressFile::Read(home)) return *published;
    KorvelConfig config(JoinPath(home, KorvelConfig::kFileName));
    return config.consolePort;
}

}  // namespace

CtlConnection::CtlConnection(ConsoleClient client, std::string token,
                             std::unique_ptr<OfflineConsole> offline)
    : offline_(std::move(offline)), client_(std::move(client)), token_(std::move(token)) {}

CtlConnection::~CtlConnection() = default;

std::unique_ptr<CtlConnection> CtlConnection::Open(const std::string& home, bool need_program,
                                                   Failure& failure, std::string& message) {
    SingleInstanceLock lock;
    bool running = !lock.Acquire(home);
    // A program started with singleInstance off holds no lock but still publishes its
    // port; one that answers the owner's token is running, whatever the lock says.
    bool published = ConsoleAddressFile::Read(home).has_value();
    if (running || published) {
        std::string token = ReadToken(home);
        int port = ConsolePort(home);
        ConsoleClient client(port, token);
        ConsoleClient::Answer answer =
            port > 0 && !token.empty() ? client.Get("status") : ConsoleClient::Answer{};
        if (answer.status == 200) return std::make_unique<CtlConnection>(client, token, nullptr);
        if (running) {
            failure = Failure::kUnreachable;
            message =
                token.empty() ? "no console token in " + home
                : port <= 0   ? "the running program's console port is unknown"
                : answer.status < 0
                    ? "cannot reach the console at 127.0.0.1:" + std::to_string(port)
                : answer.status == 403
                    ? "the console refused the token in " + JoinPath(home, ConsoleToken::kFileName)
                    : "the console answered " + std::to_string(answer.status);
            return nullptr;
        }
    }
    if (need_program) {
        failure = Failure::kNotRunning;
        message = "Korvel Lumidrop is not running with the home folder " + home;
        return nullptr;
    }
    std::unique_ptr<OfflineConsole> offline = OfflineConsole::Open(home, std::move(lock));
    if (!offline) {
        failure = Failure::kUnreachable;
        message = "cannot open the settings of " + home;
        return nullptr;
    }
    ConsoleClient client(offline->GetPort(), offline->GetToken());
    std::string token = offline->GetToken();
    return std::make_unique<CtlConnection>(client, token, std::move(offline));
}

}  // namespace Zarn
