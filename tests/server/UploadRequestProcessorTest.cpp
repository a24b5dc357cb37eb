// An upload and its progress page over real connections, with the progress table's clock and
// the page's waits on time the test moves on, so that minutes of a slow upload pass at once.

#include <gtest/gtest.h>

#include <condition_variable>
#include <future>
#include <mutex>
#include <set>
#include <thread>

#include "config/KorvelConfig.h"
#include "http/HttpRequest.h"
#include "http/WebServer.h"
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
using testing::FunctionHandler;
using testing::TempFolder;

// Milliseconds that pass only when the test says so. A sleeper wakes once its time has come,
// or with false once the clock is stopped (the test ending early).
class SteppedClock {
public:
    uint32_t Now() {
        std::lock_guard hold(mutex_);
        return now_;
    }
    void Advance(uint32_t ms) {
        std::lock_guard hold(mutex_);
        now_ += ms;
        changed_.notify_all();
    }
    void Stop() {
        std::lock_guard hold(mutex_);
        stopped_ = true;
        changed_.notify_all();
    }
    bool Sleep(milliseconds wait) {
        std::unique_lock hold(mutex_);
        auto wake = wake_times_.insert(now_ + static_cast<uint32_t>(wait.count()));
        changed_.notify_all();
        changed_.wait(hold, [&] { return stopped_ || now_ >= *wake; });
        wake_times_.erase(wake);
        return !stopped_;
    }
    // Waits, at most `limit` of real time, until a thread sleeps past the present, so that
    // the test moves time on only once a sleeper has done what it woke for.
    bool AwaitSleeper(milliseconds limit) {
        std::unique_lock hold(mutex_);
        return changed_.wait_for(
            hold, limit, [&] { return !wake_times_.empty() && *wake_times_.rbegin() > now_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    uint32_t now_ = 1000;
    std::multiset<uint32_t> wake_times_;
    bool stopped_ = false;
};

class UploadRequestProcessorTest : public ::testing::Test {
protected:
    void SetUp() override {
        home_.Write("mount.ini", "mounts+=docs|" + share_.Path() + "|x|yes|x|no\r\n");
        config_ = std::make_unique<KorvelConfig>(home_ / "mount.ini");
        mounts_ = std::make_unique<MountManager>(*config_);
        handler_ = std::make_unique<FunctionHandler>([this](HttpRequest& request) {
            std::string action;
            if (request.GetQueryParameter("action", action) && action == "UploadStatus") {
                UploadStatusReportingRequestProcessor(table_, [this](milliseconds wait) {
                    return clock_.Sleep(wait);
                }).SendStatus(request);
            } else {
                UploadRequestProcessor(*mounts_, table_, {}).ReceiveFile(request);
            }
        });
        server_.SetRequestHandler(handler_.get());
        server_.SetTransferStatusAggregator(&transfers_);
        ASSERT_TRUE(server_.Listen(0));
    }

    void TearDown() override {
        // A test that stops early must not leave the page waiting for time to pass.
        clock_.Stop();
        if (page_.valid()) page_.wait();
    }

    // Opens the progress page of the key; page_ holds all it sent once it has ended.
    void OpenProgressPage(const std::string& key) {
        int port = server_.GetPort();
        page_ = std::async(std::launch::async, [port, key] {
            TCPSocket page = testing::ConnectTo(port);
            testing::SendAll(page, "GET /?action=UploadStatus&key=" + key + " HTTP/1.1\r\n\r\n");
            return testing::ReadToClose(page);
        });
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

    TempFolder home_;
    TempFolder share_;
    std::unique_ptr<KorvelConfig> config_;
    std::unique_ptr<MountManager> mounts_;
    SteppedClock clock_;
    UploadProgressTable table_{[this] { return clock_.Now(); }};
    GuiTransferStatusAggregator transfers_;
    std::unique_ptr<FunctionHandler> handler_;
    WebServer server_;
    std::future<std::string> page_;
};

// The script pieces' messages, in order.
std::vector<std::string> Messages(const std::string& page) {
    std::vector<std::string> messages;
    const std::string open = "parent.onUpdateUpload('";
    for (size_t at = page.find(open); at != std::string::npos; at = page.find(open, at + 1)) {
        size_t start = at + open.size();
        messages.push_back(page.substr(start, page.find("');", start) - start));
    }
    return messages;
}

TEST_F(UploadRequestProcessorTest, SlowUploadIsNotPurgedWhileItRuns) {
    OpenProgressPage("slow");

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
    bool page_open = true;
    for (int second = 1; second <= kSeconds; ++second) {
        testing::SendAll(upload, body.substr(content + (second - 1) * kPerSecond, kPerSecond));
        if (following) {
            // Bytes that may still be the start of the closing delimiter are held back.
            uint64_t arrived = second * kPerSecond - 64;
            auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
            while (PublishedBytes() < arrived && std::chrono::steady_clock::now() < deadline)
                std::this_thread::sleep_for(milliseconds(1));
            following = PublishedBytes() >= arrived;
            EXPECT_TRUE(following) << "the progress stood still after " << second << " s";
        }
        // Time moves only while the page waits, so that it looks all along the upload.
        if (page_open) page_open = clock_.AwaitSleeper(std::chrono::seconds(5));
        clock_.Advance(1000);
        table_.Purge();  // as other visitors' posts and pages do
    }
    testing::SendAll(upload, body.substr(content + kSeconds * kPerSecond));
    std::string answer = testing::ReadToClose(upload);
    EXPECT_NE(answer.find("slow.bin: 800,000 바이트를 받았습니다."), std::string::npos);

    // The page looks every three seconds; let it see the end.
    bool page_ended = false;
    for (int look = 0; look < 5 && !page_ended; ++look) {
        clock_.Advance(3000);
        page_ended = page_.wait_for(std::chrono::seconds(1)) == std::future_status::ready;
    }
    ASSERT_TRUE(page_ended);
    std::vector<std::string> messages = Messages(page_.get());
    ASSERT_FALSE(messages.empty());
    EXPECT_NE(messages.back().find("업로드가 끝났습니다."), std::string::npos) << messages.back();
    // It moved with the bytes, not in one jump at the end.
    std::set<std::string> received_kb;
    for (const std::string& message : messages) {
        size_t figures = message.find("<br/>") + 5;
        size_t end = message.find(" KB / ");
        if (end != std::string::npos) received_kb.insert(message.substr(figures, end - figures));
    }
    EXPECT_GE(received_kb.size(), 20u);
    EXPECT_EQ(share_.Read("slow.bin").size(), kPerSecond * kSeconds);
}

}  // namespace
}  // namespace Zarn
