#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "transfer/ConnectionCountLimitManager.h"

namespace Zarn {
namespace {

constexpr int kAccepted = -1;
constexpr int kTotal = ConnectionCountLimitException::kTotalLimit;
constexpr int kPerAddress = ConnectionCountLimitException::kPerAddressLimit;

// kAccepted, or the limit that refused the download.
int Acquire(ConnectionCountLimitManager& manager, CounterToken& token, const std::string& address) {
    try {
        manager.Acquire(token, address);
        return kAccepted;
    } catch (const ConnectionCountLimitException& refused) {
        EXPECT_FALSE(token.IsHeld());
        return refused.GetLimit();
    }
}

TEST(ConnectionCountLimitManagerTest, RefusesWithTheLimitReachedAndALoweredLimitEndsNone) {
    ConnectionCountLimitManager manager;
    manager.SetTotalLimit(true, 2);
    manager.SetPerAddressLimit(true, 1);
    CounterToken a, b, c;
    EXPECT_EQ(Acquire(manager, a, "10.0.0.1"), kAccepted);
    EXPECT_EQ(Acquire(manager, b, "10.0.0.1"), kPerAddress);
    EXPECT_EQ(Acquire(manager, b, "10.0.0.2"), kAccepted);
    EXPECT_EQ(Acquire(manager, c, "10.0.0.1"), kTotal);

    manager.SetPerAddressLimit(false, 0);
    manager.SetTotalLimit(true, 3);
    ASSERT_EQ(Acquire(manager, c, "10.0.0.1"), kAccepted);
    manager.SetTotalLimit(true, 2);
    CounterToken late;
    EXPECT_EQ(Acquire(manager, late, "10.0.0.9"), kTotal);
    EXPECT_TRUE(a.IsHeld() && b.IsHeld() && c.IsHeld());
    a.Release();
    EXPECT_EQ(Acquire(manager, late, "10.0.0.9"), kTotal);
    b.Release();
    EXPECT_EQ(Acquire(manager, late, "10.0.0.9"), kAccepted);
}

// How the addresses' slots are kept is the concurrent test's to check, by their count at the
// end; here, what a token does with its place.
TEST(ConnectionCountLimitManagerTest, ATokenFreesItsOwnPlaceFirstAndAMovedOneHoldsItOnce) {
    ConnectionCountLimitManager manager;
    manager.SetTotalLimit(true, 1);
    {
        CounterToken token;
        ASSERT_EQ(Acquire(manager, token, "10.0.0.1"), kAccepted);
        EXPECT_EQ(Acquire(manager, token, "10.0.0.2"), kAccepted);
        CounterToken moved = std::move(token);
        EXPECT_EQ(manager.GetTotalCount(), 1);
    }
    EXPECT_EQ(manager.GetTotalCount(), 0);
}

TEST(ConnectionCountLimitManagerTest, ConcurrentDownloadsLeaveNoCountsBehind) {
    ConnectionCountLimitManager manager;
    manager.SetTotalLimit(true, 6);
    manager.SetPerAddressLimit(true, 2);
    std::atomic<int> accepted{0};
    std::atomic<int> over_limit{0};
    std::vector<std::thread> threads;
    for (unsigned thread_index = 0; thread_index < 8; ++thread_index) {
        threads.emplace_back([&, thread_index] {
            std::mt19937 random(thread_index);
            std::vector<CounterToken> held(3);
            for (int i = 0; i < 3000; ++i) {
                CounterToken& token = held[random() % held.size()];
                if (Acquire(manager, token, "10.0.0." + std::to_string(random() % 5)) == kAccepted)
                    ++accepted;
                if (manager.GetTotalCount() > 6) ++over_limit;
                if (random() % 4 == 0) token.Release();
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_GT(accepted.load(), 0);
    EXPECT_EQ(over_limit.load(), 0);
    EXPECT_EQ(manager.GetTotalCount(), 0);
    EXPECT_EQ(manager.GetSlotCount(), 0u);
}

}  // namespace
}  // namespace Zarn
