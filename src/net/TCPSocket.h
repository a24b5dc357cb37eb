#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "net/Socket.h"

namespace Zarn {

// A connected stream socket: an accepted connection or an outgoing one.
// Send and Receive throw socket_exception; everything else reports by its result.
class TCPSocket : public Socket {
public:
    TCPSocket() = default;
    TCPSocket(TCPSocket&& other) noexcept = default;
    TCPSocket& operator=(TCPSocket&& other) noexcept = default;

    [[nodiscard]] bool Create();
    void SetNoDelay();
    // Makes a receive or send that waits longer than this fail with "Connection timed
    // out" (0: wait forever).
    void SetTimeouts(int seconds);

    // One send: returns how many bytes went (possibly fewer than `length`; callers loop).
    // Throws on an error; a length of 0 sends nothing and returns 0. `flags` as send(2)
    // takes them (MSG_MORE: more follows at once).
    int Send(const void* buffer, int length, int flags = 0);
    // One send of two pieces, as if they were one (sendmsg); as Send otherwise.
    int SendPair(std::string_view first, std::string_view second, int flags = 0);
    // Sends every byte, in as many sends as it takes; throws as Send does.
    void SendAll(std::string_view bytes);
    // One receive: returns how many bytes came (at least 1). Throws "Connection closed"
    // when the peer has closed its side, the error's text on an error.
    int Receive(void* buffer, int length);
    // Receives until `length` bytes have come or a receive gives less than 1 byte.
    // Never throws; returns the count gathered.
    int ReceiveAll(void* buffer, int length, int flags = 0);

    // Blocks until data, a close or an error can be read.
    [[nodiscard]] bool WaitReadable();
    // The same with a time limit; false when it passes first.
    [[nodiscard]] bool WaitReadable(std::chrono::milliseconds timeout);

    // Connects to "host" or "host:port" (see SplitHostAndPort). False, never throwing,
    // when the socket is not valid, the name cannot be resolved or the connect fails.
    [[nodiscard]] bool Connect(const std::string& host, uint16_t default_port);

    // Address (dotted IPv4, or IPv6 text such as "::1") and port of the peer / of this
    // end; false (outputs untouched) when
    // the socket cannot tell.
    [[nodiscard]] bool GetPeerAddress(std::string& ip, uint16_t& port) const;
    [[nodiscard]] bool GetLocalAddress(std::string& ip, uint16_t& port) const;
    [[nodiscard]] std::string GetPeerIp() const;
};

}  // namespace Zarn
