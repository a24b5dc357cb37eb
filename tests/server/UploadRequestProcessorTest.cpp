// An upload slower than the minute after which the progress table purges an entry, over a
// real connection, with the table's clock in the test's hands so that the minutes pass at
// once; and resumable uploads, which must not grow it for ever. How the progress page reads
// the table is the upload end-to-end test's business.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "config/KorvelConfig.h"
#include "core/Base64.h"
#include "http/HttpRequest.h"
#include "http/WebServer.h"
#include "server/TusRequestProcessor.h"
#include "server/UploadProgressTable.h"
#include "server/UploadRequestProcessor.h"
#include "share/MountManager.h"
#include "support/HttpClient.h"
#include "support/Multipart.h"
#include "support/TempFolder.h"
#include "transfer/GuiTransferStatusAggregator.h"

namespace Zarn {
namespace {

class UploadRequestProcessorTest : public ::testing::Test {
protected:
    void SetUp() override {
        home_.Write("mount.ini", "mounts+=docs|" + share_.Path() + "|x|yes|x|no\r\n");
        config_ = std::make_unique<KorvelConfig>(home_ / "mount.ini");
        mounts_ = std::make_unique<MountManager>(*config_);
        handler_ = std::make_unique<testing::FunctionHandler>([this](HttpRequest& request) {
            std::string action;
            if (request.GetQueryParameter("action", action) && action == "tus") {
                return TusRequestProcessor({.mounts = mounts_.get(), .progress = &table_})
                    .Process(request);
            }
            UploadRequestProcessor(*mounts_, table_, {}).ReceiveFile(request);
        });
        server_.SetRequestHandler(handler_.get());
        server_.SetTransferStatusAggregator(&transfers_);
        ASSERT_TRUE(server_.Listen(0));
    }

    // How far the running upload has come, as the progress table and the console see it.
    uint64_t PublishedBytes() {
        std::optional<UploadProgress> entry = table_.Find("slow");
        uint64_t position = 0;
        for (const auto& transfer : transfers_.Snapshot()) {
            if (transfer.kind == kDirectionUpload) position = transfer.upload.position;
        }
        return entry ? std::min(entry->received, position) : 0;
    }

    testing::TempFolder home_;
    testing::TempFolder share_;
    std::unique_ptr<KorvelConfig> config_;
    std::unique_ptr<MountManager> mounts_;
    std::atomic<uint32_t> now_{1000};
    UploadProgressTable table_{[this] { return now_.load(); }};
    GuiTransferStatusAggregator transfers_;
    std::unique_ptr<testing::FunctionHandler> handler_;
    WebServer server_;
};

TEST_F(UploadRequestProcessorTest, SlowUploadIsNotPurgedWhileItRuns) {
    // 10 KB a second for 80 seconds: well past the minute after which an entry is purged.
    constexpr size_t kPerSecond = 10000;
    constexpr int kSeconds = 80;
    std::string body = testing::MultipartBody(
        {{"uploadfile", "slow.bin", std::string(kPerSecond * kSeconds, 's')}});
    size_t content = body.find("\r\n\r\n") + 4;
    TCPSocket upload = testing::ConnectTo(server_.GetPort());
    testing::SendAll(upload, testing::MultipartHead("/docs/?key=slow", body.size()));
    testing::SendAll(upload, body.substr(0, content));
    bool following = true;
    for (int second = 1; second <= kSeconds && following; ++second) {
        testing::SendAll(upload, body.substr(content + (second - 1) * kPerSecond, kPerSecond));
        // Bytes that may still be the start of the closing delimiter are held back.
        uint64_t arrived = second * kPerSecond - 64;
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (PublishedBytes() < arrived && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        following = PublishedBytes() >= arrived;
        EXPECT_TRUE(following) << "the progress stood still after " << second << " s";
        now_ += 1000;
        table_.Purge();  // as other visitors' posts and pages do
    }
    testing::SendAll(upload, body.substr(content + kSeconds * kPerSecond));
    EXPECT_NE(testing::ReadToClose(upload).find("slow.bin: 800,000 바이트를 받았습니다."),
              std::string::npos);
    std::optional<UploadProgress> entry = table_.Find("slow");
    ASSERT_TRUE(entry.has_value());
    EXPECT_EQ(entry->state, UploadProgress::kFinished);
    EXPECT_EQ(share_.Read("slow.bin").size(), kPerSecond * kSeconds);
}

TEST_F(UploadRequestProcessorTest, ResumableUploadsLeaveNoStaleRowsBehind) {
    auto create = [this](const std::string& name) {
        testing::HttpResponse created = testing::Fetch(
            server_.GetPort(),
            "POST /docs/?action=tus HTTP/1.1\r\nHost: x\r\n"
            "Tus-Resumable: 1.0.0\r\nUpload-Length: 10\r\n"
            "Upload-Metadata: filename " +
                Base64Encode(name) + "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
        ASSERT_EQ(created.status, 201) << created.status_line;
    };
    for (const char* name : {"a.bin", "b.bin", "c.bin"})
        create(name);
    EXPECT_EQ(table_.Size(), 3u);
    now_ += 61000;  // nobody asked about those three for over a minute
    create("d.bin");
    EXPECT_EQ(table_.Size(), 1u);
}

}  // namespace
}  // namespace Zarn
