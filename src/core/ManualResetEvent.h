#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace Zarn {

// An event that stays signalled until it is reset, so every waiter sees it: the stop
// signal of a thread, and the interruptible sleep of a throttled transfer.
// Any thread may call any operation.
class ManualResetEvent {
public:
    void Set();
    void Reset();
    [[nodiscard]] bool IsSet() const;

    // Blocks until the event is set; returns at once when it already is.
    void Wait() const;
    // True when the event was set within the time, false on time-out.
    [[nodiscard]] bool WaitFor(std::chrono::milliseconds timeout) const;

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    bool set_ = false;
};

}  // namespace Zarn
