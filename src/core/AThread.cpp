#include "core/AThread.h"

#include <sys/syscall.h>
#include <unistd.h>

#include "core/AlternateSignalStack.h"

namespace Zarn {

AThread::~AThread() {
    if (!joinable_) return;
    if (join_on_destroy_ || !IsRunning()) {
        StopAndJoin();
    } else {
        // The owner chose not to wait: the thread outlives the object, as a thread whose
        // handle is closed would.
        ::pthread_detach(thread_);
        joinable_ = false;
    }
}

bool AThread::Start() {
    std::lock_guard lock(start_mutex_);
    if (IsRunning()) return false;
    Join();  // a finished run that nobody joined yet
    stop_event_.Reset();
    running_ = true;
    // A small stack: a server runs a thread per connection, and a small stack stays in
    // the C library's cache of stacks instead of being mapped anew for every connection.
    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    ::pthread_attr_setstacksize(&attributes, kStackBytes);
    int created = ::pthread_create(&thread_, &attributes, &AThread::ThreadMain, this);
    ::pthread_attr_destroy(&attributes);
    if (created != 0) {
        running_ = false;
        return false;
    }
    joinable_ = true;
    return true;
}

bool AThread::StartSelfOwned(std::unique_ptr<AThread> thread) {
    thread->SetDeleteOnExit(true);
    if (!thread->Start()) return false;
    (void)thread.release();  // the thread function owns it from here on
    return true;
}

void AThread::Join() {
    if (!joinable_ || ::pthread_equal(thread_, ::pthread_self())) return;
    ::pthread_join(thread_, nullptr);
    joinable_ = false;
}

void AThread::StopAndJoin() {
    SignalStop();
    Join();
}

void* AThread::ThreadMain(void* argument) {
    auto* self = static_cast<AThread*>(argument);
    // Start may still be recording the thread; let it finish before anything can touch it.
    { std::lock_guard lock(self->start_mutex_); }
    // A connection thread that overflows its small stack still gets a crash report.
    AlternateSignalStack signal_stack;
    self->thread_id_ = static_cast<uint32_t>(::syscall(SYS_gettid));
    self->exit_code_ = self->Run();
    if (!self->delete_on_exit_) {
        self->running_ = false;
        return nullptr;
    }
    std::unique_ptr<AThread> owned(self);
    owned->join_on_destroy_ = false;
    ::pthread_detach(owned->thread_);
    owned->joinable_ = false;
    owned->running_ = false;
    return nullptr;
}

}  // namespace Zarn
