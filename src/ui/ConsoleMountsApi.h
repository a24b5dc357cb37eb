#pragma once

#include <optional>
#include <string>

#include "share/MountManager.h"

namespace Zarn {

class AccountManager;
class HttpRequest;
class JsonWriter;
class KorvelConfig;

// The console's mount list and the folder picker of its mount form. Every change goes
// through MountManager, so it is served at once and saved with the settings file; the
// account tables are saved after it so that their grants follow a renamed or removed
// mount. One object per request, on a console connection thread.
class ConsoleMountsApi {
public:
    ConsoleMountsApi(KorvelConfig& config, MountManager& mounts, AccountManager& accounts)
        : config_(config), mounts_(mounts), accounts_(accounts) {}

    void SendMounts(HttpRequest& request);
    // Each answers with the mount as it now is, or refuses naming the field at fault.
    void Add(HttpRequest& request);
    void Edit(HttpRequest& request);
    void Remove(HttpRequest& request);
    // The sub-folders and files of one folder of the owner's disk (by default the one a
    // mount was last added from).
    void SendFolder(HttpRequest& request);

    static void WriteMount(JsonWriter& json, const Mount& mount);

private:
    // Reads the form's fields over `mount` and checks the result; false (with the
    // refusal sent) when a field is wrong. `original` is the name being edited, if any.
    bool ReadForm(HttpRequest& request, const std::string& original, Mount& mount);
    void SendMount(HttpRequest& request, const std::string& name);

    KorvelConfig& config_;
    MountManager& mounts_;
    AccountManager& accounts_;
};

}  // namespace Zarn
