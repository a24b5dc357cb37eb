// The sharing model through the owner's console, against the real program over real
// sockets: what the owner changes is served or refused from the next request on, is in
// mount.ini, and a program started afresh on the same home does the same.

#include <gtest/gtest.h>

#include <filesystem>

#include "core/Base64.h"
#include "core/UrlCodec.h"
#include "support/RunningShare.h"

namespace Zarn {
namespace {

using testing::Contains;
using testing::HttpResponse;

class ConsoleSharingEndToEndTest : public testing::RunningShare {
protected:
    void SetUp() override {
        share_.Write("a.txt", "shared");
        StartWithConsole("", /*share_docs=*/false);
    }

    HttpResponse As(const std::string& user, const std::string& password,
                    const std::string& target) {
        return Visit(target,
                     "Authorization: Basic " + Base64Encode(user + ":" + password) + "\r\n");
    }
    // Posts and expects success; the answer's body.
    std::string Change(const std::string& endpoint, const std::string& form) {
        HttpResponse response = console_->Post(endpoint, form);
        EXPECT_EQ(response.status, 200) << endpoint << " " << form << ": " << response.body;
        return response.body;
    }
    std::string Share() const { return UrlEncode(share_.Path()); }
};

TEST_F(ConsoleSharingEndToEndTest, MountsAccountsAndRightsAreServedAtOnceAndSurviveARestart) {
    std::string added = Change("mounts/add", "name=my+docs&path=" + Share() + "&note=n%7cx");
    EXPECT_TRUE(Contains(added, "\"link\":\"/my%20docs/\"") && Contains(added, "\"isFolder\":true"))
        << added;
    EXPECT_EQ(Visit("/my%20docs/a.txt").body, "shared");
    EXPECT_TRUE(Contains(home_.Read("mount.ini"), "mounts+=my%20docs|" + Share() + "|n%7cx|yes"));
    Relaunch();
    EXPECT_EQ(Visit("/my%20docs/a.txt").body, "shared");

    // A single file, renamed and re-pointed by an edit that leaves the note alone.
    share_.Write("b.txt", "single");
    std::string edited = Change(
        "mounts/edit", "original=my+docs&name=one&isFolder=0&path=" + UrlEncode(share_ / "b.txt"));
    EXPECT_TRUE(Contains(edited, "\"link\":\"/one\"") && Contains(edited, "\"note\":\"n|x\""))
        << edited;
    EXPECT_EQ(Visit("/my%20docs/a.txt").status, 404);
    EXPECT_EQ(Visit("/one").body, "single");
    EXPECT_EQ(Change("mounts/remove", "name=one"), "{\"ok\":true}");
    EXPECT_EQ(Visit("/one").status, 404);
    EXPECT_FALSE(Contains(home_.Read("mount.ini"), "mounts+="));

    // Anonymous visitors start with 3; an account gets the default 3 too. Passwords and
    // what each right allows are the account registry's tests.
    Change("mounts/add", "name=docs&path=" + Share());
    EXPECT_EQ(Visit("/docs/a.txt").body, "shared");
    Change("rights/set", "account=.anonymous&mount=docs&rights=0");
    EXPECT_EQ(Visit("/docs/a.txt").status, 401);
    EXPECT_TRUE(
        Contains(Change("accounts/add", "name=alice&password=s%26cret"), "\"anonymous\":false"));
    EXPECT_EQ(As("alice", "s&cret", "/docs/a.txt").body, "shared");
    // Deleting through the web pages needs the owner to say yes (ctl's test sees the refusal).
    Change("rights/set", "account=alice&mount=docs&rights=11&confirmAdmin=1");

    // A renamed account keeps its password and rights; a renamed mount keeps its grants,
    // in the file too.
    Change("accounts/rename", "name=alice&newName=bob");
    Change("mounts/edit", "original=docs&name=papers");
    EXPECT_EQ(As("alice", "s&cret", "/papers/a.txt").status, 401);
    Relaunch();
    EXPECT_TRUE(Contains(console_->Get("rights").body, "\"bob\":{\"papers\":11}"));
    EXPECT_EQ(As("bob", "s&cret", "/papers/a.txt").body, "shared");
    EXPECT_EQ(Visit("/papers/a.txt").status, 401);
    EXPECT_EQ(Change("accounts/remove", "name=bob"), "{\"ok\":true}");
    EXPECT_EQ(As("bob", "s&cret", "/papers/a.txt").status, 401);
    EXPECT_FALSE(Contains(home_.Read("mount.ini"), "bob"));
}

TEST_F(ConsoleSharingEndToEndTest, BadFormsAreRefusedNamingTheFieldAndThePickerListsFolders) {
    Change("mounts/add", "name=docs&path=" + Share());
    Change("mounts/add", "name=other&path=" + Share());
    Change("accounts/add", "name=alice&password=a");
    Change("accounts/add", "name=carol&password=c");
    std::filesystem::create_directories(share_ / "b/inner");
    std::filesystem::create_directories(share_ / "a");
    std::filesystem::create_directories(share_ / ".hidden");
    const std::string before = home_.Read("mount.ini");
    const std::string path = "&path=" + Share();
    const struct {
        std::string endpoint, form;
        int status;
        std::string field;
    } cases[] = {
        {"mounts/add", "name=+++" + path, 400, "name"},
        {"mounts/add", "name=a%2fb" + path, 400, "name"},
        {"mounts/add", "name=.." + path, 400, "name"},
        {"mounts/add", "name=a%0ab" + path, 400, "name"},
        {"mounts/add", "name=docs" + path, 409, "name"},
        {"mounts/add", "name=new&path=relative%2fpath", 400, "path"},
        {"mounts/add", "name=new" + path + "%2fmissing", 400, "path"},
        {"mounts/add", "name=new&path=" + UrlEncode(share_ / "a.txt"), 400, "path"},
        {"mounts/add", "name=new&isFolder=0" + path + "%2fa", 400, "path"},
        {"mounts/add", "name=new&isFolder=yes" + path, 400, "isFolder"},
        {"mounts/add", "name=new&option=2" + path, 400, "option"},
        {"mounts/edit", "original=nothing&name=x", 404, "original"},
        {"mounts/edit", "original=docs&name=other", 409, "name"},
        {"mounts/remove", "name=nothing", 404, "name"},
        {"accounts/add", "name=alice&password=x", 409, "name"},
        {"accounts/add", "name=a%3ab&password=x", 400, "name"},
        {"accounts/add", "name=.hidden&password=x", 400, "name"},
        {"accounts/add", "name=.anonymous&password=x", 409, "name"},
        {"accounts/password", "name=.anonymous&password=x", 400, "password"},
        {"accounts/rename", "name=alice&newName=carol", 409, "newName"},
        {"accounts/rename", "name=.anonymous&newName=dave", 400, "name"},
        {"accounts/remove", "name=.anonymous", 400, "name"},
        {"rights/set", "account=nobody&mount=docs&rights=3", 404, "account"},
        {"rights/set", "account=alice&mount=nothing&rights=3", 404, "mount"},
        {"rights/set", "account=alice&mount=docs&rights=16", 400, "rights"},
    };
    for (const auto& test : cases) {
        HttpResponse response = console_->Post(test.endpoint, test.form);
        EXPECT_EQ(response.status, test.status) << test.form << ": " << response.body;
        EXPECT_TRUE(Contains(response.body, "\"field\":\"" + test.field + "\""))
            << test.form << ": " << response.body;
    }
    EXPECT_EQ(home_.Read("mount.ini"), before);
    EXPECT_EQ(As("alice", "a", "/docs/a.txt").body, "shared");
    EXPECT_EQ(Visit("/new/a.txt").status, 404);

    // The folder picker shows the owner's own folders, hidden ones too.
    EXPECT_EQ(console_->Get("fs/list?path=" + Share() + "%2fb%2f..%2f").body,
              "{\"path\":\"" + share_.Path() + "\",\"parent\":\"" +
                  std::filesystem::path(share_.Path()).parent_path().string() +
                  "\",\"folders\":[\"a\",\"b\",\".hidden\"],\"files\":[\"a.txt\"]}");
    EXPECT_TRUE(Contains(console_->Get("fs/list?path=%2f").body, "\"parent\":null"));
    for (const std::string& bad : {Share() + "%2fmissing", Share() + "%2fa.txt"})
        EXPECT_EQ(console_->Get("fs/list?path=" + bad).status, 404) << bad;
    EXPECT_EQ(console_->Get("fs/list?path=relative").status, 400);
    // Once a mount is added, the picker opens where it was found.
    Change("mounts/add", "name=inner&path=" + Share() + "%2fb%2finner");
    EXPECT_TRUE(
        Contains(console_->Get("fs/list").body, "\"path\":\"" + (share_ / "b/inner") + "\""));
}

}  // namespace
}  // namespace Zarn
