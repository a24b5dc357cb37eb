#pragma once

#include "transfer/TransferStatusAggregator.h"

namespace Zarn {

// Keeps nothing and never throttles; the web server's aggregator until the application
// installs its own.
class NullTransferStatusAggregator : public TransferStatusAggregator {
public:
    static constexpr uint64_t kWriteAllowance = 256 * 1024;

    // The process-wide instance; more may be made.
    [[nodiscard]] static NullTransferStatusAggregator& Instance();

    void Unregister(TransferStatusReporter*) override {}
    void SetTotalSize(TransferStatusReporter*, int, uint64_t) override {}
    void SetPosition(TransferStatusReporter*, int, uint64_t) override {}
    void AddTransferred(TransferStatusReporter*, int, uint64_t) override {}
    [[nodiscard]] uint64_t GetTotalSize(TransferStatusReporter*, int) override { return 0; }
    [[nodiscard]] uint64_t GetPosition(TransferStatusReporter*, int) override { return 0; }
    [[nodiscard]] uint64_t GetWriteAllowance(TransferStatusReporter*, int) override {
        return kWriteAllowance;
    }
    [[nodiscard]] std::chrono::milliseconds GetPacingWait(TransferStatusReporter*, int) override {
        return std::chrono::milliseconds(0);
    }
    // A fixed figure, so that nothing computed from it divides by zero.
    [[nodiscard]] uint64_t GetSpeed(TransferStatusReporter*, int) override { return 1000; }
};

}  // namespace Zarn
