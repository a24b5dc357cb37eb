#include "http/ByteRangeSet.h"

#include <algorithm>

#include "core/StringUtil.h"

namespace Zarn {

ByteRangeSet::ByteRangeSet() : ranges_{Range{Kind::kOpen, 0, 0}} {}

bool ByteRangeSet::Parse(std::string_view text) {
    ranges_.clear();
    resolved_ = false;
    size_t equals = text.find('=');
    if (equals == std::string_view::npos || Trim(text.substr(0, equals)) != "bytes") return false;
    std::string_view rest = text.substr(equals + 1);
    for (;;) {
        size_t comma = rest.find(',');
        std::string_view piece = Trim(rest.substr(0, comma));
        size_t dash = piece.find('-');
        if (dash == std::string_view::npos) return false;
        std::string_view before = piece.substr(0, dash);
        std::string_view after = piece.substr(dash + 1);
        if (before.empty()) {
            ranges_.push_back({Kind::kSuffix, 0, ParseLeadingDecimal(after)});
        } else if (after.empty()) {
            ranges_.push_back({Kind::kOpen, ParseLeadingDecimal(before), 0});
        } else {
            Range range{Kind::kClosed, ParseLeadingDecimal(before), ParseLeadingDecimal(after)};
            if (range.last < range.first) return false;
            ranges_.push_back(range);
        }
        if (comma == std::string_view::npos) break;
        rest.remove_prefix(comma + 1);
    }
    // Left in the client's order: a suffix has no position until the size is known, so
    // sorting now would put "-50" before "100-199" and serve the wrong range first.
    return true;
}

bool ByteRangeSet::Resolve(uint64_t total) {
    if (resolved_) return false;
    for (Range& range : ranges_) {
        if (range.kind == Kind::kOpen) {
            range.last = total - 1;
        } else if (range.kind == Kind::kSuffix) {
            uint64_t length = range.last;
            range.first = length >= total ? 0 : total - length;
            range.last = total - 1;
            if (length == 0) return false;
        }
        // An empty entity satisfies no range at all.
        if (total == 0 || range.first >= total || range.last >= total) return false;
    }
    total_ = total;
    resolved_ = true;
    Normalize();
    return true;
}

void ByteRangeSet::Normalize() {
    std::sort(ranges_.begin(), ranges_.end(), [](const Range& a, const Range& b) {
        return a.first != b.first ? a.first < b.first : a.last < b.last;
    });
    std::vector<Range> merged;
    for (const Range& range : ranges_) {
        if (merged.empty()) {
            merged.push_back(range);
            continue;
        }
        Range& previous = merged.back();
        bool adjacent = range.first <= previous.last || range.first - previous.last == 1;
        if (!adjacent) {
            merged.push_back(range);
            continue;
        }
        if (range.kind == Kind::kOpen) previous.kind = Kind::kOpen;
        previous.last = std::max(previous.last, range.last);
    }
    ranges_ = std::move(merged);
}

std::string ByteRangeSet::ContentRangeValue() const {
    if (!resolved_ || ranges_.empty()) return {};
    const Range& range = ranges_.front();
    return "bytes " + std::to_string(range.first) + "-" + std::to_string(range.last) + "/" +
           std::to_string(total_);
}

}  // namespace Zarn
