#include <fcntl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "core/ManualResetEvent.h"
#include "core/UniqueFd.h"
#include "http/WebServer.h"
#include "support/HttpClient.h"
#include "support/LogCapture.h"
#include "support/LoopbackPair.h"
#include "support/TempFolder.h"
#include "support/TestServer.h"
#include "support/WaitUntil.h"
#include "transfer/NullTransferStatusAggregator.h"

namespace Zarn {
namespace {

using testing::ConnectTo;
using testing::FunctionHandler;
using testing::LogCapture;
using testing::ReadExactly;
using testing::ReadHead;
using testing::ReadToClose;
using testing::SendAll;
using testing::TimeUntilSilentClose;
using testing::WaitUntil;
using namespace std::chrono_literals;

// Answers "ok" with its length, keeping the connection unless the path is "close".
void AnswerOk(HttpRequest& request) {
    ResponseHead head(200, "OK");
    if (request.GetPath() != "close") head.AllowKeepAlive();
    request.SendHead(head.SetContentLength(2));
    request.Send("ok", 2);
}

// Sends a GET for the path and reads one answer of AnswerOk: its body, or the head that
// came instead.
std::string Ask(TCPSocket& client, const std::string& path) {
    SendAll(client, "GET /" + path + " HTTP/1.1\r\n\r\n");
    std::string head = ReadHead(client);
    if (!head.starts_with("HTTP/1.1 200 OK\r\n")) return head;
    return ReadExactly(client, 2);
}

class WebServerTest : public ::testing::Test {
protected:
    void Serve(std::function<void(HttpRequest&)> function) {
        handler_ = std::make_unique<FunctionHandler>(std::move(function));
        server_.SetRequestHandler(handler_.get());
        ASSERT_TRUE(server_.Listen(0));
    }
    std::string AskAndHangUp(const std::string& path) {
        TCPSocket client = ConnectTo(server_.GetPort());
        return Ask(client, path);
    }

    std::unique_ptr<FunctionHandler> handler_;
    WebServer server_;
};

TEST_F(WebServerTest, OnlyAHangUpBeforeAnyRequestIsLoggedAsAnError) {
    LogCapture capture;
    Serve(AnswerOk);
    EXPECT_EQ(AskAndHangUp("keep"), "ok");
    EXPECT_TRUE(WaitUntil([&] { return server_.GetIdleThreadCount() == 1; }));
    EXPECT_FALSE(capture.Contains(kLogConnection, "[127.0.0.1] Socket Error: Connection closed"));
    { TCPSocket silent = ConnectTo(server_.GetPort()); }
    EXPECT_TRUE(capture.WaitFor(kLogConnection, "[127.0.0.1] Socket Error: Connection closed"));
}

TEST_F(WebServerTest, ThreadsBeyondTheIdleLimitEndAndTheRestServeTheNextConnections) {
    server_.SetIdleThreadLimits(2, 30s);
    std::atomic<int> entered{0};
    ManualResetEvent release;
    Serve([&](HttpRequest& request) {
        ++entered;
        release.Wait();
        AnswerOk(request);
    });
    std::vector<TCPSocket> clients;
    for (int i = 0; i < 4; ++i) {
        clients.push_back(ConnectTo(server_.GetPort()));
        SendAll(clients.back(), "GET /close HTTP/1.1\r\n\r\n");
    }
    ASSERT_TRUE(WaitUntil([&] { return entered == 4; }));
    release.Set();
    for (TCPSocket& client : clients)
        EXPECT_EQ(ReadToClose(client).substr(0, 15), "HTTP/1.1 200 OK");
    EXPECT_TRUE(WaitUntil([&] { return server_.GetThreadCount() == 2; }));
    EXPECT_EQ(server_.GetIdleThreadCount(), 2u);
    // Every other connection is ended by the server, the rest by the client hanging up a
    // kept connection; either way its thread goes back to wait for the next.
    for (int i = 0; i < 6; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(AskAndHangUp(i % 2 == 0 ? "close" : "keep"), "ok");
        ASSERT_TRUE(WaitUntil([&] { return server_.GetIdleThreadCount() == 2; }));
    }
    EXPECT_EQ(server_.GetCreatedThreadCount(), 4u);
    EXPECT_EQ(server_.GetThreadCount(), 2u);
}

TEST_F(WebServerTest, HandOversRacingTheEndOfIdleWaitsLoseNoConnection) {
    server_.SetIdleThreadLimits(64, 1ms);
    Serve(AnswerOk);
    std::mt19937 random(7);
    constexpr int kConnections = 300;
    for (int i = 0; i < kConnections; ++i) {
        TCPSocket client = ConnectTo(server_.GetPort());
        client.SetTimeouts(5);  // a lost connection fails the test instead of hanging it
        ASSERT_EQ(Ask(client, "close"), "ok") << "connection " << i;
        // Scatters the next connection around the moment the idle wait runs out.
        std::this_thread::sleep_for(
            std::chrono::microseconds(std::uniform_int_distribution(0, 1500)(random)));
    }
    // Both ways were taken: some connections found a thread waiting, some a thread gone.
    EXPECT_GT(server_.GetCreatedThreadCount(), 1u);
    EXPECT_LT(server_.GetCreatedThreadCount(), static_cast<uint64_t>(kConnections));
}

TEST_F(WebServerTest, TheKeepAliveTimeoutCountsFromTheLastAnswerAndReachesOpenConnections) {
    Serve(AnswerOk);
    TCPSocket kept = ConnectTo(server_.GetPort());
    EXPECT_EQ(Ask(kept, "keep"), "ok");
    // The wait under way keeps the time-out it began with; the next ones have the new one.
    server_.SetKeepAliveTimeout(1s);
    TCPSocket silent = ConnectTo(server_.GetPort());
    // Every pause is well inside the time-out and together they are well past it.
    for (int i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        if (i > 0) {
            EXPECT_FALSE(kept.WaitReadable(600ms));  // neither closed nor answered
        }
        EXPECT_EQ(Ask(kept, "keep"), "ok");
    }
    auto kept_idle = TimeUntilSilentClose(kept);
    // The server's clock started a moment before the answer reached the client.
    EXPECT_GE(kept_idle, 900ms);
    EXPECT_LT(kept_idle, 3s);
    EXPECT_LT(TimeUntilSilentClose(silent), 3s);
    // Their threads wait for new connections.
    EXPECT_TRUE(WaitUntil([&] { return server_.GetIdleThreadCount() == 2; }));
}

// Holds every report of one thread for an hour.
class ThrottlingAggregator : public NullTransferStatusAggregator {
public:
    std::chrono::milliseconds GetPacingWait(TransferStatusReporter*, int) override {
        return std::this_thread::get_id() == slow ? std::chrono::hours(1) : 0ms;
    }
    std::atomic<std::thread::id> slow;
};

TEST_F(WebServerTest, StopEndsEveryThreadPromptlyWhateverItWaitsFor) {
    ThrottlingAggregator throttling;
    server_.SetTransferStatusAggregator(&throttling);
    Serve([&](HttpRequest& request) {
        if (request.GetPath() != "slow") return AnswerOk(request);
        request.SendHead(ResponseHead(200, "OK"));
        throttling.slow = std::this_thread::get_id();
        for (int i = 0; i < 100; ++i)
            request.Send("chunk", 5);  // hours at this pace
        request.EndResponse();
    });
    // Threads wait for a kept connection's next request, for the rest of a header, for a
    // new connection and for the pace of a download: each for many seconds.
    TCPSocket kept = ConnectTo(server_.GetPort());
    EXPECT_EQ(Ask(kept, "keep"), "ok");
    TCPSocket half = ConnectTo(server_.GetPort());
    SendAll(half, "GET /half HTTP/1.1\r\nHost: x");
    TCPSocket slow = ConnectTo(server_.GetPort());
    SendAll(slow, "GET /slow HTTP/1.1\r\n\r\n");
    ASSERT_TRUE(WaitUntil([&] { return throttling.slow.load() != std::thread::id(); }));
    EXPECT_EQ(AskAndHangUp("close"), "ok");
    ASSERT_TRUE(WaitUntil(
        [&] { return server_.GetThreadCount() == 4 && server_.GetIdleThreadCount() == 1; }));

    auto started = std::chrono::steady_clock::now();
    server_.Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - started, 3s);
    EXPECT_EQ(server_.GetPort(), -1);
    EXPECT_EQ(server_.GetThreadCount(), 0u);
    EXPECT_EQ(server_.GetIdleThreadCount(), 0u);
    EXPECT_FALSE(server_.IsRunning());
    EXPECT_EQ(ReadToClose(kept), "");
    EXPECT_EQ(ReadToClose(half), "");
    std::string partial = ReadToClose(slow);
    EXPECT_LT(partial.size() - partial.find("\r\n\r\n") - 4, 5u * 100);  // cut off
    // Listening again brings the idle pool back; a new thread may have the old one's id.
    throttling.slow = std::thread::id();
    ASSERT_TRUE(server_.Listen(0));
    EXPECT_EQ(AskAndHangUp("close"), "ok");
    EXPECT_TRUE(WaitUntil([&] { return server_.GetIdleThreadCount() == 1; }));
}

// Records that wait to leave with what follows them: mixed with sends and a file, in both
// framings, they arrive byte for byte and in order; a run of them longer than the waiting
// limit, the last one before the end, and one past the promised length (cut) all hold, and
// the connection serves its next request, so every record counted as sent.
TEST_F(WebServerTest, RecordsThatWaitLeaveInOrderWithWhatFollowsInBothFramings) {
    testing::TempFolder folder;
    folder.Write("data.bin", "FILE");
    const std::string big(100000, 'b'), run(5000, 'r');
    const std::string body = "h1" + big + "d1h2FILE" + run + "e!";
    Serve([&](HttpRequest& request) {
        ResponseHead head(200, "OK");
        head.AllowKeepAlive();
        if (request.GetPath() == "length") head.SetContentLength(body.size());
        request.SendHead(head);
        request.SendWithNext("h1");
        request.Send(big);
        request.SendWithNext("d1");
        request.SendWithNext("h2");
        UniqueFd file(::open((folder / "data.bin").c_str(), O_RDONLY | O_CLOEXEC));
        request.SendFileBody(file.Get(), 0, 4);
        request.SendWithNext(run);
        request.SendWithNext("e!");
        request.SendWithNext("cut");
        request.EndResponse();
    });
    TCPSocket client = ConnectTo(server_.GetPort());
    SendAll(client, "GET /length HTTP/1.1\r\n\r\n");
    bool chunked = true;
    testing::HttpResponse framed = testing::ReadResponse(client, false, &chunked);
    EXPECT_FALSE(chunked);
    EXPECT_TRUE(framed.body == body) << framed.body.size() << " bytes";
    SendAll(client, "GET /chunks HTTP/1.1\r\n\r\n");
    testing::HttpResponse chunks = testing::ReadResponse(client, false, &chunked);
    EXPECT_TRUE(chunked);
    EXPECT_TRUE(chunks.body == body + "cut") << chunks.body.size() << " bytes";
}

}  // namespace
}  // namespace Zarn
