#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <thread>

#include "transfer/GuiTransferStatusAggregator.h"

namespace Zarn {
namespace {

class GuiTransferStatusAggregatorTest : public ::testing::Test {
protected:
    // A transfer that has begun moving bytes in `direction`.
    static void Start(TransferStatusReporter& reporter, int direction) {
        reporter.SetPosition(direction, 0);
    }

    // The record's limit as the console sees it.
    int32_t LimitOf(const TransferStatusReporter& reporter, int direction) {
        for (const auto& transfer : aggregator_.Snapshot()) {
            if (transfer.id != reinterpret_cast<uintptr_t>(&reporter)) continue;
            return direction == kDirectionUpload ? transfer.upload.limit : transfer.download.limit;
        }
        ADD_FAILURE() << "transfer not in the snapshot";
        return 0;
    }

    uint64_t now_ms_ = 100000;
    GuiTransferStatusAggregator aggregator_{[this] { return now_ms_; }};
};

TEST_F(GuiTransferStatusAggregatorTest, SharesEachTotalEvenlyAmongItsRunningTransfers) {
    aggregator_.SetTotalLimits(-1, 100);
    TransferStatusReporter first(aggregator_), second(aggregator_), upload(aggregator_);
    TransferStatusReporter not_started(aggregator_);
    Start(first, kDirectionDownload);
    Start(second, kDirectionDownload);
    Start(upload, kDirectionUpload);
    not_started.ReportTransferred(kDirectionDownload, 100);  // has no kind, so not counted
    EXPECT_EQ(LimitOf(first, kDirectionDownload), 51200);
    EXPECT_EQ(LimitOf(second, kDirectionDownload), 51200);
    EXPECT_EQ(LimitOf(not_started, kDirectionDownload), -1);
    EXPECT_EQ(LimitOf(upload, kDirectionUpload), -1);
    EXPECT_EQ(LimitOf(first, kDirectionUpload), -1);

    aggregator_.SetTotalLimits(30, 100);
    EXPECT_EQ(LimitOf(upload, kDirectionUpload), 30 * 1024);
    // A download that turns into an upload moves its share to the other total.
    second.SetPosition(kDirectionUpload, 0);
    EXPECT_EQ(LimitOf(first, kDirectionDownload), 100 * 1024);
    EXPECT_EQ(LimitOf(upload, kDirectionUpload), 15 * 1024);
    EXPECT_EQ(LimitOf(second, kDirectionDownload), -1);
}

// A transfer may write a fifth of a second's worth of its share at once, and 1 KiB at least.
TEST_F(GuiTransferStatusAggregatorTest, WritesAFifthOfItsShareAtOnceAndAtLeastOneKiB) {
    TransferStatusReporter first(aggregator_), second(aggregator_);
    Start(first, kDirectionDownload);
    Start(second, kDirectionDownload);
    for (auto [total_kib_per_s, allowance] :
         {std::pair<int, uint64_t>{200, 200 * 1024 / 2 / 5},
          {10, 1024},
          {0, 1024},
          {-1, GuiTransferStatusAggregator::kUnlimitedWriteAllowance}}) {
        aggregator_.SetTotalLimits(-1, total_kib_per_s);
        EXPECT_EQ(first.GetWriteAllowance(kDirectionDownload), allowance) << total_kib_per_s;
    }
}

// The console's callback may wait for its own thread, which reads the aggregator.
TEST_F(GuiTransferStatusAggregatorTest, NotifiesWithoutHoldingItsLock) {
    TransferStatusReporter transfer(aggregator_);
    std::promise<void> read;
    bool read_during_notification = false;
    std::thread console;
    aggregator_.SetTarget([&] {
        console = std::thread([&] {
            (void)aggregator_.Snapshot();
            read.set_value();
        });
        auto status = read.get_future().wait_for(std::chrono::seconds(5));
        read_during_notification = status == std::future_status::ready;
    });
    transfer.SetPosition(kDirectionDownload, 1);
    console.join();
    aggregator_.SetTarget({});
    EXPECT_TRUE(read_during_notification);
}

// A kick that ends a download crosses the socket in the console's end-to-end test; here, the
// order of the list and the questions that may still come about a transfer that has ended.
TEST_F(GuiTransferStatusAggregatorTest, ListsTransfersInStartOrderAndForgetsEndedOnes) {
    auto first = std::make_unique<TransferStatusReporter>(aggregator_);
    TransferStatusReporter second(aggregator_);
    EXPECT_FALSE(aggregator_.Kick(&second));  // not known until it reports
    second.ReportTransferred(kDirectionUpload, 1000);
    first->ReportTransferred(kDirectionDownload, 5);
    auto transfers = aggregator_.Snapshot();
    ASSERT_EQ(transfers.size(), 2u);
    EXPECT_EQ(transfers[0].id, reinterpret_cast<uintptr_t>(&second));
    EXPECT_EQ(transfers[1].id, reinterpret_cast<uintptr_t>(first.get()));

    first.reset();
    // Questions about a transfer that has ended answer as for one that never moved.
    auto* gone = reinterpret_cast<TransferStatusReporter*>(transfers[1].id);
    EXPECT_EQ(aggregator_.GetSpeed(gone, kDirectionDownload), 0u);
    EXPECT_FALSE(aggregator_.Kick(gone));
    EXPECT_EQ(aggregator_.Snapshot().size(), 1u);
}

}  // namespace
}  // namespace Zarn
