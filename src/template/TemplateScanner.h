#pragma once

#include <string_view>

namespace Zarn {

// Cuts template text into tokens. Directive keywords match as prefixes, tried in the order
// #if, #else, #end, #foreach, #U, #QU, without looking at what follows ("#iffy" is #if
// then the text "fy"). "$" and a letter, digit or "_" start a variable; any other "$" or
// "#" starts plain text, which runs to the next "$", "#" or the end.
class TemplateScanner {
public:
    enum class Kind { kEndOfText, kVariable, kIf, kElse, kEnd, kForeach, kU, kQU, kText };

    struct Token {
        Kind kind = Kind::kEndOfText;
        std::string_view text;  // the variable with its "$", or the plain text
    };

    explicit TemplateScanner(std::string_view text) : text_(text) {}

    [[nodiscard]] Token Next();
    [[nodiscard]] Token Peek();

    // Character-level reading between the parts of a directive.
    void SkipWhiteSpace();
    // Moves past the character when it is next; false (not moving) otherwise.
    [[nodiscard]] bool Expect(char c);
    // Reads "..." starting right here: the raw contents between the quotes, where a
    // backslash passes over the next character and both stay. False when there is no
    // opening quote here or no closing one before the end.
    [[nodiscard]] bool ReadQuoted(std::string_view& contents);

private:
    [[nodiscard]] Token Scan(size_t& position) const;

    std::string_view text_;
    size_t position_ = 0;
};

}  // namespace Zarn
