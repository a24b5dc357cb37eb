#include <gtest/gtest.h>

#include "log/Log.h"
#include "support/LogCapture.h"

namespace Zarn {
namespace {

using testing::LogCapture;

TEST(LogTest, MaskDecidesWhichLevelsReachTheListener) {
    LogCapture capture(kDefaultLogMask);
    Log(kLogTrace, "trace %d", 1);
    Log(kLogNotice, "notice %s", "two");
    Log(kLogFatal, "fatal");
    const std::vector<std::pair<uint32_t, std::string>> expected = {{kLogNotice, "notice two"},
                                                                    {kLogFatal, "fatal"}};
    EXPECT_EQ(capture.Lines(), expected);
    SetLogMask(kLogTrace);
    EXPECT_TRUE(IsLogLevelEnabled(kLogTrace));
    EXPECT_FALSE(IsLogLevelEnabled(kLogNotice));
}

TEST(LogTest, CutsLongMessagesAtTheBufferSize) {
    LogCapture capture;
    std::string long_text(5000, 'x');
    Log(kLogError, "%s", long_text.c_str());
    ASSERT_EQ(capture.Lines().size(), 1u);
    EXPECT_EQ(capture.Lines()[0].second, std::string(kLogBufferBytes - 1, 'x'));
}

}  // namespace
}  // namespace Zarn
