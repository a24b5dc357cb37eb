// The programs visitors really point at a share, run against the real program: rclone's
// http backend copies a whole tree (reading our listings for links and asking HEAD for
// every file's size and date), curl checks, resumes and keeps connections as it does in the
// field, and wget's spider checks. A client that is not installed skips its test; `make test`
// installs them all.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "support/RunningShare.h"
#include "support/Shell.h"

namespace Zarn {
namespace {

using testing::CommandResult;
using testing::Contains;
using testing::Quoted;
using testing::Shell;

time_t ModificationTime(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mtim.tv_sec : -1;
}

void SetModificationTime(const std::string& path, time_t seconds) {
    const timespec times[2] = {{seconds, 0}, {seconds, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0) << path;
}

class RealClientsEndToEndTest : public testing::RunningShare {
protected:
    // Mon, 03 Feb 2020 04:05:06 GMT: far from now, so a date the server did not send shows.
    static constexpr time_t kOldTime = 1580702706;

    void SetUp() override {
        std::mt19937 generator(20240611);
        big_.resize(3 * 1024 * 1024 + 17);
        for (char& byte : big_)
            byte = static_cast<char>(generator());
        share_.Write("big.bin", big_);
        SetModificationTime(share_ / "big.bin", kOldTime);
        share_.Write("a.txt", "0123456789abcdef");
        // Enough entries that the listing leaves chunked rather than with a length.
        for (int i = 0; i < 600; ++i)
            share_.Write("many files/item " + std::to_string(i) + ".txt", std::to_string(i));
    }
    void Start() {
        RunningShare::Start();
        base_ = "http://127.0.0.1:" + std::to_string(port_);
    }
    [[nodiscard]] std::string Url(const std::string& target) const {
        return Quoted(base_ + target);
    }

    testing::TempFolder scratch_;
    std::string base_;
    std::string big_;
};

TEST_F(RealClientsEndToEndTest, RcloneCopiesATreeOfAwkwardNamesByteForByte) {
    if (Shell("command -v rclone").status != 0) GTEST_SKIP() << "rclone is not installed";
    // Each file holds its own name, so two names served as one another show.
    for (const char* name :
         {"with space/deeper/x#1.txt", "한글 폴더/문서 #2.txt", "café au lait.txt", "100% sure.txt",
          "%41 is not A.txt", "a&b+c=d.txt", "#first.txt", "what?.txt", "semi;colon.txt",
          "it's \"quoted\".txt", "deep/a/b/c/d/leaf.txt"})
        share_.Write(name, std::string(name) + "\n");
    share_.Write("empty.bin", "");
    std::filesystem::create_directory(share_ / "empty folder");
    std::vector<std::string> shape;
    time_t stamp = kOldTime;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(share_.Path())) {
        shape.push_back(std::filesystem::relative(entry.path(), share_.Path()).string());
        if (entry.is_regular_file()) SetModificationTime(entry.path().string(), ++stamp);
    }
    Start();

    std::string copy = scratch_ / "copy";
    CommandResult copied = Shell(
        "rclone copy --config /dev/null --retries 1 --low-level-retries 1 "
        "--create-empty-src-dirs --http-url " +
        Url("/") + " :http:docs " + Quoted(copy) + " 2>&1");
    ASSERT_EQ(copied.status, 0) << copied.output;
    std::vector<std::string> copied_shape;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(copy))
        copied_shape.push_back(std::filesystem::relative(entry.path(), copy).string());
    std::sort(shape.begin(), shape.end());
    std::sort(copied_shape.begin(), copied_shape.end());
    ASSERT_EQ(copied_shape, shape);
    for (const std::string& path : shape) {
        if (std::filesystem::is_directory(share_ / path)) continue;
        SCOPED_TRACE(path);
        // The size came from HEAD and the bytes from GET; the date from Last-Modified.
        EXPECT_TRUE(share_.Read(path) == scratch_.Read("copy/" + path));
        EXPECT_EQ(ModificationTime(copy + "/" + path), ModificationTime(share_ / path));
    }
}

TEST_F(RealClientsEndToEndTest, CurlReusesConnectionsAfterHeadAndResumesAHalfFile) {
    if (Shell("command -v curl").status != 0) GTEST_SKIP() << "curl is not installed";
    Start();
    // Had any HEAD answer carried a body, the bytes would stand where curl reads the next
    // status line on the same connection.
    CommandResult reused =
        Shell("curl -s -I -w '[%{http_code} %{num_connects}]\\n' " + Url("/docs/big.bin") + " " +
              Url("/docs/many%20files/") + " " + Url("/docs/nope") +
              " --next -s -w '[%{http_code} %{num_connects}]' " + Url("/docs/a.txt"));
    EXPECT_EQ(reused.status, 0);
    const std::string& out = reused.output;
    EXPECT_TRUE(Contains(out, "Last-Modified: Mon, 03 Feb 2020 04:05:06 GMT\r\n")) << out;
    EXPECT_TRUE(Contains(out, "Content-Length: " + std::to_string(big_.size()) + "\r\n")) << out;
    EXPECT_TRUE(Contains(out, "\r\n\r\n[200 1]\n") && Contains(out, "\r\n\r\n[200 0]\n") &&
                Contains(out, "\r\n\r\n[404 0]\n"))
        << out;
    EXPECT_TRUE(out.ends_with("\n0123456789abcdef[200 0]")) << out;

    // A download manager resumes where its half file ends.
    scratch_.Write("half.bin", big_.substr(0, big_.size() / 2));
    CommandResult resumed = Shell("curl -s -C - -o " + Quoted(scratch_ / "half.bin") +
                                  " -w '%{http_code} %{size_download}' " + Url("/docs/big.bin"));
    EXPECT_EQ(resumed.output, "206 " + std::to_string(big_.size() - big_.size() / 2));
    EXPECT_TRUE(scratch_.Read("half.bin") == big_);
}

TEST_F(RealClientsEndToEndTest, WgetSpidersFoldersAndMissingFiles) {
    if (Shell("command -v wget").status != 0) GTEST_SKIP() << "wget is not installed";
    Start();
    EXPECT_EQ(Shell("wget -q --spider " + Url("/docs/many%20files/")).status, 0);
    EXPECT_EQ(Shell("wget -q --spider " + Url("/docs/nope")).status, 8);  // an error response
}

}  // namespace
}  // namespace Zarn
