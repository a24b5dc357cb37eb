#include "template/TextTemplate.h"

#include "i18n/Translate.h"
#include "log/Log.h"

namespace Zarn {

using Kind = TemplateScanner::Kind;

// What one render may still do, and where it writes. Once a limit is reached every block
// writes nothing, so the page unwinds at once instead of finishing its loops idly.
class TextTemplate::Render {
public:
    Render(OutputStream& out, TextContent& content, const Limits& limits)
        : out_(out), content_(content), steps_left_(limits.steps), bytes_left_(limits.bytes) {}

    [[nodiscard]] TextContent& Content() { return content_; }
    [[nodiscard]] bool IsCut() const { return cut_; }

    // False once the steps are spent.
    bool Spend(uint64_t steps) {
        if (cut_ || steps > steps_left_) {
            cut_ = true;
            return false;
        }
        steps_left_ -= steps;
        return true;
    }

    // A text that would pass the byte limit is left out whole: half of it could end in the
    // middle of a character or a tag.
    void Write(std::string_view text) {
        if (cut_ || text.size() > bytes_left_) {
            cut_ = true;
            return;
        }
        bytes_left_ -= text.size();
        out_.Write(text);
    }

private:
    OutputStream& out_;
    TextContent& content_;
    uint64_t steps_left_;
    uint64_t bytes_left_;
    bool cut_ = false;
};

class TextTemplate::TextBlock : public Block {
public:
    explicit TextBlock(std::string text) : text_(std::move(text)) {}
    void Write(Render& render) const override {
        if (render.Spend(1)) render.Write(text_);
    }

private:
    std::string text_;
};

class TextTemplate::IdBlock : public Block {
public:
    explicit IdBlock(std::string name) : name_(std::move(name)) {}
    void Write(Render& render) const override {
        if (!render.Spend(1)) return;
        std::optional<std::string_view> value = render.Content().Lookup(name_);
        render.Write(value ? *value : std::string_view(name_));
    }

private:
    std::string name_;
};

class TextTemplate::IfBlock : public Block {
public:
    IfBlock(std::string name, std::unique_ptr<Block> then_branch,
            std::unique_ptr<Block> else_branch)
        : name_(std::move(name)), then_(std::move(then_branch)), else_(std::move(else_branch)) {}

    void Write(Render& render) const override {
        if (!render.Spend(1)) return;
        const Block* branch = IsTrue(render.Content()) ? then_.get() : else_.get();
        if (branch != nullptr) branch->Write(render);
    }

private:
    bool IsTrue(const TextContent& content) const {
        if (content.CountRecords(name_) > 0) return true;
        std::optional<std::string_view> value = content.Lookup(name_);
        return value && !value->empty() && *value != "0";
    }

    std::string name_;
    std::unique_ptr<Block> then_;
    std::unique_ptr<Block> else_;
};

class TextTemplate::ForBlock : public Block {
public:
    ForBlock(std::string name, std::unique_ptr<Block> body)
        : name_(std::move(name)), body_(std::move(body)) {}

    void Write(Render& render) const override {
        TextContent& content = render.Content();
        RecordList* list = content.GetList(name_);
        size_t count = list == nullptr ? 0 : list->Count();
        for (size_t index = 0; index < count && render.Spend(kRecordSteps); ++index) {
            list->Select(index);
            content.SetCurrentList(list);
            body_->Write(render);
        }
        content.SetCurrentList(nullptr);  // cleared, not restored: one slot
    }

private:
    std::string name_;
    std::unique_ptr<Block> body_;
};

class TextTemplate::CompoundBlock : public Block {
public:
    void Add(std::unique_ptr<Block> block) { blocks_.push_back(std::move(block)); }
    void Write(Render& render) const override {
        for (const auto& block : blocks_) {
            if (render.IsCut()) return;
            block->Write(render);
        }
    }

private:
    std::vector<std::unique_ptr<Block>> blocks_;
};

namespace {

// Built by appending: GCC 12 warns falsely about operator+ on a literal and a string.
std::string Quoted(const std::string& text) {
    std::string quoted;
    quoted.reserve(text.size() + 2);
    quoted += '"';
    quoted += text;
    quoted += '"';
    return quoted;
}

class Parser {
public:
    explicit Parser(std::string_view text) : scanner_(text) {}

    std::unique_ptr<TextTemplate::Block> ParseTemplate() {
        auto root = ParseBody(0);
        Kind stray = scanner_.Peek().kind;
        if (stray == Kind::kElse) throw TemplateParseError("Unexpected #else");
        if (stray == Kind::kEnd) throw TemplateParseError("Unexpected #end");
        return root;
    }

private:
    // Items up to the next #else, #end or the end of the text, which is left unread.
    std::unique_ptr<TextTemplate::CompoundBlock> ParseBody(int depth) {
        if (depth > TextTemplate::kMaxNesting) {
            throw TemplateParseError("Directives nested too deeply");
        }
        auto body = std::make_unique<TextTemplate::CompoundBlock>();
        for (;;) {
            Kind kind = scanner_.Peek().kind;
            if (kind == Kind::kElse || kind == Kind::kEnd || kind == Kind::kEndOfText) return body;
            body->Add(ParseItem(scanner_.Next(), depth));
        }
    }

    std::unique_ptr<TextTemplate::Block> ParseItem(const TemplateScanner::Token& token, int depth) {
        switch (token.kind) {
            case Kind::kVariable:
                return std::make_unique<TextTemplate::IdBlock>(std::string(token.text));
            case Kind::kIf:
                return ParseIf(depth);
            case Kind::kForeach:
                return ParseForeach(depth);
            case Kind::kU:
                return std::make_unique<TextTemplate::TextBlock>(Translate(ParseKey()));
            case Kind::kQU:
                return std::make_unique<TextTemplate::TextBlock>(Quoted(Translate(ParseKey())));
            default:
                return std::make_unique<TextTemplate::TextBlock>(std::string(token.text));
        }
    }

    // "( $name )" after a directive.
    std::string ParseCondition(const char* directive) {
        std::string name = std::string("#") + directive;
        scanner_.SkipWhiteSpace();
        if (!scanner_.Expect('(')) throw TemplateParseError("'(' expected after " + name);
        scanner_.SkipWhiteSpace();
        TemplateScanner::Token variable = scanner_.Next();
        if (variable.kind != Kind::kVariable) {
            throw TemplateParseError("'$variable' expected in " + name);
        }
        scanner_.SkipWhiteSpace();
        if (!scanner_.Expect(')')) {
            throw TemplateParseError("')' expected after " + name + "( $variable");
        }
        return std::string(variable.text);
    }

    void ExpectEnd() {
        if (scanner_.Next().kind != Kind::kEnd) throw TemplateParseError("'#end' expected");
    }

    std::unique_ptr<TextTemplate::Block> ParseIf(int depth) {
        std::string name = ParseCondition("if");
        std::unique_ptr<TextTemplate::Block> then_branch = ParseBody(depth + 1);
        std::unique_ptr<TextTemplate::Block> else_branch;
        if (scanner_.Peek().kind == Kind::kElse) {
            (void)scanner_.Next();
            else_branch = ParseBody(depth + 1);
        }
        ExpectEnd();
        return std::make_unique<TextTemplate::IfBlock>(name, std::move(then_branch),
                                                       std::move(else_branch));
    }

    std::unique_ptr<TextTemplate::Block> ParseForeach(int depth) {
        std::string name = ParseCondition("foreach");
        std::unique_ptr<TextTemplate::Block> body = ParseBody(depth + 1);
        ExpectEnd();
        return std::make_unique<TextTemplate::ForBlock>(name, std::move(body));
    }

    // ( "key" ) after #U or #QU: the raw key between the quotes.
    std::string ParseKey() {
        scanner_.SkipWhiteSpace();
        if (!scanner_.Expect('(')) throw TemplateParseError("'(' expected after #U");
        std::string_view key;
        if (!scanner_.ReadQuoted(key)) {
            throw TemplateParseError("\"Double-quoted string\" expected after #U(");
        }
        scanner_.SkipWhiteSpace();
        if (!scanner_.Expect(')')) throw TemplateParseError("')' expected after #U(\"...\"");
        return std::string(key);
    }

    TemplateScanner scanner_;
};

}  // namespace

TextTemplate::TextTemplate() : root_(std::make_unique<TextBlock>("")) {}
TextTemplate::~TextTemplate() = default;
TextTemplate::TextTemplate(TextTemplate&&) noexcept = default;
TextTemplate& TextTemplate::operator=(TextTemplate&&) noexcept = default;

void TextTemplate::Parse(std::string_view text) {
    root_ = std::make_unique<TextBlock>("");
    root_ = Parser(text).ParseTemplate();
}

bool TextTemplate::Write(TextContent& content, OutputStream& out) const {
    return Write(content, out, Limits{});
}

bool TextTemplate::Write(TextContent& content, OutputStream& out, const Limits& limits) const {
    Render render(out, content, limits);
    root_->Write(render);
    if (!render.IsCut()) return true;
    Log(kLogError,
        "A page was cut short: rendering it would take more than %llu steps or %llu bytes "
        "(look for a #foreach nested in another over a long list)",
        static_cast<unsigned long long>(limits.steps),
        static_cast<unsigned long long>(limits.bytes));
    return false;
}

}  // namespace Zarn
