#include "http/Validators.h"

#include <cinttypes>
#include <cstdio>

#include "core/StringUtil.h"
#include "http/HttpDate.h"

namespace Zarn {
namespace {

// Weak comparison: the W/ prefixes do not count.
std::string_view Opaque(std::string_view tag) {
    tag = Trim(tag);
    if (tag.starts_with("W/")) tag.remove_prefix(2);
    return tag;
}

bool ListNamesTag(std::string_view list, std::string_view tag) {
    for (std::string_view item : Split(list, ',')) {
        std::string_view trimmed = Trim(item);
        if (trimmed == "*" || Opaque(trimmed) == Opaque(tag)) return true;
    }
    return false;
}

}  // namespace

Validators Validators::OfFile(const struct stat& info) {
    Validators validators;
    auto nanoseconds = static_cast<uint64_t>(info.st_mtim.tv_sec) * 1000000000u +
                       static_cast<uint64_t>(info.st_mtim.tv_nsec);
    char tag[96];
    std::snprintf(tag, sizeof tag, "\"%" PRIx64 "-%" PRIx64 "-%" PRIx64 "-%" PRIx64 "\"",
                  static_cast<uint64_t>(info.st_dev), static_cast<uint64_t>(info.st_ino),
                  static_cast<uint64_t>(info.st_size), nanoseconds);
    validators.entity_tag_ = tag;
    validators.last_modified_ = info.st_mtim.tv_sec;
    return validators;
}

Validators Validators::OfBytes(std::string_view bytes) {
    // FNV-1a over the bytes and their length: cheap for the small files served this way,
    // and a changed file changes it.
    uint64_t hash = 14695981039346656037u;
    for (char c : bytes) {
        hash ^= static_cast<unsigned char>(c);
        hash *= 1099511628211u;
    }
    char tag[64];
    std::snprintf(tag, sizeof tag, "\"%" PRIx64 "-%zx\"", hash, bytes.size());
    Validators validators;
    validators.entity_tag_ = tag;
    return validators;
}

bool Validators::IsNotModified(const HeaderMap& headers) const {
    std::string value;
    if (RequestHead::FindHeader(headers, "IF-NONE-MATCH", value)) {
        return ListNamesTag(value, entity_tag_);
    }
    if (!last_modified_ || !RequestHead::FindHeader(headers, "IF-MODIFIED-SINCE", value)) {
        return false;
    }
    std::optional<std::time_t> since = HttpDate::Parse(value);
    return since && *last_modified_ <= *since;
}

bool Validators::AllowsRange(const HeaderMap& headers) const {
    std::string value;
    if (!RequestHead::FindHeader(headers, "IF-RANGE", value)) return true;
    std::string_view condition = Trim(value);
    // If-Range needs a strong match: a weak tag never names the version.
    if (condition.starts_with('"')) return condition == entity_tag_;
    if (condition.starts_with("W/")) return false;
    std::optional<std::time_t> date = HttpDate::Parse(condition);
    return date && last_modified_ && *date == *last_modified_;
}

}  // namespace Zarn
