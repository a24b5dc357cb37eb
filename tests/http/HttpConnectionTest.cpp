#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

#include "http/HttpConnection.h"
#include "http/HttpRequest.h"
#include "net/socket_exception.h"
#include "support/LoopbackPair.h"
#include "transfer/NullTransferStatusAggregator.h"

namespace Zarn {
namespace {

using testing::LoopbackPair;
using testing::SendAll;
using testing::SendInPieces;

std::vector<std::string> Bytewise(const std::string& bytes) {
    std::vector<std::string> pieces;
    for (char c : bytes)
        pieces.emplace_back(1, c);
    return pieces;
}

class HttpConnectionTest : public ::testing::Test {
protected:
    HttpConnectionTest() : pair_(LoopbackPair::Make()), connection_(std::move(pair_.server)) {}

    std::unique_ptr<HttpRequest> NewRequest() {
        return std::make_unique<HttpRequest>(&connection_,
                                             NullTransferStatusAggregator::Instance());
    }

    LoopbackPair pair_;
    HttpConnection connection_;
};

// A form is read only when a parameter is first asked for, in whatever pieces it arrives.
TEST_F(HttpConnectionTest, ReadsFormsLazilyWhateverTheReceivesLookLike) {
    struct Case {
        const char* label;
        std::string body;
        ParameterMap parameters;
    };
    const Case cases[] = {
        {"fields", "name=%ED%95%9C+x&empty=&z=1", {{"name", "한 x"}, {"empty", ""}, {"z", "1"}}},
        {"empty body", "", {}},
        {"a field split inside an escape", "a=%41%42%43&b=%2", {{"a", "ABC"}, {"b", "%2"}}},
    };
    for (const Case& c : cases) {
        for (bool bytewise : {false, true}) {
            SCOPED_TRACE(::testing::Message() << c.label << (bytewise ? ", bytewise" : ""));
            std::string bytes =
                "POST /form HTTP/1.1\r\nContent-Type: application/x-www-form-urlencoded\r\n"
                "Content-Length: " +
                std::to_string(c.body.size()) + "\r\n\r\n" + c.body + "GET /next HTTP/1.1\r\n\r\n";
            std::vector<std::string> pieces{bytes};
            if (bytewise) pieces = Bytewise(bytes);
            std::jthread writer(
                [&] { SendInPieces(pair_.client, connection_.GetSocket(), pieces); });
            auto request = NewRequest();
            ASSERT_TRUE(connection_.ReadHeader(*request));
            EXPECT_EQ(request->GetConsumedLength(), 0u);
            EXPECT_FALSE(request->IsFormTooLarge());
            EXPECT_TRUE(request->GetFormParameters() == c.parameters);
            EXPECT_EQ(request->GetConsumedLength(), c.body.size());
            // The bytes after the body belong to the next request, not to the form.
            auto next = NewRequest();
            ASSERT_TRUE(connection_.ReadHeader(*next));
            EXPECT_EQ(next->GetPath(), "next");
        }
    }
}

// Pipelined requests and the idle close of a silent connection cross the socket end to end;
// here, what happens on either side of a request's first byte.
TEST_F(HttpConnectionTest, KeepAliveTimeoutBoundsOnlyTheWaitForARequestToBegin) {
    constexpr std::chrono::milliseconds kIdle(200);
    connection_.SetKeepAliveTimeout(kIdle);
    // A request that has begun waits under the header deadline, past the idle time twice over.
    SendAll(pair_.client, "GET /a HT");
    {
        std::jthread rest([this, kIdle] {
            std::this_thread::sleep_for(2 * kIdle);
            SendAll(pair_.client, "TP/1.1\r\n\r\n");
        });
        auto request = NewRequest();
        ASSERT_TRUE(connection_.ReadHeader(*request));
        EXPECT_EQ(request->GetPath(), "a");
    }
    // A request after the connection gave its buffers back while it idled is read whole.
    connection_.SetKeepAliveTimeout(std::chrono::seconds(10));
    {
        std::jthread later([this] {
            std::this_thread::sleep_for(2 * HttpConnection::kIdleReleaseDelay);
            SendAll(pair_.client, "GET /b HTTP/1.1\r\n\r\n");
        });
        auto request = NewRequest();
        ASSERT_TRUE(connection_.ReadHeader(*request));
        EXPECT_EQ(request->GetPath(), "b");
    }
    connection_.SetKeepAliveTimeout(kIdle);
    // Blank lines begin no request: silence after them ends the read empty-handed.
    SendAll(pair_.client, "\r\n");
    auto started = std::chrono::steady_clock::now();
    auto request = NewRequest();
    EXPECT_FALSE(connection_.ReadHeader(*request));
    EXPECT_GE(std::chrono::steady_clock::now() - started, kIdle);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
}

TEST_F(HttpConnectionTest, HeadersAtTheLimitOrWithNulBytesAreReadAndAHalfOneFails) {
    using namespace std::string_literals;
    std::string start = "GET /x HTTP/1.1\r\nX: ";
    std::string exact =
        start + std::string(HttpConnection::kMaxHeaderBytes - start.size() - 4, 'a') + "\r\n\r\n";
    SendAll(pair_.client, exact + "GET /a\0b?x=\0 HTTP/1.1\r\nX-\0: v\0w\r\n\r\n"s);
    auto at_limit = NewRequest();
    ASSERT_TRUE(connection_.ReadHeader(*at_limit));
    EXPECT_EQ(at_limit->GetPath(), "x");
    auto nul = NewRequest();
    ASSERT_TRUE(connection_.ReadHeader(*nul));
    EXPECT_EQ(nul->GetPath(), "a\0b"s);
    std::string value;
    EXPECT_TRUE(nul->GetHeader("X-\0"s, value));
    EXPECT_EQ(value, "v\0w"s);

    SendAll(pair_.client, "GET / HTTP/1.1\r\nHost:");
    pair_.client.Close();
    auto half = NewRequest();
    try {
        (void)connection_.ReadHeader(*half);
        ADD_FAILURE() << "a half header was accepted";
    } catch (const socket_exception& error) {
        EXPECT_STREQ(error.what(), "Connection closed");
    }
}

TEST_F(HttpConnectionTest, RefusesHeaderThatFillsTheBufferWithoutBlankLine) {
    std::string request =
        "GET / HTTP/1.1\r\nX: " + std::string(HttpConnection::kMaxHeaderBytes, 'a');
    std::thread writer([&] {
        try {
            SendAll(pair_.client, request);
        } catch (const socket_exception&) {
        }
    });
    auto parsed = NewRequest();
    try {
        (void)connection_.ReadHeader(*parsed);
        ADD_FAILURE() << "an over-long header was accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Illegal request: header too long");
    }
    pair_.client.Shutdown();
    connection_.GetSocket().Close();
    writer.join();
}

TEST(HttpConnectionLimitsTest, AHugeMultipartLengthEndsWhenTheClientStopsSending) {
    auto pair = LoopbackPair::Make();
    HttpConnection upload(std::move(pair.server));
    SendAll(pair.client,
            "POST /u HTTP/1.1\r\nContent-Type: multipart/form-data; boundary=b\r\n"
            "Content-Length: 18446744073709551615\r\n\r\n--b\r\n\r\nunterminated");
    pair.client.Shutdown();
    HttpRequest request(&upload, NullTransferStatusAggregator::Instance());
    ASSERT_TRUE(upload.ReadHeader(request));
    EXPECT_EQ(request.GetContentLength(), UINT64_MAX);
    MultipartPart part;
    char buffer[100];
    bool ended = false;
    EXPECT_TRUE(request.ReadNextPart(part));
    EXPECT_THROW(
        {
            while (!ended)
                request.ReadPartData(buffer, sizeof buffer, ended);
        },
        socket_exception);
}

}  // namespace
}  // namespace Zarn
