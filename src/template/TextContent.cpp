#include "template/TextContent.h"

namespace Zarn {

void TextContent::SetScalar(const std::string& name, std::string value) {
    scalars_.insert_or_assign(name, std::move(value));
}

void TextContent::SetList(const std::string& name, std::vector<Record> records) {
    // A record pointer into the old list must not outlive it.
    current_record_ = nullptr;
    lists_.insert_or_assign(name, std::move(records));
}

std::optional<std::string_view> TextContent::Lookup(std::string_view name) const {
    if (current_record_ != nullptr) {
        auto found = current_record_->find(name);
        if (found != current_record_->end()) return found->second;
    }
    auto found = scalars_.find(name);
    if (found == scalars_.end()) return std::nullopt;
    return found->second;
}

size_t TextContent::CountRecords(std::string_view name) const {
    const std::vector<Record>* list = GetList(name);
    return list == nullptr ? 0 : list->size();
}

const std::vector<TextContent::Record>* TextContent::GetList(std::string_view name) const {
    auto found = lists_.find(name);
    return found == lists_.end() ? nullptr : &found->second;
}

}  // namespace Zarn
