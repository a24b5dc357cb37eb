#include <gtest/gtest.h>

#include <thread>

#include "core/CriticalSection.h"

namespace Zarn {
namespace {

TEST(CriticalSectionTest, ExcludesOtherThreadsEvenWhenTakenReentrantly) {
    CriticalSection section;
    int counter = 0;
    constexpr int kRounds = 2000;
    auto work = [&] {
        for (int i = 0; i < kRounds; ++i) {
            CriticalSectionLock outer(section);
            CriticalSectionLock inner(section);
            // A yield between read and write invites the other thread in; only the lock
            // keeps its increment from being lost.
            int seen = counter;
            std::this_thread::yield();
            counter = seen + 1;
        }
    };
    std::thread first(work);
    std::thread second(work);
    first.join();
    second.join();
    EXPECT_EQ(counter, 2 * kRounds);
}

}  // namespace
}  // namespace Zarn
