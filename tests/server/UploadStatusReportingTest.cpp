// The progress page over a real connection, with the clock and the waits in the test's
// hands.

#include <gtest/gtest.h>

#include <atomic>

#include "core/StringUtil.h"
#include "http/HttpRequest.h"
#include "http/WebServer.h"
#include "server/IncomingFile.h"
#include "server/UploadProgressTable.h"
#include "server/UploadStatusReportingRequestProcessor.h"
#include "support/HttpClient.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using std::chrono::milliseconds;
using testing::FunctionHandler;

class UploadStatusReportingTest : public ::testing::Test {
protected:
    void SetUp() override {
        handler_ = std::make_unique<FunctionHandler>([this](HttpRequest& request) {
            UploadStatusReportingRequestProcessor(table_, [this](milliseconds wait) {
                waits_.push_back(wait);
                now_ += static_cast<uint32_t>(wait.count());
                if (on_wait_) on_wait_(waits_.size());
                return true;
            }).SendStatus(request);
        });
        server_.SetRequestHandler(handler_.get());
        ASSERT_TRUE(server_.Listen(0));
    }

    std::string Page(const std::string& key) {
        return testing::Get(server_.GetPort(), "/?action=UploadStatus&key=" + key).body;
    }

    std::atomic<uint32_t> now_{1000};
    UploadProgressTable table_{[this] { return now_.load(); }};
    std::vector<milliseconds> waits_;
    std::function<void(size_t)> on_wait_;
    std::unique_ptr<FunctionHandler> handler_;
    WebServer server_;
};

std::string Chunk(const std::string& message, int progress) {
    return "\n\n<script type='text/javascript' language='JavaScript'>parent.onUpdateUpload('" +
           message + "');\nparent.onUpdateProgress(" + std::to_string(progress) + ");\n</script>\n";
}

const std::string kHead = "<meta http-equiv='Content-Type' content='text/html; charset=utf-8'>";

TEST_F(UploadStatusReportingTest, AKeyNeverSeenFailsAfterTenLooks) {
    std::string expected = kHead;
    std::string dots;
    for (int miss = 1; miss < 10; ++miss) {
        dots += ".";
        expected += Chunk("업로드 준비 중." + dots, 0);
    }
    expected += Chunk("업로드가 실패했습니다.", 0);
    EXPECT_EQ(Page("nobody"), expected);
    EXPECT_EQ(waits_, std::vector<milliseconds>(9, milliseconds(1000)));
}

TEST_F(UploadStatusReportingTest, OldEntriesArePurgedAndAStalledUploadStillHasATimeLeft) {
    table_.Put("old", {.state = UploadProgress::kFailed, .file_name = "old"});
    now_ += 60000;
    table_.Put("fresh", {.state = UploadProgress::kFinished, .file_name = "fresh"});
    EXPECT_EQ(Page("old"), kHead + Chunk("<b>old</b><br/>업로드가 실패했습니다.", 0));
    now_ += 1;
    EXPECT_NE(Page("fresh").find("<b>fresh</b>"), std::string::npos);
    EXPECT_EQ(table_.Size(), 1u);  // "old" went with that page
    EXPECT_EQ(Page("old").find("<b>old</b>"), std::string::npos);

    UploadProgress slow{.received = 1000, .total = 5000 * 1024, .bytes_per_second = 0};
    // A speed of zero counts as 1 KB/s for the time left.
    EXPECT_EQ(UploadStatusReportingRequestProcessor::StatusText(slow),
              "<b></b><br/>0 KB / 5,000 KB &nbsp;(0.0%) &nbsp;0 KB/s &nbsp;  1:23:20");
    EXPECT_EQ(UploadStatusReportingRequestProcessor::Percent(slow), 0);
    UploadProgress unknown{.received = 4096};
    EXPECT_EQ(UploadStatusReportingRequestProcessor::StatusText(unknown), "<b></b><br/>4 KB");
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
        {"README", 3, "README(3)"},
        {".profile", 1, ".profile(1)"},
        {n + ".txt", 1, n.substr(0, 248) + "(1).txt"},
        {n.substr(0, 240) + ".txt", 7, n.substr(0, 240) + "(7).txt"},
        // Whole characters only.
        {Concat({"xxxx", hangul}), 1, Concat({"xxxx", hangul.substr(0, 246), "(1)"})},
        // An extension that leaves the stem no room is part of it.
        {Concat({"a.", e}), 1, Concat({"a.", e.substr(3), "(1)"})},
        {Concat({"한.", e.substr(3)}), 2, Concat({"한.", e.substr(5), "(2)"})},
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
    // Which final name each gets, and that nothing is left behind, the upload end-to-end
    // tests show.
    ASSERT_TRUE(second.Write("two", 3));
    ASSERT_TRUE(second.Commit());
    EXPECT_EQ(folder.Read("same.txt"), "two");

    // A name too long for a temporary file of its own is cut for the temporary file only.
    std::string long_name = std::string(240, 'n') + ".txt";
    IncomingFile long_file(folder.Path(), long_name);
    ASSERT_TRUE(long_file.Create());
    ASSERT_TRUE(long_file.Commit());
    EXPECT_EQ(long_file.GetFinalName(), long_name);
}

}  // namespace
}  // namespace Zarn
