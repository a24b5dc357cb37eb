#include "skin/Skin.h"

#include "i18n/Translate.h"
#include "log/Log.h"
#include "skin/SkinConfig.h"

namespace Zarn {
namespace {

// A skin's file names are plain names below its folder; anything that could climb out is
// not a file of the skin.
bool IsPlainName(std::string_view name) {
    if (name.empty() || name.front() == '/' || name.find('\0') != std::string_view::npos) {
        return false;
    }
    for (;;) {
        size_t slash = name.find('/');
        std::string_view segment = name.substr(0, slash);
        if (segment.empty() || segment == "." || segment == "..") return false;
        if (slash == std::string_view::npos) return true;
        name.remove_prefix(slash + 1);
    }
}

std::optional<std::string> ReadPlain(const Skin::FileReader& read, const std::string& name) {
    if (!IsPlainName(name)) return std::nullopt;
    return read(name);
}

std::optional<std::string> Translated(const std::string& text) {
    try {
        TextTemplate file;
        file.Parse(text);
        TextContent empty;
        SkinConfig::SimpleOutputStream out;
        file.Write(empty, out);
        return out.TakeData();
    } catch (const TemplateParseError& error) {
        LogTranslated(kLogError, "스킨 템플릿 오류: %s", error.what());
        return std::nullopt;
    }
}

}  // namespace

std::shared_ptr<const Skin> Skin::Build(const std::string& name, const FileReader& read) {
    std::optional<std::string> description = read(SkinConfig::kFileName);
    SkinConfig config;
    if (!description || !config.LoadText(*description)) return nullptr;
    LogTranslated(kLogProgress, "스킨 로드.. : %s", name.c_str());

    auto skin = std::make_shared<Skin>(Key{});
    skin->name_ = name;
    skin->mime_type_ = config.mimeType.empty() ? "text/html" : config.mimeType;
    std::optional<std::string> page = ReadPlain(read, config.skin);
    try {
        if (!page) throw TemplateParseError("the page template cannot be read");
        skin->page_.Parse(*page);
    } catch (const TemplateParseError& error) {
        LogTranslated(kLogError, "스킨 HTML 로드 실패: %s", name.c_str());
        LogTranslated(kLogError, "스킨 템플릿 오류: %s", error.what());
        return nullptr;
    }
    for (const std::string& file : config.files) {
        std::optional<std::string> bytes = ReadPlain(read, file);
        if (!bytes) {
            LogTranslated(kLogError, "스킨 sysrp-file 로드 실패: %s", file.c_str());
            continue;
        }
        skin->files_[file] = std::make_shared<const std::string>(std::move(*bytes));
    }
    for (const std::string& file : config.i18nfiles) {
        std::optional<std::string> bytes = ReadPlain(read, file);
        if (bytes) bytes = Translated(*bytes);
        if (!bytes) {
            LogTranslated(kLogError, "스킨 sysrp-file 로드 실패: %s", file.c_str());
            continue;
        }
        skin->files_[file] = std::make_shared<const std::string>(std::move(*bytes));
    }
    return skin;
}

std::shared_ptr<const std::string> Skin::FindFile(std::string_view name) const {
    auto found = files_.find(name);
    return found == files_.end() ? nullptr : found->second;
}

}  // namespace Zarn
