#include "share/MimeTypeTable.h"

#include <mutex>
#include <optional>
#include <sstream>

#include "core/EmbeddedResources.h"
#include "core/FileContents.h"
#include "core/PathUtil.h"
#include "core/StringUtil.h"
#include "i18n/Translate.h"
#include "log/Log.h"

namespace Zarn {
namespace {

// Reads one line as a stream of words. The extension is assigned before the end test,
// on purpose: a line whose type is followed only by blanks or a CR gives the type to the
// empty extension (files without one), and the last extension of a line that ends in a
// CR is simply assigned twice.
void ParseLine(const std::string& line, std::map<std::string, std::string, std::less<>>& types) {
    std::istringstream words(line);
    std::string type;
    words >> type;
    if (words.eof()) return;
    std::string extension;
    do {
        words >> extension;
        types[extension] = type;
    } while (!words.eof());
}

}  // namespace

void MimeTypeTable::Load(std::string_view text) {
    std::map<std::string, std::string, std::less<>> types;
    while (!text.empty()) {
        size_t newline = text.find('\n');
        std::string_view line = text.substr(0, newline);
        text = newline == std::string_view::npos ? std::string_view() : text.substr(newline + 1);
        if (line.size() >= kMaxLineChars) {
            // Only the start of an over-long line is read, and nothing after it.
            ParseLine(std::string(line.substr(0, kMaxLineChars - 1)), types);
            break;
        }
        ParseLine(std::string(line), types);
    }
    std::unique_lock lock(mutex_);
    types_ = std::move(types);
}

void MimeTypeTable::LoadFromHome(const std::string& home) {
    std::optional<std::string> text = ReadWholeFile(JoinPath(home, kFileName));
    if (text) {
        LogTranslated(kLogNotice, "외부 mime-type.txt를 로드함..");
    } else {
        LogTranslated(kLogNotice, "내장 mime-type.txt를 로드함..");
        if (std::optional<std::string_view> built_in = FindEmbeddedResource(kFileName)) {
            text = std::string(*built_in);
        }
    }
    if (text) Load(*text);
}

std::string MimeTypeTable::Lookup(std::string_view extension) const {
    std::string key = ToLowerAscii(extension);
    std::shared_lock lock(mutex_);
    auto found = types_.find(key);
    return found == types_.end() ? kDefaultType : found->second;
}

std::string MimeTypeTable::LookupFileName(std::string_view file_name) const {
    size_t slash = file_name.rfind('/');
    if (slash != std::string_view::npos) file_name.remove_prefix(slash + 1);
    size_t dot = file_name.rfind('.');
    return Lookup(dot == std::string_view::npos ? std::string_view() : file_name.substr(dot + 1));
}

size_t MimeTypeTable::Size() const {
    std::shared_lock lock(mutex_);
    return types_.size();
}

}  // namespace Zarn
