#include <gtest/gtest.h>

#include "http/HttpConnection.h"
#include "http/HttpRequest.h"
#include "support/LogCapture.h"
#include "support/LoopbackPair.h"
#include "transfer/NullTransferStatusAggregator.h"

namespace Zarn {
namespace {

using testing::LogCapture;
using testing::LoopbackPair;
using testing::SendAll;

TEST(HttpRequestTest, LogsThroughTheRequestWithClientUserAndPath) {
    auto pair = LoopbackPair::Make();
    HttpConnection connection(std::move(pair.server));
    LogCapture capture;
    SendAll(pair.client, "GET /docs/a%20b HTTP/1.1\r\nAuthorization: Basic dXNlcjpwYXNz\r\n\r\n");
    HttpRequest request(&connection, NullTransferStatusAggregator::Instance());
    ASSERT_TRUE(connection.ReadHeader(request));
    request.Log(kLogProgress, "Sending %d", 7);
    // The credentials are read after the request line, so only later lines name the user.
    EXPECT_TRUE(capture.Contains(kLogTrace, "[127.0.0.1] Get Method Parsed.: docs/a b"));
    EXPECT_TRUE(
        capture.Contains(kLogTrace, "[127.0.0.1:user] Authentication Info Parsed.: docs/a b"));
    EXPECT_TRUE(capture.Contains(kLogProgress, "[127.0.0.1:user] Sending 7: docs/a b"));
    for (const auto& [level, line] : capture.Lines())
        EXPECT_EQ(line.find("pass"), std::string::npos) << line;
}

}  // namespace
}  // namespace Zarn
