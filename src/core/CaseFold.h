#pragma once

#include <string>
#include <string_view>

namespace Zarn {

// Case folding of UTF-8 text for matching names without regard to case, in every script
// the C library knows the cases of (Latin with its accents, Greek, Cyrillic, Armenian...),
// not only ASCII. Each character becomes the lower case of its upper case, which also
// merges the variants that have no upper case of their own (Greek final sigma, long s).
// Bytes that are not UTF-8 are kept as they are, so any file name folds. Characters are
// folded one by one: a name written decomposed (e + combining accent) does not match one
// written precomposed. Any thread may call it.
[[nodiscard]] std::string FoldCase(std::string_view text);
void AppendFoldedCase(std::string& out, std::string_view text);

}  // namespace Zarn
