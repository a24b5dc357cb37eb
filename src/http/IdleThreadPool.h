#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <vector>

#include "net/TCPSocket.h"

namespace Zarn {

// Where connection threads whose connection has ended wait, for a while, to be handed the
// next accepted connection, so that accepting does not pay for creating a thread. It holds
// no threads, only the places they wait on their own stacks, and a socket only in passing
// from the accept thread to a waiting thread. Any thread may call any operation.
class IdleThreadPool {
public:
    static constexpr size_t kDefaultMaxIdle = 64;
    static constexpr std::chrono::milliseconds kDefaultMaxWait = std::chrono::seconds(30);

    IdleThreadPool() = default;
    IdleThreadPool(const IdleThreadPool&) = delete;
    IdleThreadPool& operator=(const IdleThreadPool&) = delete;

    // At most `max_idle` threads wait at once, each at most `max_wait`; applies to later
    // waits.
    void SetLimits(size_t max_idle, std::chrono::milliseconds max_wait);

    // Hands the socket to the thread that became idle last. True, with `socket` moved out,
    // when a thread took it; false, with `socket` untouched, when none waits or the pool is
    // closed.
    [[nodiscard]] bool Offer(TCPSocket& socket);
    // Waits for a connection to serve. Nothing, at once, when the pool is closed or already
    // holds its most waiting threads; nothing when the wait ends empty-handed. A socket
    // that Offer gave this thread is always returned, even when the wait's time ran out or
    // the pool was closed meanwhile: an offered connection is never lost.
    [[nodiscard]] std::optional<TCPSocket> WaitForConnection();

    // Sends every waiting thread away empty-handed and makes later waits and offers fail
    // at once, until Open.
    void Close();
    void Open();

    [[nodiscard]] size_t GetIdleCount() const;

private:
    struct Waiter {
        std::condition_variable woken;
        std::optional<TCPSocket> socket;
    };

    mutable std::mutex mutex_;      // guards the fields below and the socket of every waiter
    std::vector<Waiter*> waiters_;  // the most recently idle last
    size_t max_idle_ = kDefaultMaxIdle;
    std::chrono::milliseconds max_wait_ = kDefaultMaxWait;
    bool closed_ = false;
};

}  // namespace Zarn
