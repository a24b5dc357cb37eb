#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Zarn {

// The values a page is rendered with: scalars, and lists of records. Names keep their
// leading "$" ("$title", "$files"). Values are bytes; the engine never converts or escapes
// them, so whoever fills a page escapes what came from outside. Rendering sets the current
// record while a #foreach runs, so one object is rendered by one thread at a time.
class TextContent {
public:
    using Record = std::map<std::string, std::string, std::less<>>;

    TextContent() = default;
    virtual ~TextContent() = default;

    void SetScalar(const std::string& name, std::string value);
    void SetList(const std::string& name, std::vector<Record> records);
    // A value from the current record first, else from the scalars.
    [[nodiscard]] std::optional<std::string_view> Lookup(std::string_view name) const;
    // Records of the list; 0 when there is no such list.
    [[nodiscard]] size_t CountRecords(std::string_view name) const;
    [[nodiscard]] const std::vector<Record>* GetList(std::string_view name) const;

    void SetCurrentRecord(const Record* record) { current_record_ = record; }
    [[nodiscard]] const Record* GetCurrentRecord() const { return current_record_; }

private:
    std::map<std::string, std::string, std::less<>> scalars_;
    std::map<std::string, std::vector<Record>, std::less<>> lists_;
    const Record* current_record_ = nullptr;
};

}  // namespace Zarn
