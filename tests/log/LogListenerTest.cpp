#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "log/Log.h"
#include "log/MessageNotifier.h"

namespace Zarn {
namespace {

using namespace std::chrono_literals;

// A listener that takes its time over each line and notes any call that reaches it after
// it was replaced: by then its owner may have destroyed it.
struct SlowListener {
    std::atomic<bool> replaced{false};
    std::atomic<int> late_calls{0};

    static void Listen(void* context, uint32_t, const char*) {
        auto* self = static_cast<SlowListener*>(context);
        std::this_thread::sleep_for(2ms);
        if (self->replaced) ++self->late_calls;
    }
};

TEST(LogListenerTest, ReplacingTheListenerWaitsForTheLinesItIsWriting) {
    for (int round = 0; round < 5; ++round) {
        SlowListener listener;
        InstallLogListener(&SlowListener::Listen, &listener);
        std::atomic<bool> stop{false};
        std::thread logger([&] {
            while (!stop)
                Log(kLogError, "line");
        });
        std::this_thread::sleep_for(10ms);
        InstallLogListener(nullptr, nullptr);
        listener.replaced = true;
        stop = true;
        logger.join();
        EXPECT_EQ(listener.late_calls, 0) << "round " << round;
    }
}

// The console's events subscribe to the log's queue the same way, and stop as they are
// destroyed while other threads still log.
TEST(LogListenerTest, ReplacingANotifiersTargetWaitsForTheCallsUnderWay) {
    for (int round = 0; round < 5; ++round) {
        MessageNotifier notifier;
        std::atomic<bool> replaced{false};
        std::atomic<int> late_calls{0};
        notifier.SetTarget([&] {
            std::this_thread::sleep_for(2ms);
            if (replaced) ++late_calls;
        });
        std::atomic<bool> stop{false};
        std::thread notifying([&] {
            while (!stop)
                notifier.Notify();
        });
        std::this_thread::sleep_for(10ms);
        notifier.SetTarget({});
        replaced = true;
        stop = true;
        notifying.join();
        EXPECT_EQ(late_calls, 0) << "round " << round;
    }
}

}  // namespace
}  // namespace Zarn
