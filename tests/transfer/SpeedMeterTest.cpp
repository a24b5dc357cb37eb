#include <gtest/gtest.h>

#include "transfer/SpeedMeter.h"

namespace Zarn {
namespace {

TEST(SpeedMeterTest, NoElapsedTimeGivesZeroNotADivisionByZero) {
    SpeedMeter meter;
    EXPECT_EQ(meter.Speed(0), 0u);
    meter.Add(1000, 100);
    EXPECT_EQ(meter.Speed(100), 0u);
    meter.Add(1000, 100);
    EXPECT_EQ(meter.Speed(100), 0u);
}

TEST(SpeedMeterTest, WindowStartsAtItsOldestSampleAndDropsThoseFiveSecondsOld) {
    SpeedMeter meter;
    meter.Add(1000, 0);
    meter.Add(1000, 1000);
    meter.Add(1000, 2000);
    const struct {
        uint64_t now_ms;
        uint64_t speed;
    } cases[] = {
        {2000, 3000 * 1000 / 2000}, {4999, 3000 * 1000 / 4999},  // truncated, 600
        {5000, 2000 * 1000 / 4000},  // the sample of 0 ms is exactly 5000 ms old
        {6999, 1000 * 1000 / 4999}, {7000, 0},
    };
    for (const auto& c : cases)
        EXPECT_EQ(meter.Speed(c.now_ms), c.speed) << "at " << c.now_ms << " ms";
}

TEST(SpeedMeterTest, AfterAPauseLongerThanTheWindowSpeedIsZeroUntilASecondSample) {
    SpeedMeter meter;
    for (uint64_t t = 0; t <= 1000; t += 100)
        meter.Add(64 * 1024, t);
    meter.Add(500, 7000);
    EXPECT_EQ(meter.Speed(7000), 0u);
    meter.Add(500, 7100);
    EXPECT_EQ(meter.Speed(7100), 1000u * 1000 / 100);
}

TEST(SpeedMeterTest, BytesInNoMeasurableTimeAreFasterThanAnyRate) {
    const struct {
        const char* label;
        uint64_t now_ms;
        uint64_t rate;
        bool faster;
    } cases[] = {
        {"within the first sample's millisecond", 100, 1'000'000'000, true},
        {"exactly at the rate", 1100, 1000, false},
        {"one byte per second more", 1100, 999, true},
        {"a third of a byte per second above the rate", 3100, 333, true},
        {"below the rate", 3100, 334, false},
        {"a rate of zero", 3100, 0, true},
        {"after the window has emptied", 5100, 0, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        SpeedMeter meter;
        EXPECT_FALSE(meter.IsFasterThan(0, 0));  // no samples, nothing moved
        meter.Add(600, 100);
        meter.Add(400, 100);
        EXPECT_EQ(meter.IsFasterThan(c.rate, c.now_ms), c.faster);
    }
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
