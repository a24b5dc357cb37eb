#pragma once

#include <atomic>
#include <memory>
#include <mutex>

namespace Zarn {

class ConsoleEvents;
class KorvelConfig;
class KorvelServer;
class UpdateIPStringThread;

// Works the visitors' address out again, off the console's threads, after the owner
// changed a setting it depends on; hands the result to the server (the status shows it)
// and to every open console as an "address" event. A newer request cancels and replaces
// a run still under way, so the last settings always win. Any thread may call it.
class AddressRefresher {
public:
    // All three must outlive this object.
    AddressRefresher(KorvelConfig& config, KorvelServer& server, ConsoleEvents& events);
    ~AddressRefresher();
    AddressRefresher(const AddressRefresher&) = delete;
    AddressRefresher& operator=(const AddressRefresher&) = delete;

    void Refresh();
    // A run has started and not yet told its result.
    [[nodiscard]] bool IsPending() const { return pending_.load(); }

private:
    void Found(const std::string& address);

    KorvelConfig& config_;
    KorvelServer& server_;
    ConsoleEvents& events_;
    std::mutex mutex_;  // one Refresh at a time
    std::unique_ptr<UpdateIPStringThread> finder_;
    std::atomic<bool> pending_{false};
};

}  // namespace Zarn
