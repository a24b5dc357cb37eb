#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "background/CheckServerClient.h"
#include "core/AThread.h"
#include "http/BareHttpConnection.h"

namespace Zarn {

class KorvelConfig;

// Works out, off the calling thread, the address under which the shares can be reached:
// the public address as the check server sees it (when "getPublicIP" is on and it answers
// with something shaped like an address), else the owner's host name ("useHostName"),
// else the preferred network card address, else the machine's first IPv4 address, else
// "?.?.?.?". Runs once per Start.
class UpdateIPStringThread : public AThread {
public:
    struct Options {
        KorvelConfig* config = nullptr;
        std::string check_server = CheckServerClient::BuiltInServer();
        int timeout_seconds = BareHttpConnection::kDefaultTimeoutSeconds;
        // The machine's IPv4 addresses, loopback last.
        std::function<std::vector<std::string>()> local_addresses = DefaultLocalAddresses;
        // Told the address on the thread that found it, unless the run was cancelled.
        std::function<void(const std::string&)> on_found = nullptr;
    };

    explicit UpdateIPStringThread(Options options);
    ~UpdateIPStringThread() override;

    uint32_t Run() override;
    // Ends a check waiting on the network and the thread with it.
    void Cancel();

    // The address found by the last run; empty before the first one ends.
    [[nodiscard]] std::string GetAddress() const;
    // The same work on the calling thread.
    [[nodiscard]] std::string ComputeAddress();

    // Whether a text from the check server can stand as an address: four non-empty
    // dot-separated parts, and only characters of addresses and host names.
    [[nodiscard]] static bool LooksLikeAddress(const std::string& text);

    // The machine's IPv4 addresses, loopback last.
    [[nodiscard]] static std::vector<std::string> DefaultLocalAddresses();

private:
    // The check server's view of this machine's address; nothing on any failure.
    [[nodiscard]] std::optional<std::string> FetchPublicAddress();

    Options options_;
    CheckServerClient client_;
    mutable std::mutex mutex_;
    std::string address_;
};

}  // namespace Zarn
