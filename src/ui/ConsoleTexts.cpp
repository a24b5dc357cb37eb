#include "ui/ConsoleTexts.h"

#include "core/EmbeddedResources.h"
#include "core/JsonWriter.h"
#include "core/StringUtil.h"
#include "i18n/Translate.h"

namespace Zarn {

std::string ConsoleTexts::Json() {
    JsonWriter json;
    json.BeginObject();
    std::string_view list = FindEmbeddedResource("console/texts.txt").value_or("");
    for (std::string_view line : Split(list, '\n')) {
        // An editor may have saved the list with CRLF; a key never ends in a blank.
        std::string_view key = Trim(line, "\r");
        if (!key.empty()) json.Member(key, Translate(key));
    }
    json.EndObject();
    return json.Text();
}

}  // namespace Zarn
