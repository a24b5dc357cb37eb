#include "server/UploadProgressTable.h"

#include <chrono>

namespace Zarn {

uint32_t UploadProgressTable::MonotonicTick() {
    auto since_start = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint32_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(since_start).count());
}

void UploadProgressTable::Put(const std::string& key, UploadProgress entry) {
    entry.tick = clock_();
    std::lock_guard hold(mutex_);
    entries_.insert_or_assign(key, std::move(entry));
}

std::optional<UploadProgress> UploadProgressTable::Find(const std::string& key) const {
    std::lock_guard hold(mutex_);
    auto found = entries_.find(key);
    if (found == entries_.end()) return std::nullopt;
    return found->second;
}

void UploadProgressTable::Purge() {
    uint32_t now = clock_();
    std::lock_guard hold(mutex_);
    // Unsigned subtraction keeps the age right across the counter's wrap.
    std::erase_if(entries_,
                  [now](const auto& item) { return now - item.second.tick > kStaleMilliseconds; });
}

size_t UploadProgressTable::Size() const {
    std::lock_guard hold(mutex_);
    return entries_.size();
}

}  // namespace Zarn
