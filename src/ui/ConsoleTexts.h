#pragma once

#include <string>

namespace Zarn {

// The texts of the console's pages in the owner's language. The pages name every text by
// its key and ask for the whole table once; the keys they may ask for are listed in the
// embedded console/texts.txt, one per line, so that a page can never make the program
// translate (and so reveal) anything else. Any thread may call it.
class ConsoleTexts {
public:
    // {"key": "translation", ...} for every listed key, in the language loaded now.
    [[nodiscard]] static std::string Json();
};

}  // namespace Zarn
