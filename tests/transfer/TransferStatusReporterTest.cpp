// Pacing as a transfer sees it: the aggregator's clock and the reporter's waits are the
// test's, so seconds of pacing run in no time.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>

#include "transfer/GuiTransferStatusAggregator.h"
#include "transfer/TransferStatusReporter.h"

namespace Zarn {
namespace {

using std::chrono::milliseconds;

class TransferStatusReporterTest : public ::testing::Test {
protected:
    // Makes the reporter's waits pass on the aggregator's clock at once.
    void Pace(TransferStatusReporter& reporter) {
        reporter.SetSleep([this](milliseconds wait) {
            EXPECT_GT(wait.count(), 0);
            EXPECT_LE(wait, TransferStatusReporter::kPacingStep);
            now_ms_ += static_cast<uint64_t>(wait.count());
            waited_ += wait;
            ++steps_;
            if (on_step_) on_step_();
            return true;
        });
    }

    // The injected time the transfer waited to report `bytes` in chunks of `chunk` bytes.
    milliseconds Send(TransferStatusReporter& reporter, uint64_t bytes, uint64_t chunk) {
        milliseconds before = waited_;
        for (uint64_t sent = 0; sent < bytes; sent += chunk)
            reporter.ReportTransferred(kDirectionDownload, chunk);
        return waited_ - before;
    }

    uint64_t now_ms_ = 100000;
    milliseconds waited_{0};
    int steps_ = 0;
    std::function<void()> on_step_;
    GuiTransferStatusAggregator aggregator_{[this] { return now_ms_; }};
};

constexpr uint64_t kMiB = 1 << 20;

TEST_F(TransferStatusReporterTest, PacesFromTheFirstByteEvenWhenNoTimePassesBetweenChunks) {
    aggregator_.SetTotalLimits(-1, 200);
    TransferStatusReporter reporter(aggregator_);
    Pace(reporter);
    reporter.SetPosition(kDirectionDownload, 0);
    // A fifth of a second's worth goes at once, the rest at 200 KiB per second.
    milliseconds first = Send(reporter, kMiB, 512);
    EXPECT_GE(first, milliseconds(4750));
    EXPECT_LE(first, milliseconds(5000));

    // An idle hour earns no more than the same small start.
    now_ms_ += 3600 * 1000;
    milliseconds after_idle = Send(reporter, kMiB, 64 * 1024);
    EXPECT_GE(after_idle, milliseconds(4750));
    EXPECT_LE(after_idle, milliseconds(5000));
}

TEST_F(TransferStatusReporterTest, PaceFollowsTheShareAsOtherTransfersStartAndEnd) {
    aggregator_.SetTotalLimits(-1, 200);
    TransferStatusReporter reporter(aggregator_);
    Pace(reporter);
    reporter.SetPosition(kDirectionDownload, 0);
    {
        TransferStatusReporter other(aggregator_);
        other.SetPosition(kDirectionDownload, 0);
        // 100 KiB per second each; the start shrinks to a fifth of a second of that.
        milliseconds shared = Send(reporter, 200 * 1024, 1024);
        EXPECT_GE(shared, milliseconds(1750));
        EXPECT_LE(shared, milliseconds(1850));
    }
    milliseconds alone = Send(reporter, 200 * 1024, 1024);
    EXPECT_GE(alone, milliseconds(950));
    EXPECT_LE(alone, milliseconds(1050));

    // Each start and end beside it re-bases its allowance; none may hand it a new start.
    milliseconds churned{0};
    for (int round = 0; round < 32; ++round) {
        {
            TransferStatusReporter passing(aggregator_);
            passing.SetPosition(kDirectionDownload, 0);
        }
        churned += Send(reporter, 32 * 1024, 4096);
    }
    EXPECT_GE(churned, milliseconds(4950));
    EXPECT_LE(churned, milliseconds(5150));
}

TEST_F(TransferStatusReporterTest, AZeroLimitHoldsATransferUntilRaisedOrKicked) {
    aggregator_.SetTotalLimits(-1, 0);
    TransferStatusReporter reporter(aggregator_);
    Pace(reporter);
    reporter.SetPosition(kDirectionDownload, 0);
    on_step_ = [this] {
        if (steps_ == 10) aggregator_.SetTotalLimits(-1, 200);
    };
    reporter.ReportTransferred(kDirectionDownload, 1024);
    // What it owes is paid at the new limit: 1 KiB at 200 KiB per second.
    EXPECT_EQ(steps_, 11);
    EXPECT_EQ(waited_, 10 * TransferStatusReporter::kPacingStep + milliseconds(5));

    aggregator_.SetTotalLimits(-1, 0);
    on_step_ = [&] {
        if (steps_ == 13) {
            EXPECT_TRUE(aggregator_.Kick(&reporter));
        }
    };
    EXPECT_THROW(reporter.ReportTransferred(kDirectionDownload, 1024), TransferKickedException);
    EXPECT_EQ(steps_, 13);
}

}  // namespace
}  // namespace Zarn
