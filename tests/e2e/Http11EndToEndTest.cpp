// HTTP/1.1 as clients that no one here wrote expect it, over raw sockets against the real
// program: HEAD, kept and pipelined connections, validators and conditional requests.

#include <gtest/gtest.h>

#include <string>

#include "support/RunningShare.h"

namespace Zarn {
namespace {

using testing::ConnectTo;
using testing::HttpResponse;
using testing::ReadResponse;
using testing::ReadToClose;
using testing::SendAll;

class Http11EndToEndTest : public testing::RunningShare {
protected:
    void SetUp() override {
        for (int i = 0; i < 256; ++i)
            content_ += static_cast<char>(i);
        share_.Write("a.bin", content_);
        share_.Write("sub/inner.txt", "inner");
        Start();
    }

    // Sends one request on the connection and reads its response.
    static HttpResponse Exchange(TCPSocket& client, const std::string& request) {
        SendAll(client, request);
        return ReadResponse(client, request.starts_with("HEAD "));
    }

    std::string content_;
};

TEST_F(Http11EndToEndTest, HeadAnswersAsGetWouldWithoutABodyOrATransfer) {
    for (const char* target : {"/docs/a.bin", "/docs/", "/docs/missing", "/robots.txt",
                               "/.default/common.js?action=SkinFile"}) {
        SCOPED_TRACE(target);
        HttpResponse get = Visit(target, "Connection: close\r\n");
        TCPSocket client = ConnectTo(port_);
        SendAll(client, std::string("HEAD ") + target +
                            " HTTP/1.1\r\nHost: test\r\nConnection: close\r\n\r\n");
        std::string bytes = ReadToClose(client);
        HttpResponse head = testing::ParseResponse(bytes);
        EXPECT_EQ(head.status_line, get.status_line);
        EXPECT_TRUE(bytes.ends_with("\r\n\r\n")) << "not a byte of body";
        for (const char* name : {"Content-Length", "Content-Type", "ETag", "Last-Modified",
                                 "Accept-Ranges", "Cache-Control"}) {
            EXPECT_EQ(head.Header(name), get.Header(name)) << name;
        }
    }
    // A HEAD may not create what its GET would.
    EXPECT_EQ(testing::Fetch(port_, "HEAD /docs/?action=MakeDirectory&name=x HTTP/1.1").status,
              400);
    EXPECT_FALSE(share_.Exists("x"));
}

TEST_F(Http11EndToEndTest, KeptAndPipelinedConnectionsAnswerEveryRequestInOrder) {
    TCPSocket client = ConnectTo(port_);
    EXPECT_EQ(Exchange(client, "GET /docs/a.bin HTTP/1.1\r\nHost: t\r\n\r\n").body, content_);
    HttpResponse listing = Exchange(client, "GET /docs/ HTTP/1.1\r\nHost: t\r\n\r\n");
    EXPECT_TRUE(listing.body.ends_with("</html>\n") || listing.body.ends_with("</html>"));
    EXPECT_EQ(Exchange(client, "GET /docs HTTP/1.1\r\nHost: t\r\n\r\n").status, 301);
    EXPECT_EQ(Exchange(client, "GET /.default/common.js?action=SkinFile HTTP/1.1\r\n\r\n").status,
              200);
    // Then all at once, an absolute-form target among them; the last asks to close.
    SendAll(client,
            "GET /docs/sub/inner.txt HTTP/1.1\r\nHost: t\r\n\r\n"
            "HEAD http://t/docs/a.bin HTTP/1.1\r\nHost: t\r\n\r\n"
            "GET /docs/none HTTP/1.1\r\nHost: t\r\n\r\n"
            "GET /docs/a.bin HTTP/1.1\r\nHost: t\r\nRange: bytes=-3\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(ReadResponse(client).body, "inner");
    EXPECT_EQ(ReadResponse(client, true).Header("Content-Length"), "256");
    EXPECT_EQ(ReadResponse(client).status, 404);
    HttpResponse tail = ReadResponse(client);
    EXPECT_EQ(tail.Header("Connection"), "close");
    EXPECT_EQ(tail.body, content_.substr(253));
    EXPECT_EQ(ReadToClose(client), "");  // and the server hangs up after the last
}

TEST_F(Http11EndToEndTest, OldClientsGetTheirConnectionClosedUnlessTheyAskToKeepIt) {
    TCPSocket old_client = ConnectTo(port_);
    SendAll(old_client, "GET /docs/a.bin HTTP/1.0\r\n\r\n");
    std::string bytes = ReadToClose(old_client);
    EXPECT_TRUE(testing::Contains(bytes, "\r\nConnection:close\r\n\r\n"));
    EXPECT_TRUE(bytes.ends_with(content_));

    TCPSocket kept = ConnectTo(port_);
    HttpResponse first = Exchange(kept, "GET /docs/ HTTP/1.0\r\nConnection: keep-alive\r\n\r\n");
    EXPECT_EQ(first.Header("Connection"), "keep-alive");
    EXPECT_FALSE(first.Header("Content-Length").empty());  // 1.0 knows no chunks
    EXPECT_EQ(Exchange(kept, "GET /docs/a.bin HTTP/1.0\r\n\r\n").body, content_);
    EXPECT_EQ(ReadToClose(kept), "");
}

TEST_F(Http11EndToEndTest, ValidatorsAnswerNotModifiedAndGuardRanges) {
    HttpResponse whole = Visit("/docs/a.bin");
    const std::string tag = whole.Header("ETag");
    ASSERT_FALSE(tag.empty());
    EXPECT_EQ(whole.Header("Accept-Ranges"), "bytes");
    auto ask = [&](const std::string& target, const std::string& headers) {
        return Visit(target, headers + "\r\n");
    };
    for (const std::string& condition :
         {"If-None-Match: " + tag, "If-Modified-Since: " + whole.Header("Last-Modified")}) {
        HttpResponse current = ask("/docs/a.bin", condition);
        EXPECT_EQ(current.status, 304) << condition;
        EXPECT_EQ(current.Header("ETag"), tag);
        EXPECT_EQ(current.body, "");
    }
    const std::string ranged = "Range: bytes=0-3\r\nIf-Range: " + tag;
    EXPECT_EQ(ask("/docs/a.bin", ranged).body, content_.substr(0, 4));
    // The file changed since the client's copy: it gets the new one whole, not a splice.
    share_.Write("a.bin", content_ + "grown");
    HttpResponse stale = ask("/docs/a.bin", ranged);
    EXPECT_EQ(stale.status, 200);
    EXPECT_EQ(stale.body, content_ + "grown");
    EXPECT_EQ(ask("/docs/a.bin", "If-None-Match: " + tag).status, 200);

    // Skin files revalidate by their tag and may be kept an hour.
    HttpResponse script = Visit("/.default/common.js?action=SkinFile");
    EXPECT_EQ(script.Header("Cache-Control"), "max-age=3600");
    EXPECT_EQ(ask("/.default/common.js?action=SkinFile", "If-None-Match: " + script.Header("ETag"))
                  .status,
              304);
}

}  // namespace
}  // namespace Zarn
