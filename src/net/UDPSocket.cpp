#include "net/UDPSocket.h"

#include <sys/socket.h>

#include "net/Networking.h"
#include "net/SocketError.h"

namespace Zarn {

bool UDPSocket::Open(uint16_t port) {
    Attach(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!IsValid()) {
        RecordSocketErrno();
        return false;
    }
    address_ = {};
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_ANY);
    address_.sin_port = htons(port);
    if (::bind(GetHandle(), reinterpret_cast<const sockaddr*>(&address_), sizeof address_) != 0) {
        int code = RecordSocketErrno();
        Close();
        SetLastSocketError(code);
        return false;
    }
    return true;
}

bool UDPSocket::SetDestination(const std::string& host, uint16_t port) {
    sockaddr_in destination{};
    destination.sin_family = AF_INET;
    destination.sin_port = htons(port);
    if (!ResolveIPv4(host, destination.sin_addr)) return false;
    address_ = destination;
    return true;
}

ssize_t UDPSocket::SendTo(const void* buffer, size_t length, int flags) {
    ssize_t sent = ::sendto(GetHandle(), buffer, length, flags | MSG_NOSIGNAL,
                            reinterpret_cast<const sockaddr*>(&address_), sizeof address_);
    if (sent < 0) RecordSocketErrno();
    return sent;
}

ssize_t UDPSocket::ReceiveFrom(void* buffer, size_t length, int flags) {
    socklen_t address_length = sizeof address_;
    ssize_t got = ::recvfrom(GetHandle(), buffer, length, flags,
                             reinterpret_cast<sockaddr*>(&address_), &address_length);
    if (got < 0) RecordSocketErrno();
    return got;
}

ssize_t UDPSocket::ReceiveFrom(void* buffer, size_t length, int flags, std::string& source_ip,
                               uint16_t& source_port) {
    ssize_t got = ReceiveFrom(buffer, length, flags);
    if (got >= 0) {
        source_ip = DottedAddress(address_.sin_addr);
        source_port = ntohs(address_.sin_port);
    }
    return got;
}

int UDPSocket::GetLocalPort() const {
    sockaddr_in local{};
    socklen_t length = sizeof local;
    if (::getsockname(GetHandle(), reinterpret_cast<sockaddr*>(&local), &length) != 0) return -1;
    return ntohs(local.sin_port);
}

}  // namespace Zarn
