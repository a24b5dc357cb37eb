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

}  // namespace
}  // namespace Zarn
