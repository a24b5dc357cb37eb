#include "transfer/GuiTransferStatusAggregator.h"

#include <algorithm>
#include <chrono>
#include <limits>

namespace Zarn {
namespace {

const std::chrono::steady_clock::time_point kProcessStart = std::chrono::steady_clock::now();

uint64_t MillisecondsSinceStart() {
    auto elapsed = std::chrono::steady_clock::now() - kProcessStart;
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
}

bool RunsUpload(int kind) {
    return kind == kDirectionUpload;
}

// Each of `transfers` gets an even part of the total, so that together they stay near it.
// Only a total of 0 gives a share of 0, which holds the transfers until the total changes.
int32_t ShareOf(int total_kib_per_s, int transfers) {
    if (total_kib_per_s < 0 || transfers == 0) return -1;
    int64_t share = int64_t{total_kib_per_s} * 1024 / transfers;
    if (total_kib_per_s > 0) share = std::max<int64_t>(share, 1);
    return static_cast<int32_t>(std::min<int64_t>(share, std::numeric_limits<int32_t>::max()));
}

}  // namespace

GuiTransferStatusAggregator::GuiTransferStatusAggregator(Clock clock)
    : clock_(clock ? std::move(clock) : Clock(MillisecondsSinceStart)) {}

void GuiTransferStatusAggregator::SetTotalLimits(int upload_kib_per_s, int download_kib_per_s) {
    CriticalSectionLock lock(lock_);
    upload_limit_kib_ = upload_kib_per_s;
    download_limit_kib_ = download_kib_per_s;
    ShareLimits();
}

bool GuiTransferStatusAggregator::Kick(TransferStatusReporter* reporter) {
    CriticalSectionLock lock(lock_);
    auto found = entries_.find(reporter);
    if (found == entries_.end()) return false;
    found->second.kicked = true;
    return true;
}

std::vector<GuiTransferStatusAggregator::Transfer> GuiTransferStatusAggregator::Snapshot() {
    CriticalSectionLock lock(lock_);
    std::vector<std::pair<TransferStatusReporter*, Entry*>> started;
    started.reserve(entries_.size());
    for (auto& [reporter, entry] : entries_)
        started.emplace_back(reporter, &entry);
    std::sort(started.begin(), started.end(),
              [](const auto& a, const auto& b) { return a.second->serial < b.second->serial; });

    uint64_t now = clock_();
    std::vector<Transfer> transfers;
    transfers.reserve(started.size());
    for (auto [reporter, entry] : started) {
        // An entry exists only until its reporter's destructor unregisters it, which waits
        // for this lock, so the reporter is alive here.
        transfers.push_back({.id = reinterpret_cast<uintptr_t>(reporter),
                             .description = reporter->GetDescription(),
                             .kind = entry->kind,
                             .download = FiguresOf(entry->download, now),
                             .upload = FiguresOf(entry->upload, now)});
    }
    return transfers;
}

void GuiTransferStatusAggregator::Unregister(TransferStatusReporter* reporter) {
    {
        CriticalSectionLock lock(lock_);
        if (entries_.erase(reporter) == 0) return;
        ShareLimits();
    }
    // The console drops the row now rather than at some other transfer's next change.
    Notify();
}

void GuiTransferStatusAggregator::SetTotalSize(TransferStatusReporter* reporter, int direction,
                                               uint64_t value) {
    bool notify = false;
    {
        CriticalSectionLock lock(lock_);
        Entry& entry = EntryOf(reporter);
        RecordOf(entry, direction).total_size = value;
        notify = TakeNotification(entry);
    }
    if (notify) Notify();
}

void GuiTransferStatusAggregator::SetPosition(TransferStatusReporter* reporter, int direction,
                                              uint64_t value) {
    bool notify = false;
    {
        CriticalSectionLock lock(lock_);
        Entry& entry = EntryOf(reporter);
        RecordOf(entry, direction).position = value;
        if (entry.kind != direction) {
            entry.kind = direction;
            entry.changed = true;
            ShareLimits();
        }
        notify = TakeNotification(entry);
    }
    if (notify) Notify();
}

void GuiTransferStatusAggregator::AddTransferred(TransferStatusReporter* reporter, int direction,
                                                 uint64_t count) {
    CriticalSectionLock lock(lock_);
    Entry& entry = EntryOf(reporter);
    if (entry.kicked) throw TransferKickedException();
    Record& record = RecordOf(entry, direction);
    uint64_t now = clock_();
    record.meter.Add(count, now);
    record.pacing.Take(count, now);
}

uint64_t GuiTransferStatusAggregator::GetTotalSize(TransferStatusReporter* reporter,
                                                   int direction) {
    CriticalSectionLock lock(lock_);
    const Record* record = FindRecord(reporter, direction);
    return record != nullptr ? record->total_size : 0;
}

uint64_t GuiTransferStatusAggregator::GetPosition(TransferStatusReporter* reporter, int direction) {
    CriticalSectionLock lock(lock_);
    const Record* record = FindRecord(reporter, direction);
    return record != nullptr ? record->position : 0;
}

uint64_t GuiTransferStatusAggregator::GetWriteAllowance(TransferStatusReporter* reporter,
                                                        int direction) {
    CriticalSectionLock lock(lock_);
    const Record* record = FindRecord(reporter, direction);
    if (record == nullptr || record->limit < 0) return kUnlimitedWriteAllowance;
    // A fifth of a second's worth keeps each write short of the next limit test, so the
    // speed swings little around the limit; tiny writes would waste system calls.
    return std::max<uint64_t>(kMinWriteAllowance, static_cast<uint64_t>(record->limit) / 5);
}

std::chrono::milliseconds GuiTransferStatusAggregator::GetPacingWait(
    TransferStatusReporter* reporter, int direction) {
    CriticalSectionLock lock(lock_);
    auto found = entries_.find(reporter);
    if (found == entries_.end()) return std::chrono::milliseconds(0);
    if (found->second.kicked) throw TransferKickedException();
    uint64_t wait = RecordOf(found->second, direction).pacing.GetWaitMs(clock_());
    return std::chrono::milliseconds(
        std::min<uint64_t>(wait, std::numeric_limits<std::chrono::milliseconds::rep>::max()));
}

uint64_t GuiTransferStatusAggregator::GetSpeed(TransferStatusReporter* reporter, int direction) {
    CriticalSectionLock lock(lock_);
    Record* record = FindRecord(reporter, direction);
    return record != nullptr ? record->meter.Speed(clock_()) : 0;
}

GuiTransferStatusAggregator::Record& GuiTransferStatusAggregator::RecordOf(Entry& entry,
                                                                           int direction) {
    return RunsUpload(direction) ? entry.upload : entry.download;
}

GuiTransferStatusAggregator::Entry& GuiTransferStatusAggregator::EntryOf(
    TransferStatusReporter* reporter) {
    auto [found, inserted] = entries_.try_emplace(reporter);
    if (inserted) found->second.serial = next_serial_++;
    return found->second;
}

GuiTransferStatusAggregator::Record* GuiTransferStatusAggregator::FindRecord(
    TransferStatusReporter* reporter, int direction) {
    auto found = entries_.find(reporter);
    return found != entries_.end() ? &RecordOf(found->second, direction) : nullptr;
}

bool GuiTransferStatusAggregator::TakeNotification(Entry& entry) {
    uint64_t now = clock_();
    if (!entry.changed && now <= entry.last_notified_ms + kNotifyIntervalMs) return false;
    entry.changed = false;
    entry.last_notified_ms = now;
    return true;
}

// Only a transfer whose kind is a direction counts as running in it and gets a part of
// that direction's total; its other record stays unlimited.
void GuiTransferStatusAggregator::ShareLimits() {
    int downloads = 0;
    int uploads = 0;
    for (const auto& [reporter, entry] : entries_) {
        if (!entry.kind) continue;
        ++(RunsUpload(*entry.kind) ? uploads : downloads);
    }
    int32_t download_share = ShareOf(download_limit_kib_, downloads);
    int32_t upload_share = ShareOf(upload_limit_kib_, uploads);
    uint64_t now = clock_();
    for (auto& [reporter, entry] : entries_) {
        bool upload = entry.kind && RunsUpload(*entry.kind);
        bool download = entry.kind && !upload;
        SetLimit(entry.download, download ? download_share : -1, now);
        SetLimit(entry.upload, upload ? upload_share : -1, now);
    }
}

void GuiTransferStatusAggregator::SetLimit(Record& record, int32_t limit, uint64_t now_ms) {
    record.limit = limit;
    record.pacing.SetRate(limit, now_ms);
}

GuiTransferStatusAggregator::Figures GuiTransferStatusAggregator::FiguresOf(Record& record,
                                                                            uint64_t now_ms) {
    return {.total_size = record.total_size,
            .position = record.position,
            .speed = record.meter.Speed(now_ms),
            .limit = record.limit};
}

}  // namespace Zarn
