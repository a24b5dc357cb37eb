#include "core/ManualResetEvent.h"

namespace Zarn {

void ManualResetEvent::Set() {
    {
        std::lock_guard lock(mutex_);
        set_ = true;
    }
    changed_.notify_all();
}

void ManualResetEvent::Reset() {
    std::lock_guard lock(mutex_);
    set_ = false;
}

bool ManualResetEvent::IsSet() const {
    std::lock_guard lock(mutex_);
    return set_;
}

void ManualResetEvent::Wait() const {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return set_; });
}

bool ManualResetEvent::WaitFor(std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [this] { return set_; });
}

}  // namespace Zarn
