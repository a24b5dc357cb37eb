#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "config/HomeFolder.h"
#include "config/KorvelConfig.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::TempFolder;

// Every key as a hand-written file lists it: BOM, items in byte order (upper case first),
// then the lists in key order, CR LF line ends.
const std::string kHandWritten =
    "\xEF\xBB\xBF"
    "HostName=my.example.org\r\nbootOnTray=0\r\ncanRootAccess=1\r\ncgiFolder=\r\n"
    "cgiTimeout=60\r\nconsolePort=9000\r\ndefaultSkin=\r\ndefaultUrlCodepage=949\r\n"
    "downloadConnectionLimit=4\r\nfirstRunDone=1\r\nfollowLinksOutOfMounts=0\r\n"
    "getPublicIP=0\r\nkeepAliveTimeout=40\r\nlastAddMountDirectory=/home/me\r\n"
    "perIPdownloadConnectionLimit=2\r\nport=8080\r\npreferredLancardAddress=192.168.0.10\r\n"
    "showHiddenFiles=0\r\nsingleInstance=1\r\nskinDevelopersMode=0\r\n"
    "totalDownloadSpeedLimit=-1\r\ntotalUploadSpeedLimit=100\r\n"
    "uiLanguageFile=English.wul\r\nuseDownloadConnectionLimit=1\r\nuseHostName=1\r\n"
    "usePerIPDownloadConnectionLimit=1\r\nuseVersionCheck=0\r\nwasRunning=1\r\nwriteLog=1\r\n"
    "authorities+=guest|music|3\r\nipFilterTable+=192.168.0.*:allow\r\n"
    "ipFilterTable+=*.*.*.*:ban\r\nmounts+=music|%2fhome%2fme%2fMusic|x|yes|x|no\r\n"
    "users+=guest|secret\r\n";

TEST(KorvelConfigTest, HandWrittenFileLoadsAndSavesBackByteForByte) {
    TempFolder home;
    home.Write(KorvelConfig::kFileName, kHandWritten);
    KorvelConfig config(home / KorvelConfig::kFileName);
    EXPECT_EQ(config.port, 8080);
    EXPECT_EQ(config.HostName, "my.example.org");
    EXPECT_EQ(config.ipFilterTable, (std::vector<std::string>{"192.168.0.*:allow", "*.*.*.*:ban"}));
    ASSERT_TRUE(config.Save());
    EXPECT_EQ(home.Read(KorvelConfig::kFileName), kHandWritten);
}

// The corrected value is the one saved.
TEST(KorvelConfigTest, KeepAliveTimeoutIsDefaultedAndKeptWithinItsBounds) {
    const std::pair<const char*, int> cases[] = {
        {"", 15}, {"keepAliveTimeout=-20", 1}, {"keepAliveTimeout=86400", 3600}};
    TempFolder home;
    for (const auto& [line, loaded] : cases) {
        home.Write(KorvelConfig::kFileName, std::string(line) + "\r\n");
        KorvelConfig config(home / KorvelConfig::kFileName);
        EXPECT_EQ(config.keepAliveTimeout, loaded) << line;
        ASSERT_TRUE(config.Save());
        EXPECT_NE(home.Read(KorvelConfig::kFileName)
                      .find("\r\nkeepAliveTimeout=" + std::to_string(loaded) + "\r\n"),
                  std::string::npos)
            << line;
    }
}

TEST(KorvelConfigTest, ConcurrentSavesAlwaysLeaveAWholeFile) {
    TempFolder home;
    KorvelConfig config(home / KorvelConfig::kFileName);
    std::vector<std::thread> savers;
    for (int t = 0; t < 4; ++t) {
        savers.emplace_back([&config, t] {
            for (int i = 0; i < 25; ++i) {
                CriticalSectionLock hold(config.GetLock());
                config.users.push_back("user" + std::to_string(t) + "|" + std::to_string(i));
                EXPECT_TRUE(config.Save());
            }
        });
    }
    for (std::thread& saver : savers)
        saver.join();
    EXPECT_EQ(KorvelConfig(home / KorvelConfig::kFileName).users.size(), 100u);
}

// Where the config folder is when none is asked for, the service command's test shows.
TEST(HomeFolderTest, MakesARequestedFolderAbsolute) {
    TempFolder base;
    std::filesystem::path previous = std::filesystem::current_path();
    std::filesystem::current_path(base.Path());
    EXPECT_EQ(HomeFolder::Resolve(std::string("sub/../home")), base / "home");
    std::filesystem::current_path(previous);
}

}  // namespace
}  // namespace Zarn
