#include "core/AThread.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <system_error>

namespace Zarn {

AThread::~AThread() {
    if (!thread_.joinable()) return;
    if (join_on_destroy_ || !IsRunning()) {
        StopAndJoin();
    } else {
        // The owner chose not to wait: the thread outlives the object, as a thread whose
        // handle is closed would.
        thread_.detach();
    }
}

bool AThread::Start() {
    std::lock_guard lock(start_mutex_);
    if (IsRunning()) return false;
    if (thread_.joinable()) thread_.join();  // a finished run that nobody joined yet
    stop_event_.Reset();
    running_ = true;
    try {
        thread_ = std::thread(&AThread::ThreadMain, this);
    } catch (const std::system_error&) {
        running_ = false;
        return false;
    }
    return true;
}

bool AThread::StartSelfOwned(std::unique_ptr<AThread> thread) {
    thread->SetDeleteOnExit(true);
    if (!thread->Start()) return false;
    (void)thread.release();  // the thread function owns it from here on
    return true;
}

void AThread::Join() {
    if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) thread_.join();
}

void AThread::StopAndJoin() {
    SignalStop();
    Join();
}

void AThread::ThreadMain(AThread* self) {
    // Start may still be assigning thread_; let it finish before anything can touch it.
    { std::lock_guard lock(self->start_mutex_); }
    self->thread_id_ = static_cast<uint32_t>(::syscall(SYS_gettid));
    self->exit_code_ = self->Run();
    if (!self->delete_on_exit_) {
        self->running_ = false;
        return;
    }
    std::unique_ptr<AThread> owned(self);
    owned->join_on_destroy_ = false;
    owned->thread_.detach();
    owned->running_ = false;
}

}  // namespace Zarn
