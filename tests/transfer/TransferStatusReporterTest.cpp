#include <gtest/gtest.h>

#include <chrono>

#include "core/ManualResetEvent.h"
#include "transfer/GuiTransferStatusAggregator.h"
#include "transfer/NullTransferStatusAggregator.h"
#include "transfer/TransferStatusReporter.h"

namespace Zarn {
namespace {

// Always over the limit; counts how often it was asked.
class ThrottlingAggregator : public NullTransferStatusAggregator {
public:
    bool IsOverLimit(TransferStatusReporter*, int) override {
        ++questions;
        return true;
    }
    int questions = 0;
};

// Takes the full 24 waits of 200 ms: the bound itself is what is tested.
TEST(TransferStatusReporterTest, WaitsAtMostTwentyFourTimesForOneChunk) {
    ThrottlingAggregator throttling;
    TransferStatusReporter reporter(throttling);
    auto started = std::chrono::steady_clock::now();
    reporter.ReportTransferred(kDirectionDownload, 1);
    auto waited = std::chrono::steady_clock::now() - started;
    EXPECT_EQ(throttling.questions, 24);
    EXPECT_GE(waited, 24 * TransferStatusReporter::kThrottleWait);
    EXPECT_LT(waited, 24 * TransferStatusReporter::kThrottleWait + std::chrono::seconds(2));
}

TEST(TransferStatusReporterTest, StopEventEndsTheLimitWaitAtOnce) {
    uint64_t now_ms = 0;
    GuiTransferStatusAggregator aggregator([&] { return now_ms; });
    aggregator.SetTotalLimits(-1, 0);
    ManualResetEvent stop;
    stop.Set();
    TransferStatusReporter reporter(aggregator);
    reporter.SetStopEvent(&stop);
    reporter.SetPosition(kDirectionDownload, 0);
    reporter.ReportTransferred(kDirectionDownload, 4096);
    now_ms += 10;
    ASSERT_TRUE(reporter.IsOverLimit(kDirectionDownload));

    auto started = std::chrono::steady_clock::now();
    reporter.ReportTransferred(kDirectionDownload, 4096);
    EXPECT_LT(std::chrono::steady_clock::now() - started, TransferStatusReporter::kThrottleWait);
}

}  // namespace
}  // namespace Zarn
