#include "ui/ConsoleSharingApi.h"

#include <algorithm>
#include <iterator>

#include "core/StringUtil.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "server/KorvelServer.h"
#include "ui/ConsoleAccountsApi.h"
#include "ui/ConsoleApi.h"
#include "ui/ConsoleMountsApi.h"

namespace Zarn {

bool ConsoleSharingApi::IsChange(std::string_view endpoint) {
    static constexpr std::string_view kChanges[] = {
        "mounts/add",        "mounts/edit",     "mounts/remove",   "accounts/add",
        "accounts/password", "accounts/rename", "accounts/remove", "rights/set"};
    return std::find(std::begin(kChanges), std::end(kChanges), endpoint) != std::end(kChanges);
}

bool ConsoleSharingApi::Serve(HttpRequest& request, std::string_view endpoint) {
    ConsoleMountsApi mounts(config_, server_.GetMounts(), server_.GetAccounts());
    ConsoleAccountsApi accounts(server_.GetMounts(), server_.GetAccounts());
    if (endpoint == "mounts") {
        mounts.SendMounts(request);
    } else if (endpoint == "mounts/add") {
        mounts.Add(request);
    } else if (endpoint == "mounts/edit") {
        mounts.Edit(request);
    } else if (endpoint == "mounts/remove") {
        mounts.Remove(request);
    } else if (endpoint == "fs/list") {
        mounts.SendFolder(request);
    } else if (endpoint == "accounts") {
        accounts.SendAccounts(request);
    } else if (endpoint == "accounts/add") {
        accounts.Add(request);
    } else if (endpoint == "accounts/password") {
        accounts.SetPassword(request);
    } else if (endpoint == "accounts/rename") {
        accounts.Rename(request);
    } else if (endpoint == "accounts/remove") {
        accounts.Remove(request);
    } else if (endpoint == "rights") {
        accounts.SendRights(request);
    } else if (endpoint == "rights/set") {
        accounts.SetRights(request);
    } else {
        return false;
    }
    return true;
}

std::string ConsoleSharingApi::Field(HttpRequest& request, const std::string& name) {
    std::string value;
    if (!request.GetFormParameter(name, value)) return {};
    return std::string(Trim(value));
}

bool ConsoleSharingApi::HasField(HttpRequest& request, const std::string& name) {
    std::string ignored;
    return request.GetFormParameter(name, ignored);
}

bool ConsoleSharingApi::HasControlCharacter(std::string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
}

bool ConsoleSharingApi::ReadSwitch(HttpRequest& request, const std::string& name, bool fallback,
                                   bool& value) {
    if (!HasField(request, name)) {
        value = fallback;
        return true;
    }
    std::string text = Field(request, name);
    if (text != "1" && text != "0") return false;
    value = text == "1";
    return true;
}

}  // namespace Zarn
