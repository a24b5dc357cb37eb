// HTTP/1.1 as clients that no one here wrote expect it, over raw sockets against the real
// program: HEAD, kept and pipelined connections, validators and conditional requests, and
// large listings in chunks.

#include <gtest/gtest.h>

#include <string>

#include "support/HttpClient.h"
#include "support/ProgramRunner.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::ConnectTo;
using testing::Fetch;
using testing::Get;
using testing::HttpResponse;
using testing::ProgramRunner;
using testing::ReadResponse;
using testing::ReadToClose;
using testing::SendAll;
using testing::TempFolder;

class Http11EndToEndTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (int i = 0; i < 256; ++i)
            content_ += static_cast<char>(i);
        share_.Write("a.bin", content_);
        share_.Write("sub/inner.txt", "inner");
        home_.Write("mount.ini", "mounts+=docs|" + share_.Path() +
                                     "|x|yes|x|no\r\nuiLanguageFile=English.wul\r\n");
        program_ = std::make_unique<ProgramRunner>(home_.Path());
        port_ = program_->Port();
    }

    // Sends one request on the connection and reads its response.
    static HttpResponse Exchange(TCPSocket& client, const std::string& request) {
        SendAll(client, request);
        return ReadResponse(client, request.starts_with("HEAD "));
    }

    std::string content_;
    TempFolder share_;
    TempFolder home_;
    std::unique_ptr<ProgramRunner> program_;
    int port_ = -1;
};

TEST_F(Http11EndToEndTest, HeadAnswersAsGetWouldWithoutABodyOrATransfer) {
    for (const char* target : {"/docs/a.bin", "/docs/", "/docs/missing", "/robots.txt",
                               "/.default/common.js?action=SkinFile"}) {
        SCOPED_TRACE(target);
        HttpResponse get = Get(port_, target, "Connection: close\r\n");
        TCPSocket client = ConnectTo(port_);
        SendAll(client, std::string("HEAD ") + target +
                            " HTTP/1.1\r\nHost: test\r\nConnection: close\r\n\r\n");
        std::string bytes = ReadToClose(client);
        HttpResponse head = testing::ParseResponse(bytes);
        EXPECT_EQ(head.status_line, get.status_line);
        EXPECT_TRUE(bytes.ends_with("\r\n\r\n")) << "not a byte of body";
        EXPECT_EQ(head.body, "");
        for (const char* name : {"Content-Length", "Content-Type", "ETag", "Last-Modified",
                                 "Accept-Ranges", "Cache-Control"}) {
            EXPECT_EQ(head.Header(name), get.Header(name)) << name;
        }
        EXPECT_FALSE(head.Header("Date").empty());
    }
    // A HEAD may not create what its GET would.
    HttpResponse refused =
        Fetch(port_, "HEAD /docs/?action=MakeDirectory&name=x HTTP/1.1\r\nHost: test\r\n\r\n");
    EXPECT_EQ(refused.status, 400);
    EXPECT_FALSE(std::filesystem::exists(share_ / "x"));
    // Other unknown methods are still bad requests.
    EXPECT_EQ(Fetch(port_, "PUT /docs/a.bin HTTP/1.1\r\nContent-Length: 0\r\n\r\n").status, 400);
}

TEST_F(Http11EndToEndTest, OneConnectionCarriesFilesListingsErrorsAndRedirects) {
    TCPSocket client = ConnectTo(port_);
    HttpResponse file = Exchange(client, "GET /docs/a.bin HTTP/1.1\r\nHost: t\r\n\r\n");
    EXPECT_EQ(file.body, content_);
    HttpResponse listing = Exchange(client, "GET /docs/ HTTP/1.1\r\nHost: t\r\n\r\n");
    EXPECT_EQ(listing.status, 200);
    EXPECT_NE(listing.body.find("inner"), std::string::npos);  // the sub-folder is listed
    EXPECT_TRUE(listing.body.ends_with("</html>\n") || listing.body.ends_with("</html>"));
    EXPECT_EQ(Exchange(client, "GET /docs/none HTTP/1.1\r\nHost: t\r\n\r\n").status, 404);
    EXPECT_EQ(Exchange(client, "GET /docs HTTP/1.1\r\nHost: t\r\n\r\n").status, 301);
    HttpResponse range =
        Exchange(client, "GET /docs/a.bin HTTP/1.1\r\nHost: t\r\nRange: bytes=10-19\r\n\r\n");
    EXPECT_EQ(range.status, 206);
    EXPECT_EQ(range.body, content_.substr(10, 10));
    HttpResponse skin =
        Exchange(client, "GET /.default/common.js?action=SkinFile HTTP/1.1\r\nHost: t\r\n\r\n");
    EXPECT_EQ(skin.status, 200);
    // The last one asks to close: the exact line comes last, and the server hangs up.
    SendAll(client, "GET /docs/a.bin HTTP/1.1\r\nHost: t\r\nConnection: close\r\n\r\n");
    std::string last = ReadToClose(client);
    EXPECT_NE(last.find("\r\nConnection:close\r\n\r\n"), std::string::npos);
    EXPECT_TRUE(last.ends_with(content_));
}

TEST_F(Http11EndToEndTest, PipelinedRequestsAreAnsweredInOrder) {
    TCPSocket client = ConnectTo(port_);
    SendAll(client,
            "GET /docs/sub/inner.txt HTTP/1.1\r\nHost: t\r\n\r\n"
            "HEAD /docs/a.bin HTTP/1.1\r\nHost: t\r\n\r\n"
            "GET /docs/none HTTP/1.1\r\nHost: t\r\n\r\n"
            "GET /docs/a.bin HTTP/1.1\r\nHost: t\r\nRange: bytes=-3\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(ReadResponse(client).body, "inner");
    HttpResponse head = ReadResponse(client, true);
    EXPECT_EQ(head.Header("Content-Length"), "256");
    EXPECT_EQ(ReadResponse(client).status, 404);
    HttpResponse tail = ReadResponse(client);
    EXPECT_EQ(tail.body, content_.substr(253));
    EXPECT_EQ(ReadToClose(client), "");  // and nothing after the last
}

TEST_F(Http11EndToEndTest, OldClientsAndClosingClientsGetTheirConnectionClosed) {
    // HTTP/1.0 closes unless it asks otherwise; asked, it keeps and is told so.
    TCPSocket old_client = ConnectTo(port_);
    SendAll(old_client, "GET /docs/a.bin HTTP/1.0\r\n\r\n");
    std::string bytes = ReadToClose(old_client);
    EXPECT_NE(bytes.find("\r\nConnection:close\r\n\r\n"), std::string::npos);
    EXPECT_TRUE(bytes.ends_with(content_));

    TCPSocket kept = ConnectTo(port_);
    HttpResponse first = Exchange(kept, "GET /docs/ HTTP/1.0\r\nConnection: keep-alive\r\n\r\n");
    EXPECT_EQ(first.Header("Connection"), "keep-alive");
    EXPECT_FALSE(first.Header("Content-Length").empty());  // 1.0 knows no chunks
    EXPECT_EQ(Exchange(kept, "GET /docs/a.bin HTTP/1.0\r\n\r\n").body, content_);
    EXPECT_EQ(ReadToClose(kept), "");

    // A post that is answered before its body is read closes, whatever was asked.
    TCPSocket posting = ConnectTo(port_);
    SendAll(posting,
            "POST /docs/ HTTP/1.1\r\nContent-Type: application/x-www-form-urlencoded\r\n"
            "Content-Length: 2000000\r\n\r\n");
    HttpResponse refused = testing::ParseResponse(ReadToClose(posting));
    EXPECT_EQ(refused.status, 413);
    EXPECT_EQ(refused.Header("Connection"), "close");
}

TEST_F(Http11EndToEndTest, ValidatorsAnswerNotModifiedAndGuardRanges) {
    HttpResponse whole = Get(port_, "/docs/a.bin");
    std::string tag = whole.Header("ETag");
    std::string modified = whole.Header("Last-Modified");
    ASSERT_FALSE(tag.empty());
    ASSERT_FALSE(modified.empty());
    EXPECT_EQ(whole.Header("Accept-Ranges"), "bytes");

    TCPSocket client = ConnectTo(port_);
    for (const std::string& condition :
         {"If-None-Match: " + tag, "If-Modified-Since: " + modified}) {
        HttpResponse current =
            Exchange(client, "GET /docs/a.bin HTTP/1.1\r\nHost: t\r\n" + condition + "\r\n\r\n");
        EXPECT_EQ(current.status, 304) << condition;
        EXPECT_EQ(current.Header("ETag"), tag);
        EXPECT_EQ(current.body, "");
    }
    HttpResponse matching = Exchange(client,
                                     "GET /docs/a.bin HTTP/1.1\r\nHost: t\r\nRange: bytes=0-3\r\n"
                                     "If-Range: " +
                                         tag + "\r\n\r\n");
    EXPECT_EQ(matching.status, 206);
    EXPECT_EQ(matching.body, content_.substr(0, 4));
    // The file changed since the client's copy: it gets the new one whole, not a splice.
    share_.Write("a.bin", content_ + "grown");
    HttpResponse stale = Exchange(client,
                                  "GET /docs/a.bin HTTP/1.1\r\nHost: t\r\nRange: bytes=0-3\r\n"
                                  "If-Range: " +
                                      tag + "\r\n\r\n");
    EXPECT_EQ(stale.status, 200);
    EXPECT_EQ(stale.body, content_ + "grown");
    EXPECT_NE(stale.Header("ETag"), tag);
    EXPECT_EQ(Exchange(client,
                       "GET /docs/a.bin HTTP/1.1\r\nHost: t\r\nIf-None-Match: " + tag + "\r\n\r\n")
                  .status,
              200);

    // Skin files revalidate by their tag and may be kept an hour.
    HttpResponse script = Get(port_, "/.default/common.js?action=SkinFile");
    EXPECT_EQ(script.Header("Cache-Control"), "max-age=3600");
    EXPECT_EQ(Exchange(client,
                       "GET /.default/common.js?action=SkinFile HTTP/1.1\r\nHost: t\r\n"
                       "If-None-Match: " +
                           script.Header("ETag") + "\r\n\r\n")
                  .status,
              304);
}

TEST_F(Http11EndToEndTest, ALargeListingIsChunkedAndMatchesTheWholePage) {
    for (int i = 0; i < 1000; ++i)
        share_.Write("many/file-" + std::to_string(i) + ".txt", "");
    TCPSocket client = ConnectTo(port_);
    SendAll(client, "GET /docs/many/ HTTP/1.1\r\nHost: t\r\n\r\n");
    bool chunked = false;
    HttpResponse page = ReadResponse(client, false, &chunked);
    EXPECT_TRUE(chunked);
    EXPECT_EQ(page.Header("Content-Length"), "");
    // The same page to a client that knows no chunks runs to the close.
    HttpResponse old = Fetch(port_, "GET /docs/many/ HTTP/1.0\r\n\r\n");
    // (The free space may change in between.)
    auto without_free_space = [](std::string text) {
        constexpr std::string_view kAfterNumber = "</span> bytes";
        for (size_t end = text.find(kAfterNumber); end != std::string::npos;
             end = text.find(kAfterNumber, end + 1)) {
            size_t start = text.find_last_not_of("0123456789,", end - 1) + 1;
            text.erase(start, end - start);
            end = start;
        }
        return text;
    };
    EXPECT_TRUE(without_free_space(page.body) == without_free_space(old.body));
    EXPECT_NE(page.body.find("file-999.txt"), std::string::npos);
    // The connection is still good after the last chunk.
    EXPECT_EQ(Exchange(client, "GET /docs/sub/inner.txt HTTP/1.1\r\nHost: t\r\n\r\n").body,
              "inner");
}

TEST_F(Http11EndToEndTest, AbsoluteFormTargetsAreServedOnKeptConnections) {
    TCPSocket client = ConnectTo(port_);
    EXPECT_EQ(
        Exchange(client, "GET http://elsewhere:81/docs/a.bin HTTP/1.1\r\nHost: t\r\n\r\n").body,
        content_);
    EXPECT_EQ(Exchange(client, "HEAD http://t/docs/ HTTP/1.1\r\nHost: t\r\n\r\n").status, 200);
}

}  // namespace
}  // namespace Zarn
