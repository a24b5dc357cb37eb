// The connection thread over a real socket pair, with the header deadline shortened so
// that no test waits a minute.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>

#include "http/IdleThreadPool.h"
#include "http/RequestParserThread.h"
#include "net/socket_exception.h"
#include "support/LoopbackPair.h"
#include "support/TestServer.h"
#include "support/WaitUntil.h"
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
using testing::TimeUntilSilentClose;
using testing::WaitUntil;
using testing::WithoutDate;

constexpr milliseconds kDeadline(300);
constexpr char kAnswer[] = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";

class RequestParserThreadTest : public ::testing::Test {
protected:
    void SetUp() override {
        thread_.SetHeaderDeadline(kDeadline);
        thread_.SetIdlePool(&pool_);
        ASSERT_TRUE(thread_.Start(std::move(pair_.server), handler_,
                                  NullTransferStatusAggregator::Instance()));
    }
    // A kept-alive connection would otherwise wait for a next request until its time-out,
    // and an idle thread for its next connection.
    void TearDown() override {
        pool_.Close();
        thread_.Interrupt();
    }

    LoopbackPair pair_ = LoopbackPair::Make();
    std::atomic<int> served_ = 0;
    // Keeps the connection unless the path is "close".
    FunctionHandler handler_{[this](HttpRequest& request) {
        ++served_;
        ResponseHead head(200, "OK");
        if (request.GetPath() != "close") head.AllowKeepAlive();
        request.SendHead(head.SetContentLength(2));
        request.Send("ok", 2);
    }};
    IdleThreadPool pool_;
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

TEST_F(RequestParserThreadTest, ServesTheNextConnectionFromItsPoolAfresh) {
    // The first connection ends on an answer that does not keep it, with a pipelined
    // request left unread; nothing of it may reach the next client.
    SendAll(pair_.client, "GET /close HTTP/1.1\r\n\r\nGET /stale HTTP/1.1\r\n\r\n");
    EXPECT_TRUE(ReadToClose(pair_.client).ends_with("\r\n\r\nok"));
    ASSERT_TRUE(WaitUntil([&] { return pool_.GetIdleCount() == 1; }));

    LoopbackPair next = LoopbackPair::Make();
    ASSERT_TRUE(pool_.Offer(next.server));
    SendAll(next.client, "GET /fresh HTTP/1.1\r\n\r\n");
    std::string head = WithoutDate(ReadHead(next.client));
    EXPECT_EQ(head + ReadExactly(next.client, 2), kAnswer);
    EXPECT_EQ(served_, 2);  // "close" and "fresh", never the stale request
    // The shortened header deadline holds on the new connection too.
    SendAll(next.client, "GET /slow HTTP/1.1\r\n");
    EXPECT_LT(TimeUntilSilentClose(next.client), std::chrono::seconds(3));
}

}  // namespace
}  // namespace Zarn
