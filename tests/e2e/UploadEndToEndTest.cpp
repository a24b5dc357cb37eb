// Uploads and their progress page, driven against the real program over real sockets.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "support/HttpClient.h"
#include "support/Multipart.h"
#include "support/ProgramRunner.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::FormPart;
using testing::HttpResponse;
using testing::MultipartBody;
using testing::MultipartHead;
using testing::ProgramRunner;
using testing::TempFolder;

// Every byte value, and lines that come one byte short of a delimiter.
std::string BinaryContent(size_t size) {
    std::string bytes;
    for (size_t i = 0; bytes.size() < size; ++i) {
        bytes += static_cast<char>(i * 7 % 256);
        if (i % 1000 == 999) {
            std::string near = std::string("\r\n--") + testing::kBoundary;
            bytes += near.substr(0, near.size() - 1) + "?";
        }
    }
    bytes.resize(size);
    return bytes;
}

// One progress-page script piece: the message and the percentage it reports.
struct Report {
    std::string message;
    int progress = -1;
};

std::vector<Report> ParseReports(const std::string& body) {
    std::vector<Report> reports;
    const std::string open = "\n\n<script type='text/javascript' language='JavaScript'>";
    for (size_t at = body.find(open); at != std::string::npos; at = body.find(open, at + 1)) {
        size_t message = body.find("parent.onUpdateUpload('", at) + 23;
        size_t message_end = body.find("');\nparent.onUpdateProgress(", message);
        size_t number_end = body.find(");\n</script>\n", message_end);
        if (message_end == std::string::npos || number_end == std::string::npos) break;
        size_t number = message_end + 28;
        reports.push_back({body.substr(message, message_end - message),
                           std::stoi(body.substr(number, number_end - number))});
    }
    return reports;
}

// Reads script pieces from a progress page until one ends with a "</script>".
std::string ReadNextReport(TCPSocket& socket, std::string& seen) {
    char buffer[4096];
    size_t start = seen.size();
    while (seen.find("</script>\n", start) == std::string::npos) {
        seen.append(buffer, static_cast<size_t>(socket.Receive(buffer, sizeof buffer)));
    }
    return seen.substr(start);
}

class UploadEndToEndTest : public ::testing::Test {
protected:
    void SetUp() override {
        share_.Write("a.txt", "original");
        share_.Write("sub/keep.txt", "keep");
    }

    std::unique_ptr<ProgramRunner> Start(const std::string& rights = "7",
                                         const std::string& extra_settings = "") {
        home_.Write("mount.ini", extra_settings + "mounts+=docs|" + share_.Path() +
                                     "|x|yes|x|no\r\n" + "mounts+=single.txt|" +
                                     (share_ / "a.txt") +
                                     "|x|no|x|no\r\nuiLanguageFile=English.wul\r\n" +
                                     "authorities+=.anonymous|docs|" + rights + "\r\n" +
                                     "authorities+=.anonymous|single.txt|7\r\n");
        return std::make_unique<ProgramRunner>(home_.Path());
    }

    static HttpResponse Post(int port, const std::string& target,
                             const std::vector<FormPart>& parts) {
        std::string body = MultipartBody(parts);
        return testing::Fetch(port, MultipartHead(target, body.size()) + body);
    }

    // Names of the files in the share's folder, temporary ones included.
    [[nodiscard]] std::set<std::string> Names(const std::string& folder = "") const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(share_ / folder))
            names.insert(entry.path().filename().string());
        return names;
    }

    TempFolder share_;
    TempFolder home_;
};

TEST_F(UploadEndToEndTest, StoresOneAndSeveralFilesByteExact) {
    auto program = Start();
    std::string first = BinaryContent(300000);
    HttpResponse one =
        Post(program->Port(), "/docs/sub?key=k1", {{"uploadfile", "one.bin", first}});
    EXPECT_EQ(one.status, 200);
    EXPECT_NE(one.body.find("Upload complete"), std::string::npos);
    EXPECT_NE(one.body.find("one.bin: 300,000 bytes received."), std::string::npos);
    EXPECT_TRUE(share_.Read("sub/one.bin") == first);

    std::string second = BinaryContent(70001).substr(1);
    HttpResponse several = Post(program->Port(), "/docs/?key=k2",
                                {{"note", "", "not a file"},
                                 {"uploadfile", "two.bin", second},
                                 {"uploadfile", "", ""},  // a file input left empty
                                 {"other", "other.bin", "ignored"},
                                 {"uploadfile", "empty.txt", ""}});
    EXPECT_EQ(several.status, 200);
    EXPECT_EQ(several.body.find("upload-failed"), std::string::npos);
    EXPECT_TRUE(share_.Read("two.bin") == second);
    EXPECT_EQ(share_.Read("empty.txt"), "");
    EXPECT_EQ(Names(), (std::set<std::string>{"a.txt", "sub", "two.bin", "empty.txt"}));
    EXPECT_EQ(Names("sub"), (std::set<std::string>{"keep.txt", "one.bin"}));
    // The new files are listed at once.
    EXPECT_NE(testing::Get(program->Port(), "/docs/").body.find("two.bin"), std::string::npos);
}

TEST_F(UploadEndToEndTest, TellsAClientThatWaitsForLeaveToSendTheBody) {
    auto program = Start();
    std::string body = MultipartBody({{"uploadfile", "asked.txt", "asked first"}});
    std::string head = MultipartHead("/docs/?key=c", body.size());
    head.insert(head.size() - 2, "Expect: 100-continue\r\n");
    TCPSocket client = testing::ConnectTo(program->Port());
    testing::SendAll(client, head);
    EXPECT_EQ(testing::ReadHead(client), "HTTP/1.1 100 Continue\r\n\r\n");
    testing::SendAll(client, body);
    EXPECT_EQ(testing::ParseResponse(testing::ReadToClose(client)).status, 200);
    EXPECT_EQ(share_.Read("asked.txt"), "asked first");

    // Refused at once: the client is not asked for a body that would be thrown away.
    TCPSocket refused = testing::ConnectTo(program->Port());
    std::string big_head = MultipartHead("/single.txt?key=c", 1 << 30);
    testing::SendAll(refused, big_head.insert(big_head.size() - 2, "Expect: 100-continue\r\n"));
    HttpResponse answer = testing::ParseResponse(testing::ReadToClose(refused));
    EXPECT_EQ(answer.status, 401);
    EXPECT_EQ(answer.Header("Connection"), "close");
}

TEST_F(UploadEndToEndTest, NeverOverwritesAnExistingFile) {
    auto program = Start();
    int port = program->Port();
    Post(port, "/docs/?key=a", {{"uploadfile", "a.txt", "second"}});
    HttpResponse third = Post(port, "/docs/?key=a", {{"uploadfile", "a.txt", "third"}});
    EXPECT_NE(third.body.find("a(2).txt: 5 bytes received."), std::string::npos);
    Post(port, "/docs/?key=a", {{"uploadfile", "sub", "a folder's name"}});
    EXPECT_EQ(share_.Read("a.txt"), "original");
    EXPECT_EQ(share_.Read("a(1).txt"), "second");
    EXPECT_EQ(share_.Read("a(2).txt"), "third");
    EXPECT_EQ(share_.Read("sub(1)"), "a folder's name");
}

TEST_F(UploadEndToEndTest, NamesAtTheFileSystemsLimitGetNumbersThatFit) {
    auto program = Start();
    int port = program->Port();
    std::string hangul;  // 249 bytes of three-byte characters
    for (int i = 0; i < 83; ++i)
        hangul += "한";
    std::string longest = hangul + "xx.txt";
    ASSERT_EQ(longest.size(), 255u);
    Post(port, "/docs/?key=n", {{"uploadfile", longest, "first"}});
    HttpResponse again = Post(port, "/docs/?key=n", {{"uploadfile", longest, "second"}});
    EXPECT_EQ(again.status, 200);
    EXPECT_EQ(again.body.find("upload-failed"), std::string::npos);
    // The stem gives up whole characters so that the number fits.
    std::string numbered = hangul.substr(0, 246) + "(1).txt";
    EXPECT_EQ(share_.Read(longest), "first");
    EXPECT_EQ(share_.Read(numbered), "second");

    // A byte more, and no folder could hold the name: refused before the body is stored.
    HttpResponse refused =
        Post(port, "/docs/?key=n", {{"uploadfile", "x" + longest, std::string(100000, 'b')}});
    EXPECT_EQ(refused.status, 200);
    EXPECT_NE(refused.body.find("Upload failed"), std::string::npos);
    EXPECT_NE(refused.body.find(": Could not open the file."), std::string::npos);
    EXPECT_EQ(Names(), (std::set<std::string>{"a.txt", "sub", longest, numbered}));
}

TEST_F(UploadEndToEndTest, RefusesHostileNamesAndMissingTargets) {
    auto program = Start();
    int port = program->Port();
    // Only the last component of a sent path counts.
    EXPECT_EQ(Post(port, "/docs/sub/?key=k", {{"uploadfile", "../../escape.txt", "x"}}).status,
              200);
    Post(port, "/docs/?key=k", {{"uploadfile", "C:\\Users\\me\\report.txt", "r"}});
    EXPECT_EQ(share_.Read("sub/escape.txt"), "x");
    EXPECT_EQ(share_.Read("report.txt"), "r");

    for (const char* name : {"..", ".", "folder/", "C:\\dir\\..", "bell\x07.txt", "tab\t.txt"}) {
        SCOPED_TRACE(name);
        HttpResponse refused = Post(port, "/docs/?key=k", {{"uploadfile", name, "data"}});
        EXPECT_EQ(refused.status, 200);
        EXPECT_NE(refused.body.find("Upload failed"), std::string::npos);
        EXPECT_NE(refused.body.find("Could not open the file."), std::string::npos);
    }
    struct Case {
        const char* target;
        const char* message;
    };
    const Case failures[] = {
        {"/docs/", "GET[key] is missing."},
        {"/docs/missing/?key=k", "The folder chosen for the upload does not exist."},
        {"/docs/a.txt?key=k", "The folder chosen for the upload does not exist."},
    };
    for (const Case& c : failures) {
        SCOPED_TRACE(c.target);
        HttpResponse refused = Post(port, c.target, {{"uploadfile", "new.txt", "data"}});
        EXPECT_EQ(refused.status, 200);
        EXPECT_NE(refused.body.find(c.message), std::string::npos);
    }
    EXPECT_EQ(Post(port, "/single.txt?key=k", {{"uploadfile", "new.txt", "x"}}).status, 401);
    EXPECT_EQ(Names(), (std::set<std::string>{"a.txt", "sub", "report.txt"}));
    EXPECT_EQ(Names("sub"), (std::set<std::string>{"keep.txt", "escape.txt"}));
}

TEST_F(UploadEndToEndTest, UploadingNeedsTheRight) {
    auto program = Start("3");
    HttpResponse refused = Post(program->Port(), "/docs/?key=k", {{"uploadfile", "n.txt", "x"}});
    EXPECT_EQ(refused.status, 401);
    EXPECT_FALSE(std::filesystem::exists(share_ / "n.txt"));
}

TEST_F(UploadEndToEndTest, UploadsKeepTheUploadSpeedLimit) {
    auto program = Start("7", "totalUploadSpeedLimit=256\r\n");  // KiB per second
    auto start = std::chrono::steady_clock::now();
    HttpResponse answer = Post(program->Port(), "/docs/?key=slow",
                               {{"uploadfile", "slow.bin", std::string(512 << 10, 's')}});
    EXPECT_EQ(answer.status, 200);
    // Two seconds' worth of bytes, less the fifth of a second's worth that may go at once.
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1700));
    EXPECT_EQ(share_.Read("slow.bin").size(), 512u << 10);
}

TEST_F(UploadEndToEndTest, ABrokenUploadLeavesNoTrace) {
    auto program = Start();
    int port = program->Port();
    std::string body = MultipartBody({{"uploadfile", "a.txt", std::string(1 << 20, 'x')}});
    {
        TCPSocket client = testing::ConnectTo(port);
        testing::SendAll(client, MultipartHead("/docs/?key=broken", body.size()));
        testing::SendAll(client, body.substr(0, body.size() / 2));
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (Names().size() < 3 && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        ASSERT_TRUE(Names().contains("uploading_a.txt.LUMIDROP"));
    }  // the client goes away mid-file
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (Names().size() > 2 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(Names(), (std::set<std::string>{"a.txt", "sub"}));
    EXPECT_EQ(share_.Read("a.txt"), "original");

    std::vector<Report> reports =
        ParseReports(testing::Get(port, "/?action=UploadStatus&key=broken").body);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].message, "<b>a.txt</b><br/>The upload failed.");
}

TEST_F(UploadEndToEndTest, AFullDiskEndsTheFileWithAMessage) {
    // A file-size limit makes writes fail as a full disk would.
    rlimit saved{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &saved), 0);
    rlimit small = saved;
    small.rlim_cur = 64 * 1024;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    auto program = Start();
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &saved), 0);

    HttpResponse answer = Post(
        program->Port(), "/docs/?key=full",
        {{"uploadfile", "big.bin", std::string(200000, 'b')}, {"uploadfile", "small.txt", "fits"}});
    EXPECT_EQ(answer.status, 200);
    EXPECT_NE(answer.body.find("big.bin: Cannot write to the file."), std::string::npos);
    EXPECT_NE(answer.body.find("small.txt: 4 bytes received."), std::string::npos);
    EXPECT_EQ(Names(), (std::set<std::string>{"a.txt", "sub", "small.txt"}));
}

TEST_F(UploadEndToEndTest, ProgressPageFollowsAnUploadFromBeforeItsStartToItsEnd) {
    auto program = Start();
    int port = program->Port();
    TCPSocket page = testing::ConnectTo(port);
    testing::SendAll(page, "GET /?action=UploadStatus&key=live HTTP/1.1\r\n\r\n");
    std::string head = testing::ReadHead(page);
    EXPECT_EQ(head.substr(0, head.find("\r\n")), "HTTP/1.1 200 OK");
    EXPECT_NE(head.find("Content-Type: text/html\r\n"), std::string::npos);
    EXPECT_EQ(head.find("Content-Length"), std::string::npos);
    std::string seen;
    std::vector<Report> first = ParseReports(ReadNextReport(page, seen));
    EXPECT_EQ(seen.find("<meta http-equiv='Content-Type' content='text/html; charset=utf-8'>"), 0u);
    ASSERT_EQ(first.size(), 1u);
    EXPECT_EQ(first[0].message, "Preparing the upload..");
    EXPECT_EQ(first[0].progress, 0);

    // Half the body now, the rest once the page has reported the running upload.
    std::string name = "it's <i>\"big\"&.bin";
    std::string body = MultipartBody({{"uploadfile", name, std::string(4 << 20, 'z')}});
    TCPSocket upload = testing::ConnectTo(port);
    testing::SendAll(upload, MultipartHead("/docs/?key=live", body.size()));
    testing::SendAll(upload, body.substr(0, body.size() / 2));
    std::vector<Report> running;
    while (running.empty() || running.back().message.find("KB /") == std::string::npos)
        running = ParseReports(ReadNextReport(page, seen));
    const std::string escaped = "<b>it&#39;s &lt;i&gt;&quot;big&quot;&amp;.bin</b><br/>";
    EXPECT_EQ(running.back().message.find(escaped), 0u);
    EXPECT_NE(running.back().message.find(" KB / 4,096 KB &nbsp;("), std::string::npos);
    EXPECT_GT(running.back().progress, 0);
    EXPECT_LT(running.back().progress, 100);

    testing::SendAll(upload, body.substr(body.size() / 2));
    EXPECT_EQ(testing::ParseResponse(testing::ReadToClose(upload)).status, 200);
    seen += testing::ReadToClose(page);  // the page ends with the upload
    std::vector<Report> all = ParseReports(seen);
    EXPECT_EQ(all.back().message,
              escaped +
                  "The upload has finished. <a href=\"#\" "
                  "onClick=\"if(opener)opener.location.reload();self.close();\">[OK]</a>");
    EXPECT_EQ(all.back().progress, 100);
    EXPECT_TRUE(share_.Read(name) == std::string(4 << 20, 'z'));

    // Asked again afterwards, the page answers at once.
    std::vector<Report> after =
        ParseReports(testing::Get(port, "/?action=UploadStatus&key=live").body);
    ASSERT_EQ(after.size(), 1u);
    EXPECT_EQ(after[0].message, all.back().message);
}

}  // namespace
}  // namespace Zarn
