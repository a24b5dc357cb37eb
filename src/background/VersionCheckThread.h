#pragma once

#include <atomic>
#include <string>

#include "background/CheckServerClient.h"
#include "core/AThread.h"
#include "http/BareHttpConnection.h"

namespace Zarn {

// Asks the check server, off the calling thread, for the newest published revision and
// tells the owner (a notice at level 16) when it is newer than this program's.
class VersionCheckThread : public AThread {
public:
    explicit VersionCheckThread(std::string check_server = CheckServerClient::BuiltInServer(),
                                int timeout_seconds = BareHttpConnection::kDefaultTimeoutSeconds);
    ~VersionCheckThread() override;

    uint32_t Run() override;
    // Ends a check waiting on the network and the thread with it.
    void Cancel();

    // The newer revision found by the last run; 0 when none was (or none is known yet).
    [[nodiscard]] int GetNewerRevision() const { return newer_revision_.load(); }

private:
    CheckServerClient client_;
    std::atomic<int> newer_revision_{0};
};

}  // namespace Zarn
