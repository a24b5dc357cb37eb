#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>

#include "net/Socket.h"

namespace Zarn {

// A datagram socket. One IPv4 address serves as the bound local address, the destination
// of SendTo and the source of the last ReceiveFrom. Used by one thread.
class UDPSocket : public Socket {
public:
    // A socket bound to every interface at the port (0: any free port).
    [[nodiscard]] bool Open(uint16_t port);
    // Dotted address first, else the resolver; false when neither works.
    [[nodiscard]] bool SetDestination(const std::string& host, uint16_t port);

    [[nodiscard]] ssize_t SendTo(const void* buffer, size_t length, int flags = 0);
    [[nodiscard]] ssize_t ReceiveFrom(void* buffer, size_t length, int flags = 0);
    // The same, also telling the dotted source address and port.
    [[nodiscard]] ssize_t ReceiveFrom(void* buffer, size_t length, int flags,
                                      std::string& source_ip, uint16_t& source_port);
    // The port the socket is bound to, -1 when it is not.
    [[nodiscard]] int GetLocalPort() const;

private:
    sockaddr_in address_{};
};

}  // namespace Zarn
