#include "skin/SkinConfig.h"

#include <sstream>

namespace Zarn {

SkinConfig::SkinConfig() {
    Register("skin", &skin, "");
    Register("mimeType", &mimeType, "");
    RegisterList("files", &files);
    RegisterList("i18nfiles", &i18nfiles);
}

bool SkinConfig::LoadText(const std::string& text) {
    std::istringstream in(text.starts_with("\xEF\xBB\xBF") ? text.substr(3) : text);
    return Load(in);
}

}  // namespace Zarn
