#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <thread>

#include "core/AThread.h"

namespace Zarn {
namespace {

using namespace std::chrono_literals;

// A thread whose Run is a function given by the test. The body receives the thread so
// that it can reach the protected stop helpers.
class BodyThread : public AThread {
public:
    using Body = std::function<uint32_t(BodyThread&)>;
    explicit BodyThread(Body body) : body_(std::move(body)) {}
    ~BodyThread() override { StopAndJoin(); }

    uint32_t Run() override { return body_(*this); }
    bool WaitForStopFor(std::chrono::milliseconds timeout) const { return WaitForStop(timeout); }
    bool StopSignalled() const { return IsStopSignalled(); }

private:
    Body body_;
};

TEST(AThreadTest, StartsOnceAtATimeStopsALongWaitEarlyAndStartsAgainAfresh) {
    std::atomic<int> runs{0};
    std::atomic<bool> short_wait_signalled{true};
    std::atomic<bool> long_wait_signalled{false};
    std::atomic<bool> restart_began_stopped{false};
    std::promise<void> entered;
    BodyThread thread([&](BodyThread& self) -> uint32_t {
        int run = ++runs;
        if (run > 1) {
            // Not the stop that ended the first run: a new run starts afresh.
            if (self.StopSignalled()) restart_began_stopped = true;
            return static_cast<uint32_t>(run);
        }
        short_wait_signalled = self.WaitForStopFor(1ms);
        entered.set_value();
        long_wait_signalled = self.WaitForStopFor(60s);
        return 7;
    });
    ASSERT_TRUE(thread.Start());
    entered.get_future().wait();
    EXPECT_FALSE(thread.Start());
    EXPECT_TRUE(thread.IsRunning());
    auto signalled_at = std::chrono::steady_clock::now();
    thread.SignalStop();
    thread.Join();
    EXPECT_LT(std::chrono::steady_clock::now() - signalled_at, 30s);
    EXPECT_FALSE(short_wait_signalled.load());
    EXPECT_TRUE(long_wait_signalled.load());
    EXPECT_FALSE(thread.IsRunning());
    EXPECT_EQ(thread.GetExitCode(), 7u);

    ASSERT_TRUE(thread.Start());
    // Run has returned but nobody joined the thread yet; Start has to cope with that.
    while (thread.IsRunning())
        std::this_thread::yield();
    ASSERT_TRUE(thread.Start());
    thread.Join();
    EXPECT_EQ(runs.load(), 3);
    EXPECT_FALSE(restart_began_stopped.load());
    EXPECT_EQ(thread.GetExitCode(), 3u);
}

TEST(AThreadTest, DestroyingRunningThreadReturnsOnlyAfterRunReturned) {
    std::atomic<bool> run_returned{false};
    std::promise<void> entered;
    auto thread = std::make_unique<BodyThread>([&](BodyThread& self) -> uint32_t {
        entered.set_value();
        while (!self.WaitForStopFor(1h)) {
        }
        // Still busy for a moment after the stop, so that a destructor that did not wait
        // would be caught finishing first.
        for (int i = 0; i < 1000; ++i)
            std::this_thread::yield();
        run_returned = true;
        return 0;
    });
    ASSERT_TRUE(thread->Start());
    entered.get_future().wait();
    thread.reset();
    EXPECT_TRUE(run_returned.load());
}

}  // namespace
}  // namespace Zarn
