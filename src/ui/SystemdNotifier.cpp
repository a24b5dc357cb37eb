#include "ui/SystemdNotifier.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "core/UniqueFd.h"

namespace Zarn {

SystemdNotifier SystemdNotifier::FromEnvironment() {
    const char* path = std::getenv(kVariable);
    return SystemdNotifier(path != nullptr ? path : "");
}

bool SystemdNotifier::Ready(std::string_view status) {
    std::string state = "READY=1\nSTATUS=";
    // The status is one line of the message; a line break in it would start a new key.
    for (char c : status)
        state += c == '\n' ? ' ' : c;
    return Notify(state);
}

bool SystemdNotifier::Reloading() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    unsigned long long microseconds =
        static_cast<unsigned long long>(now.tv_sec) * 1000000ULL + now.tv_nsec / 1000;
    return Notify("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(microseconds));
}

bool SystemdNotifier::Stopping() {
    return Notify("STOPPING=1");
}

bool SystemdNotifier::Notify(std::string_view state) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socket_path_.size() < 2 || socket_path_.size() >= sizeof address.sun_path) return false;
    if (socket_path_[0] != '/' && socket_path_[0] != '@') return false;
    std::memcpy(address.sun_path, socket_path_.data(), socket_path_.size());
    // An abstract socket's name starts with a NUL byte and has no terminator, so its
    // length is part of the address.
    if (address.sun_path[0] == '@') address.sun_path[0] = '\0';
    socklen_t length =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket_path_.size());
    UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket.IsValid()) return false;
    ssize_t sent = ::sendto(socket.Get(), state.data(), state.size(), MSG_NOSIGNAL,
                            reinterpret_cast<const sockaddr*>(&address), length);
    return sent == static_cast<ssize_t>(state.size());
}

}  // namespace Zarn
