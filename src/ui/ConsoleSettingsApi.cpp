#include "ui/ConsoleSettingsApi.h"

#include <algorithm>

#include "background/UpdateIPStringThread.h"
#include "background/VersionCheckThread.h"
#include "config/KorvelConfig.h"
#include "core/JsonWriter.h"
#include "core/PathUtil.h"
#include "core/StringUtil.h"
#include "core/UrlCodec.h"
#include "core/Version.h"
#include "http/HttpRequest.h"
#include "i18n/LocalizationStringTable.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "net/SocketError.h"
#include "server/KorvelServer.h"
#include "skin/SkinManager.h"
#include "ui/ConsoleApi.h"
#include "ui/ConsoleControlApi.h"
#include "ui/SettingsCatalog.h"

namespace Zarn {
namespace {

// The settings from which the visitors' address is worked out.
constexpr std::string_view kAddressKeys[] = {"getPublicIP", "useHostName", "HostName",
                                             "preferredLancardAddress"};

bool Changed(const std::map<std::string, std::string>& before, std::string_view key) {
    return before.find(std::string(key)) != before.end();
}

void WriteValue(JsonWriter& json, const SettingsCatalog::Entry& entry, const std::string& value) {
    json.Key(entry.key);
    if (entry.type == SettingsCatalog::Type::kBool) {
        json.Bool(value == "1");
    } else if (entry.type == SettingsCatalog::Type::kInteger) {
        json.Number(std::stoll(value));
    } else {
        json.String(value);
    }
}

}  // namespace

ConsoleSettingsApi::ConsoleSettingsApi(Services services)
    : services_(std::move(services)),
      address_(*services_.config, *services_.server, *services_.events) {}

ConsoleSettingsApi::~ConsoleSettingsApi() = default;

bool ConsoleSettingsApi::IsChange(std::string_view endpoint) {
    return endpoint == "settings/set";
}

bool ConsoleSettingsApi::Serve(HttpRequest& request, std::string_view endpoint) {
    if (endpoint == "settings") {
        SendSettings(request);
    } else if (endpoint == "settings/set") {
        SetSettings(request);
    } else if (endpoint == "languages") {
        SendLanguages(request);
    } else if (endpoint == "skins") {
        SendSkins(request);
    } else if (endpoint == "address") {
        SendAddress(request);
    } else {
        return false;
    }
    return true;
}

int ConsoleSettingsApi::GetNewerRevision() {
    if (!services_.config->useVersionCheck) return 0;
    int found = services_.newer_revision ? services_.newer_revision() : 0;
    std::lock_guard hold(change_mutex_);
    return version_check_ ? std::max(found, version_check_->GetNewerRevision()) : found;
}

void ConsoleSettingsApi::SendSettings(HttpRequest& request) {
    JsonWriter json;
    json.BeginObject().Key("settings").BeginObject();
    for (const SettingsCatalog::Entry& entry : SettingsCatalog::Entries()) {
        WriteValue(json, entry, SettingsCatalog::Get(*services_.config, entry.key).value_or(""));
    }
    json.EndObject().EndObject();
    ConsoleApi::SendJson(request, 200, "OK", json.Text());
}

std::optional<std::map<std::string, std::string>> ConsoleSettingsApi::CheckForm(
    HttpRequest& request) {
    std::map<std::string, std::string> values;
    for (const auto& [key, value] : request.GetFormParameters()) {
        std::string error;
        std::optional<std::string> normal =
            SettingsCatalog::Check(*services_.config, key, value, error);
        // The machine's own addresses are known only where the program runs.
        if (normal && key == "preferredLancardAddress" && !normal->empty()) {
            std::vector<std::string> own = UpdateIPStringThread::DefaultLocalAddresses();
            if (std::find(own.begin(), own.end(), *normal) == own.end()) {
                normal.reset();
                error = Translate("이 컴퓨터의 주소가 아닙니다.");
            }
        }
        if (!normal) {
            ConsoleApi::SendError(request, 400, "Bad Request", key, error);
            return std::nullopt;
        }
        values.emplace(key, std::move(*normal));
    }
    if (values.empty()) {
        ConsoleApi::SendError(request, 400, "Bad Request", "", Translate("바꿀 설정이 없습니다."));
        return std::nullopt;
    }
    return values;
}

void ConsoleSettingsApi::SetSettings(HttpRequest& request) {
    std::lock_guard hold(change_mutex_);
    std::optional<std::map<std::string, std::string>> values = CheckForm(request);
    if (!values) return;
    KorvelConfig& config = *services_.config;
    // The one change that can still fail is made first, so a port that cannot be had
    // leaves every setting as it was.
    if (auto port = values->find("port"); port != values->end()) {
        if (!services_.control->MoveListener(std::stoi(port->second))) {
            std::string reason = ErrorText(LastSocketError());
            return ConsoleApi::SendError(
                request, 409, "Conflict", "port",
                Concat({Translate("그 포트에서 들을 수 없습니다."), " (", reason, ")"}));
        }
    }
    std::map<std::string, std::string> before;
    bool saved;
    {
        CriticalSectionLock hold_settings(config.GetLock());
        for (const auto& [key, value] : *values) {
            std::string old = SettingsCatalog::Get(config, key).value_or("");
            std::string ignored;
            if (old != value && SettingsCatalog::Set(config, key, value, ignored)) {
                before.emplace(key, std::move(old));
            }
        }
        saved = config.Save();
    }
    Apply(*values, before);
    if (!saved) return ConsoleApi::SendSaveFailure(request);
    SendSettings(request);
}

void ConsoleSettingsApi::Apply(const std::map<std::string, std::string>& values,
                               const std::map<std::string, std::string>& before) {
    KorvelConfig& config = *services_.config;
    // Cheap and idempotent: whatever of them changed takes effect with the next request.
    SetDefaultUrlCodepage(config.defaultUrlCodepage);
    services_.server->ApplyLimits();
    if (Changed(before, "uiLanguageFile")) {
        ApplyLanguage(config);
    } else if (Changed(before, "defaultSkin")) {
        std::string skin;
        {
            CriticalSectionLock hold(config.GetLock());
            skin = config.defaultSkin;
        }
        if (skin.empty() || !SkinManager::Instance().Select(skin)) {
            (void)SkinManager::Instance().Select(SkinManager::kBuiltInName);
        }
    }
    if (std::any_of(std::begin(kAddressKeys), std::end(kAddressKeys),
                    [&](std::string_view key) { return values.count(std::string(key)) > 0; })) {
        address_.Refresh();
    }
    if (Changed(before, "useVersionCheck") && config.useVersionCheck) {
        // Turned on while running: ask now rather than at the next start.
        version_check_.reset();
        version_check_ = std::make_unique<VersionCheckThread>();
        if (!version_check_->Start()) version_check_.reset();
    }
}

void ConsoleSettingsApi::ApplyLanguage(KorvelConfig& config) {
    std::string language;
    std::string skin;
    {
        CriticalSectionLock hold(config.GetLock());
        language = config.uiLanguageFile;
        skin = config.defaultSkin;
    }
    std::string home = config.GetHomeFolder();
    if (!LocalizationStringTable::Instance().LoadLanguage(home, language)) {
        Log(kLogError, "The language file %s could not be loaded", language.c_str());
    }
    CriticalSectionLock hold(SkinManager::DevelopersModeLock());
    SkinManager::Instance().LoadAll(home, skin);
}

void ConsoleSettingsApi::SendLanguages(HttpRequest& request) {
    std::string chosen = SettingsCatalog::Get(*services_.config, "uiLanguageFile").value_or("");
    JsonWriter json;
    json.BeginObject().Member("chosen", chosen).Key("languages").BeginArray();
    // The program's own texts, which need no file.
    json.BeginObject().Member("file", "").Member("builtIn", true).Key("descriptions");
    json.BeginArray().String("한국어").String(kProductName).String(kVersionText).EndArray();
    json.EndObject();
    for (const auto& language :
         LocalizationStringTable::ListLanguages(services_.config->GetHomeFolder())) {
        json.BeginObject().Member("file", language.file_name).Member("builtIn", false);
        json.Key("descriptions").BeginArray();
        for (const std::string& line : language.descriptions)
            json.String(line);
        json.EndArray().EndObject();
    }
    json.EndArray().EndObject();
    ConsoleApi::SendJson(request, 200, "OK", json.Text());
}

void ConsoleSettingsApi::SendSkins(HttpRequest& request) {
    KorvelConfig& config = *services_.config;
    SkinManager& skins = SkinManager::Instance();
    int port = services_.server->GetPort();
    JsonWriter json;
    json.BeginObject()
        .Member("chosen", SettingsCatalog::Get(config, "defaultSkin").value_or(""))
        .Member("selected", skins.GetSelectedName())
        .Member("developersMode", config.skinDevelopersMode)
        .Key("skins")
        .BeginArray();
    for (const std::string& name : skins.ListNames()) {
        // The owner sits at the machine, so the loopback address always reaches the
        // visitors' listener, whatever address the visitors are told.
        std::string preview =
            port < 0
                ? std::string()
                : Concat({"http://127.0.0.1:", std::to_string(port), "/?skin=", UrlEncode(name)});
        json.BeginObject()
            .Member("name", name)
            .Member("builtIn", name == SkinManager::kBuiltInName)
            .Member("preview", preview)
            .EndObject();
    }
    json.EndArray().EndObject();
    ConsoleApi::SendJson(request, 200, "OK", json.Text());
}

void ConsoleSettingsApi::SendAddress(HttpRequest& request) {
    JsonWriter json;
    json.BeginObject()
        .Member("address", services_.server->GetDisplayAddress())
        .Member("pending", address_.IsPending())
        .Key("addresses")
        .BeginArray();
    for (const std::string& address : UpdateIPStringThread::DefaultLocalAddresses())
        json.String(address);
    json.EndArray().EndObject();
    ConsoleApi::SendJson(request, 200, "OK", json.Text());
}

}  // namespace Zarn
