#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/TempFolder.h"
#include "ui/DataFileCheck.h"

namespace Zarn {
namespace {

// The built-in texts (no language loaded) are the source ones; the checks compare the
// line numbers and the start of what each problem says.
std::vector<std::string> SettingsProblems(const std::string& text) {
    DataFileCheck check;
    check.CheckSettings("mount.ini", text);
    return check.GetProblems();
}

// That a file the program wrote itself passes, the reload end-to-end test shows.
TEST(DataFileCheckTest, NamesTheLineOfEverySettingTheProgramWouldDropOrMisread) {
    struct Case {
        const char* line;
        const char* problem;  // the start of what is said after "mount.ini line 2: "
    };
    const Case cases[] = {
        {"just words", "'='이 없습니다"},
        {"prot=80", "알 수 없는 설정 prot"},
        {"writeLog=yes", "writeLog에 'yes' 값은"},
        {"port+=80", "port에는 값이 하나뿐입니다"},
        {"mounts=docs|/x|x|yes|x|no", "mounts은(는) 목록입니다"},
        {"mounts+=docs|/x|yes", "마운트 항목이"},
        {"mounts+=first|/y|x|yes|x|no", "마운트 first이(가) 두 번"},
        {"users+=nobody", "계정 항목이"},
        {"authorities+=guest|docs|all", "권한 항목이"},
        {"ipFilterTable+=10.0.0.1:deny", "IP 필터 규칙이"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> problems =
            SettingsProblems("mounts+=first|/x|x|yes|x|no\r\n" + std::string(c.line) + "\r\n");
        ASSERT_EQ(problems.size(), 1U) << c.line;
        EXPECT_TRUE(problems[0].starts_with(std::string("mount.ini 2번째 줄: ") + c.problem))
            << c.line << " -> " << problems[0];
    }
    std::vector<std::string> several =
        SettingsProblems("port=1\nport=x\n\n" + std::string(9000, 'a') + "=1\nother=2\n");
    ASSERT_EQ(several.size(), 3U);
    EXPECT_TRUE(several[1].starts_with("mount.ini 4번째 줄: 줄이 너무 깁니다")) << several[1];
    EXPECT_TRUE(several[2].starts_with("mount.ini 5번째 줄: ")) << several[2];
}

TEST(DataFileCheckTest, FindsTheLineThatWouldCutTheMimeTableShort) {
    DataFileCheck check;
    check.CheckMimeTypes("mime-type.txt", "text/plain txt\r\nimage/png\tpng\n");
    EXPECT_TRUE(check.IsGood());
    check.CheckMimeTypes("mime-type.txt", "a/b c\nx/long " + std::string(121, 'e') + "\n");
    ASSERT_FALSE(check.IsGood());
    EXPECT_EQ(check.GetProblems()[0], "mime-type.txt 2번째 줄: 줄이 127자를 넘습니다");
}

TEST(DataFileCheckTest, ChecksTheChosenLanguageFileAndSkin) {
    testing::TempFolder home;
    home.Write("Language/Good.wul", "Korvel Lumidrop UI Language File\na\nb\nc\n\"x\" = \"y\"\n");
    home.Write("Language/Headless.wul", "\"x\" = \"y\"\n");
    DataFileCheck check;
    check.CheckLanguage(home.Path(), "");
    check.CheckLanguage(home.Path(), "Good.wul");
    check.CheckSkin(home.Path(), "");
    check.CheckSkin(home.Path(), ".default");
    EXPECT_TRUE(check.IsGood());

    check.CheckLanguage(home.Path(), "Headless.wul");
    check.CheckLanguage(home.Path(), "Missing.wul");
    check.CheckSkin(home.Path(), "nosuchskin");
    // A bad line of a language file is named by its number in the reload end-to-end test.
    ASSERT_EQ(check.GetProblems().size(), 3U);
    EXPECT_EQ(check.GetProblems()[0], home / "Language/Headless.wul: 언어 파일을 읽을 수 없습니다");
    EXPECT_TRUE(check.GetProblems()[1].starts_with(home / "Language/Missing.wul: "));
    EXPECT_EQ(check.GetProblems()[2], home / "skin: 스킨 nosuchskin을(를) 불러올 수 없습니다");
}

}  // namespace
}  // namespace Zarn
