#include <gtest/gtest.h>

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

constexpr char kSimpleRequest[] =
    "GET /music/a%20b.mp3?sort=name HTTP/1.1\r\nHost: example\r\nRange: bytes=0-9\r\n\r\n";

class HttpConnectionTest : public ::testing::Test {
protected:
    HttpConnectionTest() : pair_(LoopbackPair::Make()), connection_(std::move(pair_.server)) {}

    std::unique_ptr<HttpRequest> NewRequest() {
        return std::make_unique<HttpRequest>(&connection_,
                                             NullTransferStatusAggregator::Instance());
    }

    // Reads one request while `pieces` arrive one receive at a time.
    std::unique_ptr<HttpRequest> ReadWhileSending(const std::vector<std::string>& pieces) {
        std::thread writer([&] { SendInPieces(pair_.client, connection_.GetSocket(), pieces); });
        auto request = NewRequest();
        bool read = false;
        try {
            read = connection_.ReadHeader(*request);
        } catch (...) {
            writer.join();
            throw;
        }
        writer.join();
        EXPECT_TRUE(read);
        return request;
    }

    static void ExpectSimpleRequest(const HttpRequest& request) {
        EXPECT_EQ(request.GetMethod(), HttpMethod::kGet);
        EXPECT_EQ(request.GetPath(), "music/a b.mp3");
        std::string value;
        EXPECT_TRUE(request.GetQueryParameter("sort", value));
        EXPECT_EQ(value, "name");
        EXPECT_TRUE(request.GetHeader("RANGE", value));
        EXPECT_EQ(value, "bytes=0-9");
    }

    LoopbackPair pair_;
    HttpConnection connection_;
};

TEST_F(HttpConnectionTest, FindsHeaderWhateverTheReceivesLookLike) {
    const std::string text = kSimpleRequest;
    size_t terminator = text.find("\r\n\r\n");
    const std::vector<std::vector<std::string>> splits = {
        {text},
        // The blank line split as CR LF CR | LF, and as CR | LF CR LF.
        {text.substr(0, terminator + 3), text.substr(terminator + 3)},
        {text.substr(0, terminator + 1), text.substr(terminator + 1)},
        {text.substr(0, 5), text.substr(5, 30), text.substr(35)},
    };
    for (const auto& pieces : splits) {
        SCOPED_TRACE(pieces.size());
        ExpectSimpleRequest(*ReadWhileSending(pieces));
    }
}

TEST_F(HttpConnectionTest, ReadsHeaderArrivingOneByteAtATime) {
    std::vector<std::string> pieces;
    for (char c : std::string(kSimpleRequest))
        pieces.emplace_back(1, c);
    ExpectSimpleRequest(*ReadWhileSending(pieces));
}

TEST_F(HttpConnectionTest, ReadsPipelinedRequestsFromOneReceive) {
    SendAll(pair_.client, std::string(kSimpleRequest) + "GET /second HTTP/1.1\r\n\r\n" +
                              "POST /third HTTP/1.1\r\nContent-Length: 3\r\n"
                              "Content-Type: application/x-www-form-urlencoded\r\n\r\na=b");
    auto first = NewRequest();
    ASSERT_TRUE(connection_.ReadHeader(*first));
    ExpectSimpleRequest(*first);
    auto second = NewRequest();
    ASSERT_TRUE(connection_.ReadHeader(*second));
    EXPECT_EQ(second->GetPath(), "second");
    auto third = NewRequest();
    ASSERT_TRUE(connection_.ReadHeader(*third));
    std::string value;
    EXPECT_TRUE(third->GetFormParameter("a", value));
    EXPECT_EQ(value, "b");
    EXPECT_EQ(third->GetConsumedLength(), 3u);
}

TEST_F(HttpConnectionTest, ReadsFormBodyThatCameWithTheHeaderAndTheRestLater) {
    std::string head =
        "POST /form HTTP/1.1\r\nContent-Type: application/x-www-form-urlencoded\r\n"
        "Content-Length: 27\r\n\r\n";
    std::string body = "name=%ED%95%9C+x&empty=&z=1";
    ASSERT_EQ(body.size(), 27u);
    auto request = ReadWhileSending({head + body.substr(0, 8), body.substr(8) + "GET /next "});
    std::string value;
    EXPECT_TRUE(request->GetFormParameter("name", value));
    EXPECT_EQ(value, "한 x");
    EXPECT_TRUE(request->GetFormParameter("empty", value));
    EXPECT_EQ(value, "");
    EXPECT_EQ(request->GetFormParameters().size(), 3u);
    // The bytes after the body belong to the next request, not to the form.
    SendAll(pair_.client, "HTTP/1.1\r\n\r\n");
    auto next = NewRequest();
    ASSERT_TRUE(connection_.ReadHeader(*next));
    EXPECT_EQ(next->GetPath(), "next");
}

TEST_F(HttpConnectionTest, StreamedBodyEndsAtContentLengthAndLeavesTheNextRequest) {
    SendAll(pair_.client,
            "PUT /x HTTP/1.1\r\nContent-Length: 5\r\n\r\nhelloGET /after HTTP/1.1\r\n\r\n");
    auto request = NewRequest();
    ASSERT_TRUE(connection_.ReadHeader(*request));
    EXPECT_EQ(request->GetMethod(), HttpMethod::kOther);
    char buffer[64];
    int got = request->ReceiveBody(buffer, sizeof buffer);
    EXPECT_EQ(std::string(buffer, static_cast<size_t>(got)), "hello");
    EXPECT_EQ(request->ReceiveBody(buffer, sizeof buffer), 0);
    auto next = NewRequest();
    ASSERT_TRUE(connection_.ReadHeader(*next));
    EXPECT_EQ(next->GetPath(), "after");
}

TEST_F(HttpConnectionTest, StreamsMultipartBodyThenReadsTheNextRequest) {
    std::string payload(50000, 'x');
    for (size_t i = 0; i < payload.size(); i += 97)
        payload[i] = '\r';
    std::string body =
        "--XyZ\r\nContent-Disposition: form-data; name=\"uploadfile\"; "
        "filename=\"a.bin\"\r\n\r\n" +
        payload + "\r\n--XyZ--\r\n";
    std::string head =
        "POST /up HTTP/1.1\r\nContent-Type: multipart/form-data; boundary=XyZ\r\n"
        "Content-Length: " +
        std::to_string(body.size()) + "\r\n\r\n";
    std::thread writer([&] { SendAll(pair_.client, head + body + "GET /n HTTP/1.1\r\n\r\n"); });
    auto request = NewRequest();
    ASSERT_TRUE(connection_.ReadHeader(*request));
    EXPECT_TRUE(request->IsMultipart());
    MultipartPart part;
    ASSERT_TRUE(request->ReadNextPart(part));
    EXPECT_EQ(part.name, "uploadfile");
    EXPECT_EQ(part.file_name, "a.bin");
    std::string received;
    char buffer[3000];
    bool ended = false;
    while (!ended) {
        int got = request->ReadPartData(buffer, sizeof buffer, ended);
        received.append(buffer, static_cast<size_t>(got));
    }
    EXPECT_EQ(received, payload);
    EXPECT_FALSE(request->ReadNextPart(part));
    EXPECT_FALSE(request->IsMultipartBroken());
    char rest[16];
    while (request->ReceiveBody(rest, sizeof rest) > 0) {
    }
    EXPECT_EQ(request->GetConsumedLength(), body.size());
    auto next = NewRequest();
    ASSERT_TRUE(connection_.ReadHeader(*next));
    EXPECT_EQ(next->GetPath(), "n");
    writer.join();
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

TEST_F(HttpConnectionTest, AcceptsHeaderOfExactlyTheLimit) {
    std::string start = "GET /x HTTP/1.1\r\nX: ";
    std::string request =
        start + std::string(HttpConnection::kMaxHeaderBytes - start.size() - 4, 'a') + "\r\n\r\n";
    ASSERT_EQ(request.size(), HttpConnection::kMaxHeaderBytes);
    SendAll(pair_.client, request);
    auto parsed = NewRequest();
    ASSERT_TRUE(connection_.ReadHeader(*parsed));
    EXPECT_EQ(parsed->GetPath(), "x");
}

TEST_F(HttpConnectionTest, PeerClosingMidHeaderEndsWithConnectionClosed) {
    SendAll(pair_.client, "GET / HTTP/1.1\r\nHost:");
    pair_.client.Close();
    auto request = NewRequest();
    try {
        (void)connection_.ReadHeader(*request);
        ADD_FAILURE() << "a half header was accepted";
    } catch (const socket_exception& error) {
        EXPECT_STREQ(error.what(), "Connection closed");
    }
}

TEST_F(HttpConnectionTest, SurvivesNulBytesInTheHeader) {
    using namespace std::string_literals;
    SendAll(pair_.client, "GET /a\0b?x=\0 HTTP/1.1\r\nX-\0: v\0w\r\n\r\n"s);
    auto request = NewRequest();
    ASSERT_TRUE(connection_.ReadHeader(*request));
    EXPECT_EQ(request->GetPath(), "a\0b"s);
    std::string value;
    EXPECT_TRUE(request->GetHeader("X-\0"s, value));
    EXPECT_EQ(value, "v\0w"s);
}

TEST_F(HttpConnectionTest, HugeContentLengthNeverReadsPastWhatTheClientSends) {
    SendAll(pair_.client, "POST /f HTTP/1.1\r\nContent-Length: 18446744073709551615\r\n\r\nabc");
    auto form = NewRequest();
    EXPECT_THROW((void)connection_.ReadHeader(*form), std::runtime_error);

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
