#include <gtest/gtest.h>

#include <sstream>

#include "config/AbstractConfig.h"

namespace Zarn {
namespace {

class SampleConfig : public AbstractConfig {
public:
    SampleConfig() {
        Register("port", &port, 80);
        Register("flag", &flag, true);
        Register("name", &name, "default");
        Register("limit", &limit, -1);
        Register("a", &a, "");
        RegisterList("files", &files);
        RegisterList("more", &more);
        files = {"from", "constructor"};
    }

    unsigned short port = 0;
    bool flag = false;
    std::string name;
    int limit = 0;
    std::string a;
    std::vector<std::string> files;
    std::vector<std::string> more;
};

TEST(AbstractConfigTest, AppliesTheLineRules) {
    SampleConfig config;
    std::istringstream in(
        "a=b=c\r\n"
        "=x\n"
        "no equals sign\n"
        "files+=one\n"
        "files +=two\n"
        "files+ =ignored as the unknown item files+\n"
        "  port =  8080  \n"
        "unknown=skipped\n"
        "name=\t spaced value \r\n"
        "limit=-5\n"
        "flag=0");
    ASSERT_TRUE(config.Load(in));
    EXPECT_EQ(config.a, "b=c");
    EXPECT_EQ(config.files, (std::vector<std::string>{"one", "two"}));
    EXPECT_EQ(config.port, 8080);
    EXPECT_EQ(config.name, "spaced value");
    EXPECT_EQ(config.limit, -5);
    EXPECT_FALSE(config.flag);
}

TEST(AbstractConfigTest, UnparsableValuesKeepThePreviousValue) {
    SampleConfig config;
    std::istringstream in("flag=true\nport=70000\nlimit=abc\nport=-\n");
    ASSERT_TRUE(config.Load(in));
    EXPECT_TRUE(config.flag);  // "true" is not a flag; the default stays
    EXPECT_EQ(config.port, 80);
    EXPECT_EQ(config.limit, -1);
    EXPECT_TRUE(config.SetItem("flag", "1"));
    EXPECT_TRUE(config.flag);
    EXPECT_TRUE(config.SetItem("flag", "2"));
    EXPECT_TRUE(config.flag);
}

TEST(AbstractConfigTest, LoadEmptiesListsThatTheFileDoesNotName) {
    SampleConfig config;
    std::istringstream in("port=1\n");
    ASSERT_TRUE(config.Load(in));
    EXPECT_TRUE(config.files.empty());
}

TEST(AbstractConfigTest, IgnoresOverlongLinesWhole) {
    SampleConfig config;
    std::string long_line = "name=" + std::string(AbstractConfig::kMaxLineBytes, 'x');
    std::string just_fits = "a=" + std::string(AbstractConfig::kMaxLineBytes - 3, 'y');
    // The tail of the long line holds what would be a valid line if it were split.
    std::istringstream in(long_line + "\nport=9\n" + std::string(8190, 'z') + "port=1\n" +
                          just_fits + "\n");
    ASSERT_TRUE(config.Load(in));
    EXPECT_EQ(config.name, "default");
    EXPECT_EQ(config.port, 9);
    EXPECT_EQ(config.a.size(), AbstractConfig::kMaxLineBytes - 3);
}

TEST(AbstractConfigTest, SavesItemsSortedThenListsWithCrLf) {
    SampleConfig config;
    config.more = {"m1"};
    config.files = {"f1", "f2"};
    std::ostringstream out;
    ASSERT_TRUE(config.Save(out));
    EXPECT_EQ(out.str(),
              "a=\r\nflag=1\r\nlimit=-1\r\nname=default\r\nport=80\r\n"
              "files+=f1\r\nfiles+=f2\r\nmore+=m1\r\n");

    SampleConfig reloaded;
    std::istringstream in(out.str());
    ASSERT_TRUE(reloaded.Load(in));
    std::ostringstream again;
    ASSERT_TRUE(reloaded.Save(again));
    EXPECT_EQ(again.str(), out.str());
}

TEST(AbstractConfigTest, BadStreamsChangeNothing) {
    SampleConfig config;
    std::istringstream in;
    in.setstate(std::ios::failbit);
    EXPECT_FALSE(config.Load(in));
    EXPECT_EQ(config.files.size(), 2u);
    std::ostringstream out;
    out.setstate(std::ios::badbit);
    EXPECT_FALSE(config.Save(out));
}

}  // namespace
}  // namespace Zarn
