#include "net/TCPSocket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>

#include "net/Networking.h"
#include "net/SocketError.h"
#include "net/socket_exception.h"

namespace Zarn {
namespace {

using AddressQuery = int (*)(int, sockaddr*, socklen_t*);

bool QueryAddress(AddressQuery query, int handle, std::string& ip, uint16_t& port) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (query(handle, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        RecordSocketErrno();
        return false;
    }
    if (address.ss_family == AF_INET6) {
        const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address);
        char text[INET6_ADDRSTRLEN] = {};
        if (::inet_ntop(AF_INET6, &v6.sin6_addr, text, sizeof text) == nullptr) return false;
        ip = text;
        port = ntohs(v6.sin6_port);
        return true;
    }
    if (address.ss_family != AF_INET) return false;
    const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
    ip = DottedAddress(v4.sin_addr);
    port = ntohs(v4.sin_port);
    return true;
}

bool WaitForInput(int handle, int timeout_ms) {
    pollfd entry{handle, POLLIN, 0};
    int ready;
    do {
        ready = ::poll(&entry, 1, timeout_ms);
    } while (ready < 0 && errno == EINTR);
    if (ready < 0) RecordSocketErrno();
    return ready > 0 && (entry.revents & (POLLIN | POLLHUP | POLLERR)) != 0;
}

// On a blocking socket "would block" means the send or receive time-out ran out.
[[noreturn]] void ThrowTimedOutOrLastError() {
    if (errno == EAGAIN || errno == EWOULDBLOCK) SetLastSocketError(10060);
    throw socket_exception();
}

}  // namespace

bool TCPSocket::Create() {
    Attach(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!IsValid()) RecordSocketErrno();
    return IsValid();
}

void TCPSocket::SetNoDelay() {
    int on = 1;
    if (::setsockopt(GetHandle(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0) {
        RecordSocketErrno();
    }
}

void TCPSocket::SetTimeouts(int seconds) {
    timeval timeout{seconds, 0};
    if (::setsockopt(GetHandle(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0 ||
        ::setsockopt(GetHandle(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout) != 0) {
        RecordSocketErrno();
    }
}

int TCPSocket::Send(const void* buffer, int length, int flags) {
    if (length <= 0) return 0;
    ssize_t sent;
    do {
        sent = RawSend(buffer, static_cast<size_t>(length), flags);
    } while (sent < 0 && errno == EINTR);
    if (sent <= 0) {
        ThrowTimedOutOrLastError();
    }
    return static_cast<int>(sent);
}

int TCPSocket::SendPair(std::string_view first, std::string_view second, int flags) {
    iovec pieces[2] = {{const_cast<char*>(first.data()), first.size()},
                       {const_cast<char*>(second.data()), second.size()}};
    msghdr message{};
    message.msg_iov = pieces;
    message.msg_iovlen = 2;
    ssize_t sent;
    do {
        sent = ::sendmsg(GetHandle(), &message, flags | MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    if (sent <= 0) {
        if (sent < 0) RecordSocketErrno();
        ThrowTimedOutOrLastError();
    }
    return static_cast<int>(sent);
}

void TCPSocket::SendAll(std::string_view bytes) {
    while (!bytes.empty()) {
        int chunk = static_cast<int>(std::min<size_t>(bytes.size(), 1 << 30));
        bytes.remove_prefix(static_cast<size_t>(Send(bytes.data(), chunk)));
    }
}

int TCPSocket::Receive(void* buffer, int length) {
    if (length <= 0) return 0;
    ssize_t got;
    do {
        got = RawReceive(buffer, static_cast<size_t>(length), 0);
    } while (got < 0 && errno == EINTR);
    if (got == 0) throw socket_exception("Connection closed");
    if (got < 0) ThrowTimedOutOrLastError();
    return static_cast<int>(got);
}

int TCPSocket::ReceiveAll(void* buffer, int length, int flags) {
    if (length < 1) return 0;
    auto* out = static_cast<char*>(buffer);
    int total = 0;
    while (total < length) {
        ssize_t got = RawReceive(out + total, static_cast<size_t>(length - total), flags);
        if (got < 0 && errno == EINTR) continue;
        if (got < 1) break;
        total += static_cast<int>(got);
    }
    return total;
}

bool TCPSocket::WaitReadable() {
    return WaitForInput(GetHandle(), -1);
}

bool TCPSocket::WaitReadable(std::chrono::milliseconds timeout) {
    return WaitForInput(GetHandle(), static_cast<int>(timeout.count()));
}

bool TCPSocket::Connect(const std::string& host, uint16_t default_port) {
    if (!IsValid()) return false;
    HostAndPort target = SplitHostAndPort(host, default_port);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(target.port);
    if (!ResolveIPv4(target.host, address.sin_addr)) return false;
    int result =
        ::connect(GetHandle(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    if (result != 0) RecordSocketErrno();
    return result == 0;
}

bool TCPSocket::GetPeerAddress(std::string& ip, uint16_t& port) const {
    return QueryAddress(::getpeername, GetHandle(), ip, port);
}

bool TCPSocket::GetLocalAddress(std::string& ip, uint16_t& port) const {
    return QueryAddress(::getsockname, GetHandle(), ip, port);
}

std::string TCPSocket::GetPeerIp() const {
    std::string ip;
    uint16_t port = 0;
    return GetPeerAddress(ip, port) ? ip : std::string();
}

}  // namespace Zarn
