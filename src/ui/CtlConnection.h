#pragma once

#include <memory>
#include <optional>
#include <string>

#include "ui/ConsoleClient.h"

namespace Zarn {

class OfflineConsole;

// Where `lumidrop ctl` sends its requests: the console of the program that runs on the
// home folder, or, when none runs, an offline console over the home's mount.ini that
// holds the single-instance lock until the command is done.
class CtlConnection {
public:
    // Why no connection could be had; the values are the command line's exit codes.
    enum class Failure { kNotRunning = 3, kUnreachable = 4 };

    // `need_program`: the command means nothing without a running program (status,
    // transfers, log...), so no offline console is made. Nothing, with `failure` and
    // `message` (for the owner) filled in, when neither can be had.
    [[nodiscard]] static std::unique_ptr<CtlConnection> Open(const std::string& home,
                                                             bool need_program, Failure& failure,
                                                             std::string& message);
    CtlConnection(ConsoleClient client, std::string token, std::unique_ptr<OfflineConsole> offline);
    ~CtlConnection();
    CtlConnection(const CtlConnection&) = delete;
    CtlConnection& operator=(const CtlConnection&) = delete;

    [[nodiscard]] const ConsoleClient& Client() const { return client_; }
    [[nodiscard]] const std::string& Token() const { return token_; }
    [[nodiscard]] bool IsOffline() const { return offline_ != nullptr; }

private:
    std::unique_ptr<OfflineConsole> offline_;
    ConsoleClient client_;
    std::string token_;
};

}  // namespace Zarn
