// Requests built to hurt the server or to slip past its parsers, sent as raw bytes to the
// real program.

#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "support/HttpClient.h"
#include "support/Multipart.h"
#include "support/ProgramRunner.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::Fetch;
using testing::HttpResponse;
using testing::ProgramRunner;
using testing::TempFolder;

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

}  // namespace
}  // namespace Zarn
