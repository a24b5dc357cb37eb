// Zip downloads from the real program, checked by the readers visitors unpack them with:
// unzip, bsdtar and Python's zipfile, each reading the archive on its own terms.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include "core/UniqueFd.h"
#include "skin/Crc32.h"
#include "support/RunningShare.h"
#include "support/Shell.h"
#include "support/TestServer.h"
#include "support/WaitUntil.h"

namespace Zarn {
namespace {

using testing::Contains;

constexpr uint64_t kHugeSize = 5ULL << 30;
constexpr int kSmallFiles = 70000;
constexpr int kFilesPerFolder = 1000;

using testing::CommandResult;
using testing::Shell;

bool HasCommand(const std::string& name) {
    return Shell("command -v " + name + " >/dev/null 2>&1").status == 0;
}

// Each member as Python's zipfile reads it: "name<TAB>size<TAB>crc of the bytes read",
// the crc "-" for members over the limit. zipfile itself checks every member it reads
// against the CRC the archive stores, and fails on a mismatch.
constexpr char kPythonLister[] = R"(
import sys, zipfile, zlib
with zipfile.ZipFile(sys.argv[1]) as archive:
    for info in archive.infolist():
        crc = "-"
        if info.file_size <= int(sys.argv[2]):
            crc = "%08x" % zlib.crc32(archive.read(info))
        print("%s\t%d\t%s" % (info.filename, info.file_size, crc))
)";

struct Member {
    uint64_t size = 0;
    std::string crc;
};

std::map<std::string, Member> ListWithPython(const std::string& scratch, const std::string& zip,
                                             uint64_t read_limit) {
    std::ofstream(scratch + "/list.py") << kPythonLister;
    CommandResult listed = Shell("python3 " + scratch + "/list.py " + zip + " " +
                                 std::to_string(read_limit) + " 2>&1");
    EXPECT_EQ(listed.status, 0) << listed.output.substr(0, 2000);
    std::map<std::string, Member> members;
    std::istringstream lines(listed.output);
    for (std::string line; std::getline(lines, line);) {
        size_t tab = line.find('\t');
        size_t second = line.find('\t', tab + 1);
        if (tab == std::string::npos || second == std::string::npos) continue;
        members[line.substr(0, tab)] = {std::stoull(line.substr(tab + 1, second - tab - 1)),
                                        line.substr(second + 1)};
    }
    return members;
}

std::string CrcText(const std::string& bytes) {
    char text[9];
    std::snprintf(text, sizeof text, "%08x", Teko::Crc32::Of(bytes));
    return text;
}

uint64_t ResidentKilobytes(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) return std::stoull(line.substr(6));
    }
    return 0;
}

std::string OwnOrigin(int port) {
    return "Origin: http://127.0.0.1:" + std::to_string(port) + "\r\n";
}

class ZipEndToEndTest : public testing::RunningShare {
protected:
    std::string Request(const std::string& method, const std::string& target,
                        const std::string& headers = "", const std::string& body = "") {
        std::string head = method + " " + target +
                           " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port_) +
                           "\r\nConnection: close\r\n" + headers;
        if (method == "POST") {
            head += "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
                    std::to_string(body.size()) + "\r\n";
        }
        return head + "\r\n" + body;
    }
    // The archive a response carries, saved for the readers; its member list by Python.
    std::map<std::string, Member> Unpacked(const testing::HttpResponse& response) {
        std::ofstream(scratch_ / "small.zip", std::ios::binary) << response.body;
        EXPECT_EQ(Shell("unzip -tq " + scratch_ / "small.zip").status, 0);
        return ListWithPython(scratch_.Path(), scratch_ / "small.zip", 1 << 20);
    }

    testing::TempFolder scratch_;
};

// What a visitor may not see stays out of the archive: hidden names, links that leave the
// mount; links inside it are followed. Names keep every script; the selection takes only
// what was ticked, folders whole; rights and the cross-site refusal hold.
TEST_F(ZipEndToEndTest, ArchivesHoldWhatTheListingShowsAndNoMore) {
    if (!HasCommand("unzip") || !HasCommand("python3")) GTEST_SKIP() << "unzip or python3";
    share_.Write("a.txt", "alpha");
    share_.Write("한글 이름 ü.txt", "unicode");
    share_.Write(".secret", "hidden");
    share_.Write("sub/inner.txt", "inner");
    share_.Write("sub/.hidden", "hidden");
    std::filesystem::create_directories(share_ / "sub/empty");
    scratch_.Write("outside.txt", "outside");
    std::filesystem::create_symlink(scratch_ / "outside.txt", share_ / "sub/out");
    std::filesystem::create_symlink("../a.txt", share_ / "sub/in");
    Start();

    testing::HttpResponse whole = testing::Fetch(port_, Request("GET", "/docs/?action=Zip"));
    ASSERT_EQ(whole.status, 200);
    std::map<std::string, Member> members = Unpacked(whole);
    std::set<std::string> names;
    for (const auto& [name, member] : members)
        names.insert(name);
    EXPECT_EQ(names,
              (std::set<std::string>{"docs/", "docs/a.txt", "docs/sub/", "docs/sub/empty/",
                                     "docs/sub/in", "docs/sub/inner.txt", "docs/한글 이름 ü.txt"}));
    EXPECT_EQ(members["docs/sub/in"].crc, CrcText("alpha"));
    EXPECT_EQ(members["docs/한글 이름 ü.txt"].crc, CrcText("unicode"));

    testing::HttpResponse picked =
        testing::Fetch(port_, Request("POST", "/docs/sub/?action=Zip", OwnOrigin(port_),
                                      "selectedFiles=inner.txt%0Aempty%0A.hidden%0Ainner.txt"));
    ASSERT_EQ(picked.status, 200);
    EXPECT_TRUE(Contains(picked.Header("Content-Disposition"), "filename=\"sub.zip\""));
    members = Unpacked(picked);
    ASSERT_EQ(members.size(), 2u);
    EXPECT_EQ(members["inner.txt"].crc, CrcText("inner"));
    EXPECT_TRUE(members.count("empty/"));

    EXPECT_EQ(
        testing::Fetch(port_, Request("POST", "/docs/?action=Zip",
                                      "Origin: http://evil.example\r\n", "selectedFiles=a.txt"))
            .status,
        403);
    EXPECT_EQ(testing::Fetch(port_, Request("GET", "/docs/a.txt?action=Zip")).status, 404);

    Start("authorities+=.anonymous|docs|1\r\n");  // list, but no download
    EXPECT_EQ(testing::Fetch(port_, Request("GET", "/docs/?action=Zip")).status, 401);

    // Forms end a selection's lines in CR LF, and the archive reads "..\r" as "..": it is
    // refused as ".." is, also where hidden names are shared and a dot name would pass.
    Start("showHiddenFiles=1\r\n");
    for (std::string selection : {"..%0D", "inner.txt%0D%0A..%0D%0A"}) {
        testing::HttpResponse response =
            testing::Fetch(port_, Request("POST", "/docs/sub/?action=Zip", OwnOrigin(port_),
                                          "selectedFiles=" + selection));
        EXPECT_EQ(response.status, 301) << selection;
        EXPECT_FALSE(Contains(response.body, "a.txt")) << selection;
    }
}

// Visitors who may upload can make a tree deep one folder at a time. Walking it takes a
// descriptor or two and no stack per level: under a small descriptor limit the deepest
// file is still in.
TEST_F(ZipEndToEndTest, DeepTreeTakesNoDescriptorPerLevel) {
    UniqueFd folder(::open(share_.Path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (int level = 0; level < 400; ++level) {
        const char* name = level == 0 ? "deep" : "d";
        ASSERT_EQ(::mkdirat(folder.Get(), name, 0755), 0);
        folder = UniqueFd(::openat(folder.Get(), name, O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
    ASSERT_TRUE(UniqueFd(::openat(folder.Get(), "bottom.txt", O_WRONLY | O_CREAT | O_CLOEXEC, 0644))
                    .IsValid());
    Start();
    rlimit limit{};
    ASSERT_EQ(::prlimit(program_->Pid(), RLIMIT_NOFILE, nullptr, &limit), 0);
    limit.rlim_cur = 128;
    ASSERT_EQ(::prlimit(program_->Pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
    testing::HttpResponse zip = testing::Fetch(port_, Request("GET", "/docs/deep/?action=Zip"));
    ASSERT_EQ(zip.status, 200);
    EXPECT_TRUE(Contains(zip.body, "/d/bottom.txt"));
}

// A tree past every 32-bit limit of the format: a 5 GiB file (sparse, with marks that a
// misplaced byte would move) and 70,000 small files. The program's memory stays flat
// while the big file streams, and a visitor who leaves halfway frees the download place.
TEST_F(ZipEndToEndTest, LargeTreeOpensInEveryReaderAndLeavingEndsIt) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "streaming 5 GiB through the instrumented copy outlasts the time limit; "
                    "one connection's thread shows no race another test would miss";
#endif
    for (const char* tool : {"unzip", "bsdtar", "python3"}) {
        if (!HasCommand(tool)) GTEST_SKIP() << tool << " is not installed";
    }
    // In memory where the system has it: 70,000 files are made and removed there in a second
    // or two, where a disk shared with busy builds can take minutes.
    testing::TempFolder memory(::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp");
    std::filesystem::create_directories(memory / "tree/empty");
    {
        UniqueFd huge(::open((memory / "tree/huge.bin").c_str(), O_WRONLY | O_CREAT, 0644));
        ASSERT_EQ(::ftruncate(huge.Get(), static_cast<off_t>(kHugeSize)), 0);
        for (uint64_t at : {uint64_t{0}, uint64_t{4} << 30, kHugeSize - 5})
            ASSERT_EQ(::pwrite(huge.Get(), "mark!", 5, static_cast<off_t>(at)), 5);
    }
    for (int i = 0; i < kSmallFiles; ++i) {
        std::string folder = memory / ("tree/many/d" + std::to_string(i / kFilesPerFolder));
        if (i % kFilesPerFolder == 0) std::filesystem::create_directories(folder);
        std::string content = std::to_string(i) + "\n";
        UniqueFd file(::open((folder + "/f" + std::to_string(i)).c_str(),
                             O_WRONLY | O_CREAT | O_TRUNC, 0644));
        ASSERT_EQ(::write(file.Get(), content.data(), content.size()),
                  static_cast<ssize_t>(content.size()));
    }
    Start("mounts+=big|" + memory / "tree" +
          "|x|yes|x|no\r\nusePerIPDownloadConnectionLimit=1\r\nperIPdownloadConnectionLimit=1\r\n");
    pid_t pid = program_->Pid();
    uint64_t before = ResidentKilobytes(pid);

    TCPSocket socket = testing::ConnectTo(port_);
    testing::SendAll(socket, Request("GET", "/big/?action=Zip"));
    testing::HttpResponse head = testing::ParseResponse(testing::ReadHead(socket));
    ASSERT_EQ(head.status, 200);
    uint64_t length = std::stoull(head.Header("Content-Length"));
    ASSERT_GT(length, kHugeSize);

    // Saved sparse: the holes of the big file need no room on this disk either.
    std::string zip = memory / "tree.zip";
    UniqueFd out(::open(zip.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644));
    static const char kZeros[65536] = {};
    std::string buffer(1 << 16, '\0');
    uint64_t received = 0;
    uint64_t rss_at_1g = 0;
    uint64_t rss_in_huge = 0;
    uint64_t rss_peak = 0;
    while (received < length) {
        int got = socket.ReceiveAll(
            buffer.data(), static_cast<int>(std::min<uint64_t>(buffer.size(), length - received)));
        ASSERT_GT(got, 0) << "the archive broke off at " << received;
        auto size = static_cast<size_t>(got);
        if (size == sizeof kZeros && std::memcmp(buffer.data(), kZeros, size) == 0) {
            ASSERT_GE(::lseek(out.Get(), static_cast<off_t>(size), SEEK_CUR), 0);
        } else {
            ASSERT_EQ(::write(out.Get(), buffer.data(), size), got);
        }
        received += size;
        if (received % (256 << 20) < size) {
            uint64_t rss = ResidentKilobytes(pid);
            if (rss_at_1g == 0 && received >= (1ULL << 30)) rss_at_1g = rss;
            if (received < kHugeSize) rss_in_huge = std::max(rss_in_huge, rss);
            rss_peak = std::max(rss_peak, rss);
        }
    }
    ASSERT_EQ(::ftruncate(out.Get(), static_cast<off_t>(length)), 0);
    out.Reset();
    // Through the big file nothing may grow; the entry list of 70,000 names is allowed
    // its few megabytes (more under the address sanitizer's bookkeeping).
    EXPECT_LT(rss_in_huge - rss_at_1g, 16u << 10) << "kB";
    EXPECT_LT(rss_peak - before, 256u << 10) << "kB";

    CommandResult unzip = Shell("unzip -tq " + zip + " 2>&1");
    EXPECT_EQ(unzip.status, 0) << unzip.output.substr(0, 2000);
    CommandResult bsdtar = Shell("bsdtar -tvf " + zip + " 2>&1");
    EXPECT_EQ(bsdtar.status, 0) << bsdtar.output.substr(0, 2000);
    EXPECT_TRUE(Contains(bsdtar.output, std::to_string(kHugeSize) + " "));
    EXPECT_TRUE(Contains(bsdtar.output, "big/many/d69/f69999"));
    std::map<std::string, Member> members = ListWithPython(scratch_.Path(), zip, 4096);
    // The small files and the big one; the tree's own folder, "empty", "many" and its 70.
    EXPECT_EQ(members.size(), kSmallFiles + 1 + 3 + kSmallFiles / kFilesPerFolder);
    EXPECT_EQ(members["big/huge.bin"].size, kHugeSize);
    EXPECT_TRUE(members.count("big/empty/"));
    for (int i : {0, 999, 1000, 34567, 65534, 65535, 69999}) {
        std::string name =
            "big/many/d" + std::to_string(i / kFilesPerFolder) + "/f" + std::to_string(i);
        EXPECT_EQ(members[name].crc, CrcText(std::to_string(i) + "\n")) << name;
    }

    // Leaving halfway: the one download place this address has must come free.
    {
        TCPSocket leaving = testing::ConnectTo(port_);
        testing::SendAll(leaving, Request("GET", "/big/?action=Zip"));
        EXPECT_EQ(testing::ParseResponse(testing::ReadHead(leaving)).status, 200);
        EXPECT_EQ(testing::ReadExactly(leaving, 64 << 20).size(), size_t{64} << 20);
    }
    EXPECT_TRUE(testing::WaitUntil([&] {
        return testing::Fetch(port_, Request("GET", "/big/empty/?action=Zip")).status == 200;
    }));
}

}  // namespace
}  // namespace Zarn
