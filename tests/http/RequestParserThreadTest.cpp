// The connection thread over a real socket pair, with the header deadline shortened so
// that no test waits a minute.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

#include "http/RequestParserThread.h"
#include "net/socket_exception.h"
#include "support/LoopbackPair.h"
#include "support/TestServer.h"
#include "transfer/NullTransferStatusAggregator.h"

namespace Zarn {
namespace {

using std::chrono::milliseconds;
using testing::FunctionHandler;
using testing::LoopbackPair;
using testing::ReadExactly;
using testing::ReadHead;
using testing::ReadToClose;
using testing::SendAll;
using testing::WithoutDate;

constexpr milliseconds kDeadline(300);
constexpr char kAnswer[] = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";

class RequestParserThreadTest : public ::testing::Test {
protected:
    void SetUp() override {
        thread_.SetHeaderDeadline(kDeadline);
        ASSERT_TRUE(thread_.Start(std::move(pair_.server), handler_,
                                  NullTransferStatusAggregator::Instance()));
    }
    // A kept-alive connection would otherwise wait for a next request until its time-out.
    void TearDown() override { thread_.Interrupt(); }

    LoopbackPair pair_ = LoopbackPair::Make();
    std::atomic<int> served_ = 0;
    FunctionHandler handler_{[this](HttpRequest& request) {
        ++served_;
        request.SendHead(ResponseHead(200, "OK").SetContentLength(2).AllowKeepAlive());
        request.Send("ok", 2);
    }};
    RequestParserThread thread_;  // last: stopped before what it uses goes away
};

TEST_F(RequestParserThreadTest, DropsAHeaderTrickledPastTheDeadlineWithoutAnAnswer) {
    const std::string header = "GET / HTTP/1.1\r\nX-Slow: " + std::string(200, 'a') + "\r\n\r\n";
    auto first_byte = std::chrono::steady_clock::now();
    size_t sent = 0;
    try {
        // A byte every 30 ms: each far inside the socket's time-out, the whole header far
        // past the deadline. The wait ends early when the server hangs up.
        while (sent < header.size()) {
            SendAll(pair_.client, header.substr(sent++, 1));
            if (pair_.client.WaitReadable(milliseconds(30))) break;
        }
    } catch (const socket_exception&) {
        // The hang-up came between two bytes.
    }
    EXPECT_EQ(ReadToClose(pair_.client), "");
    auto dropped = std::chrono::steady_clock::now();
    EXPECT_LT(sent, header.size());
    EXPECT_GE(dropped - first_byte, kDeadline);
    EXPECT_EQ(served_, 0);
}

TEST_F(RequestParserThreadTest, IdleTimeBeforeARequestDoesNotCountTowardsTheDeadline) {
    // Idle before the first request and between two on one connection, each time for
    // longer than the deadline; the server neither hangs up nor refuses what follows. The
    // second idles after an extra line break, as a client that ends requests with one.
    for (std::string before : {"", "\r\n"}) {
        SCOPED_TRACE(before.size());
        SendAll(pair_.client, before);
        EXPECT_FALSE(pair_.client.WaitReadable(2 * kDeadline));
        SendAll(pair_.client, "GET / HTTP/1.1\r\n\r\n");
        std::string head = WithoutDate(ReadHead(pair_.client));
        EXPECT_EQ(head + ReadExactly(pair_.client, 2), kAnswer);
    }
    EXPECT_EQ(served_, 2);
}

}  // namespace
}  // namespace Zarn
