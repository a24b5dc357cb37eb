#pragma once

#include "transfer/TransferStatusAggregator.h"

namespace Zarn {

// Keeps nothing and never throttles; the web server's aggregator until the application
// installs its own.
class NullTransferStatusAggregator : public TransferStatusAggregator {
public:
    // The process-wide instance; more may be made.
    [[nodiscard]] static NullTransferStatusAggregator& Instance();

    void Unregister(TransferStatusReporter*) override {}
    void SetTotalSize(TransferStatusReporter*, int, uint64_t) override {}
    void SetTransferred(TransferStatusReporter*, int, uint64_t) override {}
    void AddTransferred(TransferStatusReporter*, int, uint64_t) override {}
    void SetTarget(TransferStatusReporter*, const std::string&) override {}
    void SetClientAddress(TransferStatusReporter*, const std::string&) override {}
    void SetUserName(TransferStatusReporter*, const std::string&) override {}
    [[nodiscard]] bool IsOverLimit(TransferStatusReporter*, int) override { return false; }
    // A fixed figure, so that nothing computed from it divides by zero.
    [[nodiscard]] uint64_t GetSpeed(TransferStatusReporter*, int) override { return 1000; }
};

}  // namespace Zarn
