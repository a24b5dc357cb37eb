// Requests built to hurt the server or to slip past its parsers, sent as raw bytes to the
// real program.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>

#include "http/HttpRequest.h"
#include "support/HttpClient.h"
#include "support/Multipart.h"
#include "support/ProgramRunner.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::ConnectTo;
using testing::Fetch;
using testing::HttpResponse;
using testing::ParseResponse;
using testing::ProgramRunner;
using testing::ReadResponse;
using testing::ReadToClose;
using testing::SendAll;
using testing::TempFolder;

std::string FormHead(const std::string& target, uint64_t length) {
    return "POST " + target +
           " HTTP/1.1\r\nHost: test\r\nContent-Type: application/x-www-form-urlencoded\r\n"
           "Content-Length: " +
           std::to_string(length) + "\r\n\r\n";
}

// The resident memory of a process in KiB; -1 when it cannot be read.
long ResidentKib(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with("VmRSS:")) return std::stol(line.substr(6));
    }
    return -1;
}

// The unread bytes waiting on each established connection whose local port is `port`,
// that is on the server's side of every connection to it.
std::vector<unsigned long> ServerReceiveQueues(int port) {
    std::ifstream table("/proc/net/tcp");
    std::string line;
    std::getline(table, line);  // the column titles
    std::vector<unsigned long> queues;
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string slot, local, remote, state, queue_sizes;
        fields >> slot >> local >> remote >> state >> queue_sizes;
        constexpr char kEstablished[] = "01";
        if (state != kEstablished) continue;
        if (std::stoi(local.substr(local.find(':') + 1), nullptr, 16) != port) continue;
        queues.push_back(std::stoul(queue_sizes.substr(queue_sizes.find(':') + 1), nullptr, 16));
    }
    return queues;
}

// Waits until the server holds `count` connections and has read all that came on them;
// false when that has not happened within ten seconds.
bool WaitUntilTheServerHasReadAll(int port, size_t count) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
        std::vector<unsigned long> queues = ServerReceiveQueues(port);
        bool all_read = std::all_of(queues.begin(), queues.end(),
                                    [](unsigned long unread) { return unread == 0; });
        if (queues.size() == count && all_read) return true;
        std::this_thread::yield();
    }
    return false;
}

// Every byte value, so that any change of a byte on the way shows.
std::string EveryByteValue() {
    std::string bytes;
    for (int round = 0; round < 40; ++round) {
        for (int value = 0; value < 256; ++value)
            bytes += static_cast<char>((value + round) & 0xFF);
    }
    return bytes;
}

class RequestHardeningEndToEndTest : public ::testing::Test {
protected:
    std::unique_ptr<ProgramRunner> Start() {
        home_.Write("mount.ini", "mounts+=docs|" + share_.Path() +
                                     "|x|yes|x|no\r\nuiLanguageFile=English.wul\r\n"
                                     "authorities+=.anonymous|docs|7\r\n");
        return std::make_unique<ProgramRunner>(home_.Path());
    }

    TempFolder share_;
    TempFolder home_;
};

TEST_F(RequestHardeningEndToEndTest, AFileNameBrokenByALineBreakIsRefusedNotCut) {
    auto program = Start();
    std::string body = testing::MultipartBody({{"uploadfile", "evil\r\n.txt", "cut"},
                                               {"uploadfile", "open.txt", "unclosed"},
                                               {"uploadfile", "good.txt", "good"}});
    const std::string closed = "\"open.txt\"";
    body.replace(body.find(closed), closed.size(), "\"open.txt");
    HttpResponse answer =
        Fetch(program->Port(), testing::MultipartHead("/docs/?key=k", body.size()) + body);
    EXPECT_EQ(answer.status, 200);
    EXPECT_NE(answer.body.find("evil: Could not open the file."), std::string::npos);
    EXPECT_NE(answer.body.find("open.txt: Could not open the file."), std::string::npos);
    EXPECT_NE(answer.body.find("good.txt: 4 bytes received."), std::string::npos);
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(share_.Path()))
        names.insert(entry.path().filename().string());
    EXPECT_EQ(names, (std::set<std::string>{"good.txt"}));
}

TEST_F(RequestHardeningEndToEndTest, AnAbsoluteFormTargetServesTheFileItNames) {
    const std::string bytes = EveryByteValue();
    share_.Write("every byte.bin", bytes);
    auto program = Start();
    int port = program->Port();
    std::string authority = "127.0.0.1:" + std::to_string(port);
    HttpResponse whole =
        Fetch(port, "GET http://" + authority +
                        "/docs/every%20byte.bin HTTP/1.1\r\nHost: " + authority + "\r\n\r\n");
    EXPECT_EQ(whole.status, 200);
    EXPECT_TRUE(whole.body == bytes);
    // The authority names this server whatever it says; the scheme's case does not matter.
    HttpResponse ranged = Fetch(port,
                                "GET HTTPS://elsewhere.example/docs/every%20byte.bin HTTP/1.1\r\n"
                                "Range: bytes=256-511\r\n\r\n");
    EXPECT_EQ(ranged.status, 206);
    EXPECT_TRUE(ranged.body == bytes.substr(256, 256));
    HttpResponse root = Fetch(port, "GET http://" + authority + " HTTP/1.1\r\n\r\n");
    EXPECT_EQ(root.status, 200);
    EXPECT_NE(root.body.find("docs"), std::string::npos);
}

TEST_F(RequestHardeningEndToEndTest, AFormOverOneMebibyteIsRefusedUnreadAndTheConnectionCloses) {
    auto program = Start();
    TCPSocket client = ConnectTo(program->Port());
    // The body is never sent in full: the answer must not wait for it.
    SendAll(client, FormHead("/docs/?action=MakeDirectory", HttpRequest::kMaxFormBytes + 1) +
                        "name=refused");
    HttpResponse answer = ParseResponse(ReadToClose(client));
    EXPECT_EQ(answer.status_line, "HTTP/1.1 413 Payload Too Large");
    EXPECT_EQ(answer.Header("Connection"), "close");
    EXPECT_NE(answer.body.find("The request is too large."), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(share_ / "refused"));

    // One byte less is a form like any other.
    std::string body = "name=accepted&pad=";
    body.resize(HttpRequest::kMaxFormBytes, 'p');
    HttpResponse made =
        Fetch(program->Port(), FormHead("/docs/?action=MakeDirectory", body.size()) + body);
    EXPECT_EQ(made.status, 301);
    EXPECT_TRUE(std::filesystem::is_directory(share_ / "accepted"));
}

TEST_F(RequestHardeningEndToEndTest, AClientStillSendingAnOversizedFormReadsTheRefusal) {
    auto program = Start();
    TCPSocket client = ConnectTo(program->Port());
    // Sent whole before anything is read, as simple clients do: closing on the unread rest
    // must neither fail the send nor reset the connection before the answer is read.
    std::string body(3 * HttpRequest::kMaxFormBytes, 'p');
    bool sent = true;
    try {
        SendAll(client, FormHead("/docs/?action=MakeDirectory", body.size()) + body);
    } catch (const socket_exception&) {
        sent = false;
    }
    EXPECT_TRUE(sent);
    HttpResponse answer = ParseResponse(ReadToClose(client));
    EXPECT_EQ(answer.status, 413);
    EXPECT_NE(answer.body.find("The request is too large."), std::string::npos);
}

TEST_F(RequestHardeningEndToEndTest, SilentClientsAnnouncingLargeFormsCostTheServerNoMemory) {
    auto program = Start();
    int port = program->Port();
    // What the first requests load once stays out of the comparison.
    EXPECT_EQ(Fetch(port, FormHead("/docs/", 3) + "a=1").status, 200);
    long before = ResidentKib(program->Pid());
    ASSERT_GT(before, 0);

    constexpr int kConnections = 50;
    std::vector<TCPSocket> silent;
    for (int i = 0; i < kConnections; ++i) {
        silent.push_back(ConnectTo(port));
        SendAll(silent.back(), FormHead("/docs/", HttpRequest::kMaxFormBytes));
    }
    ASSERT_TRUE(WaitUntilTheServerHasReadAll(port, silent.size()));
    long after = ResidentKib(program->Pid());
    // Each connection's thread costs some stack (more under sanitizers): tens of KiB, a
    // hundred or two. A buffer sized by the announced length would cost 1 MiB each.
    EXPECT_LT(after - before, kConnections * 256)
        << before << " KiB before, " << after << " KiB after";
}

TEST_F(RequestHardeningEndToEndTest, AFormSentInTinyPiecesStillParses) {
    auto program = Start();
    int port = program->Port();
    const std::string body = "name=Tiny+pieces%21&other=x";
    const std::string request = FormHead("/docs/?action=MakeDirectory", body.size()) + body;
    TCPSocket client = ConnectTo(port);
    client.SetNoDelay();
    std::mt19937 random(5);
    for (size_t at = 0; at < request.size();) {
        size_t size = std::uniform_int_distribution<size_t>(1, 3)(random);
        SendAll(client, request.substr(at, size));
        at += size;
        // Each piece is read before the next leaves, so the server sees them one by one.
        if (at < request.size()) {
            ASSERT_TRUE(WaitUntilTheServerHasReadAll(port, 1));
        }
    }
    HttpResponse made = ReadResponse(client);
    EXPECT_EQ(made.status, 301);
    EXPECT_TRUE(std::filesystem::is_directory(share_ / "Tiny pieces!"));
}

}  // namespace
}  // namespace Zarn
