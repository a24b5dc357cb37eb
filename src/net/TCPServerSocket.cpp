#include "net/TCPServerSocket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "net/SocketError.h"

namespace Zarn {
namespace {

bool IsIPv6(const std::string& address) {
    return address.find(':') != std::string::npos;
}

}  // namespace

bool TCPServerSocket::Bind(uint16_t port, const std::string& interface_address) {
    if (IsIPv6(interface_address)) {
        sockaddr_in6 address{};
        address.sin6_family = AF_INET6;
        address.sin6_port = htons(port);
        if (::inet_pton(AF_INET6, interface_address.c_str(), &address.sin6_addr) != 1) {
            SetLastSocketError(10049);  // the address is not available
            return false;
        }
        if (::bind(GetHandle(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            RecordSocketErrno();
            return false;
        }
        return true;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (!interface_address.empty() &&
        ::inet_pton(AF_INET, interface_address.c_str(), &address.sin_addr) != 1) {
        SetLastSocketError(10049);  // the address is not available
        return false;
    }
    address.sin_port = htons(port);
    if (::bind(GetHandle(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        RecordSocketErrno();
        return false;
    }
    return true;
}

bool TCPServerSocket::Listen(uint16_t port, const std::string& address) {
    bool v6 = IsIPv6(address);
    Attach(::socket(v6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!IsValid()) {
        RecordSocketErrno();
        return false;
    }
    int on = 1;
    ::setsockopt(GetHandle(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    // An IPv6 listener hears IPv6 alone, so that it can share its port with the IPv4 one.
    if (v6) ::setsockopt(GetHandle(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
    int code = 0;
    if (!Bind(port, address)) {
        code = LastSocketError();
    } else if (::listen(GetHandle(), SOMAXCONN) != 0) {
        code = RecordSocketErrno();
    } else {
        return true;
    }
    Socket::Close();
    SetLastSocketError(code);
    return false;
}

int TCPServerSocket::GetLocalPort() const {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (::getsockname(GetHandle(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return -1;
    }
    if (address.ss_family == AF_INET6) {
        return ntohs(reinterpret_cast<const sockaddr_in6*>(&address)->sin6_port);
    }
    return ntohs(reinterpret_cast<const sockaddr_in*>(&address)->sin_port);
}

bool TCPServerSocket::Accept(TCPSocket& child) {
    int handle;
    do {
        handle = ::accept4(GetHandle(), nullptr, nullptr, SOCK_CLOEXEC);
    } while (handle < 0 && errno == EINTR);
    if (handle < 0) {
        RecordSocketErrno();
        return false;
    }
    child.Attach(handle);
    return true;
}

int TCPServerSocket::Close() {
    if (!IsValid()) return kInvalidHandle;
    SetNonBlocking();
    for (;;) {
        int queued = ::accept4(GetHandle(), nullptr, nullptr, SOCK_CLOEXEC);
        if (queued < 0) {
            // A client that gave up while queued is no reason to leave the rest waiting.
            if (errno == ECONNABORTED || errno == EINTR) continue;
            break;
        }
        ::close(queued);
    }
    // close(2) alone does not wake an accept() blocked in another thread: that call keeps
    // the socket alive, listening on the port, until a client happens to connect.
    Shutdown();
    return Socket::Close();
}

}  // namespace Zarn
