#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

namespace Zarn {

// The records of one list of a page, handed to a #foreach one at a time. A list may make
// each record only when it is selected, so that a page of many thousand rows never holds
// them all as text. Used by the one thread that renders the page.
class RecordList {
public:
    virtual ~RecordList() = default;

    [[nodiscard]] virtual size_t Count() const = 0;
    // Makes the record at `index` (below Count()) the one Lookup reads. Views that Lookup
    // handed out before may end here.
    virtual void Select(size_t index) = 0;
    // A value of the selected record, with its "$"; nullopt when the record has none of
    // that name (or nothing is selected yet).
    [[nodiscard]] virtual std::optional<std::string_view> Lookup(std::string_view name) const = 0;
    // An independent copy with nothing selected, for a page copied before it is rendered.
    [[nodiscard]] virtual std::unique_ptr<RecordList> Clone() const = 0;
};

}  // namespace Zarn
