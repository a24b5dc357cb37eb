#include "log/MessageNotifier.h"

#include <mutex>

namespace Zarn {

void MessageNotifier::SetTarget(Callback callback) {
    std::unique_lock lock(mutex_);
    callback_ = std::move(callback);
}

void MessageNotifier::Notify() {
    // Called under the lock, not on a copy after it: a copy could still be running when
    // SetTarget returned and the callback's owner was destroyed.
    std::shared_lock lock(mutex_);
    if (callback_) callback_();
}

}  // namespace Zarn
