#include "ui/DataFileReloader.h"

#include <optional>

#include "config/KorvelConfig.h"
#include "core/FileContents.h"
#include "core/PathUtil.h"
#include "core/UrlCodec.h"
#include "i18n/LocalizationStringTable.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/KorvelServer.h"
#include "share/MimeTypeTable.h"
#include "skin/SkinManager.h"
#include "ui/DataFileCheck.h"

namespace Zarn {

bool DataFileReloader::Reload() {
    const std::string& path = config_.GetPath();
    DataFileCheck check;
    std::optional<std::string> settings = ReadWholeFile(path);
    // A settings file that went away would leave no mounts at all; that is never what a
    // reload is asked for.
    if (!settings) {
        LogTranslated(kLogError, "%s 파일을 읽을 수 없어 다시 읽지 않았습니다", path.c_str());
        return false;
    }
    check.CheckSettings(path, *settings);
    std::string types_path = JoinPath(home_, MimeTypeTable::kFileName);
    if (std::optional<std::string> types = ReadWholeFile(types_path)) {
        check.CheckMimeTypes(types_path, *types);
    }
    KorvelConfig fresh(path);
    if (check.IsGood()) {
        check.CheckLanguage(home_, fresh.uiLanguageFile);
        check.CheckSkin(home_, fresh.defaultSkin);
    }
    if (!check.IsGood()) {
        for (const std::string& problem : check.GetProblems())
            Log(kLogError, "%s", problem.c_str());
        LogTranslated(kLogError,
                      "설정 파일에 문제가 있어 다시 읽지 않았습니다. 지금의 설정을 그대로 씁니다.");
        return false;
    }
    Apply(fresh);
    LogTranslated(kLogNotice, "mount.ini, mime-type.txt, 언어 파일과 스킨을 다시 읽었습니다.");
    return true;
}

void DataFileReloader::Apply(const KorvelConfig& fresh) {
    {
        CriticalSectionLock hold(config_.GetLock());
        std::string value;
        for (const std::string& key : fresh.ItemKeys()) {
            if (fresh.GetItem(key, value)) (void)config_.SetItem(key, value);
        }
        std::vector<std::string> elements;
        for (const std::string& key : fresh.ListKeys()) {
            (void)fresh.GetList(key, elements);
            (void)config_.ClearList(key);
            for (const std::string& element : elements)
                (void)config_.AddToList(key, element);
        }
        // Rights are keyed by the mounts' identifiers, so the accounts follow the mounts.
        (void)server_.GetMounts().SetMounts(config_.mounts);
        server_.GetAccounts().Reload();
    }
    server_.GetIpFilter().Reload();
    server_.GetMimeTypes().LoadFromHome(home_);
    server_.ApplyLimits();
    SetDefaultUrlCodepage(config_.defaultUrlCodepage);
    // Skins translate their texts as they load, so the language comes first.
    (void)LocalizationStringTable::Instance().LoadLanguage(home_, config_.uiLanguageFile);
    skins_.LoadAll(home_, config_.defaultSkin);
    // Plug-ins are not settings and cannot be checked beforehand; each one is taken or
    // refused on its own.
    server_.GetPlugins().Reload();
}

}  // namespace Zarn
