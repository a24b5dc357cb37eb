#pragma once

#include <functional>
#include <shared_mutex>

namespace Zarn {

// Tells one subscriber (the owner's console) that something changed, the way a posted
// window message would: the callback must only take note and return, never block or do
// the work itself. Any thread may notify; the target may be changed at any time, and once
// SetTarget returns the old callback is no longer running anywhere, so its owner may go.
class MessageNotifier {
public:
    using Callback = std::function<void()>;

    MessageNotifier() = default;
    virtual ~MessageNotifier() = default;
    MessageNotifier(const MessageNotifier&) = delete;
    MessageNotifier& operator=(const MessageNotifier&) = delete;

    // An empty callback stops the notifications.
    void SetTarget(Callback callback);
    void Notify();

private:
    // Shared while a callback runs, so that notifiers do not wait for one another, and
    // taken whole to change the target.
    std::shared_mutex mutex_;
    Callback callback_;
};

}  // namespace Zarn
