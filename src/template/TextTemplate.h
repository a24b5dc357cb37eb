#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "template/OutputStream.h"
#include "template/TemplateScanner.h"
#include "template/TextContent.h"

namespace Zarn {

// A syntax error of a template; what() is the message ("'#end' expected", ...).
class TemplateParseError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A page written in the skins' template language, parsed once and rendered many times:
//   $name                 the value of a variable (echoed as written when unknown)
//   #if( $x ) ... #else ... #end      true when the list $x has a record, else when the
//                                     value is set, not empty and not "0"
//   #foreach( $list ) ... #end        the body once per record, the record's values first
//   #U("text") / #QU("text")          the translated text, bare / in double quotes;
//                                     translated when parsed
// There is one current-record slot: a #foreach inside another leaves the outer body
// without a current record for the rest of that pass. Parsing takes time in proportion to
// the text; nesting deeper than kMaxNesting is refused. Loops nested in loops multiply, so
// a render is bounded instead by its work (a step per block written, kRecordSteps per
// record selected) and its output; a page that reaches either bound ends where it stands
// and one line is logged. The parsed tree is read-only while rendering, so threads may
// share a template, each with its own content.
class TextTemplate {
public:
    using Scanner = TemplateScanner;
    static constexpr int kMaxNesting = 64;

    // A listing page spends some 30 steps per row, so a folder of 100,000 entries takes a
    // fifth of this; two loops nested over a few thousand records cannot.
    struct Limits {
        uint64_t steps = uint64_t{1} << 24;
        uint64_t bytes = uint64_t{1} << 30;
    };
    // Selecting a record formats a row: it costs about as much as writing several blocks.
    static constexpr uint64_t kRecordSteps = 8;

    class Render;
    class Block {
    public:
        virtual ~Block() = default;
        virtual void Write(Render& render) const = 0;
    };
    class TextBlock;
    class IdBlock;
    class IfBlock;
    class ForBlock;
    class CompoundBlock;

    // An empty template: renders nothing.
    TextTemplate();
    ~TextTemplate();
    TextTemplate(TextTemplate&&) noexcept;
    TextTemplate& operator=(TextTemplate&&) noexcept;

    // Replaces the tree; throws TemplateParseError, leaving an empty template.
    void Parse(std::string_view text);
    // False when the page was cut at one of the limits.
    bool Write(TextContent& content, OutputStream& out) const;
    bool Write(TextContent& content, OutputStream& out, const Limits& limits) const;

private:
    std::unique_ptr<Block> root_;
};

}  // namespace Zarn
