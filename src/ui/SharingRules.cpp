#include "ui/SharingRules.h"

#include <sys/stat.h>

#include "i18n/Translate.h"
#include "share/AccountManager.h"
#include "ui/ConsoleSharingApi.h"

namespace Zarn {
namespace {

constexpr size_t kMaxNameBytes = 255;
constexpr size_t kMaxNoteBytes = 4096;
constexpr size_t kMaxPasswordBytes = 1024;

// The first segment of a request path picks the mount, so a name may be anything that
// stays one segment and survives a log line.
bool IsMountName(std::string_view name) {
    return !name.empty() && name.size() <= kMaxNameBytes &&
           name.find('/') == std::string_view::npos && name != "." && name != ".." &&
           !ConsoleSharingApi::HasControlCharacter(name);
}

// Basic credentials end the user name at the first colon, and names beginning with a dot
// are kept for the system's own accounts.
bool IsAccountName(const std::string& name) {
    return name.size() <= kMaxNameBytes && !name.starts_with('.') &&
           name.find(':') == std::string::npos && !ConsoleSharingApi::HasControlCharacter(name);
}

}  // namespace

std::optional<SharingRules::Refusal> SharingRules::FindMountFault(const MountManager& mounts,
                                                                  const Mount& mount,
                                                                  const std::string& original) {
    if (mount.name.empty()) return Refusal{400, "name", TranslationKey("이름을 입력하세요.")};
    if (!IsMountName(mount.name)) {
        return Refusal{400, "name", TranslationKey("이름에 '/'나 제어 문자를 쓸 수 없습니다.")};
    }
    if (mount.name != original && mounts.GetMount(mount.name)) {
        return Refusal{409, "name", TranslationKey("같은 이름의 공유가 이미 있습니다.")};
    }
    if (mount.note.size() > kMaxNoteBytes) {
        return Refusal{400, "note", TranslationKey("값이 너무 깁니다.")};
    }
    if (!mount.local_path.starts_with('/') || mount.local_path.find('\0') != std::string::npos) {
        return Refusal{400, "path", TranslationKey("경로는 /로 시작하는 절대 경로여야 합니다.")};
    }
    struct stat info {};
    bool found = ::stat(mount.local_path.c_str(), &info) == 0;
    if (mount.is_folder && !(found && S_ISDIR(info.st_mode))) {
        return Refusal{400, "path", TranslationKey("그 폴더가 없습니다.")};
    }
    if (!mount.is_folder && !(found && S_ISREG(info.st_mode))) {
        return Refusal{400, "path", TranslationKey("그 파일이 없습니다.")};
    }
    return std::nullopt;
}

std::optional<SharingRules::Refusal> SharingRules::FindAccountNameFault(
    const AccountManager& accounts, const char* field, const std::string& name) {
    if (name.empty()) return Refusal{400, field, TranslationKey("이름을 입력하세요.")};
    if (accounts.GetPassword(name)) {
        return Refusal{409, field, TranslationKey("같은 이름의 계정이 이미 있습니다.")};
    }
    if (!IsAccountName(name)) {
        return Refusal{
            400, field,
            TranslationKey(
                "계정 이름에는 ':'나 제어 문자를 쓸 수 없고, 점으로 시작할 수 없습니다.")};
    }
    return std::nullopt;
}

std::optional<SharingRules::Refusal> SharingRules::FindPasswordFault(const std::string& password) {
    if (password.size() > kMaxPasswordBytes) {
        return Refusal{400, "password", TranslationKey("값이 너무 깁니다.")};
    }
    return std::nullopt;
}

std::optional<uint32_t> SharingRules::ParseRights(const std::string& text) {
    if (text.empty() || text.size() > 2) return std::nullopt;
    uint32_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return std::nullopt;
        value = value * 10 + static_cast<uint32_t>(c - '0');
    }
    if (value > (kRightList | kRightDownload | kRightUpload | kRightAdmin)) return std::nullopt;
    return value;
}

}  // namespace Zarn
