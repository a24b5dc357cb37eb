#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Zarn {

// Readies the socket layer: SIGPIPE is ignored process-wide, so a write to a vanished peer
// fails as an error instead of ending the process. Always succeeds on Linux.
[[nodiscard]] bool InitializeNetworking();
void CleanupNetworking();

// The IPv4 addresses of the machine's network interfaces that are up, in dotted form,
// loopback addresses last. Replaces the contents of `out`.
void GetHostAddresses(std::vector<std::string>& out);

// The dotted local address of the interface that reaches the host at port 80 (the text
// may carry its own ":port"), or "?.?.?.?" when it cannot be reached.
[[nodiscard]] std::string GetLocalAddressToward(std::string_view host);

// A host text as users type it: blanks, tabs and line breaks around it are dropped, the
// text is cut to 1,023 bytes, and a ":port" suffix overrides the default port (its
// number taken modulo 65,536).
struct HostAndPort {
    std::string host;
    uint16_t port = 0;
};
[[nodiscard]] HostAndPort SplitHostAndPort(std::string_view text, uint16_t default_port);

// A dotted IPv4 address, or else the first IPv4 address the resolver gives for the name.
// False when neither works; the reason is this thread's last socket error.
[[nodiscard]] bool ResolveIPv4(const std::string& host, in_addr& address);

// The dotted text of an address.
[[nodiscard]] std::string DottedAddress(const in_addr& address);

}  // namespace Zarn
