#include "log/LogQueue.h"

namespace Zarn {

void LogQueue::Push(uint32_t level, std::string line) {
    {
        CriticalSectionLock hold(lock_);
        if (entries_.size() < kCapacity) entries_.push_back({level, std::move(line)});
    }
    Notify();
}

bool LogQueue::Pop(Entry& entry) {
    CriticalSectionLock hold(lock_);
    if (entries_.empty()) return false;
    entry = std::move(entries_.front());
    entries_.pop_front();
    return true;
}

size_t LogQueue::Size() {
    CriticalSectionLock hold(lock_);
    return entries_.size();
}

}  // namespace Zarn
