#include "http/IdleThreadPool.h"

#include <algorithm>

namespace Zarn {

void IdleThreadPool::SetLimits(size_t max_idle, std::chrono::milliseconds max_wait) {
    std::lock_guard lock(mutex_);
    max_idle_ = max_idle;
    max_wait_ = max_wait;
}

bool IdleThreadPool::Offer(TCPSocket& socket) {
    std::lock_guard lock(mutex_);
    if (closed_ || waiters_.empty()) return false;
    // The thread idle the shortest time takes it; those idle longest are left to time out,
    // so the pool shrinks to what the traffic needs.
    Waiter* waiter = waiters_.back();
    waiters_.pop_back();
    waiter->socket = std::move(socket);
    waiter->woken.notify_one();
    return true;
}

std::optional<TCPSocket> IdleThreadPool::WaitForConnection() {
    std::unique_lock lock(mutex_);
    if (closed_ || waiters_.size() >= max_idle_) return std::nullopt;
    Waiter waiter;
    waiters_.push_back(&waiter);
    // Offer takes a waiter off the list and fills its socket under this same lock, so once
    // the lock is back the socket tells the whole truth, however late the wake-up came: a
    // time-out that raced an offer still finds the socket and serves it.
    (void)waiter.woken.wait_for(lock, max_wait_,
                                [&] { return waiter.socket.has_value() || closed_; });
    std::erase(waiters_, &waiter);
    return std::move(waiter.socket);
}

void IdleThreadPool::Close() {
    std::lock_guard lock(mutex_);
    closed_ = true;
    for (Waiter* waiter : waiters_)
        waiter->woken.notify_one();
    waiters_.clear();
}

void IdleThreadPool::Open() {
    std::lock_guard lock(mutex_);
    closed_ = false;
}

size_t IdleThreadPool::GetIdleCount() const {
    std::lock_guard lock(mutex_);
    return waiters_.size();
}

}  // namespace Zarn
