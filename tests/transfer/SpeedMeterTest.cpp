#include <gtest/gtest.h>

#include "transfer/SpeedMeter.h"

namespace Zarn {
namespace {

// The window starts at its oldest sample and drops those five seconds old; no elapsed time
// gives zero, not a division by zero.
TEST(SpeedMeterTest, MeasuresOverAFiveSecondWindow) {
    SpeedMeter meter;
    EXPECT_EQ(meter.Speed(0), 0u);
    meter.Add(1000, 0);
    EXPECT_EQ(meter.Speed(0), 0u);
    meter.Add(1000, 1000);
    meter.Add(1000, 2000);
    const std::pair<uint64_t, uint64_t> cases[] = {
        {2000, 3000 * 1000 / 2000}, {4999, 3000 * 1000 / 4999},  // truncated, 600
        {5000, 2000 * 1000 / 4000},  // the sample of 0 ms is exactly 5000 ms old
        {6999, 1000 * 1000 / 4999}, {7000, 0},
    };
    for (const auto& [now_ms, speed] : cases)
        EXPECT_EQ(meter.Speed(now_ms), speed) << "at " << now_ms << " ms";
    // After a pause longer than the window, zero until a second sample.
    meter.Add(500, 9000);
    EXPECT_EQ(meter.Speed(9000), 0u);
    meter.Add(500, 9100);
    EXPECT_EQ(meter.Speed(9100), 1000u * 1000 / 100);
}

TEST(SpeedMeterTest, KeepsNoMoreSamplesThanTheWindowHasMilliseconds) {
    SpeedMeter meter;
    for (uint64_t t = 1; t <= 20000; ++t) {
        meter.Add(10, t);
        meter.Add(10, t);
    }
    EXPECT_EQ(meter.GetSampleCount(), 5000u);
    // Samples of 15001..20000 ms remain, 20 bytes each.
    EXPECT_EQ(meter.Speed(20000), 5000u * 20 * 1000 / 4999);
}

}  // namespace
}  // namespace Zarn
