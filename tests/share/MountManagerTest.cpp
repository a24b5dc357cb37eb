#include <gtest/gtest.h>

#include "config/KorvelConfig.h"
#include "share/MountManager.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::TempFolder;

TEST(MountManagerTest, LoadsTheStoredFormAndDropsBrokenElements) {
    TempFolder home;
    home.Write("mount.ini",
               "mounts+=music|%2fsrv%2fmusic|note%20here|yes|x|no\r\n"
               "mounts+=broken|%2fsrv|five|yes|x\r\n"
               "mounts+=music|%2felsewhere|second|yes|x|yes\r\n"
               "mounts+=movie.avi|%2fsrv%2fmovie.avi||no|x|yes\r\n"
               "mounts+=caps|%2fsrv%2fcaps||Yes|ignored|YES\r\n"
               "mounts+=%ED%95%9C|%2fsrv%2f%ED%95%9C||yes|x|no\r\n");
    KorvelConfig config(home / "mount.ini");
    MountManager mounts(config);
    EXPECT_TRUE(mounts.HadLoadProblems());
    EXPECT_EQ(mounts.ListNames(), (std::vector<std::string>{"caps", "movie.avi", "music", "한"}));

    std::optional<Mount> music = mounts.GetMount("music");
    ASSERT_TRUE(music.has_value());
    EXPECT_EQ(music->local_path, "/srv/music");  // the first of two wins
    EXPECT_EQ(music->note, "note here");
    EXPECT_TRUE(music->is_folder && !music->option);
    EXPECT_FALSE(mounts.GetMount("caps")->is_folder || mounts.GetMount("caps")->option);
    EXPECT_TRUE(mounts.GetMount("movie.avi")->option);
    EXPECT_FALSE(mounts.GetMount("Music").has_value());
}

TEST(MountManagerTest, ResolvesOnlyInsideItsMounts) {
    TempFolder home;
    home.Write("mount.ini",
               "mounts+=docs|%2fsrv%2fdocs|x|yes|x|no\r\n"
               "mounts+=root|%2f|x|yes|x|no\r\n"
               "mounts+=file.txt|%2fsrv%2ffile.txt|x|no|x|no\r\n");
    KorvelConfig config(home / "mount.ini");
    MountManager mounts(config);
    using namespace std::string_literals;
    const std::pair<std::string, std::string> cases[] = {
        {"docs", "/srv/docs/"},
        {"docs/a/b.txt", "/srv/docs/a/b.txt"},
        {"docs/", "/srv/docs/"},
        {"root/etc", "/etc"},
        {"file.txt", "/srv/file.txt"},
        {"file.txt/below", ""},
        {"missing/x", ""},
        {"docs/../etc/passwd", ""},
        {"docs/a/..", ""},
        {"docs/./a", ""},
        {"docs/..", ""},
        {"docs/a\0b"s, ""},
        {"docs/...", "/srv/docs/..."},
        {"docs/.hidden", "/srv/docs/.hidden"},
    };
    for (const auto& [path, local] : cases)
        EXPECT_EQ(mounts.Resolve(path), local) << path;
}

}  // namespace
}  // namespace Zarn
