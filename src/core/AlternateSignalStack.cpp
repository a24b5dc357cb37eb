#include "core/AlternateSignalStack.h"

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

namespace Zarn {

AlternateSignalStack::AlternateSignalStack() {
    stack_t current{};
    if (::sigaltstack(nullptr, &current) != 0 || (current.ss_flags & SS_DISABLE) == 0) return;
    size_t page = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
    size_t bytes = page + kBytes;
    void* mapping = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (mapping == MAP_FAILED) return;
    // Stacks grow down: a handler that overruns this one faults on the guard page (and the
    // process ends) instead of writing over whatever memory lies below.
    (void)::mprotect(mapping, page, PROT_NONE);
    stack_t stack{};
    stack.ss_sp = static_cast<char*>(mapping) + page;
    stack.ss_size = kBytes;
    if (::sigaltstack(&stack, nullptr) != 0) {
        ::munmap(mapping, bytes);
        return;
    }
    mapping_ = mapping;
    mapped_bytes_ = bytes;
}

AlternateSignalStack::~AlternateSignalStack() {
    if (mapping_ == nullptr) return;
    stack_t disable{};
    disable.ss_flags = SS_DISABLE;
    (void)::sigaltstack(&disable, nullptr);
    ::munmap(mapping_, mapped_bytes_);
}

}  // namespace Zarn
