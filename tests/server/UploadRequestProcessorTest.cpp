// Uploads, resumable ones and the progress page over real connections, with the progress
// table's clock and the page's waits in the test's hands so that minutes pass at once. How
// the progress page follows a real upload is the upload end-to-end test's business.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "config/KorvelConfig.h"
#include "core/Base64.h"
#include "core/StringUtil.h"
#include "http/HttpRequest.h"
#include "http/WebServer.h"
#include "server/IncomingFile.h"
#include "server/TusRequestProcessor.h"
#include "server/UploadProgressTable.h"
#include "server/UploadRequestProcessor.h"
#include "server/UploadStatusReportingRequestProcessor.h"
#include "share/MountManager.h"
#include "support/HttpClient.h"
#include "support/Multipart.h"
#include "support/TempFolder.h"
#include "transfer/GuiTransferStatusAggregator.h"

namespace Zarn {
namespace {

using std::chrono::milliseconds;

class UploadRequestProcessorTest : public ::testing::Test {
protected:
    void SetUp() override {
        home_.Write("mount.ini", "mounts+=docs|" + share_.Path() + "|x|yes|x|no\r\n");
        config_ = std::make_unique<KorvelConfig>(home_ / "mount.ini");
        mounts_ = std::make_unique<MountManager>(*config_);
        handler_ = std::make_unique<testing::FunctionHandler>([this](HttpRequest& request) {
            std::string action;
            (void)request.GetQueryParameter("action", action);
            if (action == "tus") {
                TusRequestProcessor({.mounts = mounts_.get(), .progress = &table_})
                    .Process(request);
            } else if (action == "UploadStatus") {
                UploadStatusReportingRequestProcessor(table_, [this](milliseconds wait) {
                    waits_.push_back(wait);
                    now_ += static_cast<uint32_t>(wait.count());
                    return true;
                }).SendStatus(request);
            } else {
                UploadRequestProcessor(*mounts_, table_, {}).ReceiveFile(request);
            }
        });
        server_.SetRequestHandler(handler_.get());
        server_.SetTransferStatusAggregator(&transfers_);
        ASSERT_TRUE(server_.Listen(0));
    }

    std::string Page(const std::string& key) {
        return testing::Get(server_.GetPort(), "/?action=UploadStatus&key=" + key).body;
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
    std::vector<milliseconds> waits_;
    GuiTransferStatusAggregator transfers_;
    std::unique_ptr<testing::FunctionHandler> handler_;
    WebServer server_;
};

std::string Chunk(const std::string& message, int progress) {
    return "\n\n<script type='text/javascript' language='JavaScript'>parent.onUpdateUpload('" +
           message + "');\nparent.onUpdateProgress(" + std::to_string(progress) + ");\n</script>\n";
}

const std::string kHead = "<meta http-equiv='Content-Type' content='text/html; charset=utf-8'>";

// Rows nobody asked about for a minute go, whether a page or a new upload comes next; a key
// never seen fails after ten looks a second apart.
TEST_F(UploadRequestProcessorTest, OldRowsArePurgedAndAnUnknownKeyFailsAfterTenLooks) {
    table_.Put("old", {.state = UploadProgress::kFailed, .file_name = "old"});
    now_ += 60000;
    table_.Put("fresh", {.state = UploadProgress::kFinished, .file_name = "fresh"});
    EXPECT_EQ(Page("old"), kHead + Chunk("<b>old</b><br/>업로드가 실패했습니다.", 0));
    now_ += 1;
    EXPECT_NE(Page("fresh").find("<b>fresh</b>"), std::string::npos);
    EXPECT_EQ(table_.Size(), 1u);  // "old" went with that page

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
    EXPECT_EQ(table_.Size(), 4u);
    now_ += 61000;
    create("d.bin");
    EXPECT_EQ(table_.Size(), 1u);

    std::string expected = kHead;
    std::string dots;
    for (int miss = 1; miss < 10; ++miss) {
        dots += ".";
        expected += Chunk("업로드 준비 중." + dots, 0);
    }
    expected += Chunk("업로드가 실패했습니다.", 0);
    EXPECT_EQ(Page("nobody"), expected);
    EXPECT_EQ(waits_, std::vector<milliseconds>(9, milliseconds(1000)));

    // A stalled upload counts as 1 KB/s, so that its time left is a figure, not a division
    // by zero.
    UploadProgress slow{.received = 1000, .total = 5000 * 1024, .bytes_per_second = 0};
    EXPECT_TRUE(UploadStatusReportingRequestProcessor::StatusText(slow).ends_with(" 1:23:20"));
}

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

TEST(IncomingFileTest, NumbersNamesBeforeTheLastDotAndStillFitTheFileSystem) {
    std::string hangul;  // 249 bytes of three-byte characters
    for (int i = 0; i < 83; ++i)
        hangul += "한";
    const std::string n(251, 'n');
    const std::string e(253, 'e');
    const struct {
        std::string name;
        unsigned number;
        std::string numbered;
    } cases[] = {
        {"a.tar.gz", 2, "a.tar(2).gz"},
        {".profile", 1, ".profile(1)"},
        {n + ".txt", 1, n.substr(0, 248) + "(1).txt"},
        // Whole characters only.
        {Concat({"xxxx", hangul}), 1, Concat({"xxxx", hangul.substr(0, 246), "(1)"})},
        // An extension that leaves the stem no room is part of it.
        {Concat({"a.", e}), 1, Concat({"a.", e.substr(3), "(1)"})},
        {Concat({".", e, "e"}), 3, Concat({".", e.substr(2), "(3)"})},
    };
    for (const auto& c : cases) {
        std::string numbered = IncomingFile::NumberedName(c.name, c.number);
        EXPECT_EQ(numbered, c.numbered) << c.name;
        EXPECT_LE(numbered.size(), IncomingFile::kMaxNameBytes);
    }
}

TEST(IncomingFileTest, TemporaryNamesNeverCollideEvenForLongNames) {
    testing::TempFolder folder;
    IncomingFile first(folder.Path(), "same.txt");
    IncomingFile second(folder.Path(), "same.txt");
    ASSERT_TRUE(first.Create());
    ASSERT_TRUE(second.Create());
    EXPECT_EQ(first.GetTemporaryPath(), folder / "uploading_same.txt.LUMIDROP");
    EXPECT_EQ(second.GetTemporaryPath(), folder / "uploading_same(2).txt.LUMIDROP");

    // A name too long for a temporary file of its own is cut for the temporary file only.
    std::string long_name = std::string(240, 'n') + ".txt";
    IncomingFile long_file(folder.Path(), long_name);
    ASSERT_TRUE(long_file.Create());
    ASSERT_TRUE(long_file.Commit());
    EXPECT_EQ(long_file.GetFinalName(), long_name);
}

}  // namespace
}  // namespace Zarn
