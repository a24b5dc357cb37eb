#include "ui/FirstRunSetup.h"

#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <fstream>

#include "config/KorvelConfig.h"
#include "core/PathUtil.h"
#include "i18n/LocalizationStringTable.h"
#include "i18n/Translate.h"
#include "share/MountManager.h"
#include "ui/SettingsCatalog.h"
#include "ui/SharingRules.h"

namespace Zarn {
namespace {

using Fault = FirstRunSetup::Fault;

Fault FromRefusal(const SharingRules::Refusal& refusal, const char* field) {
    return Fault{refusal.code, field, Translate(refusal.key)};
}

Fault BadValue(const char* field) {
    return Fault{400, field, Translate("값이 올바르지 않습니다.")};
}

// The share as the registry will keep it: a folder unless the path names a file.
Mount MountOf(const FirstRunChoices& choices) {
    Mount mount{.name = choices.mount_name, .local_path = choices.mount_path};
    struct stat info {};
    if (::stat(mount.local_path.c_str(), &info) == 0 && S_ISREG(info.st_mode))
        mount.is_folder = false;
    if (mount.local_path.starts_with('/')) mount.local_path = MakeAbsolutePath(mount.local_path);
    return mount;
}

}  // namespace

std::string FirstRunSetup::LanguageFromLocale() {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value == nullptr || *value == '\0') continue;
        return std::strncmp(value, "ko", 2) == 0 ? "" : "English.wul";
    }
    return "English.wul";
}

std::optional<Fault> FirstRunSetup::Check(const FirstRunChoices& choices) const {
    std::string error;
    if (choices.language &&
        !SettingsCatalog::Check(config_, "uiLanguageFile", *choices.language, error)) {
        return Fault{400, "language", error};
    }
    if (choices.port && (*choices.port < 1 || *choices.port > 65535)) return BadValue("port");
    Mount mount = MountOf(choices);
    if (std::optional<SharingRules::Refusal> refusal =
            SharingRules::FindMountFault(mounts_, mount, "")) {
        return FromRefusal(*refusal, refusal->field);
    }
    if (choices.anonymous_rights > (kRightList | kRightDownload | kRightUpload | kRightAdmin))
        return BadValue("anonymousRights");
    if (choices.account_name.empty()) return std::nullopt;
    if (std::optional<SharingRules::Refusal> refusal =
            SharingRules::FindAccountNameFault(accounts_, "user", choices.account_name)) {
        return FromRefusal(*refusal, "user");
    }
    // An account is there to keep others out of what it may do, so it needs a password.
    if (choices.password.empty()) {
        return Fault{400, "password", Translate("비밀번호를 입력하세요.")};
    }
    if (std::optional<SharingRules::Refusal> refusal =
            SharingRules::FindPasswordFault(choices.password)) {
        return FromRefusal(*refusal, "password");
    }
    return std::nullopt;
}

std::optional<Fault> FirstRunSetup::Apply(const FirstRunChoices& choices) {
    if (std::optional<Fault> fault = Check(choices)) return fault;
    Mount mount = MountOf(choices);
    if (!mounts_.AddMount(mount)) {
        // Taken by a console change between the check and now, or not saved.
        if (!mounts_.GetMount(mount.name)) {
            return Fault{409, "name", Translate("같은 이름의 공유가 이미 있습니다.")};
        }
        return Fault{500, "", Translate("설정 파일을 저장하지 못했습니다.")};
    }
    // Grants the file already kept for this name come first, so that the choices made
    // here win over them.
    accounts_.ApplyPendingRights();
    bool saved =
        accounts_.SetRights(AccountManager::kAnonymous, mount.name, choices.anonymous_rights);
    if (!choices.account_name.empty()) {
        saved = accounts_.SetAccount(choices.account_name, choices.password) && saved;
        saved = accounts_.SetRights(choices.account_name, mount.name, kAccountRights) && saved;
    }
    {
        CriticalSectionLock hold(config_.GetLock());
        if (choices.language) config_.uiLanguageFile = *choices.language;
        if (choices.port) config_.port = static_cast<unsigned short>(*choices.port);
        // The console's picker opens next time where this share was found.
        config_.lastAddMountDirectory =
            mount.is_folder ? mount.local_path : FolderOf(mount.local_path);
        config_.firstRunDone = true;
        saved = config_.Save() && saved;
    }
    if (!saved) return Fault{500, "", Translate("설정 파일을 저장하지 못했습니다.")};
    return std::nullopt;
}

bool FirstRunSetup::MarkDone() {
    CriticalSectionLock hold(config_.GetLock());
    config_.firstRunDone = true;
    return config_.Save();
}

}  // namespace Zarn
