// CGI programs run by the real program: shell scripts in the owner's CGI folder, driven over
// real sockets, with real processes to look for in /proc afterwards.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "core/Base64.h"
#include "support/RunningShare.h"
#include "support/WaitUntil.h"

namespace Zarn {
namespace {

using testing::Contains;
using testing::Fetch;
using testing::HttpResponse;
using testing::TempFolder;
using testing::WaitUntil;

// Gone, or a zombie left to a parent that is not ours to judge.
bool IsGone(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    if (!std::getline(stat, line)) return true;
    size_t close = line.rfind(')');
    return close != std::string::npos && line.substr(close + 2, 1) == "Z";
}

bool IsReaped(pid_t pid) {
    return !std::filesystem::exists("/proc/" + std::to_string(pid));
}

class CgiEndToEndTest : public testing::RunningShare {
protected:
    void SetUp() override {
        Program("echo.cgi",
                "printf 'Content-Type: text/plain\\r\\nX-Program: echo\\r\\n\\r\\n'\n"
                "env\n"
                "echo \"CWD=$(pwd)\"\n"
                "ls -l /proc/$$/fd\n"
                "echo BODY:\n"
                "cat\n");
        // Writes "its pid and its child's pid" to the file its query names, then hangs.
        Program("hang.cgi", "sleep 1000 &\necho \"$$ $!\" > \"$QUERY_STRING\"\nwait\n");
        Program("mark.cgi",
                "touch '" + (home_ / "ran") + "'\nprintf 'Content-Type: text/plain\\n\\nran'\n");
    }
    void Program(const std::string& name, const std::string& body,
                 const TempFolder* folder = nullptr) const {
        const TempFolder& where = folder != nullptr ? *folder : cgi_;
        where.Write(name, "#!/bin/sh\n" + body);
        ::chmod((where / name).c_str(), 0755);
    }
    void StartWithCgi(const std::string& settings = "") {
        Start("cgiFolder=" + cgi_.Path() + "\r\nusers+=bob|secret\r\n" + settings);
    }
    // The two process ids hang.cgi wrote, once it has written them.
    static std::pair<pid_t, pid_t> HangingPids(const std::string& file) {
        std::pair<pid_t, pid_t> pids{0, 0};
        EXPECT_TRUE(WaitUntil([&] {
            std::ifstream in(file);
            return static_cast<bool>(in >> pids.first >> pids.second);
        }));
        return pids;
    }

    TempFolder cgi_;
};

TEST_F(CgiEndToEndTest, GivesAProgramTheRequestAndRelaysWhatItAnswers) {
    Program("status.cgi", "printf 'Status: 418 Teapot here\\nContent-Type: text/plain\\n\\nshort'");
    Program("moved.cgi", "printf 'Location: /docs/\\r\\n\\r\\n'");
    Program("framing.cgi",
            "printf 'Content-Type: text/plain\\nConnection: keep-alive\\n"
            "Transfer-Encoding: gzip\\nContent-Length: 2\\n\\nok'");
    Program("noheader.cgi", "echo 'no header here'\necho");
    Program("nothing.cgi", "echo 'only this' >&2\nexit 3");
    Program("badstatus.cgi", "printf 'Status: 100 Continue\\n\\n'");
    StartWithCgi();
    HttpResponse got = Visit("/cgi-bin/echo.cgi/some/path%20x?a=1%202&b=%41",
                             "Authorization: Basic " + Base64Encode("bob:secret") +
                                 "\r\nX-Custom: yes\r\nProxy: http://evil/\r\n");
    ASSERT_EQ(got.status, 200) << got.body;
    EXPECT_EQ(got.Header("X-Program"), "echo");
    for (const std::string& line : std::vector<std::string>{
             "GATEWAY_INTERFACE=CGI/1.1", "REQUEST_METHOD=GET", "SCRIPT_NAME=/cgi-bin/echo.cgi",
             "PATH_INFO=/some/path x", "QUERY_STRING=a=1%202&b=%41", "REMOTE_USER=bob",
             "AUTH_TYPE=Basic", "REMOTE_ADDR=127.0.0.1", "SERVER_PROTOCOL=HTTP/1.1",
             "SERVER_PORT=" + std::to_string(port_), "SERVER_NAME=test", "HTTP_X_CUSTOM=yes",
             "CWD=" + cgi_.Path()}) {
        EXPECT_TRUE(Contains("\n" + got.body, "\n" + line + "\n")) << line << "\n" << got.body;
    }
    for (const char* absent : {"HTTP_AUTHORIZATION", "HTTP_PROXY", "secret", "LUMIDROP"})
        EXPECT_FALSE(Contains(got.body, absent)) << absent;
    // Neither the listening socket, the visitor's connection nor the log file of the
    // server reaches the program.
    EXPECT_FALSE(Contains(got.body, "socket:"));
    EXPECT_FALSE(Contains(got.body, home_.Path()));

    // A body of some megabytes goes through while the program already answers.
    std::string payload(3 << 20, '\0');
    for (size_t i = 0; i < payload.size(); ++i)
        payload[i] = static_cast<char>('a' + i % 26);
    TCPSocket socket = testing::ConnectTo(port_);
    std::thread sender([&] {
        testing::SendAll(socket,
                         "POST /cgi-bin/echo.cgi HTTP/1.1\r\nHost: test\r\n"
                         "Content-Type: application/octet-stream\r\nContent-Length: " +
                             std::to_string(payload.size()) + "\r\n\r\n" + payload);
    });
    HttpResponse posted = testing::ReadResponse(socket);
    sender.join();
    EXPECT_EQ(posted.status, 200);
    EXPECT_TRUE(Contains(posted.body, "\nCONTENT_LENGTH=3145728\n"));
    EXPECT_TRUE(Contains(posted.body, "\nCONTENT_TYPE=application/octet-stream\n"));
    EXPECT_TRUE(posted.body.ends_with("BODY:\n" + payload)) << posted.body.size();

    // Status and Location are relayed; what is not a CGI answer, or frames the body its own
    // way, is not.
    const struct {
        const char* program;
        int status;
        const char* header;  // "Name: value", or empty
        const char* body;    // null: not checked
    } cases[] = {
        {"status.cgi", 418, "", "short"},
        {"moved.cgi", 302, "Location: /docs/", nullptr},
        {"framing.cgi", 200, "Content-Length: 2", "ok"},
        {"noheader.cgi", 502, "", nullptr},
        {"nothing.cgi", 502, "", nullptr},
        {"badstatus.cgi", 502, "", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.program);
        HttpResponse answer = Visit(std::string("/cgi-bin/") + c.program);
        EXPECT_EQ(answer.status, c.status) << answer.body;
        const std::string header = c.header;
        const size_t colon = header.find(": ");
        if (colon != std::string::npos) {
            EXPECT_EQ(answer.Header(header.substr(0, colon)), header.substr(colon + 2));
        }
        if (c.body != nullptr) {
            EXPECT_EQ(answer.body, c.body);
        }
        EXPECT_EQ(answer.Header("Transfer-Encoding").find("gzip"), std::string::npos);
    }
    EXPECT_TRUE(Contains(Visit("/cgi-bin/status.cgi").status_line, "418 Teapot here"));
}

TEST_F(CgiEndToEndTest, StopsASilentProgramWithEverythingItStarted) {
    Program("partial.cgi", "printf 'Content-Type: text/plain\\n\\nbegun'\nsleep 1000\n");
    StartWithCgi("cgiTimeout=1\r\n");
    std::string pid_file = cgi_ / "silent.pids";
    HttpResponse got = Visit("/cgi-bin/hang.cgi?" + pid_file);
    EXPECT_EQ(got.status, 504);
    auto [program, child] = HangingPids(pid_file);
    EXPECT_TRUE(IsReaped(program));
    EXPECT_TRUE(WaitUntil([child = child] { return IsGone(child); }));

    // Once the head is out, silence cuts the body off: the client sees no last chunk.
    TCPSocket socket = testing::ConnectTo(port_);
    testing::SendAll(socket, "GET /cgi-bin/partial.cgi HTTP/1.1\r\nHost: test\r\n\r\n");
    HttpResponse head = testing::ParseResponse(testing::ReadHead(socket));
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.Header("Transfer-Encoding"), "chunked");
    EXPECT_EQ(testing::ReadToClose(socket), "5\r\nbegun");
}

TEST_F(CgiEndToEndTest, StopsTheProgramWhenItsVisitorLeaves) {
    StartWithCgi();  // the default minute of silence, far longer than this test
    std::string pid_file = cgi_ / "left.pids";
    pid_t program = 0;
    pid_t child = 0;
    {
        TCPSocket socket = testing::ConnectTo(port_);
        testing::SendAll(socket,
                         "GET /cgi-bin/hang.cgi?" + pid_file + " HTTP/1.1\r\nHost: test\r\n\r\n");
        std::tie(program, child) = HangingPids(pid_file);
        ASSERT_FALSE(IsGone(program));
    }
    EXPECT_TRUE(WaitUntil([&] { return IsReaped(program) && IsGone(child); }));
}

TEST_F(CgiEndToEndTest, RunsNothingUnlessTheOwnerEnablesAFolderThatIsNotShared) {
    std::filesystem::create_directory(share_ / "programs");
    TempFolder outside;
    Program("outside.cgi", "touch '" + (home_ / "ran") + "'\n", &outside);
    Program("mark.cgi", "exit 0", &outside);
    std::filesystem::create_symlink("/bin/sh", cgi_ / "shell.cgi");
    std::filesystem::create_symlink(outside / "outside.cgi", cgi_ / "link.cgi");
    Program("sub/mark.cgi", "touch '" + (home_ / "ran") + "'\n");
    Program(".hidden.cgi", "touch '" + (home_ / "ran") + "'\n");
    Program("plain.cgi", "touch '" + (home_ / "ran") + "'\n");
    ::chmod((cgi_ / "plain.cgi").c_str(), 0644);

    // Off by default: /cgi-bin is a path like any other, until the owner names a folder
    // that no visitor can write to through a share.
    StartWithConsole();
    EXPECT_EQ(Visit("/cgi-bin/mark.cgi").status, 404);
    for (const std::string& folder :
         {share_ / "programs", share_.Path(), std::string("relative"), cgi_ / "missing"}) {
        HttpResponse refused = console_->Post("settings/set", "cgiFolder=" + folder);
        EXPECT_EQ(refused.status, 400) << folder;
        EXPECT_TRUE(Contains(refused.body, "\"field\":\"cgiFolder\"")) << refused.body;
    }
    EXPECT_TRUE(Contains(console_->Post("settings/set", "cgiFolder=" + share_.Path()).body,
                         "inside a shared folder (docs)"));
    ASSERT_EQ(console_->Post("settings/set", "cgiFolder=" + cgi_.Path()).status, 200);
    EXPECT_EQ(Visit("/cgi-bin/mark.cgi").body, "ran");
    ASSERT_TRUE(std::filesystem::remove(home_ / "ran"));

    StartWithCgi();
    for (const char* target :
         {"/cgi-bin/../cgi-bin/outside.cgi", "/cgi-bin/%2e%2e/outside.cgi", "/cgi-bin/shell.cgi",
          "/cgi-bin/link.cgi", "/cgi-bin/sub/mark.cgi", "/cgi-bin/sub", "/cgi-bin/.hidden.cgi",
          "/cgi-bin/plain.cgi", "/cgi-bin/", "/cgi-bin", "/cgi-bin/missing.cgi"}) {
        HttpResponse got = Visit(target);
        EXPECT_TRUE(got.status == 404 || got.status == 301) << target << " " << got.status;
    }
    EXPECT_FALSE(home_.Exists("ran"));

    // A mount of the name wins.
    share_.Write("mark.cgi", "just text");
    StartWithCgi("mounts+=cgi-bin|" + share_.Path() + "|x|yes|x|no\r\n");
    EXPECT_EQ(Visit("/cgi-bin/mark.cgi").body, "just text");
    EXPECT_FALSE(home_.Exists("ran"));

    // A folder that a mount came to cover later stays off.
    Program("mark.cgi", "touch '" + (home_ / "ran") + "'\nprintf 'Content-Type: a/b\\n\\n'",
            &share_);
    Start("cgiFolder=" + share_.Path() + "\r\n");
    EXPECT_EQ(Visit("/cgi-bin/mark.cgi").status, 404);
    EXPECT_FALSE(home_.Exists("ran"));
}

}  // namespace
}  // namespace Zarn
