#include "share/WildcardMatcher.h"

#include <vector>

namespace Zarn {

bool WildcardMatch(std::string_view pattern, std::string_view text) {
    // The set of pattern positions reachable after the text read so far; a star that has
    // consumed at least one character may stay on itself or hand over to what follows it.
    std::vector<char> current(pattern.size() + 1, 0), next(pattern.size() + 1, 0);
    current[0] = 1;
    for (char c : text) {
        std::fill(next.begin(), next.end(), 0);
        bool any = false;
        for (size_t i = 0; i < pattern.size(); ++i) {
            if (!current[i]) continue;
            char p = pattern[i];
            if (p == '*') {
                next[i] = next[i + 1] = 1;
                any = true;
            } else if (p == '?' || p == c) {
                next[i + 1] = 1;
                any = true;
            }
        }
        if (!any) return false;
        current.swap(next);
    }
    return current[pattern.size()] != 0;
}

}  // namespace Zarn
