#include "ui/SettingsCatalog.h"

#include <arpa/inet.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <variant>

#include "config/KorvelConfig.h"
#include "core/PathUtil.h"
#include "core/StringUtil.h"
#include "core/TekoFile.h"
#include "core/TextEncoding.h"
#include "i18n/LocalizationStringTable.h"
#include "i18n/Translate.h"
#include "server/CgiFolder.h"
#include "share/MountManager.h"
#include "skin/SkinManager.h"

namespace Zarn {
namespace {

using Member =
    std::variant<std::atomic<bool> KorvelConfig::*, std::atomic<int> KorvelConfig::*,
                 std::atomic<unsigned short> KorvelConfig::*, std::string KorvelConfig::*>;
// What a key's value must also be beyond its type and bounds; false with the reason.
using Rule = bool (*)(const KorvelConfig& config, const std::string& value, std::string& error);

struct Setting {
    SettingsCatalog::Entry entry;
    Member member;
    Rule rule = nullptr;
};

bool IsKnownLanguage(const KorvelConfig& config, const std::string& value, std::string& error) {
    if (value.empty()) return true;
    for (const auto& language : LocalizationStringTable::ListLanguages(config.GetHomeFolder())) {
        if (language.file_name == value) return true;
    }
    error = Translate("Language 폴더에 그런 언어 파일이 없습니다.");
    return false;
}

// A skin folder of the home that the next load would register, as far as can be told
// without building it; for editing settings where no program has loaded the skins.
bool IsSkinOnDisk(const KorvelConfig& config, const std::string& name) {
    if (name == SkinManager::kBuiltInName) return true;
    std::string folder = name == SkinManager::kDeveloperName
                             ? JoinPath(config.GetHomeFolder(), "res/skin")
                             : JoinPath(JoinPath(config.GetHomeFolder(), "skin"), name);
    return TekoFile::GetFileSize(JoinPath(folder, "setting.ini")) != TekoFile::kInvalidSize;
}

bool IsKnownSkin(const KorvelConfig& config, const std::string& value, std::string& error) {
    if (value.empty()) return true;
    SkinManager& skins = SkinManager::Instance();
    bool known = SkinManager::IsAcceptableName(value) &&
                 (skins.ListNames().empty() ? IsSkinOnDisk(config, value) : skins.Has(value));
    if (!known) error = Translate("그런 스킨이 없습니다.");
    return known;
}

// The owner's host name goes into the address shown and handed out as it stands.
bool IsHostName(const KorvelConfig&, const std::string& value, std::string& error) {
    bool fits = value.size() <= 253 && std::all_of(value.begin(), value.end(), [](char c) {
                    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') ||
                           (c >= 'A' && c <= 'Z') || c == '.' || c == '-' || c == ':' || c == '[' ||
                           c == ']';
                });
    if (!fits) {
        error =
            Translate("호스트 이름에는 영문자, 숫자, '.', '-', ':', '[', ']'만 쓸 수 있습니다.");
    }
    return fits;
}

bool IsIpv4Address(const KorvelConfig&, const std::string& value, std::string& error) {
    in_addr parsed{};
    if (value.empty() || ::inet_pton(AF_INET, value.c_str(), &parsed) == 1) return true;
    error = Translate("IPv4 주소가 아닙니다. 192.168.0.10 처럼 쓰세요.");
    return false;
}

bool IsConvertibleCodepage(const KorvelConfig&, const std::string& value, std::string& error) {
    if (ConvertToUtf8("A", std::stoi(value))) return true;
    error = Translate("이 컴퓨터가 변환할 수 없는 코드 페이지입니다.");
    return false;
}

// Programs must never run from where visitors read or upload, so the CGI folder may not
// lie inside a shared folder.
bool IsCgiFolder(const KorvelConfig& config, const std::string& value, std::string& error) {
    if (value.empty()) return true;
    struct stat info {};
    if (!value.starts_with('/') || ::stat(value.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
        error = Translate("CGI 폴더는 이미 있는 폴더의 절대 경로여야 합니다.");
        return false;
    }
    std::vector<std::string> elements;
    {
        // The lock guards the list, not the object, and is the only thing changed here.
        CriticalSectionLock hold(const_cast<KorvelConfig&>(config).GetLock());
        elements = config.mounts;
    }
    std::vector<Mount> mounts;
    for (const std::string& element : elements) {
        if (std::optional<Mount> mount = Mount::Parse(element)) mounts.push_back(*mount);
    }
    if (std::optional<std::string> covering = CgiFolder::FindCoveringMount(value, mounts)) {
        error =
            FormatTranslated("CGI 폴더는 공유 폴더(%s) 안에 둘 수 없습니다.", covering->c_str());
        return false;
    }
    return true;
}

const std::vector<Setting>& Settings() {
    using C = KorvelConfig;
    auto flag = [](const char* key, std::atomic<bool> C::*member) {
        return Setting{{key, SettingsCatalog::Type::kBool, 0, 1}, member};
    };
    auto number = [](const char* key, auto member, int64_t low, int64_t high, Rule rule = nullptr) {
        return Setting{{key, SettingsCatalog::Type::kInteger, low, high}, member, rule};
    };
    auto text = [](const char* key, std::string C::*member, Rule rule) {
        return Setting{{key, SettingsCatalog::Type::kText, 0, 0}, member, rule};
    };
    // Speeds in KiB/s (-1: none) and connection counts, as the limits page takes them.
    static const std::vector<Setting> settings = {
        flag("singleInstance", &C::singleInstance),
        number("port", &C::port, 1, 65535),
        number("consolePort", &C::consolePort, 0, 65535),
        flag("wasRunning", &C::wasRunning),
        flag("bootOnTray", &C::bootOnTray),
        flag("canRootAccess", &C::canRootAccess),
        flag("showHiddenFiles", &C::showHiddenFiles),
        flag("followLinksOutOfMounts", &C::followLinksOutOfMounts),
        number("totalUploadSpeedLimit", &C::totalUploadSpeedLimit, -1, 10'000'000),
        number("totalDownloadSpeedLimit", &C::totalDownloadSpeedLimit, -1, 10'000'000),
        flag("useDownloadConnectionLimit", &C::useDownloadConnectionLimit),
        number("downloadConnectionLimit", &C::downloadConnectionLimit, 0, 100'000),
        flag("usePerIPDownloadConnectionLimit", &C::usePerIPDownloadConnectionLimit),
        number("perIPdownloadConnectionLimit", &C::perIPdownloadConnectionLimit, 0, 100'000),
        number("keepAliveTimeout", &C::keepAliveTimeout, KorvelConfig::kMinKeepAliveTimeout,
               KorvelConfig::kMaxKeepAliveTimeout),
        flag("useHostName", &C::useHostName),
        flag("getPublicIP", &C::getPublicIP),
        text("HostName", &C::HostName, IsHostName),
        text("preferredLancardAddress", &C::preferredLancardAddress, IsIpv4Address),
        flag("writeLog", &C::writeLog),
        flag("useVersionCheck", &C::useVersionCheck),
        flag("skinDevelopersMode", &C::skinDevelopersMode),
        number("defaultUrlCodepage", &C::defaultUrlCodepage, 1, 65535, IsConvertibleCodepage),
        text("defaultSkin", &C::defaultSkin, IsKnownSkin),
        text("uiLanguageFile", &C::uiLanguageFile, IsKnownLanguage),
        text("cgiFolder", &C::cgiFolder, IsCgiFolder),
        number("cgiTimeout", &C::cgiTimeout, KorvelConfig::kMinCgiTimeout,
               KorvelConfig::kMaxCgiTimeout),
    };
    return settings;
}

const Setting* FindSetting(std::string_view key) {
    for (const Setting& setting : Settings()) {
        if (setting.entry.key == key) return &setting;
    }
    return nullptr;
}

std::optional<std::string> Normalize(const SettingsCatalog::Entry& entry, std::string_view value,
                                     std::string& error) {
    if (entry.type == SettingsCatalog::Type::kText) return std::string(value);
    if (entry.type == SettingsCatalog::Type::kBool) {
        if (value == "1" || value == "true") return "1";
        if (value == "0" || value == "false") return "0";
        error = Translate("1(켜기) 또는 0(끄기)이어야 합니다.");
        return std::nullopt;
    }
    int64_t number = 0;
    auto [end, failure] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (failure != std::errc() || end != value.data() + value.size() || number < entry.low ||
        number > entry.high) {
        error =
            FormatTranslated("%lld부터 %lld까지의 정수여야 합니다.",
                             static_cast<long long>(entry.low), static_cast<long long>(entry.high));
        return std::nullopt;
    }
    return std::to_string(number);
}

}  // namespace

const std::vector<SettingsCatalog::Entry>& SettingsCatalog::Entries() {
    static const std::vector<Entry> entries = [] {
        std::vector<Entry> list;
        for (const Setting& setting : Settings())
            list.push_back(setting.entry);
        return list;
    }();
    return entries;
}

const SettingsCatalog::Entry* SettingsCatalog::Find(std::string_view key) {
    const Setting* setting = FindSetting(key);
    return setting == nullptr ? nullptr : &setting->entry;
}

std::optional<std::string> SettingsCatalog::Get(KorvelConfig& config, std::string_view key) {
    const Setting* setting = FindSetting(key);
    if (setting == nullptr) return std::nullopt;
    CriticalSectionLock hold(config.GetLock());
    return std::visit(
        [&config](auto member) -> std::string {
            const auto& value = config.*member;
            if constexpr (std::is_same_v<std::decay_t<decltype(value)>, std::string>) {
                return value;
            } else {
                return std::to_string(static_cast<int64_t>(value));
            }
        },
        setting->member);
}

std::optional<std::string> SettingsCatalog::Check(const KorvelConfig& config, std::string_view key,
                                                  std::string_view value, std::string& error) {
    const Setting* setting = FindSetting(key);
    if (setting == nullptr) {
        error = Translate("그런 설정이 없습니다.");
        return std::nullopt;
    }
    std::optional<std::string> normal = Normalize(setting->entry, Trim(value), error);
    if (normal && setting->rule != nullptr && !setting->rule(config, *normal, error)) return {};
    return normal;
}

bool SettingsCatalog::Set(KorvelConfig& config, std::string_view key, std::string_view value,
                          std::string& error) {
    std::optional<std::string> normal = Check(config, key, value, error);
    if (!normal) return false;
    CriticalSectionLock hold(config.GetLock());
    std::visit(
        [&config, &normal](auto member) {
            auto& stored = config.*member;
            using Stored = std::decay_t<decltype(stored)>;
            if constexpr (std::is_same_v<Stored, std::string>) {
                stored = *normal;
            } else {
                stored = static_cast<typename Stored::value_type>(std::stoll(*normal));
            }
        },
        FindSetting(key)->member);
    return true;
}

}  // namespace Zarn
