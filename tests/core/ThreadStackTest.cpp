#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <thread>
#include <vector>

#include "core/ThreadStack.h"

namespace Zarn {
namespace {

constexpr size_t kDeepBytes = 64 * 1024;

// Touches every page of a large frame below the caller; returns where the frame lay.
[[gnu::noinline]] uintptr_t TouchDeepStack() {
    volatile char deep[kDeepBytes];
    for (size_t i = 0; i < kDeepBytes; i += 256)
        deep[i] = 1;
    return reinterpret_cast<uintptr_t>(&deep[0]);
}

size_t ResidentPages(uintptr_t from, size_t pages) {
    const auto page = static_cast<uintptr_t>(::sysconf(_SC_PAGESIZE));
    std::vector<unsigned char> resident(pages);
    if (::mincore(reinterpret_cast<void*>(from & ~(page - 1)), pages * page, resident.data()) != 0)
        return SIZE_MAX;
    size_t count = 0;
    for (unsigned char bits : resident)
        count += bits & 1;
    return count;
}

TEST(ThreadStackTest, GivesBackThePagesBelowTheCallerAndKeepsItsFrame) {
    std::jthread([] {
        volatile int kept = 42;
        // The middle of the deep frame: whole pages, well below this one.
        const uintptr_t deep = TouchDeepStack() + kDeepBytes / 4;
        const size_t pages = kDeepBytes / 2 / static_cast<size_t>(::sysconf(_SC_PAGESIZE));
        EXPECT_EQ(ResidentPages(deep, pages), pages);
        ThreadStack::ReleaseUnusedPages();
        EXPECT_EQ(ResidentPages(deep, pages), 0u);
        EXPECT_EQ(kept, 42);
    });
}

}  // namespace
}  // namespace Zarn
