#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Zarn {

// The byte ranges of a "Range: bytes=..." header, resolved against the size of the entity.
// Only the first range of a resolved set is ever served (one 206 response, never a
// multipart/byteranges body). Rules beyond the plain reading:
//   - a closed range whose last byte comes before its first makes the header unusable
//     (the whole entity is served, RFC 9110 section 14.1.1);
//   - a range whose first byte lies at or past the end does not resolve (416);
//   - a suffix longer than the entity covers the whole entity (section 14.1.2);
//   - a closed range that ends past the end does not resolve (416).
class ByteRangeSet {
public:
    enum class Kind { kClosed, kOpen, kSuffix };

    struct Range {
        Kind kind = Kind::kOpen;
        uint64_t first = 0;
        uint64_t last = 0;  // for an unresolved suffix: the suffix length

        bool operator==(const Range&) const = default;
    };

    // A new set: one open range from 0, the whole entity, unresolved.
    ByteRangeSet();

    // Reads a Range header value; false when it is not a usable "bytes" range list.
    [[nodiscard]] bool Parse(std::string_view text);
    // Fixes every range against the entity size; false when one cannot be satisfied or
    // the set was resolved before.
    [[nodiscard]] bool Resolve(uint64_t total);

    // "bytes first-last/total" of the first range; empty while unresolved.
    [[nodiscard]] std::string ContentRangeValue() const;

    // In the client's order until resolved, then sorted and merged.
    [[nodiscard]] const std::vector<Range>& GetRanges() const { return ranges_; }
    [[nodiscard]] bool IsResolved() const { return resolved_; }
    [[nodiscard]] uint64_t GetTotal() const { return total_; }

private:
    // Sorts and merges; only resolved ranges have positions to sort by.
    void Normalize();

    std::vector<Range> ranges_;
    bool resolved_ = false;
    uint64_t total_ = 0;
};

}  // namespace Zarn
