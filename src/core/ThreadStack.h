#pragma once

namespace Zarn {

// The calling thread's stack, for a thread about to wait a long time: the pages its
// deepest calls touched stay resident until the thread ends, so a thread that waits with a
// shallow stack hands them back first. Any thread may call it for its own stack.
class ThreadStack {
public:
    ThreadStack() = delete;

    // Gives the kernel back the pages below the caller's frame; a later call that reaches
    // down there gets fresh zeroed pages, so nothing a running call uses is touched. Does
    // nothing when the stack's bounds cannot be learned.
    static void ReleaseUnusedPages();
};

}  // namespace Zarn
