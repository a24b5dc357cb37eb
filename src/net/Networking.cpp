#include "net/Networking.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>

#include <csignal>
#include <memory>

#include "net/SocketError.h"
#include "net/TCPSocket.h"

namespace Zarn {
namespace {

constexpr size_t kMaxHostText = 1023;

struct IfAddrsFree {
    void operator()(ifaddrs* list) const { ::freeifaddrs(list); }
};

struct AddrInfoFree {
    void operator()(addrinfo* list) const { ::freeaddrinfo(list); }
};

int ResolverErrorCode(int gai_error) {
    switch (gai_error) {
        case EAI_NONAME:
            return 11001;
        case EAI_AGAIN:
            return 11002;
        case EAI_FAIL:
            return 11003;
        case EAI_NODATA:
            return 11004;
        default:
            return 11001;
    }
}

uint16_t PortModulo(std::string_view digits) {
    bool negative = !digits.empty() && digits.front() == '-';
    if (!digits.empty() && (digits.front() == '-' || digits.front() == '+')) {
        digits.remove_prefix(1);
    }
    uint32_t value = 0;
    for (char c : digits) {
        if (c < '0' || c > '9') break;
        value = (value * 10 + static_cast<uint32_t>(c - '0')) & 0xFFFF;
    }
    return static_cast<uint16_t>(negative ? (0x10000 - value) & 0xFFFF : value);
}

}  // namespace

bool InitializeNetworking() {
    // Sends pass MSG_NOSIGNAL, but sendfile(2) cannot: a peer that goes away mid-file must
    // end that transfer with an error, never the whole process with SIGPIPE.
    ::signal(SIGPIPE, SIG_IGN);
    return true;
}

void CleanupNetworking() {}

void GetHostAddresses(std::vector<std::string>& out) {
    out.clear();
    ifaddrs* raw = nullptr;
    if (::getifaddrs(&raw) != 0) return;
    std::unique_ptr<ifaddrs, IfAddrsFree> list(raw);
    std::vector<std::string> loopback;
    for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
        if ((entry->ifa_flags & IFF_UP) == 0) continue;
        const auto* address = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr);
        std::string dotted = DottedAddress(address->sin_addr);
        ((entry->ifa_flags & IFF_LOOPBACK) != 0 ? loopback : out).push_back(dotted);
    }
    out.insert(out.end(), loopback.begin(), loopback.end());
}

std::string GetLocalAddressToward(std::string_view host) {
    TCPSocket socket;
    if (!socket.Create() || !socket.Connect(std::string(host), 80)) return "?.?.?.?";
    std::string ip;
    uint16_t port = 0;
    if (!socket.GetLocalAddress(ip, port)) return "?.?.?.?";
    return ip;
}

HostAndPort SplitHostAndPort(std::string_view text, uint16_t default_port) {
    constexpr std::string_view kBlanks = "\r\n\t ";
    size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {"", default_port};
    text = text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
    text = text.substr(0, kMaxHostText);
    size_t colon = text.find(':');
    if (colon == std::string_view::npos) return {std::string(text), default_port};
    return {std::string(text.substr(0, colon)), PortModulo(text.substr(colon + 1))};
}

bool ResolveIPv4(const std::string& host, in_addr& address) {
    if (host.empty()) {
        SetLastSocketError(11001);
        return false;
    }
    if (::inet_aton(host.c_str(), &address) != 0) return true;
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* raw = nullptr;
    int result = ::getaddrinfo(host.c_str(), nullptr, &hints, &raw);
    if (result != 0) {
        SetLastSocketError(ResolverErrorCode(result));
        return false;
    }
    std::unique_ptr<addrinfo, AddrInfoFree> list(raw);
    for (const addrinfo* entry = list.get(); entry != nullptr; entry = entry->ai_next) {
        if (entry->ai_family == AF_INET && entry->ai_addr != nullptr) {
            address = reinterpret_cast<const sockaddr_in*>(entry->ai_addr)->sin_addr;
            return true;
        }
    }
    SetLastSocketError(11004);
    return false;
}

std::string DottedAddress(const in_addr& address) {
    char text[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

}  // namespace Zarn
