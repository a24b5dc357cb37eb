// The skin shipped in res/skin/, read from the source tree as the developer skin is: its
// description names exactly the files that are there, the program carries them, and English
// covers every text. That the pages render whole and name only files the server hands out
// is the listing's end-to-end test; what they show, the browser tests'.

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "core/EmbeddedResources.h"
#include "i18n/LocalizationStringTable.h"
#include "skin/SkinConfig.h"
#include "skin/SkinManager.h"
#include "skin/Unzip.h"
#include "support/TempFolder.h"
#include "template/TemplateScanner.h"

namespace Zarn {
namespace {

const std::string kRes = LUMIDROP_SOURCE_DIR "/res/";
const std::string kSkin = kRes + "skin/";

std::string MustRead(const std::string& path) {
    EXPECT_TRUE(std::filesystem::exists(path)) << "cannot read " << path;
    return testing::ReadWholeFile(path);
}

struct Description {
    std::string skin;
    std::vector<std::string> files, i18nfiles;
};

Description Describe() {
    SkinConfig config;
    EXPECT_TRUE(config.LoadText(MustRead(kSkin + SkinConfig::kFileName)));
    return {config.skin, config.files, config.i18nfiles};
}

// A file left out of the description would never be served; the program must show its pages
// with nothing beside the executable.
TEST(BuiltInSkinTest, DescriptionNamesTheFilesThatShipAndTheProgramCarriesThem) {
    Description config = Describe();
    std::set<std::string> listed(config.files.begin(), config.files.end());
    listed.insert(config.i18nfiles.begin(), config.i18nfiles.end());
    listed.insert({config.skin, SkinConfig::kFileName});
    std::set<std::string> present;
    for (const auto& entry : std::filesystem::directory_iterator(kSkin))
        present.insert(entry.path().filename().string());
    EXPECT_EQ(present, listed);

    std::optional<std::string_view> archive = FindEmbeddedResource(SkinManager::kBuiltInResource);
    ASSERT_TRUE(archive.has_value());
    Teko::Unzip unzip;
    ASSERT_TRUE(unzip.Load(archive->data(), archive->size()));
    for (const std::string& name : listed)
        EXPECT_EQ(unzip.Extract(name), MustRead(kSkin + name)) << name;
    EXPECT_EQ(FindEmbeddedResource("robots.txt"), MustRead(kRes + "robots.txt"));
    EXPECT_EQ(FindEmbeddedResource("favicon.ico"), MustRead(kRes + "favicon.ico"));
}

// The keys of the #U and #QU directives, read as the template parser reads them.
TEST(BuiltInSkinTest, EveryTextHasAnEnglishTranslation) {
    std::istringstream in(MustRead(kRes + "Language/English.wul"));
    std::array<std::string, 3> descriptions;
    ASSERT_TRUE(LocalizationStringTable::ReadHeader(in, descriptions));
    LocalizationStringTable english;
    ASSERT_TRUE(english.Load(in));
    Description config = Describe();
    std::vector<std::string> files{config.skin};
    files.insert(files.end(), config.i18nfiles.begin(), config.i18nfiles.end());
    std::set<std::string> keys;
    for (const std::string& name : files) {
        const std::string text = MustRead(kSkin + name);  // the scanner only views it
        TemplateScanner scanner(text);
        using Kind = TemplateScanner::Kind;
        for (auto token = scanner.Next(); token.kind != Kind::kEndOfText; token = scanner.Next()) {
            if (token.kind != Kind::kU && token.kind != Kind::kQU) continue;
            scanner.SkipWhiteSpace();
            std::string_view key;
            ASSERT_TRUE(scanner.Expect('(') && scanner.ReadQuoted(key)) << name;
            EXPECT_NE(english.Lookup(std::string(key)), key)
                << name << ": English.wul lacks " << key;
            keys.emplace(key);
        }
    }
    EXPECT_GT(keys.size(), 30u);
}

}  // namespace
}  // namespace Zarn
