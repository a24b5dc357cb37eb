#pragma once

#include <sys/types.h>

#include <atomic>
#include <utility>

namespace Zarn {

// Owns one socket descriptor (IPv4 only throughout). Every socket of the program goes
// through these classes; nothing above this layer calls the socket interface itself.
// An object belongs to one thread, except that another thread may Shutdown or Close it
// to end a blocked call.
class Socket {
public:
    using Handle = int;
    static constexpr Handle kInvalidHandle = -1;

    Socket() = default;
    virtual ~Socket();
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    // Closes the socket. Returns kInvalidHandle, doing nothing, when none is open;
    // otherwise the result of close(2).
    virtual int Close();

    // Takes over a handle (closing the one held before).
    void Attach(Handle handle);
    // Gives the handle up without closing it.
    [[nodiscard]] Handle Detach() { return handle_.exchange(kInvalidHandle); }
    [[nodiscard]] Handle GetHandle() const { return handle_.load(); }
    [[nodiscard]] bool IsValid() const { return GetHandle() != kInvalidHandle; }

    void SetNonBlocking();
    // Ends blocked receives and sends on this socket in every thread, without releasing
    // the descriptor (which another thread may still be using).
    void Shutdown();

    // The plain calls: results unchanged, no exceptions, never SIGPIPE.
    [[nodiscard]] ssize_t RawSend(const void* buffer, size_t length, int flags);
    [[nodiscard]] ssize_t RawReceive(void* buffer, size_t length, int flags);

protected:
    Socket(Socket&& other) noexcept : handle_(other.Detach()) {}
    Socket& operator=(Socket&& other) noexcept {
        Attach(other.Detach());
        return *this;
    }

private:
    // Atomic because another thread may close the socket while its owner is in a call.
    std::atomic<Handle> handle_{kInvalidHandle};
};

}  // namespace Zarn
