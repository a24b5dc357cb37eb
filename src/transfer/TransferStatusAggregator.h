#pragma once

#include <cstdint>
#include <string>

namespace Zarn {

class TransferStatusReporter;

// Direction of a transfer: what the server sends, and what it receives.
inline constexpr int kDirectionDownload = 0;
inline constexpr int kDirectionUpload = 1;

// Collects the figures of every running transfer, each known by its reporter, and
// decides whether a transfer runs over its speed limit. Implementations are shared by
// every connection thread and lock inside.
class TransferStatusAggregator {
public:
    virtual ~TransferStatusAggregator() = default;

    virtual void Unregister(TransferStatusReporter* reporter) = 0;
    virtual void SetTotalSize(TransferStatusReporter* reporter, int direction, uint64_t value) = 0;
    // Also makes the direction the transfer's kind.
    virtual void SetTransferred(TransferStatusReporter* reporter, int direction,
                                uint64_t value) = 0;
    // Records a speed sample of the bytes just moved.
    virtual void AddTransferred(TransferStatusReporter* reporter, int direction,
                                uint64_t count) = 0;
    virtual void SetTarget(TransferStatusReporter* reporter, const std::string& target) = 0;
    virtual void SetClientAddress(TransferStatusReporter* reporter, const std::string& address) = 0;
    virtual void SetUserName(TransferStatusReporter* reporter, const std::string& name) = 0;
    [[nodiscard]] virtual bool IsOverLimit(TransferStatusReporter* reporter, int direction) = 0;
    // Bytes per second.
    [[nodiscard]] virtual uint64_t GetSpeed(TransferStatusReporter* reporter, int direction) = 0;
};

}  // namespace Zarn
