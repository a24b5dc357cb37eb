#include "core/ThreadStack.h"

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

namespace Zarn {
namespace {

// The lowest address of the calling thread's stack, asked once per thread: the C library
// answers with an allocation and a system call. 0 when it cannot say.
uintptr_t StackBottom() {
    thread_local uintptr_t bottom = [] {
        pthread_attr_t attributes;
        if (::pthread_getattr_np(::pthread_self(), &attributes) != 0) return uintptr_t{0};
        void* address = nullptr;
        size_t size = 0;
        int got = ::pthread_attr_getstack(&attributes, &address, &size);
        ::pthread_attr_destroy(&attributes);
        return got == 0 ? reinterpret_cast<uintptr_t>(address) : uintptr_t{0};
    }();
    return bottom;
}

}  // namespace

void ThreadStack::ReleaseUnusedPages() {
    // Well below this frame: the system call's own wrapper may use the few bytes under the
    // stack pointer while it runs.
    constexpr uintptr_t kCallerMargin = 512;
    const uintptr_t bottom = StackBottom();
    if (bottom == 0) return;
    const auto page = static_cast<uintptr_t>(::sysconf(_SC_PAGESIZE));
    const auto frame = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    const uintptr_t bottom_page = (bottom + page - 1) & ~(page - 1);
    const uintptr_t end = (frame - kCallerMargin) & ~(page - 1);
    if (end <= bottom_page) return;
    // Failure only leaves the pages resident, as they were.
    (void)::madvise(reinterpret_cast<void*>(bottom_page), end - bottom_page, MADV_DONTNEED);
}

}  // namespace Zarn
