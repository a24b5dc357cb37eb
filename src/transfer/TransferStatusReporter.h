#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "core/ManualResetEvent.h"
#include "transfer/TransferStatusAggregator.h"

namespace Zarn {

// One transfer's link to the aggregator; owned by the request that moves the bytes and
// used by its connection thread only. Destruction unregisters the transfer.
class TransferStatusReporter {
public:
    static constexpr int kMaxThrottleWaits = 24;
    static constexpr std::chrono::milliseconds kThrottleWait{200};

    explicit TransferStatusReporter(TransferStatusAggregator& aggregator)
        : aggregator_(&aggregator) {}
    ~TransferStatusReporter();
    TransferStatusReporter(const TransferStatusReporter&) = delete;
    TransferStatusReporter& operator=(const TransferStatusReporter&) = delete;

    // An event that, once set, ends every throttling wait at once (the server stopping).
    void SetStopEvent(const ManualResetEvent* stop) { stop_ = stop; }

    void SetTotalSize(int direction, uint64_t value);
    void SetTransferred(int direction, uint64_t value);
    void SetTarget(const std::string& target);
    void SetClientAddress(const std::string& address);
    void SetUserName(const std::string& name);
    [[nodiscard]] bool IsOverLimit(int direction);
    [[nodiscard]] uint64_t GetSpeed(int direction);

    // Counts a chunk that moved, then keeps the speed limit: while the aggregator says
    // the transfer is over it, waits 200 ms, at most 24 times for one chunk.
    void ReportTransferred(int direction, uint64_t count);

private:
    TransferStatusAggregator* aggregator_;
    const ManualResetEvent* stop_ = nullptr;
};

}  // namespace Zarn
