#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "core/ManualResetEvent.h"

namespace Zarn {

// Base of every thread of the program: a derived class supplies Run, which loops until
// its stop event is signalled or its work is done. Start, SignalStop and destruction are
// for one controlling thread; IsRunning may be asked from any thread.
//
// There is no forced termination: a Run that blocks in a socket call is ended by closing
// or shutting down that socket, then joined. A derived class whose Run touches its own
// members must call StopAndJoin() at the start of its destructor, because the base
// destructor runs only after the derived part is gone.
class AThread {
public:
    // Enough for every thread of the program (the deepest keeps a 10 KiB header buffer and
    // a template nested at most 64 deep), with a wide margin for sanitizer builds.
    static constexpr size_t kStackBytes = 1024 * 1024;

    AThread() = default;
    virtual ~AThread();
    AThread(const AThread&) = delete;
    AThread& operator=(const AThread&) = delete;

    virtual uint32_t Run() = 0;

    // False when the thread is already running or cannot be created.
    [[nodiscard]] bool Start();
    // Hands the object to its own thread, which deletes it when Run returns.
    // False (and the object is destroyed here) when the thread cannot start.
    [[nodiscard]] static bool StartSelfOwned(std::unique_ptr<AThread> thread);

    // True from a successful Start until Run has returned.
    [[nodiscard]] bool IsRunning() const { return running_.load(); }
    void SignalStop() { stop_event_.Set(); }
    // Waits for Run to return; does nothing when no thread was started.
    void Join();
    void StopAndJoin();

    [[nodiscard]] uint32_t GetThreadId() const { return thread_id_.load(); }
    [[nodiscard]] uint32_t GetExitCode() const { return exit_code_.load(); }
    void SetDeleteOnExit(bool value) { delete_on_exit_ = value; }
    void SetJoinOnDestroy(bool value) { join_on_destroy_ = value; }

protected:
    [[nodiscard]] bool IsStopSignalled() const { return stop_event_.IsSet(); }
    // Sleeps up to the time; true when the stop event cut the sleep short.
    [[nodiscard]] bool WaitForStop(std::chrono::milliseconds timeout) const {
        return stop_event_.WaitFor(timeout);
    }
    [[nodiscard]] const ManualResetEvent& StopEvent() const { return stop_event_; }

private:
    static void* ThreadMain(void* argument);

    std::mutex start_mutex_;
    pthread_t thread_{};
    bool joinable_ = false;  // a thread was started and not yet joined or detached
    ManualResetEvent stop_event_;
    std::atomic<bool> running_{false};
    std::atomic<uint32_t> thread_id_{0};
    std::atomic<uint32_t> exit_code_{0};
    std::atomic<bool> delete_on_exit_{false};
    std::atomic<bool> join_on_destroy_{true};
};

}  // namespace Zarn
