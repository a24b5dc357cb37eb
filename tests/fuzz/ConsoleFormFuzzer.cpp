// The console's settings, mount and account forms as a browser posts them, read from a real
// form body and judged by the rules the console applies. What the rules accept must store,
// save to the settings file and read back from it unchanged; what they refuse must leave
// the settings as they were.
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>

#include "ScratchFolder.h"
#include "config/KorvelConfig.h"
#include "core/PathUtil.h"
#include "http/HttpConnection.h"
#include "http/HttpRequest.h"
#include "share/AccountManager.h"
#include "share/MountManager.h"
#include "transfer/NullTransferStatusAggregator.h"
#include "ui/ConsoleSharingApi.h"
#include "ui/SettingsCatalog.h"
#include "ui/SharingRules.h"

using namespace Zarn;

namespace {

// A settings file with one mount, "docs", that every run starts from.
const std::string& StartingSettings() {
    static const ScratchFolder home("lumidrop-form");
    static const std::string path = [] {
        const std::string docs = home.Path() + "/docs";
        ::mkdir(docs.c_str(), 0700);
        KorvelConfig config(home.Path() + "/start.ini");
        config.mounts = {Mount{.name = "docs", .local_path = docs}.ToElement()};
        if (!config.Save()) __builtin_trap();
        return config.GetPath();
    }();
    return path;
}

std::string Text(const KorvelConfig& config) {
    std::ostringstream out;
    (void)config.AbstractConfig::Save(out);
    return out.str();
}

void CheckSettings(HttpRequest& form, KorvelConfig& config, const std::string& before) {
    bool refused = false;
    for (const auto& [key, value] : form.GetFormParameters()) {
        std::string error;
        refused = refused || !SettingsCatalog::Check(config, key, value, error);
    }
    if (Text(config) != before) __builtin_trap();
    if (refused || form.GetFormParameters().empty()) return;
    for (const auto& [key, value] : form.GetFormParameters()) {
        std::string error;
        const std::string normal = *SettingsCatalog::Check(config, key, value, error);
        if (!SettingsCatalog::Set(config, key, value, error)) __builtin_trap();
        if (SettingsCatalog::Get(config, key) != normal) __builtin_trap();
    }
    if (!config.Save()) __builtin_trap();
    KorvelConfig reread(config.GetPath());
    for (const auto& [key, value] : form.GetFormParameters()) {
        if (SettingsCatalog::Get(reread, key) != SettingsCatalog::Get(config, key))
            __builtin_trap();
    }
}

void CheckMount(HttpRequest& form, KorvelConfig& config, const std::string& before) {
    MountManager mounts(config);
    Mount mount;
    mount.name = ConsoleSharingApi::Field(form, "name");
    mount.local_path = ConsoleSharingApi::Field(form, "path");
    mount.note = ConsoleSharingApi::Field(form, "note");
    if (!ConsoleSharingApi::ReadSwitch(form, "isFolder", true, mount.is_folder) ||
        !ConsoleSharingApi::ReadSwitch(form, "option", false, mount.option)) {
        return;
    }
    if (mount.local_path.starts_with('/')) mount.local_path = MakeAbsolutePath(mount.local_path);
    const bool refused = SharingRules::FindMountFault(mounts, mount, "").has_value();
    if (Text(config) != before) __builtin_trap();
    if (refused) return;
    if (!mounts.AddMount(mount)) __builtin_trap();
    KorvelConfig reread(config.GetPath());
    const std::optional<Mount> back = MountManager(reread).GetMount(mount.name);
    if (!back || back->local_path != mount.local_path || back->note != mount.note ||
        back->is_folder != mount.is_folder || back->option != mount.option) {
        __builtin_trap();
    }
}

void CheckAccount(HttpRequest& form, KorvelConfig& config, const std::string& before) {
    MountManager mounts(config);
    AccountManager accounts(config, mounts);
    const std::string name = ConsoleSharingApi::Field(form, "name");
    std::string password;
    (void)form.GetFormParameter("password", password);
    const std::optional<uint32_t> rights =
        SharingRules::ParseRights(ConsoleSharingApi::Field(form, "rights"));
    const bool refused = SharingRules::FindAccountNameFault(accounts, "name", name) ||
                         SharingRules::FindPasswordFault(password);
    if (Text(config) != before) __builtin_trap();
    if (refused) return;
    if (!accounts.SetAccount(name, password)) __builtin_trap();
    if (rights && !accounts.SetRights(name, "docs", *rights)) __builtin_trap();
    KorvelConfig reread(config.GetPath());
    MountManager mounts_back(reread);
    AccountManager back(reread, mounts_back);
    if (back.GetPassword(name) != password) __builtin_trap();
    if (back.GetRights(name, "docs") != rights.value_or(kDefaultRights)) __builtin_trap();
}

}  // namespace

// The input: which form (its first byte), then the url-encoded body.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return -1;
    const std::string body(reinterpret_cast<const char*>(data) + 1, size - 1);
    HttpConnection connection;
    connection.SetCarryOver(body, false);
    HttpRequest form(&connection, NullTransferStatusAggregator::Instance());
    form.ParseHeader(
        "POST /api/v1/form HTTP/1.1\r\nContent-Type: application/x-www-form-urlencoded\r\n"
        "Content-Length: " +
        std::to_string(body.size()));

    KorvelConfig config(StartingSettings());
    config.SetPath(FolderOf(StartingSettings()) + "/mount.ini");
    const std::string before = Text(config);
    if (data[0] % 3 == 0) {
        CheckSettings(form, config, before);
    } else if (data[0] % 3 == 1) {
        CheckMount(form, config, before);
    } else {
        CheckAccount(form, config, before);
    }
    return 0;
}
