#pragma once

#include <cstddef>

namespace Zarn {

// A signal stack for the calling thread while the object lives, so that a fault caused by
// running out of the thread's own stack (runaway recursion, say) can still run a handler that
// reports it. Made and destroyed on the thread it serves. A thread that already has one (a
// sanitizer gives every thread its own) keeps it and this object does nothing.
class AlternateSignalStack {
public:
    // The crash handler unwinds the stack and resolves symbols on it; the kernel's minimum
    // leaves no room for that.
    static constexpr size_t kBytes = 64 * 1024;

    AlternateSignalStack();
    ~AlternateSignalStack();
    AlternateSignalStack(const AlternateSignalStack&) = delete;
    AlternateSignalStack& operator=(const AlternateSignalStack&) = delete;

    // Whether this object put its stack in place (false when one was there already or no
    // memory could be had).
    [[nodiscard]] bool IsInstalled() const { return mapping_ != nullptr; }

private:
    void* mapping_ = nullptr;  // a guard page, then the stack
    size_t mapped_bytes_ = 0;
};

}  // namespace Zarn
