// A Range header against an entity size. Whatever the client sends, a resolved set must
// name bytes inside the entity, in order and apart, and exactly the bytes its ranges name
// one by one: no range of the list may be lost or stretched on the way.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "http/ByteRangeSet.h"

using namespace Zarn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 8) return -1;
    uint64_t total = 0;
    std::memcpy(&total, data, 8);
    // Small sizes are where the edges are; keep most inputs there.
    if (data[0] & 1) total %= 2048;
    const std::string_view text(reinterpret_cast<const char*>(data + 8), size - 8);

    ByteRangeSet set;
    if (!set.Parse(text)) return 0;
    if (!set.Resolve(total)) return 0;
    const auto& ranges = set.GetRanges();
    if (ranges.empty() || set.ContentRangeValue().empty()) __builtin_trap();
    for (size_t i = 0; i < ranges.size(); ++i) {
        if (ranges[i].first > ranges[i].last || ranges[i].last >= total) __builtin_trap();
        if (i > 0 && ranges[i].first <= ranges[i - 1].last) __builtin_trap();
    }

    std::vector<std::pair<uint64_t, uint64_t>> alone;
    const size_t equals = text.find('=');
    for (size_t start = equals + 1; start <= text.size();) {
        const size_t comma = std::min(text.find(',', start), text.size());
        ByteRangeSet single;
        if (single.Parse("bytes=" + std::string(text.substr(start, comma - start))) &&
            single.Resolve(total)) {
            for (const auto& range : single.GetRanges())
                alone.emplace_back(range.first, range.last);
        }
        start = comma + 1;
    }
    std::sort(alone.begin(), alone.end());
    std::vector<std::pair<uint64_t, uint64_t>> merged;
    for (const auto& range : alone) {
        if (!merged.empty() && range.first <= merged.back().second + 1) {
            merged.back().second = std::max(merged.back().second, range.second);
        } else {
            merged.push_back(range);
        }
    }
    if (merged.size() != ranges.size()) __builtin_trap();
    for (size_t i = 0; i < ranges.size(); ++i) {
        if (merged[i] != std::pair(ranges[i].first, ranges[i].last)) __builtin_trap();
    }
    return 0;
}
