#pragma once

#include <mutex>
#include <optional>
#include <string>

namespace Zarn {

class BareHttpConnection;

// Asks the check server, the web service that tells this program its public address and
// the newest published revision. Where it lives is a value of the build; a build without
// one never touches the network for these questions. Used by one thread, except Abort.
class CheckServerClient {
public:
    // Bodies are read into a buffer of this size and cut one byte short of it.
    static constexpr size_t kBodyBufferBytes = 200;

    // "host[:port]" of the build's check server; empty when none was configured.
    static std::string BuiltInServer();

    // `server` is "host[:port]" (port 80 by default); empty means none.
    explicit CheckServerClient(std::string server, int timeout_seconds);

    // False when no server is configured; the first such answer of the process logs a
    // notice for the owner.
    [[nodiscard]] bool IsConfigured() const;

    // The body (at most 199 bytes; what came before a break-off) of a GET for the path;
    // nothing when the server cannot be reached or answers with another status than 200.
    // Throws std::runtime_error for a head too long to read.
    [[nodiscard]] std::optional<std::string> Fetch(const std::string& path);

    // Ends a Fetch waiting on the network, now and for good; callable from any thread.
    void Abort();

private:
    std::string server_;
    int timeout_seconds_;
    std::mutex mutex_;
    BareHttpConnection* current_ = nullptr;
    bool aborted_ = false;
};

}  // namespace Zarn
