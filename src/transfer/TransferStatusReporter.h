#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>

#include "core/ManualResetEvent.h"
#include "transfer/TransferStatusAggregator.h"

namespace Zarn {

// Ends a transfer that the owner kicked, at its next report.
class TransferKickedException : public std::runtime_error {
public:
    TransferKickedException() : std::runtime_error("Connection was kicked.") {}
};

// What the owner's console shows of a transfer besides its figures.
struct TransferDescription {
    std::string target;
    std::string client_address;
    std::string user_name;
};

// One transfer's link to the aggregator; owned by the request that moves the bytes and
// used by its connection thread. Destruction unregisters the transfer. The description
// may be read from other threads (the aggregator's snapshot for the console).
class TransferStatusReporter {
public:
    // The longest single wait: the aggregator is asked again after it, so that a new share,
    // a kick or a raised limit takes effect soon.
    static constexpr std::chrono::milliseconds kPacingStep{200};

    // Waits for the time given; false when the wait was cut short because the server is
    // stopping.
    using Sleep = std::function<bool(std::chrono::milliseconds)>;

    explicit TransferStatusReporter(TransferStatusAggregator& aggregator)
        : aggregator_(&aggregator) {}
    ~TransferStatusReporter();
    TransferStatusReporter(const TransferStatusReporter&) = delete;
    TransferStatusReporter& operator=(const TransferStatusReporter&) = delete;

    // An event that, once set, ends every pacing wait at once (the server stopping).
    void SetStopEvent(const ManualResetEvent* stop) { stop_ = stop; }
    // Null when the transfer runs outside a server.
    [[nodiscard]] const ManualResetEvent* GetStopEvent() const { return stop_; }
    // Replaces how pacing waits (tests pass time on their own clock); by default the wait
    // is on the stop event, or a plain sleep without one.
    void SetSleep(Sleep sleep) { sleep_ = std::move(sleep); }

    void SetTarget(const std::string& target);
    void SetClientAddress(const std::string& address);
    void SetUserName(const std::string& name);
    [[nodiscard]] TransferDescription GetDescription() const;

    void SetTotalSize(int direction, uint64_t value);
    void SetPosition(int direction, uint64_t value);
    [[nodiscard]] uint64_t GetWriteAllowance(int direction);
    [[nodiscard]] uint64_t GetSpeed(int direction);

    // Counts a chunk that moved, then keeps the speed limit: waits as long as the aggregator
    // says, in steps of at most kPacingStep, and returns at once when the server stops.
    // Throws TransferKickedException for a kicked transfer, also in the middle of a wait.
    void ReportTransferred(int direction, uint64_t count);

private:
    [[nodiscard]] bool Wait(std::chrono::milliseconds wait);

    TransferStatusAggregator* aggregator_;
    const ManualResetEvent* stop_ = nullptr;
    Sleep sleep_;
    mutable std::mutex description_mutex_;
    TransferDescription description_;
};

}  // namespace Zarn
