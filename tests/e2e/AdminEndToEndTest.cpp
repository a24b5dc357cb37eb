// Deleting, renaming and moving entries through the visitors' server, and the trash the
// owner empties, driven against the real program over real sockets.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "core/UrlCodec.h"
#include "support/RunningShare.h"
#include "support/WaitUntil.h"

namespace Zarn {
namespace {

using testing::Contains;
using testing::HttpResponse;
namespace fs = std::filesystem;

constexpr char kBob[] = "Authorization: Basic Ym9iOnNlY3JldA==\r\n";  // bob:secret

using Fields = std::vector<std::pair<std::string, std::string>>;

class AdminEndToEndTest : public testing::RunningShare {
protected:
    void SetUp() override {
        share_.Write("a.txt", "alpha");
        share_.Write("b.txt", "beta");
        share_.Write("sub/a.txt", "another alpha");
        share_.Write("dir/inner/d.txt", "delta");
        outside_.Write("secret.txt", "secret");
        fs::create_symlink(outside_ / "secret.txt", share_ / "out");
        fs::create_symlink(outside_.Path(), share_ / "away");
    }
    // Anonymous visitors may list and download; bob may administer too.
    void Start(const std::string& settings = "") {
        StartWithConsole(
            "users+=bob|secret\r\n"
            "authorities+=.anonymous|docs|3\r\n"
            "authorities+=bob|docs|15\r\n"
            "mounts+=one.txt|" +
            (outside_ / "secret.txt") +
            "|x|no|x|no\r\n"
            "authorities+=bob|one.txt|15\r\n" +
            settings);
    }
    // One action posted as the skin's script posts it (JSON wanted) or as a plain form.
    HttpResponse Act(const std::string& folder, const std::string& action, const Fields& fields,
                     const std::string& headers = kBob, bool json = true) const {
        std::string form;
        for (const auto& [name, value] : fields)
            form += (form.empty() ? "" : "&") + name + "=" + UrlEncode(value);
        return testing::Fetch(
            port_, "POST " + folder + "?action=" + action + " HTTP/1.1\r\nHost: test\r\n" +
                       headers + (json ? "Accept: application/json\r\n" : "") +
                       "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
                       std::to_string(form.size()) + "\r\n\r\n" + form);
    }
    // Paths of the files in the trash, below their time stamps.
    [[nodiscard]] std::vector<std::string> TrashFiles() const {
        std::vector<std::string> files;
        std::error_code ignored;
        for (fs::recursive_directory_iterator entry(share_ / ".lumidrop-trash", ignored), end;
             entry != end; entry.increment(ignored)) {
            std::string relative = fs::relative(entry->path(), share_ / ".lumidrop-trash");
            if (entry->is_regular_file()) files.push_back(relative.substr(relative.find('/') + 1));
        }
        std::sort(files.begin(), files.end());
        return files;
    }
};

TEST_F(AdminEndToEndTest, ActionsNeedTheAdministrationRightAndThisSitesPages) {
    share_.Write("a rather long name.txt", "long");
    Start();
    for (const char* action : {"Delete", "Rename", "Move"}) {
        const Fields fields = {
            {"selectedFiles", "a.txt"}, {"newName", "z"}, {"target", "/docs/sub/"}};
        EXPECT_EQ(Act("/docs/", action, fields, "").status, 401) << action;
        const std::string forged = std::string(kBob) + "Origin: http://evil.example\r\n";
        EXPECT_EQ(Act("/docs/", action, fields, forged).status, 403) << action;
    }
    EXPECT_EQ(share_.Read("a.txt"), "alpha");

    // The same site's own pages pass, and a plain form ends on the folder's listing.
    HttpResponse renamed =
        Act("/docs/", "Rename", {{"selectedFiles", "a.txt"}, {"newName", "ä b.txt"}},
            std::string(kBob) + "Origin: http://test\r\n", false);
    EXPECT_EQ(renamed.status, 303);
    EXPECT_EQ(renamed.Header("Location"), "/docs/");
    EXPECT_EQ(share_.Read("ä b.txt"), "alpha");
    HttpResponse moved = Act("/docs/", "Move",
                             {{"selectedFiles", "ä b.txt\nb.txt\na rather long name.txt"},
                              {"target", "/docs/dir/inner"}});
    EXPECT_EQ(moved.status, 200) << moved.body;
    EXPECT_TRUE(Contains(moved.body, "\"done\":3"));
    EXPECT_EQ(share_.Read("dir/inner/a rather long name.txt"), "long");
    EXPECT_EQ(share_.Read("dir/inner/b.txt"), "beta");
    EXPECT_TRUE(share_.Exists("dir/inner/ä b.txt"));
}

TEST_F(AdminEndToEndTest, RefusesHostileNamesEscapesAndCollisionsAndChangesNothing) {
    Start();
    struct Case {
        std::string folder, action, names, field, value;
        int status;
        std::string message;
    };
    const Case cases[] = {
        {"/docs/", "Delete", "../b.txt", "", "", 301, ""},
        {"/docs/", "Delete", "sub/a.txt", "", "", 400, "cannot be used"},
        {"/docs/", "Delete", ".lumidrop-trash", "", "", 400, "cannot be used"},
        {"/docs/", "Delete", "out", "", "", 404, "out: not found"},
        {"/docs/", "Delete", "", "", "", 400, "Nothing was selected"},
        {"/one.txt", "Delete", "one.txt", "", "", 400, "single file"},
        {"/docs/", "Rename", "a.txt", "newName", "b.txt", 409, "b.txt: that name is already taken"},
        {"/docs/", "Rename", "a.txt", "newName", "..", 400, "cannot be used"},
        {"/docs/", "Rename", "a.txt", "newName", "x/y", 400, "cannot be used"},
        {"/docs/", "Rename", "a.txt", "newName", ".hidden", 400, "cannot be used"},
        {"/docs/", "Rename", "a.txt", "newName", "uploading_x.LUMIDROP", 400, "cannot be used"},
        {"/docs/", "Rename", "a.txt\nb.txt", "newName", "c.txt", 400, "one entry"},
        {"/docs/", "Move", "dir", "target", "/docs/dir/inner/", 409, "into itself"},
        {"/docs/", "Move", "dir", "target", "/docs/dir", 409, "into itself"},
        {"/docs/", "Move", "a.txt", "target", "/docs/sub/", 409, "already taken"},
        {"/docs/", "Move", "a.txt", "target", "/one.txt/", 400, "same mount"},
        {"/docs/", "Move", "a.txt", "target", "docs/sub/", 400, "same mount"},
        {"/docs/", "Move", "a.txt", "target", "/docs/.lumidrop-trash/", 400, "same mount"},
        {"/docs/", "Move", "a.txt", "target", "/docs/away/", 404, "not found"},
        {"/docs/", "Move", "a.txt", "target", "/docs/nowhere/", 404, "not found"},
        {"/docs/", "Delete", "a.txt\nmissing", "", "", 404, "missing: not found"},
    };
    for (const Case& test : cases) {
        Fields fields = {{"selectedFiles", test.names}};
        if (!test.field.empty()) fields.emplace_back(test.field, test.value);
        HttpResponse answer = Act(test.folder, test.action, fields);
        EXPECT_EQ(answer.status, test.status)
            << test.action << " " << test.names << " " << test.value;
        EXPECT_TRUE(Contains(answer.body, test.message)) << answer.body;
    }
    // A partial delete stops at the first refusal; everything else stayed where it was.
    EXPECT_FALSE(share_.Exists("a.txt"));
    EXPECT_EQ(TrashFiles(), std::vector<std::string>{"a.txt"});
    EXPECT_EQ(share_.Read("b.txt"), "beta");
    EXPECT_EQ(share_.Read("sub/a.txt"), "another alpha");
    EXPECT_EQ(share_.Read("dir/inner/d.txt"), "delta");
    EXPECT_EQ(outside_.Read("secret.txt"), "secret");
    EXPECT_TRUE(fs::is_symlink(share_ / "out"));

    // Without scripts a refusal is a page that says why.
    HttpResponse page =
        Act("/docs/", "Rename", {{"selectedFiles", "b.txt"}, {"newName", "sub"}}, kBob, false);
    EXPECT_EQ(page.status, 409);
    EXPECT_TRUE(Contains(page.Header("Content-Type"), "text/html"));
    EXPECT_TRUE(Contains(page.body, "sub: that name is already taken"));
}

TEST_F(AdminEndToEndTest, DeletedEntriesWaitInAHiddenTrashUntilTheOwnerEmptiesIt) {
    Start("showHiddenFiles=1\r\n");
    EXPECT_EQ(Act("/docs/", "Delete", {{"selectedFiles", "a.txt\nsub"}}).status, 200);
    EXPECT_EQ(Act("/docs/dir/inner/", "Delete", {{"selectedFiles", "d.txt"}}).status, 200);
    // A name deleted twice keeps both copies.
    share_.Write("a.txt", "second alpha");
    EXPECT_EQ(Act("/docs/", "Delete", {{"selectedFiles", "a.txt"}}).status, 200);
    EXPECT_EQ(TrashFiles(),
              (std::vector<std::string>{"a.txt", "a.txt", "dir/inner/d.txt", "sub/a.txt"}));
    struct stat trash {};
    ASSERT_EQ(::stat((share_ / ".lumidrop-trash").c_str(), &trash), 0);
    EXPECT_EQ(trash.st_mode & 0777, 0700u);

    // Hidden files are shared here, and still the trash is nowhere to be seen or reached.
    share_.Write(".shown", "hidden but shared");
    std::string listing = Visit("/docs/", kBob).body;
    EXPECT_TRUE(Contains(listing, ".shown"));
    EXPECT_FALSE(Contains(listing, "lumidrop-trash"));
    std::string stamp;
    for (const auto& entry : fs::directory_iterator(share_ / ".lumidrop-trash")) {
        if (fs::exists(entry.path() / "sub/a.txt")) stamp = entry.path().filename();
    }
    for (const std::string& target :
         {std::string("/docs/.lumidrop-trash/"), "/docs/.lumidrop-trash/" + stamp + "/",
          "/docs/.lumidrop-trash/" + stamp + "/sub/a.txt"}) {
        EXPECT_EQ(Visit(target, kBob).status, 404) << target;
    }
    EXPECT_EQ(Upload("/docs/.lumidrop-trash/?key=t", "in.txt", "x", kBob).status, 404);
    EXPECT_TRUE(
        Contains(console_->Get("log").body, "Delete succeeded - bob : d.txt -\\u003e trash "));

    // The owner empties it from the command line; the console's page is the browser's test,
    // and only the console's own script may ask.
    EXPECT_EQ(console_->Post("trash/empty", "mount=docs", "").status, 403);
    ASSERT_TRUE(testing::WaitUntil([&] { return home_.Exists("console.port"); }));
    std::string error;
    EXPECT_EQ(testing::ProgramRunner::RunToEnd(
                  {"ctl", "--home", home_.Path(), "trash", "empty", "docs"}, error),
              0)
        << error;
    EXPECT_FALSE(share_.Exists(".lumidrop-trash"));
    EXPECT_EQ(outside_.Read("secret.txt"), "secret");
}

}  // namespace
}  // namespace Zarn
