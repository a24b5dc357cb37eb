// The address and revision checks against a check server of the tests' own.

#include <gtest/gtest.h>

#include <chrono>

#include "background/UpdateIPStringThread.h"
#include "background/VersionCheckThread.h"
#include "config/KorvelConfig.h"
#include "log/Log.h"
#include "support/LogCapture.h"
#include "support/ScriptedHttpPeer.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::LogCapture;
using testing::ScriptedHttpPeer;

ScriptedHttpPeer::Script Answer(std::vector<std::string> pieces) {
    return [pieces](const std::string&) { return pieces; };
}

std::string Ok(const std::string& body) {
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

class AddressCheckTest : public ::testing::Test {
protected:
    std::string Address(const std::string& server,
                        std::vector<std::string> local = {"192.0.2.5", "127.0.0.1"}) {
        UpdateIPStringThread thread({.config = &config_,
                                     .check_server = server,
                                     .timeout_seconds = 1,
                                     .local_addresses = [local] { return local; }});
        EXPECT_TRUE(thread.Start());
        thread.Join();
        return thread.GetAddress();
    }

    testing::TempFolder home_;
    KorvelConfig config_{home_ / "mount.ini"};
};

// Answers taken, a body that breaks off (short of its length or in a broken chunk) as far
// as it came, and answers refused for the first local address.
TEST_F(AddressCheckTest, TakesWhatTheCheckServerSeesOrFallsBackToTheLocalRules) {
    LogCapture log(kLogNotice);
    // Without a check server nothing is asked.
    EXPECT_EQ(Address(""), "192.0.2.5");
    EXPECT_EQ(VersionCheckThread("").Run(), 0u);
    EXPECT_FALSE(log.Contains(kLogNotice, "외부에서 IP 주소를 얻어오는 중..."));

    const std::string long_address = "10.20.30." + std::string(300, '4');
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{Ok("203.0.113.7\n")}, "203.0.113.7"},
        {{"HTTP/1.1 200 OK\r\nTransfer-Encoding: Chunked\r\n\r\n8;x=y\r\n198.5",
          "1.1\r\n6\r\n00.250\r\n0\r\nTrailer: x\r\n\r\n"},
         "198.51.100.250"},
        {{Ok(long_address)}, long_address.substr(0, 199)},
        {{"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n1.2.3.4"}, "1.2.3.4"},
        {{"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n7\r\n1.2.3.4\r\nzz\r\n"},
         "1.2.3.4"},
        {{Ok("<html><body>Database error. Try again later.</body></html>")}, "192.0.2.5"},
        {{"HTTP/1.1 404 Not Found\r\nContent-Length: 7\r\n\r\n1.2.3.4"}, "192.0.2.5"},
        {{"HTTP/1.1 200 OK\r\nX: " + std::string(20000, 'x') + "\r\n\r\n1.2.3.4"}, "192.0.2.5"},
    };
    for (const auto& [pieces, address] : cases) {
        SCOPED_TRACE(pieces.front().substr(0, 60));
        ScriptedHttpPeer peer(Answer(pieces));
        EXPECT_EQ(Address(peer.Address()), address);
        EXPECT_EQ(peer.Requests().at(0).substr(0, 44),
                  "GET /lumidrop/check/ipaddr.php HTTP/1.1\r\nHos");
    }
    EXPECT_TRUE(log.Contains(kLogNotice, "IP 주소를 얻었습니다: 203.0.113.7"));

    ScriptedHttpPeer silent(Answer({}));
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Address(silent.Address()), "192.0.2.5");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    // A chosen host name comes before the check server; the preferred card the console's
    // settings end-to-end test shows.
    config_.useHostName = true;
    config_.HostName = "files.example.org";
    EXPECT_EQ(Address(silent.Address()), "files.example.org");
    config_.useHostName = false;
    config_.getPublicIP = false;
    EXPECT_EQ(Address(silent.Address(), {}), "?.?.?.?");
}

TEST_F(AddressCheckTest, CancelEndsAWaitOnASilentServerAtOnce) {
    ScriptedHttpPeer silent(Answer({}));
    UpdateIPStringThread thread({.config = &config_, .check_server = silent.Address()});
    ASSERT_TRUE(thread.Start());
    while (silent.Requests().empty())
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    auto start = std::chrono::steady_clock::now();
    thread.Cancel();
    thread.Join();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST(VersionCheckTest, OnlyANewerRevisionIsReported) {
    LogCapture log(kLogNotice);
    for (int revision : {1187, 1188}) {
        SCOPED_TRACE(revision);
        ScriptedHttpPeer peer(Answer({Ok(std::to_string(revision) + "\r\n")}));
        VersionCheckThread check(peer.Address(), 1);
        ASSERT_TRUE(check.Start());
        check.Join();
        EXPECT_EQ(check.GetNewerRevision(), revision > 1187 ? revision : 0);
        EXPECT_EQ(peer.Requests().at(0).find("GET /lumidrop/check/revision.php HTTP/1.1\r\n"), 0u);
    }
    EXPECT_TRUE(log.Contains(kLogNotice, "새 버전(r1188)이 나왔습니다."));
    EXPECT_FALSE(log.Contains(kLogNotice, "새 버전(r1187)이 나왔습니다."));

    ScriptedHttpPeer error_page(Answer({Ok("<html>9999</html>")}));
    VersionCheckThread check(error_page.Address(), 1);
    EXPECT_EQ(check.Run(), 1u);
    EXPECT_EQ(check.GetNewerRevision(), 0);
}

}  // namespace
}  // namespace Zarn
