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

// Counts what a request reports, to check that body bytes reach the transfer status.
class CountingAggregator : public NullTransferStatusAggregator {
public:
    void AddTransferred(TransferStatusReporter*, int direction, uint64_t count) override {
        (direction == kDirectionUpload ? received : sent) += count;
    }
    void Unregister(TransferStatusReporter*) override { ++unregistered; }

    uint64_t received = 0;
    uint64_t sent = 0;
    int unregistered = 0;
};

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
    for (const auto& [level, line] : capture.Lines()) {
        EXPECT_EQ(line.find("pass"), std::string::npos) << line;
    }

    HttpRequest anonymous(nullptr, NullTransferStatusAggregator::Instance());
    anonymous.ParseHeader("GET /x HTTP/1.1");
    anonymous.Log(kLogError, "oops");
    EXPECT_TRUE(capture.Contains(kLogError, "[] oops: x"));
}

TEST(HttpRequestTest, MultipartPostReadsNoBodyWhileParsingTheHeader) {
    auto pair = LoopbackPair::Make();
    HttpConnection connection(std::move(pair.server));
    SendAll(pair.client,
            "POST /up HTTP/1.1\r\nContent-Type: multipart/form-data; boundary=\"q q\"\r\n"
            "Content-Length: 12\r\n\r\n--q q--\r\n");
    CountingAggregator aggregator;
    {
        HttpRequest request(&connection, aggregator);
        ASSERT_TRUE(connection.ReadHeader(request));
        EXPECT_TRUE(request.IsMultipart());
        EXPECT_EQ(request.GetConsumedLength(), 0u);
        EXPECT_EQ(connection.CarryOverSize(), 9u);
        MultipartPart part;
        EXPECT_FALSE(request.ReadNextPart(part));
        EXPECT_FALSE(request.IsMultipartBroken());
        EXPECT_EQ(aggregator.received, 9u);
    }
    EXPECT_EQ(aggregator.unregistered, 1);
}

}  // namespace
}  // namespace Zarn
