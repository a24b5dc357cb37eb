#include "template/TextContent.h"

namespace Zarn {
namespace {

// A list given as records held in memory.
class StoredRecords : public RecordList {
public:
    explicit StoredRecords(std::vector<TextContent::Record> records)
        : records_(std::move(records)) {}

    size_t Count() const override { return records_.size(); }
    void Select(size_t index) override { selected_ = &records_[index]; }
    std::optional<std::string_view> Lookup(std::string_view name) const override {
        if (selected_ == nullptr) return std::nullopt;
        auto found = selected_->find(name);
        if (found == selected_->end()) return std::nullopt;
        return found->second;
    }
    std::unique_ptr<RecordList> Clone() const override {
        return std::make_unique<StoredRecords>(records_);
    }

private:
    std::vector<TextContent::Record> records_;
    const TextContent::Record* selected_ = nullptr;
};

}  // namespace

TextContent::TextContent(const TextContent& other) : scalars_(other.scalars_) {
    for (const auto& [name, list] : other.lists_)
        lists_.emplace(name, list->Clone());
}

TextContent& TextContent::operator=(const TextContent& other) {
    if (this != &other) *this = TextContent(other);
    return *this;
}

void TextContent::SetScalar(const std::string& name, std::string value) {
    scalars_.insert_or_assign(name, std::move(value));
}

void TextContent::SetList(const std::string& name, std::vector<Record> records) {
    SetRecordList(name, std::make_unique<StoredRecords>(std::move(records)));
}

void TextContent::SetRecordList(const std::string& name, std::unique_ptr<RecordList> records) {
    if (!records) records = std::make_unique<StoredRecords>(std::vector<Record>{});
    // The current list must not outlive its replacement.
    current_list_ = nullptr;
    lists_.insert_or_assign(name, std::move(records));
}

std::optional<std::string_view> TextContent::Lookup(std::string_view name) const {
    if (current_list_ != nullptr) {
        std::optional<std::string_view> value = current_list_->Lookup(name);
        if (value) return value;
    }
    auto found = scalars_.find(name);
    if (found == scalars_.end()) return std::nullopt;
    return found->second;
}

size_t TextContent::CountRecords(std::string_view name) const {
    auto found = lists_.find(name);
    return found == lists_.end() ? 0 : found->second->Count();
}

RecordList* TextContent::GetList(std::string_view name) {
    auto found = lists_.find(name);
    return found == lists_.end() ? nullptr : found->second.get();
}

}  // namespace Zarn
