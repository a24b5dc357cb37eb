#include <gtest/gtest.h>

#include <chrono>
#include <random>
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

TEST_F(HttpConnectionTest, FindsHeaderWhateverTheReceivesLookLike) {
    const std::string text =
        "GET /music/a%20b.mp3 HTTP/1.1\r\nHost: example\r\nRange: bytes=0-9\r\n\r\n";
    size_t terminator = text.find("\r\n\r\n");
    std::vector<std::vector<std::string>> splits = {
        {text},
        // The blank line split as CR LF CR | LF, and as CR | LF CR LF.
        {text.substr(0, terminator + 3), text.substr(terminator + 3)},
        {text.substr(0, terminator + 1), text.substr(terminator + 1)},
        {text.substr(0, 5), text.substr(5, 30), text.substr(35)},
        {},
    };
    for (char c : text)
        splits.back().emplace_back(1, c);
    for (const auto& pieces : splits) {
        SCOPED_TRACE(pieces.size());
        std::jthread writer([&] { SendInPieces(pair_.client, connection_.GetSocket(), pieces); });
        auto request = NewRequest();
        ASSERT_TRUE(connection_.ReadHeader(*request));
        EXPECT_EQ(request->GetPath(), "music/a b.mp3");
        std::string range;
        EXPECT_TRUE(request->GetHeader("RANGE", range));
        EXPECT_EQ(range, "bytes=0-9");
    }
}

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
    std::mt19937 random(13);
    for (const Case& c : cases) {
        for (int round = 0; round < 4; ++round) {
            SCOPED_TRACE(::testing::Message() << c.label << ", round " << round);
            std::string bytes =
                "POST /form HTTP/1.1\r\nContent-Type: application/x-www-form-urlencoded\r\n"
                "Content-Length: " +
                std::to_string(c.body.size()) + "\r\n\r\n" + c.body + "GET /next HTTP/1.1\r\n\r\n";
            // Round 0 sends everything at once, the others in pieces of 1 to 9 bytes.
            std::vector<std::string> pieces;
            for (size_t at = 0; at < bytes.size();) {
                size_t size =
                    round == 0 ? bytes.size() : std::uniform_int_distribution<size_t>(1, 9)(random);
                pieces.push_back(bytes.substr(at, size));
                at += size;
            }
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

TEST_F(HttpConnectionTest, BodiesEndAtTheirLengthAndLeaveTheNextRequest) {
    std::string payload(50000, 'x');
    for (size_t i = 0; i < payload.size(); i += 97)
        payload[i] = '\r';
    std::string body =
        "--XyZ\r\nContent-Disposition: form-data; name=\"uploadfile\"; "
        "filename=\"a.bin\"\r\n\r\n" +
        payload + "\r\n--XyZ--\r\n";
    std::jthread writer([&] {
        SendAll(pair_.client,
                "PUT /x HTTP/1.1\r\nContent-Length: 5\r\n\r\nhello"
                "POST /up HTTP/1.1\r\nContent-Type: multipart/form-data; boundary=\"XyZ\"\r\n"
                "Content-Length: " +
                    std::to_string(body.size()) + "\r\n\r\n" + body + "GET /n HTTP/1.1\r\n\r\n");
    });
    auto put = NewRequest();
    ASSERT_TRUE(connection_.ReadHeader(*put));
    EXPECT_EQ(put->GetMethod(), HttpMethod::kOther);
    char buffer[3000];
    int got = put->ReceiveBody(buffer, sizeof buffer);
    EXPECT_EQ(std::string(buffer, static_cast<size_t>(got)), "hello");
    EXPECT_EQ(put->ReceiveBody(buffer, sizeof buffer), 0);

    auto request = NewRequest();
    ASSERT_TRUE(connection_.ReadHeader(*request));
    EXPECT_TRUE(request->IsMultipart());
    MultipartPart part;
    ASSERT_TRUE(request->ReadNextPart(part));
    EXPECT_EQ(part.name, "uploadfile");
    EXPECT_EQ(part.file_name, "a.bin");
    std::string received;
    for (bool ended = false; !ended;)
        received.append(buffer,
                        static_cast<size_t>(request->ReadPartData(buffer, sizeof buffer, ended)));
    EXPECT_EQ(received, payload);
    EXPECT_FALSE(request->ReadNextPart(part));
    EXPECT_FALSE(request->IsMultipartBroken());
    while (request->ReceiveBody(buffer, sizeof buffer) > 0) {
    }
    EXPECT_EQ(request->GetConsumedLength(), body.size());
    auto next = NewRequest();
    ASSERT_TRUE(connection_.ReadHeader(*next));
    EXPECT_EQ(next->GetPath(), "n");
}

TEST_F(HttpConnectionTest, KeepAliveTimeoutBoundsOnlyTheWaitForARequestToBegin) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kIdle(200);
    connection_.SetKeepAliveTimeout(kIdle);
    // Sends the rest of a request only after the idle time has passed twice over.
    auto send_late = [&](std::string bytes) {
        return std::jthread([this, bytes, delay = 2 * kIdle] {
            std::this_thread::sleep_for(delay);
            SendAll(pair_.client, bytes);
        });
    };

    // Pipelined requests, the last one cut short, are read whatever the idle time: one that
    // is complete needs no wait, one that has begun waits under the header deadline.
    SendAll(pair_.client, "GET /a HTTP/1.1\r\n\r\nGET /b HTTP/1.1\r\n\r\nGET /c HT");
    for (std::string path : {"a", "b", "c"}) {
        SCOPED_TRACE(path);
        std::jthread rest;
        if (path == "c") rest = send_late("TP/1.1\r\n\r\n");
        auto request = NewRequest();
        ASSERT_TRUE(connection_.ReadHeader(*request));
        EXPECT_EQ(request->GetPath(), path);
    }
    // So does a request whose first byte comes in time.
    SendAll(pair_.client, "G");
    {
        std::jthread rest = send_late("ET /d HTTP/1.1\r\n\r\n");
        auto request = NewRequest();
        ASSERT_TRUE(connection_.ReadHeader(*request));
        EXPECT_EQ(request->GetPath(), "d");
    }
    // Silence, or blank lines that begin no request, end the read empty-handed.
    for (std::string before : {"", "\r\n"}) {
        SCOPED_TRACE(before.size());
        SendAll(pair_.client, before);
        auto started = Clock::now();
        auto request = NewRequest();
        EXPECT_FALSE(connection_.ReadHeader(*request));
        EXPECT_GE(Clock::now() - started, kIdle);
        EXPECT_LT(Clock::now() - started, std::chrono::seconds(5));
    }
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
