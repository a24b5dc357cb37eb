#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "template/RecordList.h"

namespace Zarn {

// The values a page is rendered with: scalars, and lists of records. Names keep their
// leading "$" ("$title", "$files"). Values are bytes; the engine never converts or escapes
// them, so whoever fills a page escapes what came from outside. Rendering selects records
// and sets the current list while a #foreach runs, so one object is rendered by one thread
// at a time.
class TextContent {
public:
    using Record = std::map<std::string, std::string, std::less<>>;

    TextContent() = default;
    virtual ~TextContent() = default;
    TextContent(const TextContent& other);
    TextContent& operator=(const TextContent& other);
    TextContent(TextContent&&) noexcept = default;
    TextContent& operator=(TextContent&&) noexcept = default;

    void SetScalar(const std::string& name, std::string value);
    void SetList(const std::string& name, std::vector<Record> records);
    // A list that makes its records itself (a long listing formats each row as it is
    // written).
    void SetRecordList(const std::string& name, std::unique_ptr<RecordList> records);
    // A value from the selected record of the current list first, else from the scalars.
    [[nodiscard]] std::optional<std::string_view> Lookup(std::string_view name) const;
    // Records of the list; 0 when there is no such list.
    [[nodiscard]] size_t CountRecords(std::string_view name) const;
    // nullptr when there is no such list.
    [[nodiscard]] RecordList* GetList(std::string_view name);

    // The list whose selected record Lookup reads first; nullptr for none.
    void SetCurrentList(const RecordList* list) { current_list_ = list; }

private:
    std::map<std::string, std::string, std::less<>> scalars_;
    std::map<std::string, std::unique_ptr<RecordList>, std::less<>> lists_;
    const RecordList* current_list_ = nullptr;
};

}  // namespace Zarn
