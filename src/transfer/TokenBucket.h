#pragma once

#include <cstdint>

namespace Zarn {

// Paces one direction of one transfer: an allowance of bytes that refills at the transfer's
// rate and that every byte moved draws on, overdrawn when a write was larger than what was
// left. The transfer waits until the overdraft is paid back, so its rate holds from the first
// byte however its writes fall in time. Not locked: its owner (the aggregator) serialises
// every call.
class TokenBucket {
public:
    // The wait of a transfer that owes bytes at a rate of zero: until the rate changes.
    static constexpr uint64_t kWaitForever = UINT64_MAX;
    // The allowance holds at most this part of a second's worth, so that after a pause the
    // transfer cannot catch up in one burst.
    static constexpr int64_t kBurstsPerSecond = 5;

    // Bytes per second, negative for none. A bucket that gets a rate after having none
    // starts full. A change of rate keeps what is owed, counted in bytes, but no more credit
    // than the new rate allows.
    void SetRate(int64_t bytes_per_second, uint64_t now_ms);
    [[nodiscard]] int64_t GetRate() const { return rate_; }

    // Draws the bytes just moved from the allowance; nothing without a rate.
    void Take(uint64_t bytes, uint64_t now_ms);
    // Milliseconds until the allowance is no longer overdrawn: 0 without a rate or debt.
    [[nodiscard]] uint64_t GetWaitMs(uint64_t now_ms);

private:
    void Refill(uint64_t now_ms);
    [[nodiscard]] int64_t Capacity() const { return rate_ * 1000 / kBurstsPerSecond; }

    int64_t rate_ = -1;
    // In thousandths of a byte, so that a millisecond at r bytes per second adds exactly r
    // and no fraction is lost between two calls.
    int64_t level_ = 0;
    uint64_t stamp_ms_ = 0;
};

}  // namespace Zarn
