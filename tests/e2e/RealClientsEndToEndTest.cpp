// The programs visitors really point at a share, run against the real program: rclone's
// http backend copies a whole tree (reading our listings for links and asking HEAD for
// every file's size and date), curl and wget check, resume and keep connections as they
// do in the field. A client that is not installed skips its test; `make test` installs
// them all.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/HttpClient.h"
#include "support/ProgramRunner.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::HttpResponse;
using testing::ParseResponse;
using testing::ProgramRunner;
using testing::TempFolder;

struct CommandResult {
    int status = -1;     // the exit status, -1 when the command did not exit normally
    std::string output;  // standard output only, unless the command redirects
};

CommandResult RunCommand(const std::string& command) {
    CommandResult result;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) return result;
    char buffer[4096];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        result.output.append(buffer, got);
    int status = ::pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

bool IsInstalled(const std::string& program) {
    return RunCommand("command -v " + program + " >/dev/null 2>&1").status == 0;
}

// One shell word, whatever the text holds: our names and ETags carry quotes and spaces.
std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

std::string RandomBytes(size_t size) {
    std::mt19937 generator(20240611);
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(generator());
    return bytes;
}

void SetModificationTime(const std::string& path, time_t seconds) {
    const timespec times[2] = {{seconds, 0}, {seconds, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0) << path;
}

time_t ModificationTime(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mtim.tv_sec : -1;
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Every entry below the root by its path from there; folders end in "/".
std::vector<std::string> TreeShape(const std::string& root) {
    std::vector<std::string> shape;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        std::string relative = std::filesystem::relative(entry.path(), root).string();
        shape.push_back(entry.is_directory() ? relative + "/" : relative);
    }
    std::sort(shape.begin(), shape.end());
    return shape;
}

class RealClientsEndToEndTest : public ::testing::Test {
protected:
    // Mon, 03 Feb 2020 04:05:06 GMT: far from now, so a date the server did not send shows.
    static constexpr time_t kOldTime = 1580702706;
    static constexpr int kManyFiles = 600;

    void SetUp() override {
        big_ = RandomBytes(3 * 1024 * 1024 + 17);
        share_.Write("big.bin", big_);
        SetModificationTime(share_ / "big.bin", kOldTime);
        share_.Write("a.txt", "0123456789abcdef");
        // Enough entries that the listing leaves chunked rather than with a length.
        for (int i = 0; i < kManyFiles; ++i)
            share_.Write("many files/item " + std::to_string(i) + ".txt", std::to_string(i));
        home_.Write("mount.ini", "mounts+=docs|" + share_.Path() +
                                     "|x|yes|x|no\r\nuiLanguageFile=English.wul\r\n");
        program_ = std::make_unique<ProgramRunner>(home_.Path());
        base_ = "http://127.0.0.1:" + std::to_string(program_->Port());
    }

    [[nodiscard]] std::string Url(const std::string& target) const {
        return Quoted(base_ + target);
    }

    TempFolder share_;
    TempFolder home_;
    TempFolder scratch_;
    std::unique_ptr<ProgramRunner> program_;
    std::string base_;
    std::string big_;
};

TEST_F(RealClientsEndToEndTest, RcloneCopiesATreeOfAwkwardNamesByteForByte) {
    if (!IsInstalled("rclone")) GTEST_SKIP() << "rclone is not installed";
    // Each file holds its own name, so two names served as one another show.
    const std::vector<std::string> names = {
        "empty.bin",
        "with space/a b.txt",
        "with space/deeper/x#1.txt",
        "한글 폴더/문서 #2.txt",
        "café au lait.txt",
        "100% sure.txt",
        "%41 is not A.txt",
        "a&b+c=d.txt",
        "#first.txt",
        "what?.txt",
        "semi;colon.txt",
        "it's \"quoted\".txt",
        "deep/a/b/c/d/leaf.txt",
    };
    for (const std::string& name : names)
        share_.Write(name, name == "empty.bin" ? "" : name + "\n");
    std::filesystem::create_directory(share_ / "empty folder");
    time_t stamp = kOldTime;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(share_.Path())) {
        if (entry.is_regular_file()) SetModificationTime(entry.path().string(), ++stamp);
    }

    std::string destination = scratch_ / "copy";
    CommandResult copy = RunCommand(
        "rclone copy --config /dev/null --retries 1 --low-level-retries 1 "
        "--create-empty-src-dirs --http-url " +
        Quoted(base_ + "/") + " :http:docs " + Quoted(destination) + " 2>&1");
    ASSERT_EQ(copy.status, 0) << copy.output;

    std::vector<std::string> shape = TreeShape(share_.Path());
    ASSERT_EQ(TreeShape(destination), shape);
    for (const std::string& path : shape) {
        if (path.ends_with("/")) continue;
        SCOPED_TRACE(path);
        // The size came from HEAD and the bytes from GET; the date from Last-Modified.
        EXPECT_TRUE(share_.Read(path) == ReadFile(destination + "/" + path));
        EXPECT_EQ(ModificationTime(destination + "/" + path), ModificationTime(share_ / path));
    }
}

TEST_F(RealClientsEndToEndTest, CurlHeadAnswersAsGetWouldWithoutABody) {
    if (!IsInstalled("curl")) GTEST_SKIP() << "curl is not installed";
    const std::pair<const char*, int> targets[] = {
        {"/docs/big.bin", 200}, {"/docs/", 200}, {"/docs/many%20files/", 200}, {"/docs/nope", 404}};
    for (const auto& [target, status] : targets) {
        SCOPED_TRACE(target);
        HttpResponse get =
            ParseResponse(RunCommand("curl -s -D - -o /dev/null " + Url(target)).output);
        HttpResponse head = ParseResponse(RunCommand("curl -s -I " + Url(target)).output);
        EXPECT_EQ(get.status, status);
        EXPECT_EQ(head.status_line, get.status_line);
        EXPECT_FALSE(head.Header("Content-Type").empty());
        EXPECT_FALSE(head.Header("Date").empty());
        get.headers.erase("DATE");
        head.headers.erase("DATE");
        EXPECT_EQ(head.headers, get.headers);
    }
    HttpResponse file = ParseResponse(RunCommand("curl -s -I " + Url("/docs/big.bin")).output);
    EXPECT_EQ(file.status, 200);
    EXPECT_EQ(file.Header("Content-Length"), std::to_string(big_.size()));
    EXPECT_EQ(file.Header("Last-Modified"), "Mon, 03 Feb 2020 04:05:06 GMT");
    EXPECT_TRUE(file.Header("ETag").starts_with("\"")) << file.Header("ETag");
    HttpResponse large =
        ParseResponse(RunCommand("curl -s -I " + Url("/docs/many%20files/")).output);
    EXPECT_EQ(large.Header("Transfer-Encoding"), "chunked");

    // Had any HEAD answer carried a body, the bytes would stand where curl reads the next
    // status line on the same connection.
    CommandResult reused =
        RunCommand("curl -s -I -w '[%{http_code} %{num_connects}]\\n' " + Url("/docs/big.bin") +
                   " " + Url("/docs/many%20files/") + " " + Url("/docs/nope") +
                   " --next -s -w '[%{http_code} %{num_connects}]' " + Url("/docs/a.txt"));
    EXPECT_EQ(reused.status, 0);
    EXPECT_NE(reused.output.find("\r\n\r\n[200 1]\n"), std::string::npos) << reused.output;
    EXPECT_NE(reused.output.find("\r\n\r\n[200 0]\n"), std::string::npos) << reused.output;
    EXPECT_NE(reused.output.find("\r\n\r\n[404 0]\n"), std::string::npos) << reused.output;
    EXPECT_TRUE(reused.output.ends_with("\n0123456789abcdef[200 0]")) << reused.output;
}

TEST_F(RealClientsEndToEndTest, CurlRangesFollowIfRangeAndResumeAHalfDownload) {
    if (!IsInstalled("curl")) GTEST_SKIP() << "curl is not installed";
    HttpResponse head = ParseResponse(RunCommand("curl -s -I " + Url("/docs/big.bin")).output);
    ASSERT_FALSE(head.Header("ETag").empty());
    std::string part = scratch_ / "part.bin";
    auto ranged_get = [&](const std::string& validator) {
        return RunCommand("curl -s -r 1000-1999 -H " + Quoted("If-Range: " + validator) + " -o " +
                          Quoted(part) + " -w '%{http_code}' " + Url("/docs/big.bin"))
            .output;
    };
    // Download managers resume with either validator they kept.
    for (const std::string& current : {head.Header("ETag"), head.Header("Last-Modified")}) {
        SCOPED_TRACE(current);
        EXPECT_EQ(ranged_get(current), "206");
        EXPECT_TRUE(scratch_.Read("part.bin") == big_.substr(1000, 1000));
    }
    // A file that changed since: the whole new file instead of a piece of it.
    for (const std::string& stale : {std::string("\"0-0-0\""), std::string("Sat, 01 Jan 2000 "
                                                                           "00:00:00 GMT")}) {
        SCOPED_TRACE(stale);
        EXPECT_EQ(ranged_get(stale), "200");
        EXPECT_TRUE(scratch_.Read("part.bin") == big_);
    }

    scratch_.Write("half.bin", big_.substr(0, big_.size() / 2));
    CommandResult resumed =
        RunCommand("curl -s -C - -o " + Quoted(scratch_ / "half.bin") +
                   " -w '%{http_code} %{size_download}' " + Url("/docs/big.bin"));
    EXPECT_EQ(resumed.status, 0);
    EXPECT_EQ(resumed.output, "206 " + std::to_string(big_.size() - big_.size() / 2));
    EXPECT_TRUE(scratch_.Read("half.bin") == big_);
}

TEST_F(RealClientsEndToEndTest, WgetSpiderFindsWhatIsThereAndResumesAPartialFile) {
    if (!IsInstalled("wget")) GTEST_SKIP() << "wget is not installed";
    auto spider = [&](const std::string& target) {
        return RunCommand("wget -q --spider " + Url(target)).status;
    };
    EXPECT_EQ(spider("/docs/big.bin"), 0);
    EXPECT_EQ(spider("/docs/"), 0);
    EXPECT_EQ(spider("/docs/many%20files/"), 0);
    EXPECT_EQ(spider("/docs/nope"), 8);  // wget's "the server issued an error response"

    // Where the range is ignored wget quietly starts again from nothing, so only the 206
    // shows that it continued.
    scratch_.Write("big.bin", big_.substr(0, 1000000));
    CommandResult resumed = RunCommand("cd " + Quoted(scratch_.Path()) + " && wget -nv -S -c " +
                                       Url("/docs/big.bin") + " 2>&1");
    EXPECT_EQ(resumed.status, 0) << resumed.output;
    EXPECT_NE(resumed.output.find("HTTP/1.1 206 Partial Content"), std::string::npos)
        << resumed.output;
    EXPECT_TRUE(scratch_.Read("big.bin") == big_);
}

TEST_F(RealClientsEndToEndTest, OneConnectionCarriesFilesPagesErrorsAndSkinFiles) {
    if (!IsInstalled("curl")) GTEST_SKIP() << "curl is not installed";
    const std::vector<std::string> targets = {
        "/docs/big.bin", "/docs/",     "/docs/many%20files/",
        "/docs",         "/docs/nope", "/.default/common.js?action=SkinFile",
    };
    std::string command = "curl -s -w '%{http_code} %{num_connects}\\n'";
    for (const std::string& target : targets)
        command += " -o /dev/null " + Url(target);
    EXPECT_EQ(RunCommand(command).output,
              "200 1\n"
              "200 0\n"
              "200 0\n"
              "301 0\n"
              "404 0\n"
              "200 0\n");

    if (!IsInstalled("wget")) return;
    CommandResult wget =
        RunCommand("wget -O /dev/null " + Url("/docs/big.bin") + " " + Url("/docs/many%20files/") +
                   " " + Url("/.default/common.js?action=SkinFile") + " 2>&1");
    EXPECT_EQ(wget.status, 0) << wget.output;
    size_t reuses = 0;
    for (size_t at = 0;
         (at = wget.output.find("Reusing existing connection", at)) != std::string::npos; ++at)
        ++reuses;
    EXPECT_EQ(reuses, 2u) << wget.output;
}

}  // namespace
}  // namespace Zarn
