#include "ui/ConsoleSetupApi.h"

#include "config/KorvelConfig.h"
#include "core/JsonWriter.h"
#include "core/PathUtil.h"
#include "http/HttpRequest.h"
#include "i18n/LocalizationStringTable.h"
#include "i18n/Translate.h"
#include "server/KorvelServer.h"
#include "ui/ConsoleApi.h"
#include "ui/ConsoleSettingsApi.h"
#include "ui/ConsoleSharingApi.h"
#include "ui/FirstRunSetup.h"
#include "ui/SettingsCatalog.h"
#include "ui/SharingRules.h"

namespace Zarn {
namespace {

// The program's own texts, named in their own language whatever language is loaded.
constexpr char kBuiltInLanguageName[] = "한국어";

void SendFault(HttpRequest& request, const FirstRunSetup::Fault& fault) {
    std::string_view reason = fault.code == 409   ? "Conflict"
                              : fault.code == 500 ? "Internal Server Error"
                                                  : "Bad Request";
    ConsoleApi::SendError(request, fault.code, reason, fault.field, fault.message);
}

}  // namespace

bool ConsoleSetupApi::IsChange(std::string_view endpoint) {
    return endpoint == "setup/language" || endpoint == "setup/finish";
}

bool ConsoleSetupApi::Serve(HttpRequest& request, std::string_view endpoint) {
    if (endpoint == "setup") {
        SendSetup(request);
    } else if (endpoint == "setup/language") {
        SetLanguage(request);
    } else if (endpoint == "setup/finish") {
        Finish(request);
    } else {
        return false;
    }
    return true;
}

bool ConsoleSetupApi::IsDue() {
    CriticalSectionLock hold(config_.GetLock());
    return new_home_ && !config_.firstRunDone;
}

void ConsoleSetupApi::SendSetup(HttpRequest& request) {
    std::string language;
    int port = server_.GetPort();
    {
        CriticalSectionLock hold(config_.GetLock());
        language = config_.uiLanguageFile;
        if (port < 0) port = config_.port;
    }
    JsonWriter json;
    json.BeginObject()
        .Member("due", IsDue())
        .Member("language", language)
        .Member("port", port)
        .Member("listening", server_.GetPort() >= 0)
        .Key("languages")
        .BeginArray();
    json.BeginObject().Member("file", "").Member("name", kBuiltInLanguageName).EndObject();
    for (const LocalizationStringTable::LanguageFile& file :
         LocalizationStringTable::ListLanguages(config_.GetHomeFolder())) {
        json.BeginObject()
            .Member("file", file.file_name)
            .Member("name", file.descriptions[0].empty() ? file.file_name : file.descriptions[0])
            .EndObject();
    }
    json.EndArray().EndObject();
    ConsoleApi::SendJson(request, 200, "OK", json.Text());
}

void ConsoleSetupApi::SetLanguage(HttpRequest& request) {
    std::string file = ConsoleSharingApi::Field(request, "language");
    std::string error;
    if (!SettingsCatalog::Set(config_, "uiLanguageFile", file, error))
        return ConsoleApi::SendError(request, 400, "Bad Request", "language", error);
    bool saved;
    {
        CriticalSectionLock hold(config_.GetLock());
        saved = config_.Save();
    }
    ConsoleSettingsApi::ApplyLanguage(config_);
    if (!saved) return ConsoleApi::SendSaveFailure(request);
    JsonWriter json;
    json.BeginObject().Member("language", file).EndObject();
    ConsoleApi::SendJson(request, 200, "OK", json.Text());
}

void ConsoleSetupApi::Finish(HttpRequest& request) {
    if (!IsDue()) {
        return ConsoleApi::SendError(request, 409, "Conflict", "",
                                     Translate("처음 설정은 이미 끝났습니다."));
    }
    FirstRunSetup setup(config_, server_.GetMounts(), server_.GetAccounts(),
                        config_.GetHomeFolder());
    if (ConsoleSharingApi::Field(request, "skip") == "1") {
        if (!setup.MarkDone()) return ConsoleApi::SendSaveFailure(request);
        return ConsoleApi::SendOk(request);
    }
    std::optional<uint32_t> rights =
        SharingRules::ParseRights(ConsoleSharingApi::Field(request, "anonymousRights"));
    if (!rights) {
        return ConsoleApi::SendError(request, 400, "Bad Request", "anonymousRights",
                                     Translate("값이 올바르지 않습니다."));
    }
    std::string path = ConsoleSharingApi::Field(request, "path");
    std::string password;
    // Blanks around a password are the owner's to choose, so it is taken as sent.
    (void)request.GetFormParameter("password", password);
    FirstRunChoices choices{.mount_name = ConsoleSharingApi::Field(request, "name"),
                            .mount_path = path,
                            .anonymous_rights = *rights,
                            .account_name = ConsoleSharingApi::Field(request, "user"),
                            .password = password};
    if (std::optional<FirstRunSetup::Fault> fault = setup.Apply(choices))
        return SendFault(request, *fault);
    ConsoleApi::SendOk(request);
}

}  // namespace Zarn
