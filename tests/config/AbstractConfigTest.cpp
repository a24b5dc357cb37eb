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

TEST(AbstractConfigTest, AppliesTheLineRulesAndKeepsValuesItCannotParse) {
    SampleConfig config;
    std::istringstream in(
        "a=b=c\r\n=x\nno equals sign\nfiles+=one\nfiles +=two\n"
        "files+ =ignored as the unknown item files+\n  port =  8080  \nunknown=skipped\n"
        "  limit = -5 \nlimit=abc\nport=70000\nflag=true\nname=" +
        // The tail of the long line holds what would be a valid line if it were split.
        std::string(AbstractConfig::kMaxLineBytes, 'x') + "\nfiles+=three\n" +
        std::string(8190, 'z') + "limit=1\n");
    ASSERT_TRUE(config.Load(in));
    EXPECT_EQ(config.a, "b=c");
    EXPECT_EQ(config.files, (std::vector<std::string>{"one", "two", "three"}));
    EXPECT_TRUE(config.more.empty());
    EXPECT_EQ(config.port, 8080);
    EXPECT_EQ(config.limit, -5);
    EXPECT_TRUE(config.flag);  // "true" is not a flag; the default stays
    EXPECT_EQ(config.name, "default");

    std::istringstream fits("name=\t spaced value \r\nflag=0\na=" +
                            std::string(AbstractConfig::kMaxLineBytes - 3, 'y') + "\n");
    ASSERT_TRUE(config.Load(fits));
    EXPECT_EQ(config.name, "spaced value");
    EXPECT_FALSE(config.flag);
    EXPECT_EQ(config.a.size(), AbstractConfig::kMaxLineBytes - 3);
    EXPECT_TRUE(config.SetItem("flag", "2"));
    EXPECT_FALSE(config.flag);  // only 0 and 1 are flags
    EXPECT_TRUE(config.SetItem("flag", "1"));
    EXPECT_TRUE(config.flag);
}

}  // namespace
}  // namespace Zarn
