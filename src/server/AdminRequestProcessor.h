#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "server/HtmlPageSender.h"

namespace Zarn {

class HttpRequest;
class MountManager;
struct LocalTarget;

// The administration actions on the entries of a mounted folder, each one POST to the
// folder naming its entries in "selectedFiles" (one per line):
//   Delete  moves them into the mount's trash (MountTrash);
//   Rename  gives the one entry the form's "newName";
//   Move    moves them into the folder "target", a site path ("/docs/a/b/") in the same
//           mount.
// Every name is a single visible entry of the folder reached inside the mount, every new
// name and target is checked as a request path is, nothing is ever overwritten, and a
// mount that shares a single file refuses them all. The page's script asks for JSON
// (Accept: application/json) and gets {"ok","message","done"}; a plain form gets the
// folder's listing back by a 303 when everything was done, else the error page with the
// reason. The dispatcher has checked the administration right. One object per request.
class AdminRequestProcessor {
public:
    struct Options {
        MountManager* mounts = nullptr;
        HtmlPageSender::Context page{};
        bool show_hidden = false;
        std::string user{};  // for the log
        // The time stamp of the trash; replaceable so tests need not wait for a second.
        std::function<std::time_t()> clock = [] { return std::time(nullptr); };
    };

    explicit AdminRequestProcessor(Options options) : options_(std::move(options)) {}

    [[nodiscard]] static bool IsAction(std::string_view action) {
        return action == "Delete" || action == "Rename" || action == "Move";
    }
    // Runs the request's action and answers it.
    void Run(HttpRequest& request, const std::string& action);

private:
    struct Result {
        int code = 200;
        std::string message;  // translated, not escaped
        int done = 0;         // entries changed before the first refusal
    };
    // The folder of the request, open, with what each action needs.
    struct Folder;

    [[nodiscard]] Result Perform(HttpRequest& request, const std::string& action);
    [[nodiscard]] Result Delete(const Folder& folder, const std::vector<std::string>& names);
    [[nodiscard]] Result Rename(const Folder& folder, const std::vector<std::string>& names,
                                const std::string& new_name);
    [[nodiscard]] Result Move(const Folder& folder, const std::vector<std::string>& names,
                              const std::string& target);
    // Nothing when the entry may be changed, else the refusal.
    [[nodiscard]] std::optional<Result> CheckEntry(const Folder& folder,
                                                   const std::string& name) const;
    // Why a rename or a move of `name` failed, from its errno.
    [[nodiscard]] static Result Failure(const std::string& name, int error, int done);
    [[nodiscard]] bool IsUsableName(const std::string& name) const;
    void Answer(HttpRequest& request, const std::string& action, const Result& result);

    Options options_;
};

}  // namespace Zarn
