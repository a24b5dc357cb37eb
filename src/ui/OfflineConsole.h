#pragma once

#include <memory>
#include <string>

#include "config/KorvelConfig.h"
#include "log/LogQueue.h"
#include "ui/LogHistory.h"
#include "ui/SingleInstanceLock.h"

namespace Zarn {

class ConsoleServer;
class KorvelServer;

// The console's interface for a home folder on which no program runs, so that the
// command line edits mount.ini through the very code that validates, applies and saves a
// running program's changes. Holds the home's single-instance lock for its whole life,
// so no program starts on the home and writes the file meanwhile. The registries are
// built from mount.ini as a starting program builds them; the visitors' listener is never
// started, and the interface is served on a free loopback port to the owner's token only.
class OfflineConsole {
public:
    // Nothing when the console cannot listen or no token can be had.
    [[nodiscard]] static std::unique_ptr<OfflineConsole> Open(const std::string& home,
                                                              SingleInstanceLock lock);
    // For Open alone; the key keeps everyone else from building a half-made console.
    class Key {
        friend class OfflineConsole;
        Key() = default;
    };
    OfflineConsole(Key, const std::string& home, SingleInstanceLock lock);
    ~OfflineConsole();
    OfflineConsole(const OfflineConsole&) = delete;
    OfflineConsole& operator=(const OfflineConsole&) = delete;

    [[nodiscard]] int GetPort() const;
    [[nodiscard]] const std::string& GetToken() const { return token_; }

private:
    SingleInstanceLock lock_;  // first: released after everything else is gone
    KorvelConfig config_;
    LogQueue log_queue_;
    LogHistory log_history_;
    std::string token_;
    std::unique_ptr<KorvelServer> server_;
    std::unique_ptr<ConsoleServer> console_;  // last: it stops before what it serves goes
};

}  // namespace Zarn
