#include "ui/SettingsCatalog.h"

#include "config/KorvelConfig.h"
#include "i18n/Translate.h"

namespace Zarn {

const std::vector<SettingsCatalog::Entry>& SettingsCatalog::Entries() {
    static const std::vector<Entry> entries;
    return entries;
}

const SettingsCatalog::Entry* SettingsCatalog::Find(std::string_view key) {
    for (const Entry& entry : Entries()) {
        if (entry.key == key) return &entry;
    }
    return nullptr;
}

std::optional<std::string> SettingsCatalog::Get(KorvelConfig& /*config*/,
                                                std::string_view /*key*/) {
    return std::nullopt;
}

bool SettingsCatalog::Set(KorvelConfig& /*config*/, std::string_view /*key*/,
                          std::string_view /*value*/, std::string& error) {
    error = Translate("값이 올바르지 않습니다.");
    return false;
}

}  // namespace Zarn
