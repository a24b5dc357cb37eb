#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_map>
#include <vector>

#include "core/CriticalSection.h"
#include "log/MessageNotifier.h"
#include "transfer/SpeedMeter.h"
#include "transfer/TokenBucket.h"
#include "transfer/TransferStatusAggregator.h"
#include "transfer/TransferStatusReporter.h"

namespace Zarn {

// The aggregator of the running server: keeps every transfer's figures and speeds, shares
// the total speed limits evenly among the running transfers of each direction and paces
// each transfer to its share, lets the owner kick a transfer, and notifies the owner's
// console of changes, at most once per 500 ms per transfer unless the transfer's kind
// changed. Any thread may call any operation; one lock guards everything, and the
// console's callback never runs under it.
class GuiTransferStatusAggregator : public TransferStatusAggregator, public MessageNotifier {
public:
    // Milliseconds on a clock that never goes back.
    using Clock = std::function<uint64_t()>;

    static constexpr uint64_t kNotifyIntervalMs = 500;
    static constexpr uint64_t kUnlimitedWriteAllowance = 4 * 1024 * 1024;
    static constexpr uint64_t kMinWriteAllowance = 1024;

    // One direction of a transfer as the console shows it.
    struct Figures {
        uint64_t total_size = 0;
        uint64_t position = 0;
        uint64_t speed = 0;
        int32_t limit = -1;  // bytes per second, negative for none
    };

    // One running transfer as the console shows it, in the order the transfers started.
    struct Transfer {
        uintptr_t id = 0;  // the reporter's address; stable while the transfer runs
        TransferDescription description;
        std::optional<int> kind;  // empty until the transfer sets a position
        Figures download;
        Figures upload;
    };

    // Without a clock, the milliseconds of the steady clock since the process started.
    explicit GuiTransferStatusAggregator(Clock clock = {});

    // The settings' totals in KiB per second, negative for none. Each total is divided
    // evenly among the transfers whose kind is its direction.
    void SetTotalLimits(int upload_kib_per_s, int download_kib_per_s);
    // Makes the transfer's next AddTransferred throw TransferKickedException. False when
    // the reporter is not known, for instance because its transfer has ended.
    [[nodiscard]] bool Kick(TransferStatusReporter* reporter);
    // Calls each reporter's GetDescription under the aggregator's lock.
    [[nodiscard]] std::vector<Transfer> Snapshot();

    void Unregister(TransferStatusReporter* reporter) override;
    void SetTotalSize(TransferStatusReporter* reporter, int direction, uint64_t value) override;
    void SetPosition(TransferStatusReporter* reporter, int direction, uint64_t value) override;
    void AddTransferred(TransferStatusReporter* reporter, int direction, uint64_t count) override;
    // Unknown reporters read as 0, never over their limit or waiting, and with the unlimited
    // allowance.
    [[nodiscard]] uint64_t GetTotalSize(TransferStatusReporter* reporter, int direction) override;
    [[nodiscard]] uint64_t GetPosition(TransferStatusReporter* reporter, int direction) override;
    [[nodiscard]] uint64_t GetWriteAllowance(TransferStatusReporter* reporter,
                                             int direction) override;
    [[nodiscard]] std::chrono::milliseconds GetPacingWait(TransferStatusReporter* reporter,
                                                          int direction) override;
    [[nodiscard]] uint64_t GetSpeed(TransferStatusReporter* reporter, int direction) override;

private:
    struct Record {
        uint64_t total_size = 0;
        uint64_t position = 0;
        SpeedMeter meter;
        // Paces at `limit`; re-based whenever the share changes.
        TokenBucket pacing;
        int32_t limit = -1;
    };

    struct Entry {
        uint64_t serial = 0;
        Record download;  // any direction but kDirectionUpload
        Record upload;
        std::optional<int> kind;
        // A new transfer is shown at once.
        bool changed = true;
        uint64_t last_notified_ms = 0;
        bool kicked = false;
    };

    static Record& RecordOf(Entry& entry, int direction);
    Entry& EntryOf(TransferStatusReporter* reporter);
    Record* FindRecord(TransferStatusReporter* reporter, int direction);
    bool TakeNotification(Entry& entry);
    void ShareLimits();
    static void SetLimit(Record& record, int32_t limit, uint64_t now_ms);
    Figures FiguresOf(Record& record, uint64_t now_ms);

    const Clock clock_;
    CriticalSection lock_;
    std::unordered_map<TransferStatusReporter*, Entry> entries_;
    uint64_t next_serial_ = 0;
    int upload_limit_kib_ = -1;
    int download_limit_kib_ = -1;
};

}  // namespace Zarn
