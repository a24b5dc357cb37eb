#pragma once

#include <string>
#include <string_view>

namespace Zarn {

// Tells the service manager that started the program how it is doing, through the
// datagram socket named in $NOTIFY_SOCKET: ready once it listens, reloading around a
// SIGHUP, stopping at the end. Without that variable (started by hand) every call does
// nothing. Called from the main thread only.
class SystemdNotifier {
public:
    static constexpr char kVariable[] = "NOTIFY_SOCKET";

    // Reads $NOTIFY_SOCKET now: a file system path, or "@name" for the abstract namespace.
    [[nodiscard]] static SystemdNotifier FromEnvironment();
    explicit SystemdNotifier(std::string socket_path) : socket_path_(std::move(socket_path)) {}

    [[nodiscard]] bool IsActive() const { return !socket_path_.empty(); }

    // "READY=1" with a one-line status the manager shows in its status output.
    bool Ready(std::string_view status);
    // "RELOADING=1" with the monotonic time, which a manager waiting for the reload
    // needs to tell this reload from an earlier one.
    bool Reloading();
    bool Stopping();

    // Sends one datagram of "KEY=VALUE" lines. False when no manager listens or the
    // datagram could not be sent; nothing depends on the manager hearing it.
    bool Notify(std::string_view state);

private:
    std::string socket_path_;
};

}  // namespace Zarn
