// Resumable uploads (the tus protocol) against the real program, in raw bytes.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <set>

#include "core/Base64.h"
#include "support/RunningShare.h"
#include "support/WaitUntil.h"

namespace Zarn {
namespace {

using testing::Contains;
using testing::HttpResponse;

constexpr const char* kFolder = "/docs/in/?action=tus";

class TusEndToEndTest : public testing::RunningShare {
protected:
    void SetUp() override {
        share_.Write("in/report.txt", "already here");
        Start("authorities+=.anonymous|docs|7\r\n");
    }

    [[nodiscard]] std::string Request(const std::string& method, const std::string& target,
                                      const std::string& headers,
                                      const std::string& body = "") const {
        return method + " " + target + " HTTP/1.1\r\nHost: test\r\n" + headers +
               "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }
    HttpResponse Send(const std::string& method, const std::string& target,
                      const std::string& headers, const std::string& body = "") const {
        return testing::Fetch(port_, Request(method, target, headers, body));
    }
    // Creates an upload and returns its address ("" when refused).
    std::string Create(const std::string& name, const std::string& length_header,
                       const std::string& extra = "") const {
        HttpResponse created =
            Send("POST", kFolder,
                 "Tus-Resumable: 1.0.0\r\n" + length_header + "Upload-Metadata: filename " +
                     Base64Encode(name) + ",kind dGV4dA==\r\n" + extra);
        return created.status == 201 ? created.Header("Location") : "";
    }
    HttpResponse Patch(const std::string& location, uint64_t offset, const std::string& bytes,
                       const std::string& extra = "") const {
        return Send("PATCH", location,
                    "Tus-Resumable: 1.0.0\r\nContent-Type: application/offset+octet-stream\r\n"
                    "Upload-Offset: " +
                        std::to_string(offset) + "\r\n" + extra,
                    bytes);
    }
    HttpResponse Head(const std::string& location) const {
        return Send("HEAD", location, "Tus-Resumable: 1.0.0\r\n");
    }
    // The upload's own files in the target folder.
    [[nodiscard]] std::set<std::string> Pending() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(share_ / "in")) {
            std::string name = entry.path().filename().string();
            if (name.starts_with("uploading_")) names.insert(name);
        }
        return names;
    }
    // Makes the uploads' files look untouched since `hours` ago.
    void Age(int hours) const {
        for (const std::string& name : Pending()) {
            struct timespec times[2] = {{time(nullptr) - hours * 3600, 0},
                                        {time(nullptr) - hours * 3600, 0}};
            ASSERT_EQ(::utimensat(AT_FDCWD, (share_ / ("in/" + name)).c_str(), times, 0), 0);
        }
    }
};

TEST_F(TusEndToEndTest, FollowsTheProtocolFromCreationToTheStoredFileAndRefusesBadNames) {
    HttpResponse options = Send("OPTIONS", kFolder, "");
    EXPECT_EQ(options.status, 204);
    EXPECT_EQ(options.Header("Tus-Version"), "1.0.0");
    EXPECT_TRUE(Contains(options.Header("Tus-Extension"), "termination"));
    // Outside the protocol's address these methods are as unknown as ever.
    EXPECT_EQ(Send("PATCH", "/docs/in/", "").status, 400);
    EXPECT_EQ(Send("DELETE", "/docs/in/report.txt", "").status, 400);

    for (std::string version : {"", "Tus-Resumable: 0.2.2\r\n"}) {
        HttpResponse refused = Send("POST", kFolder, version + "Upload-Length: 3\r\n");
        EXPECT_EQ(refused.status, 412) << version;
        EXPECT_EQ(refused.Header("Tus-Version"), "1.0.0");
    }
    EXPECT_EQ(Create("report.txt", "Upload-Length: 12abc\r\n"), "");
    EXPECT_EQ(Create("report.txt", ""), "");

    std::string location = Create("report.txt", "Upload-Length: 10\r\n");
    ASSERT_TRUE(location.starts_with("/docs/in/?action=tus&id=")) << location;
    HttpResponse fresh = Head(location);
    EXPECT_EQ(fresh.status, 200);
    EXPECT_EQ(fresh.Header("Upload-Offset"), "0");
    EXPECT_EQ(fresh.Header("Upload-Length"), "10");
    EXPECT_EQ(fresh.Header("Cache-Control"), "no-store");
    EXPECT_TRUE(Contains(fresh.Header("Upload-Metadata"), "kind dGV4dA=="));
    EXPECT_FALSE(fresh.Header("Upload-Expires").empty());

    const std::string version = "Tus-Resumable: 1.0.0\r\n";
    EXPECT_EQ(Send("PATCH", location, version + "Upload-Offset: 0\r\nContent-Type: text/plain\r\n",
                   "abcd")
                  .status,
              415);
    EXPECT_EQ(
        Send("PATCH", location, version + "Content-Type: application/offset+octet-stream\r\n", "ab")
            .status,
        400);
    HttpResponse first = Patch(location, 0, "abcd");
    EXPECT_EQ(first.status, 204);
    EXPECT_EQ(first.Header("Upload-Offset"), "4");
    EXPECT_EQ(Patch(location, 0, "abcd").status, 409);
    EXPECT_EQ(Patch(location, 4, "efghijklmnop").status, 400);  // past the length
    EXPECT_EQ(Head(location).Header("Upload-Offset"), "4");

    // Half an upload is nowhere to be seen.
    EXPECT_FALSE(Contains(Visit("/docs/in/").body, "uploading_"));
    EXPECT_EQ(Visit("/docs/in/" + *Pending().begin()).status, 404);

    // Clients behind proxies that pass only POST send their PATCH this way.
    HttpResponse last = Patch(location, 4, "efghij", "X-HTTP-Method-Override: PATCH\r\n");
    EXPECT_EQ(last.status, 204);
    EXPECT_EQ(last.Header("Upload-Offset"), "10");
    EXPECT_EQ(share_.Read("in/report(1).txt"), "abcdefghij");
    EXPECT_EQ(share_.Read("in/report.txt"), "already here");
    EXPECT_TRUE(Pending().empty());
    // A client whose answer to the last piece was lost asks again: all of it arrived.
    HttpResponse done = Head(location);
    EXPECT_EQ(done.status, 200);
    EXPECT_EQ(done.Header("Upload-Offset"), "10");
    EXPECT_EQ(Patch(location, 10, "").status, 404);
    // An empty file is stored at its creation: no client sends a piece for it.
    EXPECT_FALSE(Create("empty.txt", "Upload-Length: 0\r\n").empty());
    EXPECT_EQ(share_.Read("in/empty.txt"), "");
    EXPECT_TRUE(Pending().empty());

    // A length may be given later.
    std::string deferred = Create("later.bin", "Upload-Defer-Length: 1\r\n");
    ASSERT_FALSE(deferred.empty());
    EXPECT_EQ(Head(deferred).Header("Upload-Defer-Length"), "1");
    EXPECT_EQ(Patch(deferred, 0, "12345").Header("Upload-Offset"), "5");
    EXPECT_EQ(Patch(deferred, 5, "678", "Upload-Length: 8\r\n").status, 204);
    EXPECT_EQ(share_.Read("in/later.bin"), "12345678");

    // A path is reduced to its last name, as for a multipart upload; what no folder should
    // hold is refused before a byte is taken.
    std::string escaping = Create("../../escape.txt", "Upload-Length: 1\r\n");
    ASSERT_FALSE(escaping.empty());
    EXPECT_EQ(Patch(escaping, 0, "x").status, 204);
    EXPECT_EQ(share_.Read("in/escape.txt"), "x");
    for (const std::string& name : {std::string(".hidden"), std::string("uploading_x.LUMIDROP"),
                                    std::string(""), std::string("a\nb"), std::string(300, 'n')}) {
        EXPECT_EQ(Create(name, "Upload-Length: 1\r\n"), "") << name;
    }
    // Metadata comes back in the head of every HEAD: a lone CR in it would split that head.
    EXPECT_EQ(Send("POST", kFolder,
                   "Tus-Resumable: 1.0.0\r\nUpload-Length: 1\r\nUpload-Metadata: filename " +
                       Base64Encode("cr.txt") + ",x eA==\rSet-Cookie: a=b\r\n")
                  .status,
              400);
    EXPECT_TRUE(Pending().empty());
}

TEST_F(TusEndToEndTest, UploadsEndByTerminationOrADayIdleAndRefuseOtherSitesAndNoRight) {
    std::string terminated = Create("gone.txt", "Upload-Length: 5\r\n");
    EXPECT_EQ(Patch(terminated, 0, "ab").status, 204);
    EXPECT_EQ(Send("DELETE", terminated, "Tus-Resumable: 1.0.0\r\n").status, 204);
    EXPECT_EQ(Head(terminated).status, 404);
    EXPECT_EQ(Patch(terminated, 2, "cde").status, 404);
    EXPECT_TRUE(Pending().empty());

    std::string idle = Create("idle.txt", "Upload-Length: 5\r\n");
    EXPECT_EQ(Patch(idle, 0, "ab").status, 204);
    Age(23);
    EXPECT_EQ(Head(idle).Header("Upload-Offset"), "2");
    Age(25);
    EXPECT_EQ(Head(idle).status, 404);
    EXPECT_TRUE(Pending().empty());

    // One that nobody asks for again goes when the next upload into its folder begins.
    ASSERT_FALSE(Create("forgotten.txt", "Upload-Length: 5\r\n").empty());
    Age(25);
    std::string next = Create("next.txt", "Upload-Length: 5\r\n");
    EXPECT_EQ(Pending().size(), 2u);  // the new one's data and description
    EXPECT_EQ(Patch(next, 0, "12345").status, 204);
    EXPECT_TRUE(Pending().empty());

    // Other sites and visitors without the right are refused.
    std::string location = Create("mine.txt", "Upload-Length: 4\r\n");
    const std::string other_site = "Origin: http://elsewhere.example\r\n";
    EXPECT_EQ(Create("x.txt", "Upload-Length: 1\r\n", other_site), "");
    EXPECT_EQ(Patch(location, 0, "ab", other_site).status, 403);
    EXPECT_EQ(Send("DELETE", location, "Tus-Resumable: 1.0.0\r\n" + other_site).status, 403);
    EXPECT_EQ(Head(location).Header("Upload-Offset"), "0");

    Start("authorities+=.anonymous|docs|3\r\n");
    EXPECT_EQ(Send("POST", kFolder, "Tus-Resumable: 1.0.0\r\nUpload-Length: 1\r\n").status, 401);
    EXPECT_EQ(Patch(location, 0, "ab").status, 401);
    EXPECT_EQ(Head(location).status, 401);
}

TEST_F(TusEndToEndTest, ResumesAfterACutConnectionAndARestart) {
    std::string location = Create("big.bin", "Upload-Length: 10\r\n");
    {
        // The client sends a part of what it announced and then holds the connection.
        TCPSocket held = testing::ConnectTo(port_);
        std::string request = Request("PATCH", location,
                                      "Tus-Resumable: 1.0.0\r\n"
                                      "Content-Type: application/offset+octet-stream\r\n"
                                      "Upload-Offset: 0\r\n",
                                      "0123456789");
        testing::SendAll(held, request.substr(0, request.size() - 7));
        ASSERT_TRUE(
            testing::WaitUntil([&] { return Head(location).Header("Upload-Offset") == "3"; }));
        // A second writer waits until the first is gone.
        EXPECT_EQ(Patch(location, 3, "3456789").status, 423);
    }
    // Cut off: what arrived is kept, even across a restart, and a multipart upload into
    // the folder does not take the waiting file for a leftover.
    ASSERT_TRUE(testing::WaitUntil([&] { return Patch(location, 3, "345").status == 204; }));
    Relaunch();
    EXPECT_TRUE(Contains(Upload("/docs/in/?key=k", "other.txt", "other").body, "Upload complete"));
    EXPECT_EQ(Head(location).Header("Upload-Offset"), "6");
    EXPECT_EQ(Patch(location, 6, "6789").status, 204);
    EXPECT_EQ(share_.Read("in/big.bin"), "0123456789");
}

}  // namespace
}  // namespace Zarn
