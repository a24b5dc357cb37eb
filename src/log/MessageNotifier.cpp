#include "log/MessageNotifier.h"

namespace Zarn {

void MessageNotifier::SetTarget(Callback callback) {
    std::lock_guard lock(mutex_);
    callback_ = std::move(callback);
}

void MessageNotifier::Notify() {
    Callback callback;
    {
        std::lock_guard lock(mutex_);
        callback = callback_;
    }
    if (callback) callback();
}

}  // namespace Zarn
