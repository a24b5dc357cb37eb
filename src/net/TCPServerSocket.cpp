#include "net/TCPServerSocket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "net/SocketError.h"

namespace Zarn {

bool TCPServerSocket::Bind(uint16_t port, const std::string& interface_address) {
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
    Attach(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!IsValid()) {
        RecordSocketErrno();
        return false;
    }
    int on = 1;
    ::setsockopt(GetHandle(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
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
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (::getsockname(GetHandle(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return -1;
    }
    return ntohs(address.sin_port);
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
