// Uploads and their progress page, driven against the real program over real sockets.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <set>

#include "support/RunningShare.h"
#include "support/WaitUntil.h"

namespace Zarn {
namespace {

using testing::Contains;
using testing::HttpResponse;
using testing::MultipartBody;
using testing::MultipartHead;

// Every byte value, and lines that come one byte short of a delimiter.
std::string BinaryContent(size_t size) {
    std::string bytes;
    for (size_t i = 0; bytes.size() < size; ++i) {
        bytes += static_cast<char>(i * 7 % 256);
        if (i % 1000 == 999) {
            std::string delimiter = std::string("\r\n--") + testing::kBoundary;
            bytes += delimiter.substr(0, delimiter.size() - 1) + "?";
        }
    }
    bytes.resize(size);
    return bytes;
}

// The messages and percentages of a progress page's script pieces, "message|percent".
std::vector<std::string> Reports(const std::string& body) {
    std::vector<std::string> reports;
    const std::string open = "parent.onUpdateUpload('", middle = "');\nparent.onUpdateProgress(";
    for (size_t at = body.find(open); at != std::string::npos; at = body.find(open, at + 1)) {
        size_t message_end = body.find(middle, at);
        size_t number_end = body.find(");\n</script>\n", message_end);
        if (number_end == std::string::npos) break;
        size_t number = message_end + middle.size();
        reports.push_back(body.substr(at + open.size(), message_end - at - open.size()) + "|" +
                          body.substr(number, number_end - number));
    }
    return reports;
}

class UploadEndToEndTest : public testing::RunningShare {
protected:
    void SetUp() override {
        share_.Write("a.txt", "original");
        share_.Write("sub/keep.txt", "keep");
    }
    void Start(const std::string& settings = "") {
        RunningShare::Start("mounts+=single.txt|" + (share_ / "a.txt") + "|x|no|x|no\r\n" +
                            "authorities+=.anonymous|docs|7\r\n"
                            "authorities+=.anonymous|single.txt|7\r\n" +
                            settings);
    }
    // Names of the files in the share's folder, temporary ones included.
    [[nodiscard]] std::set<std::string> Names(const std::string& folder = "") const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(share_ / folder))
            names.insert(entry.path().filename().string());
        return names;
    }
};

TEST_F(UploadEndToEndTest, StoresFilesByteExactNeverOverwritesAndAnswersExpectContinue) {
    Start();
    std::string first = BinaryContent(300000);
    HttpResponse one = Upload("/docs/sub?key=k1", "one.bin", first);
    EXPECT_TRUE(Contains(one.body, "Upload complete"));
    EXPECT_TRUE(Contains(one.body, "one.bin: 300,000 bytes received."));
    EXPECT_TRUE(share_.Read("sub/one.bin") == first);

    std::string second = BinaryContent(70001).substr(1);
    HttpResponse several = PostParts("/docs/?key=k2", {{"note", "", "not a file"},
                                                       {"uploadfile", "two.bin", second},
                                                       {"uploadfile", "", ""},  // left empty
                                                       {"other", "other.bin", "ignored"},
                                                       {"uploadfile", "empty.txt", ""}});
    EXPECT_FALSE(Contains(several.body, "upload-failed"));
    EXPECT_TRUE(share_.Read("two.bin") == second);
    EXPECT_TRUE(Contains(Visit("/docs/").body, "two.bin"));  // listed at once

    (void)Upload("/docs/?key=a", "a.txt", "second");
    EXPECT_TRUE(
        Contains(Upload("/docs/?key=a", "a.txt", "third").body, "a(2).txt: 5 bytes received."));
    (void)Upload("/docs/?key=a", "sub", "a folder's name");
    EXPECT_EQ(share_.Read("a.txt"), "original");
    EXPECT_EQ(share_.Read("a(1).txt"), "second");
    EXPECT_EQ(share_.Read("a(2).txt"), "third");
    EXPECT_EQ(share_.Read("sub(1)"), "a folder's name");

    // A client that waits for leave to send the body gets it, unless it is refused at once.
    std::string body = MultipartBody({{"uploadfile", "asked.txt", "asked first"}});
    std::string head = MultipartHead("/docs/?key=c", body.size());
    TCPSocket client = testing::ConnectTo(port_);
    testing::SendAll(client, head.insert(head.size() - 2, "Expect: 100-continue\r\n"));
    EXPECT_EQ(testing::ReadHead(client), "HTTP/1.1 100 Continue\r\n\r\n");
    testing::SendAll(client, body);
    EXPECT_EQ(testing::ParseResponse(testing::ReadToClose(client)).status, 200);
    EXPECT_EQ(share_.Read("asked.txt"), "asked first");

    // Refused at once: the client is not asked for a body that would be thrown away.
    TCPSocket refused = testing::ConnectTo(port_);
    std::string big_head = MultipartHead("/single.txt?key=c", 1 << 30);
    testing::SendAll(refused, big_head.insert(big_head.size() - 2, "Expect: 100-continue\r\n"));
    HttpResponse answer = testing::ParseResponse(testing::ReadToClose(refused));
    EXPECT_EQ(answer.status, 401);
    EXPECT_EQ(answer.Header("Connection"), "close");
    EXPECT_EQ(Names(), (std::set<std::string>{"a.txt", "a(1).txt", "a(2).txt", "sub", "sub(1)",
                                              "two.bin", "empty.txt", "asked.txt"}));
}

TEST_F(UploadEndToEndTest, UploadsAndFoldersRefuseHostileNamesMissingTargetsAndNoRight) {
    Start();
    // Only the last component of a sent path counts.
    (void)Upload("/docs/sub/?key=k", "../../escape.txt", "x");
    (void)Upload("/docs/?key=k", "C:\\Users\\me\\report.txt", "r");
    EXPECT_EQ(share_.Read("sub/escape.txt"), "x");
    EXPECT_EQ(share_.Read("report.txt"), "r");
    const std::pair<std::string, std::string> failures[] = {
        {"/docs/?key=k|..", "Could not open the file."},
        {"/docs/?key=k|.", "Could not open the file."},
        {"/docs/?key=k|folder/", "Could not open the file."},
        {"/docs/?key=k|C:\\dir\\..", "Could not open the file."},
        {"/docs/?key=k|bell\x07.txt", "Could not open the file."},
        {"/docs/?key=k|tab\t.txt", "Could not open the file."},
        // A name broken by a line break is refused, never cut at the break.
        {"/docs/?key=k|evil\r\n.txt", "evil: Could not open the file."},
        {"/docs/|new.txt", "GET[key] is missing."},
        {"/docs/missing/?key=k|new.txt", "The folder chosen for the upload does not exist."},
        {"/docs/a.txt?key=k|new.txt", "The folder chosen for the upload does not exist."},
        // No folder could hold a name of 256 bytes: refused before the body is stored.
        {"/docs/?key=k|" + std::string(256, 'x'), ": Could not open the file."},
    };
    for (const auto& [where, message] : failures) {
        size_t bar = where.find('|');
        HttpResponse refused = Upload(where.substr(0, bar), where.substr(bar + 1), "data");
        EXPECT_EQ(refused.status, 200) << where;
        EXPECT_TRUE(Contains(refused.body, message)) << where << refused.body;
    }
    std::string unclosed = MultipartBody({{"uploadfile", "open.txt", "its quote never closes"}});
    unclosed.erase(unclosed.find("open.txt\"") + 8, 1);
    EXPECT_TRUE(Contains(
        testing::Fetch(port_, MultipartHead("/docs/?key=k", unclosed.size()) + unclosed).body,
        "open.txt: Could not open the file."));
    // A single-file share never takes uploads or folders, whatever the grant says.
    EXPECT_EQ(Upload("/single.txt?key=k", "new.txt", "x").status, 401);
    EXPECT_EQ(Visit("/single.txt?action=MakeDirectory&name=x").status, 401);

    HttpResponse made = Visit("/docs/?action=MakeDirectory&name=%20New%20folder%09");
    EXPECT_EQ(made.status, 301);
    EXPECT_EQ(made.Header("Location"), ".");
    EXPECT_TRUE(std::filesystem::is_directory(share_ / "New folder"));
    const std::pair<const char*, const char*> refusals[] = {
        {"%20%09", "No folder name was given."},
        {"New%20folder", "Could not create the folder."},
        {"..", "Could not create the folder."},
        {"a%2fb", "Could not create the folder."},
        {"bell%07", "Could not create the folder."},
    };
    for (const auto& [name, message] : refusals) {
        HttpResponse refused = Visit("/docs/?action=MakeDirectory&name=" + std::string(name));
        EXPECT_EQ(refused.status, 200) << name;
        EXPECT_TRUE(Contains(refused.body, message)) << name;
    }
    EXPECT_TRUE(Contains(Visit("/docs/missing/?action=MakeDirectory&name=x").body,
                         "The folder in which to create the folder does not exist."));
    EXPECT_EQ(Names(), (std::set<std::string>{"a.txt", "sub", "report.txt", "New folder"}));
    EXPECT_EQ(Names("sub"), (std::set<std::string>{"keep.txt", "escape.txt"}));

    RunningShare::Start("authorities+=.anonymous|docs|3\r\n");
    EXPECT_EQ(Upload("/docs/?key=k", "n.txt", "x").status, 401);
    EXPECT_EQ(Visit("/docs/?action=MakeDirectory&name=x").status, 401);
    EXPECT_FALSE(share_.Exists("n.txt") || share_.Exists("x"));
}

TEST_F(UploadEndToEndTest, UploadsKeepTheUploadSpeedLimit) {
    Start("totalUploadSpeedLimit=256\r\n");  // KiB per second
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Upload("/docs/?key=slow", "slow.bin", std::string(512 << 10, 's')).status, 200);
    // Two seconds' worth of bytes, less the fifth of a second's worth that may go at once.
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1700));
    EXPECT_EQ(share_.Read("slow.bin").size(), 512u << 10);
}

TEST_F(UploadEndToEndTest, ABrokenUploadLeavesNoTraceAndTheProgressPageFollowsAWholeOne) {
    Start();
    {
        std::string body = MultipartBody({{"uploadfile", "a.txt", std::string(1 << 20, 'x')}});
        TCPSocket client = testing::ConnectTo(port_);
        testing::SendAll(client, MultipartHead("/docs/?key=broken", body.size()));
        testing::SendAll(client, body.substr(0, body.size() / 2));
        ASSERT_TRUE(
            testing::WaitUntil([&] { return Names().contains("uploading_a.txt.LUMIDROP"); }));
    }  // the client goes away mid-file
    EXPECT_TRUE(testing::WaitUntil([&] { return Names().size() == 2; }));
    EXPECT_EQ(Names(), (std::set<std::string>{"a.txt", "sub"}));
    EXPECT_EQ(share_.Read("a.txt"), "original");
    std::vector<std::string> failed = Reports(Visit("/?action=UploadStatus&key=broken").body);
    ASSERT_EQ(failed.size(), 1u);
    EXPECT_TRUE(failed[0].starts_with("<b>a.txt</b><br/>The upload failed.|")) << failed[0];

    // The page stays open and reports as an upload runs, not only once it is over.
    TCPSocket page = testing::ConnectTo(port_);
    testing::SendAll(page, "GET /?action=UploadStatus&key=live HTTP/1.1\r\n\r\n");
    std::string seen;
    auto read_until = [&](auto done) {
        char buffer[4096];
        while (!done(Reports(seen)))
            seen.append(buffer, static_cast<size_t>(page.Receive(buffer, sizeof buffer)));
        return Reports(seen).back();
    };
    EXPECT_EQ(read_until([](const auto& reports) { return !reports.empty(); }),
              "Preparing the upload..|0");

    // Half the body now, the rest once the page has reported the running upload.
    std::string name = "it's <i>\"big\"&.bin";
    std::string body = MultipartBody({{"uploadfile", name, std::string(4 << 20, 'z')}});
    TCPSocket upload = testing::ConnectTo(port_);
    testing::SendAll(upload, MultipartHead("/docs/?key=live", body.size()));
    testing::SendAll(upload, body.substr(0, body.size() / 2));
    std::string running =
        read_until([](const auto& reports) { return Contains(reports.back(), "KB /"); });
    const std::string escaped = "<b>it&#39;s &lt;i&gt;&quot;big&quot;&amp;.bin</b><br/>";
    EXPECT_TRUE(running.starts_with(escaped)) << running;
    EXPECT_TRUE(Contains(running, " KB / 4,096 KB &nbsp;(")) << running;
    int percent = std::stoi(running.substr(running.rfind('|') + 1));
    EXPECT_TRUE(percent > 0 && percent < 100) << running;

    testing::SendAll(upload, body.substr(body.size() / 2));
    EXPECT_EQ(testing::ParseResponse(testing::ReadToClose(upload)).status, 200);
    seen += testing::ReadToClose(page);  // the page ends with the upload
    std::string finished = Reports(seen).back();
    EXPECT_TRUE(finished.starts_with(escaped + "The upload has finished.")) << finished;
    EXPECT_TRUE(finished.ends_with("[OK]</a>|100")) << finished;
    EXPECT_TRUE(share_.Read(name) == std::string(4 << 20, 'z'));
    // Asked again afterwards, the page answers at once.
    EXPECT_EQ(Reports(Visit("/?action=UploadStatus&key=live").body),
              std::vector<std::string>{finished});
}

TEST_F(UploadEndToEndTest, AFullDiskEndsTheFileWithAMessage) {
    // A file-size limit makes writes fail as a full disk would.
    rlimit saved{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &saved), 0);
    rlimit small = saved;
    small.rlim_cur = 64 * 1024;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    Start();
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &saved), 0);
    HttpResponse answer = PostParts(
        "/docs/?key=full",
        {{"uploadfile", "big.bin", std::string(200000, 'b')}, {"uploadfile", "small.txt", "fits"}});
    EXPECT_TRUE(Contains(answer.body, "big.bin: Cannot write to the file."));
    EXPECT_TRUE(Contains(answer.body, "small.txt: 4 bytes received."));
    EXPECT_EQ(Names(), (std::set<std::string>{"a.txt", "sub", "small.txt"}));
}

}  // namespace
}  // namespace Zarn
