#include "ui/DataFileCheck.h"

#include <algorithm>

#include "config/AbstractConfig.h"
#include "core/PathUtil.h"
#include "core/StringUtil.h"
#include "i18n/LocalizationStringTable.h"
#include "i18n/Translate.h"
#include "share/IpFilter.h"
#include "share/MimeTypeTable.h"
#include "share/MountManager.h"
#include "skin/SkinManager.h"

namespace Zarn {
namespace {

bool Contains(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

// Lines as the readers split them: at LF, the CR of a CR LF left to the line's own trim.
template <typename OnLine>
void ForEachLine(std::string_view text, OnLine on_line) {
    size_t number = 0;
    while (!text.empty()) {
        size_t newline = text.find('\n');
        on_line(++number, text.substr(0, newline));
        text = newline == std::string_view::npos ? std::string_view() : text.substr(newline + 1);
    }
}

bool IsGrant(const std::string& element) {
    std::vector<std::string_view> fields = Split(element, '|');
    if (fields.size() != 3) return false;
    std::string_view rights = Trim(fields[2]);
    return !rights.empty() && rights.find_first_not_of("0123456789") == std::string_view::npos;
}

}  // namespace

void DataFileCheck::Add(const std::string& path, size_t line, const std::string& what) {
    problems_.push_back(line == 0 ? path + ": " + what
                                  : FormatTranslated("%s %d번째 줄: %s", path.c_str(),
                                                     static_cast<int>(line), what.c_str()));
}

void DataFileCheck::CheckSettings(const std::string& path, std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    mount_names_.clear();
    ForEachLine(
        text, [&](size_t number, std::string_view line) { CheckSettingsLine(path, number, line); });
}

void DataFileCheck::CheckSettingsLine(const std::string& path, size_t line_number,
                                      std::string_view line) {
    if (Trim(line).empty()) return;
    if (line.size() >= AbstractConfig::kMaxLineBytes) {
        return Add(path, line_number, Translate("줄이 너무 깁니다"));
    }
    size_t equals = line.find('=');
    if (equals == std::string_view::npos || equals == 0) {
        return Add(path, line_number, Translate("'='이 없습니다"));
    }
    std::string_view raw_key = line.substr(0, equals);
    bool appends = raw_key.back() == '+';
    if (appends) raw_key.remove_suffix(1);
    std::string key(Trim(raw_key));
    std::string value(Trim(line.substr(equals + 1)));
    std::vector<std::string> items = known_.ItemKeys(), lists = known_.ListKeys();
    if (!Contains(items, key) && !Contains(lists, key)) {
        return Add(path, line_number, FormatTranslated("알 수 없는 설정 %s", key.c_str()));
    }
    if (appends != Contains(lists, key)) {
        return Add(
            path, line_number,
            appends ? FormatTranslated("%s에는 값이 하나뿐입니다 (%s=값)", key.c_str(), key.c_str())
                    : FormatTranslated("%s은(는) 목록입니다 (%s+=값)", key.c_str(), key.c_str()));
    }
    if (!appends && !known_.Accepts(key, value)) {
        return Add(path, line_number,
                   FormatTranslated("%s에 '%s' 값은 쓸 수 없습니다", key.c_str(), value.c_str()));
    }
    if (appends) {
        std::string problem = CheckListElement(key, value);
        if (!problem.empty()) Add(path, line_number, problem);
    }
}

std::string DataFileCheck::CheckListElement(const std::string& list, const std::string& element) {
    if (list == "mounts") {
        std::optional<Mount> mount = Mount::Parse(element);
        if (!mount || mount->name.empty() || mount->local_path.empty()) {
            return Translate("마운트 항목이 올바르지 않습니다 (이름|경로|메모|yes|x|no)");
        }
        if (Contains(mount_names_, mount->name)) {
            return FormatTranslated("마운트 %s이(가) 두 번 있습니다", mount->name.c_str());
        }
        mount_names_.push_back(mount->name);
    } else if (list == "users") {
        if (Split(element, '|').size() != 2) {
            return Translate("계정 항목이 올바르지 않습니다 (이름|비밀번호)");
        }
    } else if (list == "authorities") {
        if (!IsGrant(element)) return Translate("권한 항목이 올바르지 않습니다 (계정|마운트|숫자)");
    } else if (list == "ipFilterTable") {
        std::optional<IpFilterRule> rule = IpFilterRule::Parse(element);
        if (!rule || !IpFilter::IsValidPattern(rule->pattern)) {
            return Translate("IP 필터 규칙이 올바르지 않습니다 (패턴:allow 또는 패턴:ban)");
        }
    }
    return {};
}

void DataFileCheck::CheckMimeTypes(const std::string& path, std::string_view text) {
    ForEachLine(text, [&](size_t number, std::string_view line) {
        if (line.size() >= MimeTypeTable::kMaxLineChars) {
            Add(path, number, Translate("줄이 127자를 넘습니다"));
        }
    });
}

void DataFileCheck::CheckLanguage(const std::string& home, const std::string& file_name) {
    LocalizationStringTable probe;
    size_t bad_line = 0;
    if (probe.LoadLanguage(home, file_name, &bad_line)) return;
    std::string path = JoinPath(JoinPath(home, LocalizationStringTable::kFolder), file_name);
    Add(path, bad_line,
        bad_line == 0 ? Translate("언어 파일을 읽을 수 없습니다")
                      : Translate("\"키\" = \"값\" 형식이 아닙니다"));
}

void DataFileCheck::CheckSkin(const std::string& home, const std::string& skin_name) {
    if (skin_name.empty() || skin_name == SkinManager::kBuiltInName) return;
    SkinManager probe;
    probe.LoadAll(home, skin_name);
    if (probe.GetSelectedName() == skin_name) return;
    Add(JoinPath(home, "skin"), 0,
        FormatTranslated("스킨 %s을(를) 불러올 수 없습니다", skin_name.c_str()));
}

}  // namespace Zarn
