#include "ui/ConsoleAccountsApi.h"

#include <optional>

#include "core/JsonWriter.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "share/AccountManager.h"
#include "share/MountManager.h"
#include "ui/ConsoleApi.h"
#include "ui/ConsoleSharingApi.h"
#include "ui/SharingRules.h"

namespace Zarn {
namespace {

bool IsAnonymous(const std::string& name) {
    return name == AccountManager::kAnonymous;
}

std::string DisplayName(const std::string& name) {
    return IsAnonymous(name) ? Translate("익명 사용자") : name;
}

void WriteAccount(JsonWriter& json, const std::string& name) {
    json.BeginObject()
        .Member("name", name)
        .Member("displayName", DisplayName(name))
        .Member("anonymous", IsAnonymous(name))
        .EndObject();
}

}  // namespace

void ConsoleAccountsApi::SendAccounts(HttpRequest& request) {
    JsonWriter json;
    json.BeginArray();
    for (const std::string& name : accounts_.ListAccounts())
        WriteAccount(json, name);
    json.EndArray();
    ConsoleApi::SendJson(request, 200, "OK", json.Text());
}

void ConsoleAccountsApi::SendAccount(HttpRequest& request, const std::string& name) {
    JsonWriter json;
    WriteAccount(json, name);
    ConsoleApi::SendJson(request, 200, "OK", json.Text());
}

bool ConsoleAccountsApi::FindAccount(HttpRequest& request, const char* field, std::string& name) {
    name = ConsoleSharingApi::Field(request, field);
    if (accounts_.GetPassword(name)) return true;
    ConsoleApi::SendError(request, 404, "Not Found", field, Translate("그런 계정이 없습니다."));
    return false;
}

bool ConsoleAccountsApi::FindOwnAccount(HttpRequest& request, std::string& name) {
    if (!FindAccount(request, "name", name)) return false;
    if (!IsAnonymous(name)) return true;
    ConsoleApi::SendError(request, 400, "Bad Request", "name",
                          Translate("익명 사용자 계정은 지우거나 이름을 바꿀 수 없습니다."));
    return false;
}

bool ConsoleAccountsApi::CheckNewName(HttpRequest& request, const char* field,
                                      const std::string& name) {
    std::optional<SharingRules::Refusal> fault =
        SharingRules::FindAccountNameFault(accounts_, field, name);
    if (!fault) return true;
    ConsoleApi::SendError(request, fault->code, fault->code == 409 ? "Conflict" : "Bad Request",
                          fault->field, Translate(fault->key));
    return false;
}

void ConsoleAccountsApi::Add(HttpRequest& request) {
    std::string name = ConsoleSharingApi::Field(request, "name");
    if (!CheckNewName(request, "name", name)) return;
    StorePassword(request, name);
}

void ConsoleAccountsApi::SetPassword(HttpRequest& request) {
    std::string name;
    if (!FindAccount(request, "name", name)) return;
    // Visitors without credentials are this account; a password would lock them all out.
    if (IsAnonymous(name)) {
        return ConsoleApi::SendError(request, 400, "Bad Request", "password",
                                     Translate("익명 사용자에게는 암호를 줄 수 없습니다."));
    }
    StorePassword(request, name);
}

void ConsoleAccountsApi::StorePassword(HttpRequest& request, const std::string& name) {
    // Blanks around a password are the owner's to choose, so it is taken as sent.
    std::string password;
    (void)request.GetFormParameter("password", password);
    if (std::optional<SharingRules::Refusal> fault = SharingRules::FindPasswordFault(password)) {
        return ConsoleApi::SendError(request, fault->code, "Bad Request", fault->field,
                                     Translate(fault->key));
    }
    if (!accounts_.SetAccount(name, password)) return ConsoleApi::SendSaveFailure(request);
    SendAccount(request, name);
}

void ConsoleAccountsApi::Rename(HttpRequest& request) {
    std::string name;
    if (!FindOwnAccount(request, name)) return;
    std::string new_name = ConsoleSharingApi::Field(request, "newName");
    if (!CheckNewName(request, "newName", new_name)) return;
    if (!accounts_.RenameAccount(name, new_name)) {
        // Renamed but not saved, or the name taken meanwhile.
        if (!accounts_.GetPassword(name)) return ConsoleApi::SendSaveFailure(request);
        return ConsoleApi::SendError(request, 409, "Conflict", "newName",
                                     Translate("같은 이름의 계정이 이미 있습니다."));
    }
    SendAccount(request, new_name);
}

void ConsoleAccountsApi::Remove(HttpRequest& request) {
    std::string name;
    if (!FindOwnAccount(request, name)) return;
    if (!accounts_.RemoveAccount(name)) {
        if (!accounts_.GetPassword(name)) {
            return ConsoleApi::SendError(request, 404, "Not Found", "name",
                                         Translate("그런 계정이 없습니다."));
        }
        return ConsoleApi::SendSaveFailure(request);
    }
    ConsoleApi::SendOk(request);
}

void ConsoleAccountsApi::SendRights(HttpRequest& request) {
    std::vector<std::string> mounts = mounts_.ListNames();
    std::vector<std::string> accounts = accounts_.ListAccounts();
    JsonWriter json;
    json.BeginObject().Key("mounts").BeginArray();
    for (const std::string& mount : mounts)
        json.String(mount);
    json.EndArray().Key("accounts").BeginArray();
    for (const std::string& account : accounts)
        json.String(account);
    json.EndArray().Key("rights").BeginObject();
    for (const std::string& account : accounts) {
        json.Key(account).BeginObject();
        // What requests get, single-file mounts' fixed bits included; a mount or account
        // removed meanwhile is simply left out.
        for (const std::string& mount : mounts) {
            if (std::optional<uint32_t> rights = accounts_.GetRights(account, mount)) {
                json.Member(mount, static_cast<int64_t>(*rights));
            }
        }
        json.EndObject();
    }
    json.EndObject().EndObject();
    ConsoleApi::SendJson(request, 200, "OK", json.Text());
}

void ConsoleAccountsApi::SetRights(HttpRequest& request) {
    std::string account;
    if (!FindAccount(request, "account", account)) return;
    std::string mount = ConsoleSharingApi::Field(request, "mount");
    std::optional<uint32_t> current = accounts_.GetRights(account, mount);
    if (!current) {
        return ConsoleApi::SendError(request, 404, "Not Found", "mount",
                                     Translate("그런 공유가 없습니다."));
    }
    std::optional<uint32_t> rights =
        SharingRules::ParseRights(ConsoleSharingApi::Field(request, "rights"));
    if (!rights) {
        return ConsoleApi::SendError(request, 400, "Bad Request", "rights",
                                     Translate("값이 올바르지 않습니다."));
    }
    bool granting_admin = (*rights & kRightAdmin) != 0 && (*current & kRightAdmin) == 0;
    if (granting_admin && ConsoleSharingApi::Field(request, "confirmAdmin") != "1") {
        return ConsoleApi::SendError(request, 409, "Conflict", "confirmAdmin",
                                     Translate("관리 권한을 주려면 확인이 필요합니다."));
    }
    if (!accounts_.SetRights(account, mount, *rights)) {
        if (!accounts_.GetRights(account, mount)) {
            return ConsoleApi::SendError(request, 404, "Not Found", "mount",
                                         Translate("그런 공유가 없습니다."));
        }
        return ConsoleApi::SendSaveFailure(request);
    }
    JsonWriter json;
    json.BeginObject()
        .Member("account", account)
        .Member("mount", mount)
        .Member("rights", static_cast<int64_t>(accounts_.GetRights(account, mount).value_or(0)))
        .EndObject();
    ConsoleApi::SendJson(request, 200, "OK", json.Text());
}

}  // namespace Zarn
