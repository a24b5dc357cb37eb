#include "transfer/ConnectionCountLimitManager.h"

#include <algorithm>

namespace Zarn {

void ConnectionCountLimitManager::SetTotalLimit(bool enabled, int limit) {
    CriticalSectionLock lock(lock_);
    total_limit_ = enabled ? limit : kNoLimit;
}

void ConnectionCountLimitManager::SetPerAddressLimit(bool enabled, int limit) {
    CriticalSectionLock lock(lock_);
    per_address_limit_ = enabled ? limit : kNoLimit;
}

void ConnectionCountLimitManager::Acquire(CounterToken& token, const std::string& address) {
    token.Release();
    CriticalSectionLock lock(lock_);
    if (total_count_ >= total_limit_)
        throw ConnectionCountLimitException(ConnectionCountLimitException::kTotalLimit);

    auto found = std::find_if(slots_.begin(), slots_.end(),
                              [&](const Slot& slot) { return slot.address == address; });
    if (found == slots_.end()) {
        slots_.push_back({address, 0});
        found = slots_.end() - 1;
    }
    // A slot just appended stays when refused; the next release at the end removes it.
    if (found->count >= per_address_limit_)
        throw ConnectionCountLimitException(ConnectionCountLimitException::kPerAddressLimit);

    ++total_count_;
    ++found->count;
    HandOut(token, static_cast<int>(found - slots_.begin()));
}

void ConnectionCountLimitManager::Release(int slot) {
    CriticalSectionLock lock(lock_);
    if (total_count_ > 0) --total_count_;
    if (slot >= 0 && static_cast<size_t>(slot) < slots_.size()) --slots_[slot].count;
    while (!slots_.empty() && slots_.back().count <= 0)
        slots_.pop_back();
}

int ConnectionCountLimitManager::GetTotalLimit() {
    CriticalSectionLock lock(lock_);
    return total_limit_;
}

int ConnectionCountLimitManager::GetPerAddressLimit() {
    CriticalSectionLock lock(lock_);
    return per_address_limit_;
}

int ConnectionCountLimitManager::GetTotalCount() {
    CriticalSectionLock lock(lock_);
    return total_count_;
}

size_t ConnectionCountLimitManager::GetSlotCount() {
    CriticalSectionLock lock(lock_);
    return slots_.size();
}

}  // namespace Zarn
