// The sub-folder list ("?action=Subdir") of the real program: which folders it names, how
// names and links come back, who may ask, and what is not such a request.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "core/Base64.h"
#include "core/JsonValue.h"
#include "support/RunningShare.h"

namespace Zarn {
namespace {

using testing::Contains;
using testing::HttpResponse;
using Folders = std::vector<std::pair<std::string, std::string>>;  // name, link

constexpr char kHostile[] = "<b>&\"'";

// The folders of a document, with its "path" checked.
Folders FoldersOf(const HttpResponse& response, const std::string& path) {
    std::string error;
    std::optional<JsonValue> document = JsonValue::Parse(response.body, error);
    EXPECT_TRUE(document) << error << ": " << response.body;
    if (!document) return {};
    EXPECT_EQ(document->Text("path"), path);
    Folders folders;
    const JsonValue* list = document->Find("folders");
    for (const JsonValue& folder : list ? list->Items() : std::vector<JsonValue>{}) {
        folders.emplace_back(folder.Text("name"), folder.Text("link"));
    }
    return folders;
}

std::string Credentials(const std::string& user_and_password) {
    return "Authorization: Basic " + Base64Encode(user_and_password) + "\r\n";
}

class SubdirEndToEndTest : public testing::RunningShare {
protected:
    void SetUp() override {
        for (const char* folder : {"b", "Live", "Live/2019", ".hidden", kHostile, "한국어",
                                   "uploading_1.LUMIDROP", "\xc7\xd1"}) {
            ASSERT_EQ(::mkdir((share_ / folder).c_str(), 0755), 0) << folder;
        }
        share_.Write("notes.txt", "a file, never a folder");
        share_.Write("uploading_2.LUMIDROP", "half an upload");
        ASSERT_EQ(::symlink(outside_.Path().c_str(), (share_ / "outside").c_str()), 0);
        ASSERT_EQ(::symlink("Live", (share_ / "alias").c_str()), 0);
    }
};

TEST_F(SubdirEndToEndTest, NamesOnlyVisibleFoldersInByteOrderWithWorkingLinksToExactRequests) {
    Start();
    HttpResponse response = Visit("/docs/?action=Subdir");
    ASSERT_EQ(response.status, 200) << response.body;
    EXPECT_EQ(response.Header("Content-Type"), "application/json; charset=utf-8");
    EXPECT_EQ(response.Header("X-Content-Type-Options"), "nosniff");
    // Not hidden, half-received, a file, a link out of the mount or a name that is not
    // UTF-8; a link to a folder inside the mount is one.
    Folders expected = {{kHostile, "%3cb%3e%26%22%27/"},
                        {"Live", "Live/"},
                        {"alias", "alias/"},
                        {"b", "b/"},
                        {"한국어", "%ed%95%9c%ea%b5%ad%ec%96%b4/"}};
    EXPECT_EQ(FoldersOf(response, "/docs/"), expected);
    // Safe to inline into a page: not one raw "<" or "&".
    EXPECT_FALSE(Contains(response.body, "<") || Contains(response.body, "&")) << response.body;

    // Each link leads to its folder's own list.
    for (const auto& [name, link] : expected) {
        HttpResponse inner = Visit("/docs/" + link + "?action=Subdir");
        EXPECT_EQ(inner.status, 200) << name;
        Folders children =
            name == "Live" || name == "alias" ? Folders{{"2019", "2019/"}} : Folders{};
        EXPECT_EQ(FoldersOf(inner, "/docs/" + name + "/"), children) << name;
    }

    // The document's links are relative to the folder, so the folder is named with its "/".
    for (const char* target : {"/docs?action=Subdir", "/docs/notes.txt?action=Subdir",
                               "/docs/notes.txt/?action=Subdir", "/docs/outside/?action=Subdir",
                               "/docs/.hidden/?action=Subdir", "/docs/missing/?action=Subdir"}) {
        EXPECT_EQ(Visit(target).status, 404) << target;
    }
    // A second parameter makes it an ordinary visit to the folder: its listing page.
    HttpResponse listing = Visit("/docs/?action=Subdir&x=1");
    EXPECT_EQ(listing.status, 200);
    EXPECT_TRUE(listing.Header("Content-Type").starts_with("text/html"));
    EXPECT_TRUE(Contains(listing.body, "notes.txt"));

    Start("showHiddenFiles=1\r\n");
    Folders shown = FoldersOf(Visit("/docs/?action=Subdir"), "/docs/");
    ASSERT_FALSE(shown.empty());
    EXPECT_EQ(shown.front(), Folders::value_type(".hidden", ".hidden/"));
    EXPECT_EQ(shown.size(), expected.size() + 1);
}

TEST_F(SubdirEndToEndTest, FollowsTheRightToListOnMountsAndAtTheRoot) {
    testing::TempFolder pictures;
    Start("mounts+=pictures|" + pictures.Path() + "|x|yes|x|no\r\n" + "mounts+=single|" +
          (share_ / "notes.txt") + "|x|no|x|no\r\n" +
          "users+=alice|secret\r\n"
          "authorities+=.anonymous|docs|2\r\nauthorities+=alice|docs|1\r\n"
          "authorities+=alice|pictures|0\r\ncanRootAccess=1\r\n");
    HttpResponse refused = Visit("/docs/?action=Subdir");
    EXPECT_EQ(refused.status, 401);
    EXPECT_FALSE(refused.Header("WWW-Authenticate").empty());
    EXPECT_EQ(Visit("/docs/?action=Subdir", Credentials("alice:secret")).status, 200);
    EXPECT_EQ(Visit("/docs/?action=Subdir", Credentials("alice:wrong")).status, 401);
    EXPECT_EQ(Visit("/pictures/?action=Subdir", Credentials("alice:secret")).status, 401);

    // At the root: the folder mounts this visitor may list, never a single file.
    EXPECT_EQ(FoldersOf(Visit("/?action=Subdir"), "/"), Folders({{"pictures", "pictures/"}}));
    EXPECT_EQ(FoldersOf(Visit("/?action=Subdir", Credentials("alice:secret")), "/"),
              Folders({{"docs", "docs/"}}));

    Start("canRootAccess=0\r\n");
    EXPECT_EQ(Visit("/?action=Subdir").status, 403);
    EXPECT_EQ(Visit("/docs/?action=Subdir").status, 200);
}

}  // namespace
}  // namespace Zarn
