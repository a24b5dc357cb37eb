#include <fcntl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <random>
#include <set>
#include <thread>

#include "core/ManualResetEvent.h"
#include "core/UniqueFd.h"
#include "http/ByteRangeSet.h"
#include "http/WebServer.h"
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
using testing::WithoutDate;
using namespace std::chrono_literals;

// Answers "ok" with its length, keeping the connection unless the path is "close".
void AnswerOk(HttpRequest& request) {
    ResponseHead head(200, "OK");
    if (request.GetPath() != "close") head.AllowKeepAlive();
    request.SendHead(head.SetContentLength(2));
    request.Send("ok", 2);
}

// Reads one answer of AnswerOk: its body, or the head that came instead.
std::string ReadAnswer(TCPSocket& client) {
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
        ASSERT_GT(server_.GetPort(), 0);
    }

    std::unique_ptr<FunctionHandler> handler_;
    WebServer server_;
};

TEST_F(WebServerTest, SendsExactStatusLineAndClosesByDefault) {
    Serve([](HttpRequest& request) {
        request.SendHead(ResponseHead(404, "Not Found"));
        request.EndResponse();
    });
    TCPSocket client = ConnectTo(server_.GetPort());
    SendAll(client, "GET /missing HTTP/1.1\r\n\r\n");
    EXPECT_EQ(WithoutDate(ReadToClose(client)),
              "HTTP/1.1 404 Not Found\r\nConnection:close\r\n\r\n");
}

TEST_F(WebServerTest, HeadersAndBodyGoOutInOrder) {
    Serve([](HttpRequest& request) {
        request.SendHead(
            ResponseHead(200, "OK")
                .Add("Content-Type", "text/plain")
                .Add("WWW-Authenticate",
                     HttpRequest::AuthenticateValue(AuthenticationInfo::Scheme::kBasic, "/")));
        request.Send("hello", 5);
        std::string big(100000, 'b');
        request.Send(big.data(), big.size());
        request.EndResponse();
    });
    TCPSocket client = ConnectTo(server_.GetPort());
    SendAll(client, "GET / HTTP/1.1\r\n\r\n");
    EXPECT_EQ(WithoutDate(ReadToClose(client)),
              "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n"
              "WWW-Authenticate: Basic realm=\"/\"\r\nConnection:close\r\n\r\nhello" +
                  std::string(100000, 'b'));
}

TEST_F(WebServerTest, KeepAliveServesTwoRequestsOnOneThread) {
    std::mutex mutex;
    std::set<std::thread::id> threads;
    Serve([&](HttpRequest& request) {
        {
            std::lock_guard lock(mutex);
            threads.insert(std::this_thread::get_id());
        }
        request.SendHead(ResponseHead(200, "OK").SetContentLength(1).AllowKeepAlive());
        request.Send(request.GetPath().empty() ? "-" : request.GetPath().c_str(), 1);
    });
    TCPSocket client = ConnectTo(server_.GetPort());
    SendAll(client, "GET /a HTTP/1.1\r\n\r\nGET /b HTTP/1.1\r\n\r\n");
    const std::string response = "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\n";
    for (const char* body : {"a", "b"}) {
        std::string head = WithoutDate(ReadHead(client));
        EXPECT_EQ(head + ReadExactly(client, 1), response + body);
    }
    EXPECT_EQ(threads.size(), 1u);
    EXPECT_EQ(server_.GetThreadCount(), 1u);
}

TEST_F(WebServerTest, DrainsAnUnreadBodyBeforeAnswering) {
    constexpr size_t kBodyBytes = 1 << 20;
    std::atomic<uint64_t> consumed_at_status{0};
    Serve([&](HttpRequest& request) {
        request.SendHead(ResponseHead(403, "Forbidden"));
        consumed_at_status = request.GetConsumedLength();
        request.EndResponse();
    });
    TCPSocket client = ConnectTo(server_.GetPort());
    std::thread sender([&] {
        SendAll(client, "PUT /big HTTP/1.1\r\nContent-Length: " + std::to_string(kBodyBytes) +
                            "\r\n\r\n" + std::string(kBodyBytes, 'x'));
    });
    std::string response = ReadToClose(client);
    sender.join();
    EXPECT_EQ(WithoutDate(response), "HTTP/1.1 403 Forbidden\r\nConnection:close\r\n\r\n");
    EXPECT_EQ(consumed_at_status, kBodyBytes);
}

TEST_F(WebServerTest, ClientThatSaysNothingEndsWithConnectionClosed) {
    LogCapture capture;
    Serve([](HttpRequest&) {});
    { TCPSocket client = ConnectTo(server_.GetPort()); }
    EXPECT_TRUE(capture.WaitFor(kLogConnection, "[127.0.0.1] Socket Error: Connection closed"));
    EXPECT_TRUE(WaitUntil([&] { return server_.GetIdleThreadCount() == 1; }));
}

TEST_F(WebServerTest, AClientClosingAKeptConnectionBetweenRequestsIsNoError) {
    LogCapture capture;
    Serve(AnswerOk);
    {
        TCPSocket client = ConnectTo(server_.GetPort());
        SendAll(client, "GET /a HTTP/1.1\r\n\r\n");
        EXPECT_EQ(ReadAnswer(client), "ok");
    }
    EXPECT_TRUE(WaitUntil([&] { return server_.GetIdleThreadCount() == 1; }));
    EXPECT_FALSE(capture.Contains(kLogConnection, "[127.0.0.1] Socket Error: Connection closed"));
    // Closing in the middle of a request still is.
    {
        TCPSocket client = ConnectTo(server_.GetPort());
        SendAll(client, "GET /a HTTP/1.1\r\n\r\nGET /b HTTP/1.1\r\n");
        EXPECT_EQ(ReadAnswer(client), "ok");
    }
    EXPECT_TRUE(capture.WaitFor(kLogConnection, "[127.0.0.1] Socket Error: Connection closed"));
}

TEST_F(WebServerTest, SequentialConnectionsReuseOneIdleThread) {
    std::mutex mutex;
    std::set<std::thread::id> threads;
    Serve([&](HttpRequest& request) {
        {
            std::lock_guard lock(mutex);
            threads.insert(std::this_thread::get_id());
        }
        AnswerOk(request);
    });
    constexpr int kConnections = 6;
    for (int i = 0; i < kConnections; ++i) {
        SCOPED_TRACE(i);
        {
            // Every other connection is ended by the server, the rest by the client hanging
            // up a kept connection.
            TCPSocket client = ConnectTo(server_.GetPort());
            SendAll(client,
                    i % 2 == 0 ? "GET /close HTTP/1.1\r\n\r\n" : "GET /keep HTTP/1.1\r\n\r\n");
            EXPECT_EQ(ReadAnswer(client), "ok");
        }
        ASSERT_TRUE(WaitUntil([&] { return server_.GetIdleThreadCount() == 1; }));
    }
    EXPECT_EQ(server_.GetCreatedThreadCount(), 1u);
    EXPECT_EQ(server_.GetThreadCount(), 1u);
    std::lock_guard lock(mutex);
    EXPECT_EQ(threads.size(), 1u);
}

TEST_F(WebServerTest, ThreadsBeyondTheIdleLimitEndWithTheirConnection) {
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
        EXPECT_EQ(ReadAnswer(client), "ok");
    EXPECT_TRUE(WaitUntil([&] { return server_.GetThreadCount() == 2; }));
    EXPECT_EQ(server_.GetIdleThreadCount(), 2u);
    EXPECT_EQ(server_.GetCreatedThreadCount(), 4u);
}

TEST_F(WebServerTest, AnIdleThreadEndsWhenItsWaitRunsOut) {
    server_.SetIdleThreadLimits(64, 50ms);
    Serve(AnswerOk);
    for (int i = 0; i < 2; ++i) {
        TCPSocket client = ConnectTo(server_.GetPort());
        SendAll(client, "GET /close HTTP/1.1\r\n\r\n");
        EXPECT_EQ(ReadAnswer(client), "ok");
        ASSERT_TRUE(WaitUntil([&] { return server_.GetThreadCount() == 0; }));
    }
    EXPECT_EQ(server_.GetCreatedThreadCount(), 2u);
}

TEST_F(WebServerTest, HandOversRacingTheEndOfIdleWaitsLoseNoConnection) {
    server_.SetIdleThreadLimits(64, 1ms);
    Serve(AnswerOk);
    std::mt19937 random(7);
    constexpr int kConnections = 300;
    for (int i = 0; i < kConnections; ++i) {
        TCPSocket client = ConnectTo(server_.GetPort());
        client.SetTimeouts(5);  // a lost connection fails the test instead of hanging it
        SendAll(client, "GET /close HTTP/1.1\r\n\r\n");
        ASSERT_EQ(ReadAnswer(client), "ok") << "connection " << i;
        // Scatters the next connection around the moment the idle wait runs out.
        std::this_thread::sleep_for(
            std::chrono::microseconds(std::uniform_int_distribution(0, 1500)(random)));
    }
    // Both ways were taken: some connections found a thread waiting, some a thread gone.
    EXPECT_GT(server_.GetCreatedThreadCount(), 1u);
    EXPECT_LT(server_.GetCreatedThreadCount(), static_cast<uint64_t>(kConnections));
}

TEST_F(WebServerTest, IdleConnectionsCloseSilentlyAfterTheKeepAliveTimeout) {
    server_.SetKeepAliveTimeout(1s);
    Serve(AnswerOk);
    // One client says nothing at all, the other idles after an answer that kept it.
    TCPSocket silent = ConnectTo(server_.GetPort());
    TCPSocket kept = ConnectTo(server_.GetPort());
    SendAll(kept, "GET /keep HTTP/1.1\r\n\r\n");
    EXPECT_EQ(ReadAnswer(kept), "ok");
    auto kept_idle = TimeUntilSilentClose(kept);
    // The server's clock started a moment before the answer reached the client.
    EXPECT_GE(kept_idle, 900ms);
    EXPECT_LT(kept_idle, 3s);
    EXPECT_LT(TimeUntilSilentClose(silent), 3s);
    // Their threads wait for new connections.
    EXPECT_TRUE(WaitUntil([&] { return server_.GetIdleThreadCount() == 2; }));
}

TEST_F(WebServerTest, RequestsWithinTheKeepAliveTimeoutAreServed) {
    server_.SetKeepAliveTimeout(1s);
    Serve(AnswerOk);
    TCPSocket client = ConnectTo(server_.GetPort());
    // Every pause is well inside the time-out and together they are well past it: the
    // time-out counts from the last answer.
    for (int i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        if (i > 0) {
            EXPECT_FALSE(client.WaitReadable(600ms));  // neither closed nor answered
        }
        SendAll(client, "GET /keep HTTP/1.1\r\n\r\n");
        EXPECT_EQ(ReadAnswer(client), "ok");
    }
}

TEST_F(WebServerTest, AKeepAliveTimeoutChangeReachesOpenConnections) {
    Serve(AnswerOk);
    TCPSocket client = ConnectTo(server_.GetPort());
    SendAll(client, "GET /keep HTTP/1.1\r\n\r\n");
    EXPECT_EQ(ReadAnswer(client), "ok");
    // The wait under way keeps the time-out it began with; the next one has the new one.
    server_.SetKeepAliveTimeout(1s);
    SendAll(client, "GET /keep HTTP/1.1\r\n\r\n");
    EXPECT_EQ(ReadAnswer(client), "ok");
    EXPECT_LT(TimeUntilSilentClose(client), 3s);
}

TEST_F(WebServerTest, ChangesPortOnlyWhenTheNewOneCanBeHad) {
    Serve([](HttpRequest& request) {
        request.SendHead(ResponseHead(200, "OK"));
        request.EndResponse();
    });
    int first = server_.GetPort();
    EXPECT_TRUE(server_.ChangePort(first));
    EXPECT_EQ(server_.GetPort(), first);

    TCPServerSocket taken;
    ASSERT_TRUE(taken.Listen(0));
    EXPECT_FALSE(server_.ChangePort(taken.GetLocalPort()));
    EXPECT_EQ(server_.GetPort(), first);
    TCPSocket still_served = ConnectTo(first);
    SendAll(still_served, "GET / HTTP/1.1\r\n\r\n");
    EXPECT_EQ(WithoutDate(ReadToClose(still_served)),
              "HTTP/1.1 200 OK\r\nConnection:close\r\n\r\n");

    TCPServerSocket probe;
    ASSERT_TRUE(probe.Listen(0));
    int free_port = probe.GetLocalPort();
    probe.Close();
    ASSERT_TRUE(server_.ChangePort(free_port));
    EXPECT_EQ(server_.GetPort(), free_port);
    TCPSocket moved = ConnectTo(free_port);
    SendAll(moved, "GET / HTTP/1.1\r\n\r\n");
    EXPECT_EQ(WithoutDate(ReadToClose(moved)), "HTTP/1.1 200 OK\r\nConnection:close\r\n\r\n");
}

TEST_F(WebServerTest, ListenOnATakenPortFails) {
    LogCapture capture;
    TCPServerSocket taken;
    ASSERT_TRUE(taken.Listen(0));
    EXPECT_FALSE(server_.Listen(taken.GetLocalPort()));
    EXPECT_EQ(server_.GetPort(), -1);
    EXPECT_TRUE(capture.Contains(
        kLogTrace, "server.Listen(" + std::to_string(taken.GetLocalPort()) + ") failed"));
}

// Every report must wait an hour.
class ThrottlingAggregator : public NullTransferStatusAggregator {
public:
    std::chrono::milliseconds GetPacingWait(TransferStatusReporter*, int) override {
        return std::chrono::hours(1);
    }
};

TEST_F(WebServerTest, StopEndsEveryThreadPromptlyEvenMidThrottle) {
    ThrottlingAggregator throttling;
    server_.SetTransferStatusAggregator(&throttling);
    std::atomic<bool> sending{false};
    Serve([&](HttpRequest& request) {
        request.SendHead(ResponseHead(200, "OK"));
        sending = true;
        for (int i = 0; i < 100; ++i)
            request.Send("chunk", 5);  // hours at this pace
        request.EndResponse();
    });
    TCPSocket idle = ConnectTo(server_.GetPort());
    TCPSocket slow = ConnectTo(server_.GetPort());
    SendAll(slow, "GET / HTTP/1.1\r\n\r\n");
    while (!sending)
        std::this_thread::yield();

    auto started = std::chrono::steady_clock::now();
    server_.Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(3));
    EXPECT_EQ(server_.GetPort(), -1);
    EXPECT_EQ(server_.GetThreadCount(), 0u);
    EXPECT_FALSE(server_.IsRunning());
    // Both clients see their connections end.
    (void)ReadToClose(idle);
    std::string partial = ReadToClose(slow);
    std::string body = partial.substr(partial.find("\r\n\r\n") + 4);
    EXPECT_LT(body.size(), std::string("chunk").size() * 100);  // cut off, never finished
    // The server can listen again afterwards.
    ASSERT_TRUE(server_.Listen(0));
}

TEST_F(WebServerTest, StopSendsIdleThreadsAwayAndCutsConnectionsMidRequest) {
    Serve(AnswerOk);
    // One thread waits for a kept connection's next request, one for the rest of a header,
    // one for a new connection: each for many seconds.
    TCPSocket kept = ConnectTo(server_.GetPort());
    SendAll(kept, "GET /keep HTTP/1.1\r\n\r\n");
    EXPECT_EQ(ReadAnswer(kept), "ok");
    TCPSocket half = ConnectTo(server_.GetPort());
    SendAll(half, "GET /half HTTP/1.1\r\nHost: x");
    TCPSocket finished = ConnectTo(server_.GetPort());
    SendAll(finished, "GET /close HTTP/1.1\r\n\r\n");
    EXPECT_EQ(ReadAnswer(finished), "ok");
    ASSERT_TRUE(WaitUntil(
        [&] { return server_.GetThreadCount() == 3 && server_.GetIdleThreadCount() == 1; }));

    auto started = std::chrono::steady_clock::now();
    server_.Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - started, 3s);
    EXPECT_EQ(server_.GetThreadCount(), 0u);
    EXPECT_EQ(server_.GetIdleThreadCount(), 0u);
    EXPECT_EQ(ReadToClose(kept), "");
    EXPECT_EQ(ReadToClose(half), "");
    // Listening again brings the idle pool back.
    ASSERT_TRUE(server_.Listen(0));
    TCPSocket again = ConnectTo(server_.GetPort());
    SendAll(again, "GET /close HTTP/1.1\r\n\r\n");
    EXPECT_EQ(ReadAnswer(again), "ok");
    EXPECT_TRUE(WaitUntil([&] { return server_.GetIdleThreadCount() == 1; }));
}

TEST_F(WebServerTest, DestroyingTheServerWhileRequestsRunIsSafe) {
    auto server = std::make_unique<WebServer>();
    std::atomic<bool> receiving{false};
    FunctionHandler handler([&](HttpRequest& request) {
        receiving = true;
        char buffer[16];
        request.ReceiveRaw(buffer, sizeof buffer);  // blocks: the client never sends more
    });
    server->SetRequestHandler(&handler);
    ASSERT_TRUE(server->Listen(0));
    TCPSocket client = ConnectTo(server->GetPort());
    SendAll(client, "GET / HTTP/1.1\r\n\r\n");
    while (!receiving)
        std::this_thread::yield();
    server.reset();
    EXPECT_EQ(ReadToClose(client), "");
}

TEST_F(WebServerTest, SendsFileBodiesStraightFromTheFile) {
    testing::TempFolder folder;
    std::string content;
    for (int i = 0; i < 300000; ++i)
        content += static_cast<char>('A' + i % 51);
    folder.Write("data.bin", content);
    Serve([&](HttpRequest& request) {
        UniqueFd file(::open((folder / "data.bin").c_str(), O_RDONLY | O_CLOEXEC));
        request.SendHead(ResponseHead(200, "OK"));
        if (request.GetPath() == "short") {
            request.SendFileBody(file.Get(), content.size() - 10, 20);  // only 10 bytes left
        } else {
            request.SendFileBody(file.Get(), 1, content.size() - 1);
        }
        request.EndResponse();
    });
    TCPSocket client = ConnectTo(server_.GetPort());
    SendAll(client, "GET /whole HTTP/1.1\r\n\r\n");
    EXPECT_EQ(WithoutDate(ReadToClose(client)),
              "HTTP/1.1 200 OK\r\nConnection:close\r\n\r\n" + content.substr(1));

    LogCapture capture;
    TCPSocket short_client = ConnectTo(server_.GetPort());
    SendAll(short_client, "GET /short HTTP/1.1\r\n\r\n");
    EXPECT_EQ(WithoutDate(ReadToClose(short_client)),
              "HTTP/1.1 200 OK\r\nConnection:close\r\n\r\n" + content.substr(content.size() - 10));
    EXPECT_TRUE(
        capture.WaitFor(kLogConnection, "Exception: The file ended before its length was sent"));
}

// Serves a fixed 1,000-byte entity with byte ranges, the way a download does.
void ServeEntity(HttpRequest& request) {
    std::string entity(1000, '\0');
    for (size_t i = 0; i < entity.size(); ++i)
        entity[i] = static_cast<char>('a' + i % 26);
    ByteRangeSet ranges;
    std::string range_header;
    bool partial = request.GetHeader("RANGE", range_header) && ranges.Parse(range_header);
    if (!ranges.Resolve(entity.size())) {
        request.SendHead(ResponseHead(416, "Requested Range Not Satisfiable")
                             .SetContentLength(0)
                             .AllowKeepAlive());
        request.EndResponse();
        return;
    }
    const ByteRangeSet::Range& range = ranges.GetRanges().front();
    ResponseHead head(partial ? 206 : 200, partial ? "Partial Content" : "OK");
    if (partial) head.Add("Content-range", ranges.ContentRangeValue());
    request.SendHead(head.SetContentLength(range.last - range.first + 1).AllowKeepAlive());
    request.Send(entity.data() + range.first, range.last - range.first + 1);
}

std::string RunCommand(const std::string& command) {
    std::string output;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) return output;
    char buffer[4096];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        output.append(buffer, got);
    ::pclose(pipe);
    return output;
}

TEST_F(WebServerTest, CurlDownloadsRangesOverOneKeptAliveConnection) {
    if (RunCommand("command -v curl").empty()) GTEST_SKIP() << "curl is not installed";
    std::atomic<int> requests{0};
    Serve([&](HttpRequest& request) {
        ++requests;
        ServeEntity(request);
    });
    std::string base = "http://127.0.0.1:" + std::to_string(server_.GetPort());
    std::string output = RunCommand("curl -s -r 26-51 " + base + "/one " + base +
                                    "/two -w ' %{http_code} %{num_connects}\\n' 2>&1");
    EXPECT_EQ(output,
              "abcdefghijklmnopqrstuvwxyz 206 1\n"
              "abcdefghijklmnopqrstuvwxyz 206 0\n");  // the second reused the connection
    EXPECT_EQ(requests, 2);
    EXPECT_EQ(RunCommand("curl -s -o /dev/null -w '%{http_code}' -r 1000- " + base + "/x"), "416");
    EXPECT_EQ(RunCommand("curl -s " + base + "/whole | wc -c"), "1000\n");
}

}  // namespace
}  // namespace Zarn
