#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace Zarn {

class TransferStatusReporter;

// Direction of a transfer: what the server sends, and what it receives.
inline constexpr int kDirectionDownload = 0;
inline constexpr int kDirectionUpload = 1;

// Collects the figures of every running transfer, each known by its reporter, and
// decides how long a transfer must wait to keep its speed limit. A transfer's entry is made by
// the first call that names its reporter and removed by Unregister. Implementations are
// shared by every connection thread and lock inside.
class TransferStatusAggregator {
public:
    virtual ~TransferStatusAggregator() = default;

    virtual void Unregister(TransferStatusReporter* reporter) = 0;
    // The size of the whole transfer in this direction.
    virtual void SetTotalSize(TransferStatusReporter* reporter, int direction, uint64_t value) = 0;
    // How far the transfer has come; also makes the direction the transfer's kind.
    virtual void SetPosition(TransferStatusReporter* reporter, int direction, uint64_t value) = 0;
    // Records the bytes just moved, for the speed shown and for pacing. Throws
    // TransferKickedException when the owner has kicked the transfer.
    virtual void AddTransferred(TransferStatusReporter* reporter, int direction,
                                uint64_t count) = 0;
    [[nodiscard]] virtual uint64_t GetTotalSize(TransferStatusReporter* reporter,
                                                int direction) = 0;
    [[nodiscard]] virtual uint64_t GetPosition(TransferStatusReporter* reporter, int direction) = 0;
    // How many bytes the transfer should move in its next write: at least 256 KiB
    // without a limit, about a fifth of a second's worth (at least 1 KiB) with one.
    [[nodiscard]] virtual uint64_t GetWriteAllowance(TransferStatusReporter* reporter,
                                                     int direction) = 0;
    // How long the transfer must wait before it moves more bytes in this direction, so that
    // its bytes since it started keep to its limit; zero when it may go on. Throws
    // TransferKickedException when the owner has kicked the transfer, so that a kick also
    // ends a wait.
    [[nodiscard]] virtual std::chrono::milliseconds GetPacingWait(TransferStatusReporter* reporter,
                                                                  int direction) = 0;
    // Bytes per second over the last five seconds.
    [[nodiscard]] virtual uint64_t GetSpeed(TransferStatusReporter* reporter, int direction) = 0;
};

}  // namespace Zarn
