#pragma once

#include <cstdint>
#include <string>

#include "net/Socket.h"
#include "net/TCPSocket.h"

namespace Zarn {

// The listening socket of the web server, on every IPv4 interface or on one address (IPv4
// or IPv6). It is owned by the accept thread; another thread may Close it (or Shutdown it) to end a
// blocked Accept.
class TCPServerSocket : public Socket {
public:
    TCPServerSocket() = default;
    TCPServerSocket(TCPServerSocket&& other) noexcept = default;
    TCPServerSocket& operator=(TCPServerSocket&& other) noexcept = default;

    // `address`: a dotted IPv4 or a textual IPv6 address to listen on alone; empty for every
    // IPv4 interface.
    [[nodiscard]] bool Bind(uint16_t port, const std::string& address = {});
    // A new socket bound to the port and listening. SO_REUSEADDR lets a restart bind at
    // once while old connections linger, yet Linux still refuses a second live listener
    // on the port. On failure nothing stays open and the reason is the thread's last
    // socket error.
    [[nodiscard]] bool Listen(uint16_t port, const std::string& address = {});
    // Port 0 asks the system for a free port; this tells which one it chose (-1 if none).
    [[nodiscard]] int GetLocalPort() const;

    // Moves the next connection into `child`; false (child untouched) on failure.
    [[nodiscard]] bool Accept(TCPSocket& child);

    // The draining close: connections still waiting in the backlog are accepted and
    // closed at once, so that clients that were queued but never served learn it now
    // instead of waiting for their own time-out. Then the listener is closed.
    int Close() override;
};

}  // namespace Zarn
