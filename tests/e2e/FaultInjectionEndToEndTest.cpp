#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/RunningShare.h"
#include "support/WaitUntil.h"

namespace Zarn {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::HttpResponse;

// What /proc tells about the running program.
class ProcessView {
public:
    explicit ProcessView(pid_t pid) : root_("/proc/" + std::to_string(pid)) {}

    [[nodiscard]] size_t OpenDescriptors(size_t below = SIZE_MAX) const {
        std::error_code ignored;
        size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(root_ + "/fd", ignored))
            count += std::stoul(entry.path().filename().string()) < below ? 1 : 0;
        return count;
    }
    // The number past the `room`th descriptor number still free.
    [[nodiscard]] size_t LowestFreeDescriptor(size_t room) const {
        size_t number = 0;
        for (size_t free = 0;; ++number) {
            if (!std::filesystem::exists(root_ + "/fd/" + std::to_string(number)) && ++free == room)
                return number + 1;
        }
    }
    // User and system time together, in clock ticks.
    [[nodiscard]] long CpuTicks() const {
        std::ifstream in(root_ + "/stat");
        std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::istringstream fields(text.substr(text.rfind(')') + 2));
        std::string field;
        long user = 0, system = 0;
        // utime and stime are the 14th and 15th fields; the state, third, comes first here.
        for (int index = 3; index <= 15 && fields >> field; ++index) {
            if (index == 14) user = std::stol(field);
            if (index == 15) system = std::stol(field);
        }
        return user + system;
    }

private:
    std::string root_;
};

[[nodiscard]] bool LimitChild(pid_t pid, decltype(RLIMIT_NOFILE) resource, rlim_t soft) {
    rlimit limit{};
    if (::prlimit(pid, resource, nullptr, &limit) != 0) return false;
    limit.rlim_cur = soft;
    return ::prlimit(pid, resource, &limit, nullptr) == 0;
}

size_t CountOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

std::string Pattern(size_t bytes) {
    std::string content(bytes, '\0');
    for (size_t i = 0; i < bytes; ++i)
        content[i] = static_cast<char>('a' + i % 23);
    return content;
}

// A client with a small receive window, so that a download stays in the server's hands
// instead of sitting whole in the kernel's buffers.
TCPSocket SlowReader(int port, const std::string& target) {
    TCPSocket socket;
    EXPECT_TRUE(socket.Create());
    int small = 4096;
    ::setsockopt(socket.GetHandle(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    EXPECT_TRUE(socket.Connect("127.0.0.1", static_cast<uint16_t>(port)));
    testing::SendAll(socket, "GET " + target + " HTTP/1.1\r\nHost: test\r\n\r\n");
    return socket;
}

class FaultInjectionEndToEndTest : public testing::RunningShare {
protected:
    [[nodiscard]] std::string ProgramLog() const {
        return testing::ReadWholeFile(home_.Path() + ".stderr");
    }
    [[nodiscard]] std::set<std::string> ShareNames() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(share_.Path()))
            names.insert(entry.path().filename().string());
        return names;
    }
};

TEST_F(FaultInjectionEndToEndTest, RunningOutOfDescriptorsPausesAcceptingUntilSomeClose) {
    share_.Write("a.txt", "a");
    // With the console's line read, start-up has opened all it opens.
    StartWithConsole("authorities+=.anonymous|docs|7\r\n");
    ProcessView program(program_->Pid());
    const size_t settled = program.OpenDescriptors();
    HttpResponse created = testing::Fetch(
        port_,
        "POST /docs/?action=tus HTTP/1.1\r\nHost: test\r\nTus-Resumable: 1.0.0\r\n"
        "Upload-Length: 9\r\nUpload-Metadata: filename Yi50eHQ=\r\nContent-Length: 0\r\n\r\n");
    ASSERT_EQ(created.status, 201);
    // Until its connection has closed on the server's side, its descriptor would be a gap
    // below the limit.
    ASSERT_TRUE(testing::WaitUntil([&] { return program.OpenDescriptors() == settled; }));
    // Each kind of request that opens something once it was accepted: a file, a listing, a
    // zip, the folder tree, a search, a plug-in's file and a resumable upload.
    const std::vector<std::string> requests = {
        "GET /docs/a.txt",
        "GET /docs/",
        "GET /docs/?action=Zip",
        "GET /docs/?action=Subdir",
        "GET /docs/?action=Search&q=a",
        "GET /?action=PluginResource&plugin=gallery&file=gallery.js",
        "HEAD " + created.Header("Location"),
    };
    auto ask = [](TCPSocket& socket, const std::string& request) {
        testing::SendAll(socket,
                         request + " HTTP/1.1\r\nHost: test\r\nTus-Resumable: 1.0.0\r\n\r\n");
        return testing::ReadResponse(socket);
    };
#ifdef __SANITIZE_ADDRESS__
    // UndefinedBehaviorSanitizer reads an object's type through a pipe the first time it
    // meets the type at a call; with no descriptor left for the pipe it reports a type
    // error that is not there and, halting on errors, ends the program. Each kind of
    // request asked once beforehand fills its cache of the types it has checked.
    for (const std::string& request : requests) {
        TCPSocket warm = testing::ConnectTo(port_);
        ASSERT_EQ(ask(warm, request).status, 200) << request;
    }
    ASSERT_TRUE(testing::WaitUntil([&] { return program.OpenDescriptors() == settled; }));
#endif
    // The limit bounds descriptor numbers, not their count: room for three more below it,
    // enough for a connection and the folder it lists once the held ones close.
    const size_t limit = program.LowestFreeDescriptor(3);
    ASSERT_TRUE(LimitChild(program_->Pid(), RLIMIT_NOFILE, limit));
    std::vector<TCPSocket> held;
    for (int i = 0; i < 3; ++i)
        held.push_back(testing::ConnectTo(port_));
    ASSERT_TRUE(testing::WaitUntil([&] { return program.OpenDescriptors(limit) == limit; }));

    // The last connection in took the last descriptor: what it asks for is there but
    // cannot be opened, which is no reason to call it missing (a resumable upload's client
    // would give the upload up, the folder tree would show an empty folder).
    for (const std::string& request : requests) {
        HttpResponse busy = ask(held.back(), request);
        EXPECT_EQ(busy.status, 503) << request;
        EXPECT_EQ(busy.Header("Retry-After"), "5") << request;
    }
    EXPECT_TRUE(testing::WaitUntil([&] {
        return CountOf(ProgramLog(), "No file descriptor left to open") == requests.size();
    })) << ProgramLog();

    TCPSocket waiting = testing::ConnectTo(port_);
    testing::SendAll(waiting, "GET / HTTP/1.1\r\nHost: test\r\nConnection: close\r\n\r\n");
    long cpu_before = program.CpuTicks();
    // Half a second in which the queued client waits; a server that retried without
    // pause would burn most of it.
    pollfd answer{waiting.GetHandle(), POLLIN, 0};
    EXPECT_EQ(::poll(&answer, 1, 500), 0);
    EXPECT_LT(program.CpuTicks() - cpu_before, 10);

    held.clear();
    EXPECT_EQ(testing::ReadResponse(waiting).status, 200);
    // Room again for what the leak check at the program's exit opens.
    ASSERT_TRUE(LimitChild(program_->Pid(), RLIMIT_NOFILE, limit + 64));
    EXPECT_EQ(Visit("/docs/").status, 200);
    ASSERT_TRUE(
        testing::WaitUntil([&] { return Contains(ProgramLog(), "Accepting connections again"); }));
    // Told once with its end, however often accept was tried meanwhile.
    std::string log = ProgramLog();
    EXPECT_EQ(CountOf(log, "Too many open files"), 1u) << log;
    EXPECT_EQ(CountOf(log, "Accepting connections again"), 1u) << log;
}

TEST_F(FaultInjectionEndToEndTest, ASettingsSaveThatFailsKeepsTheOldFileAndTheChangeInMemory) {
    share_.Write(".secret", "hidden");
    StartWithConsole();
    const std::string saved = home_.Read("mount.ini");
    const std::string failure = "Could not save the settings file: " + (home_ / "mount.ini");

    // A file-size limit fails the write as a full disk does.
    ASSERT_TRUE(LimitChild(program_->Pid(), RLIMIT_FSIZE, 16));
    HttpResponse full = console_->Post("settings/set", "showHiddenFiles=1");
    ASSERT_TRUE(LimitChild(program_->Pid(), RLIMIT_FSIZE, RLIM_INFINITY));
    EXPECT_EQ(full.status, 500) << full.body;
    EXPECT_EQ(home_.Read("mount.ini"), saved);
    EXPECT_FALSE(home_.Exists("mount.ini.tmp"));
    EXPECT_TRUE(Contains(Visit("/docs/").body, ".secret"));
    EXPECT_TRUE(Contains(console_->Get("log").body, failure + " (File too large)"));

    // A settings file made read-only stays as it is, even for root.
    ASSERT_EQ(::chmod((home_ / "mount.ini").c_str(), 0444), 0);
    HttpResponse frozen = console_->Post("settings/set", "keepAliveTimeout=30");
    EXPECT_EQ(frozen.status, 500) << frozen.body;
    EXPECT_EQ(home_.Read("mount.ini"), saved);
    EXPECT_TRUE(Contains(console_->Get("settings").body, "\"keepAliveTimeout\":30"));
    EXPECT_TRUE(Contains(console_->Get("log").body, failure + " (Permission denied)"));

    // Writable again, the next save carries every change kept meanwhile.
    ASSERT_EQ(::chmod((home_ / "mount.ini").c_str(), 0644), 0);
    EXPECT_EQ(console_->Post("settings/set", "keepAliveTimeout=30").status, 200);
    std::string now = home_.Read("mount.ini");
    EXPECT_TRUE(Contains(now, "\r\nshowHiddenFiles=1\r\n") &&
                Contains(now, "\r\nkeepAliveTimeout=30\r\n"))
        << now;
}

// A mounted folder that vanishes, a file cut short and a stop, each while files are on
// their way: visitors get whole answers or none, and nothing half-written stays behind.
TEST_F(FaultInjectionEndToEndTest, VanishingFoldersCutFilesAndAStopMidTransferEndCleanly) {
    const std::string folder = outside_ / "mounted", moved = outside_ / "moved";
    outside_.Write("mounted/big.bin", Pattern(4 << 20));
    outside_.Write("mounted/a.txt", "a");
    constexpr size_t kSize = 32 << 20;
    share_.Write("big.bin", Pattern(kSize));
    share_.Write("idle.bin", "");
    std::filesystem::resize_file(share_ / "idle.bin", kSize);
    Start("mounts+=gone|" + folder + "|x|yes|x|no\r\nauthorities+=.anonymous|docs|7\r\n");

    TCPSocket downloading = SlowReader(port_, "/gone/big.bin");
    ASSERT_EQ(testing::ParseResponse(testing::ReadHead(downloading)).status, 200);
    std::string first = testing::ReadExactly(downloading, 65536);
    ASSERT_EQ(::rename(folder.c_str(), moved.c_str()), 0);
    EXPECT_EQ(Visit("/gone/").status, 404);
    EXPECT_EQ(Visit("/gone/a.txt").status, 404);
    // The download goes on with the file it opened.
    EXPECT_EQ(first + testing::ReadExactly(downloading, (4 << 20) - first.size()),
              outside_.Read("moved/big.bin"));

    // Moved back and forth while visitors list and download: each answer is whole or 404.
    std::atomic<bool> done = false;
    std::thread mover([&] {
        while (!done) {
            (void)::rename(moved.c_str(), folder.c_str());
            (void)::rename(folder.c_str(), moved.c_str());
        }
    });
    for (int i = 0; i < 40; ++i) {
        HttpResponse listing = Visit("/gone/");
        EXPECT_TRUE(listing.status == 404 || Contains(listing.body, "</html>")) << listing.status;
        HttpResponse file = Visit("/gone/a.txt");
        EXPECT_TRUE(file.status == 404 || file.body == "a") << file.status;
    }
    done = true;
    mover.join();
    std::filesystem::remove_all(folder);
    std::filesystem::remove_all(moved);
    EXPECT_EQ(Visit("/gone/").status, 404);
    EXPECT_EQ(Visit("/").status, 200);

    // Kept alive on purpose: only the server can end this connection.
    TCPSocket cut = SlowReader(port_, "/docs/big.bin");
    cut.SetTimeouts(10);
    ASSERT_EQ(testing::ParseResponse(testing::ReadHead(cut)).Header("Content-Length"),
              std::to_string(kSize));
    first = testing::ReadExactly(cut, 65536);
    ASSERT_EQ(::truncate((share_ / "big.bin").c_str(), 1 << 20), 0);
    auto started = std::chrono::steady_clock::now();
    std::string rest = testing::ReadToClose(cut);
    EXPECT_LT(std::chrono::steady_clock::now() - started, 5s);
    EXPECT_LT(first.size() + rest.size(), kSize);
    EXPECT_EQ(Visit("/docs/big.bin").body.size(), 1u << 20);

    // Stopped with an upload half sent and a download held up: out at once, no partial file.
    TCPSocket uploading = testing::ConnectTo(port_);
    std::string body =
        testing::MultipartBody({{"uploadfile", "new.bin", std::string(1 << 20, 'u')}});
    testing::SendAll(uploading, testing::MultipartHead("/docs/?key=cut", body.size()) +
                                    body.substr(0, body.size() / 2));
    ASSERT_TRUE(testing::WaitUntil([&] { return ShareNames().size() == 3; }));
    TCPSocket held = SlowReader(port_, "/docs/idle.bin");
    ASSERT_EQ(testing::ParseResponse(testing::ReadHead(held)).status, 200);
    started = std::chrono::steady_clock::now();
    EXPECT_EQ(program_->Stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - started, 5s);
    EXPECT_EQ(ShareNames(), (std::set<std::string>{"big.bin", "idle.bin"}));
}

TEST_F(FaultInjectionEndToEndTest, TenThousandIdleConnectionsLeaveTheServerResponsive) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    // Each connection has a thread, which the sanitizers make many times dearer.
    constexpr size_t kWanted = 2000;
#else
    constexpr size_t kWanted = 10000;
#endif
    rlimit own{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &own), 0);
    const rlimit saved = own;
    // The test and the program each hold one end of every connection, under one limit.
    const size_t count = std::min<size_t>(kWanted, own.rlim_max > 400 ? own.rlim_max - 200 : 0);
    if (count < 100) GTEST_SKIP() << "the descriptor limit allows only " << own.rlim_max;
    own.rlim_cur = own.rlim_max;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &own), 0);
    Start("keepAliveTimeout=600\r\n");
    ProcessView program(program_->Pid());

    std::vector<TCPSocket> idle;
    idle.reserve(count);
    for (size_t i = 0; i < count; ++i)
        idle.push_back(testing::ConnectTo(port_));
    ASSERT_TRUE(testing::WaitUntil([&] { return program.OpenDescriptors() >= count; }, 60s));

    auto started = std::chrono::steady_clock::now();
    HttpResponse listing = Visit("/docs/");
    EXPECT_LT(std::chrono::steady_clock::now() - started, 1s);
    EXPECT_EQ(listing.status, 200);

    idle.clear();
    Stop();
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &saved), 0);
}

}  // namespace
}  // namespace Zarn
