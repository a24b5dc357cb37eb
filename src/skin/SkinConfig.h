#pragma once

#include <string>
#include <vector>

#include "config/AbstractConfig.h"
#include "template/OutputStream.h"

namespace Zarn {

// The description of a skin, its "setting.ini": the page template, the type pages are
// sent with, the static files, and the files translated once when the skin loads.
class SkinConfig : public AbstractConfig {
public:
    static constexpr char kFileName[] = "setting.ini";

    // Collects what a template writes, to keep a translated file.
    class SimpleOutputStream : public MemoryOutputStream {};

    SkinConfig();
    // Reads the description from text (a byte-order mark is skipped).
    [[nodiscard]] bool LoadText(const std::string& text);

    std::string skin;
    std::string mimeType;
    std::vector<std::string> files;
    std::vector<std::string> i18nfiles;
};

}  // namespace Zarn
