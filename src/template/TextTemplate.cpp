#include "template/TextTemplate.h"

#include "i18n/Translate.h"

namespace Zarn {

using Kind = TemplateScanner::Kind;

class TextTemplate::TextBlock : public Block {
public:
    explicit TextBlock(std::string text) : text_(std::move(text)) {}
    void Write(OutputStream& out, TextContent&) const override { out.Write(text_); }

private:
    std::string text_;
};

class TextTemplate::IdBlock : public Block {
public:
    explicit IdBlock(std::string name) : name_(std::move(name)) {}
    void Write(OutputStream& out, TextContent& content) const override {
        std::optional<std::string_view> value = content.Lookup(name_);
        out.Write(value ? *value : std::string_view(name_));
    }

private:
    std::string name_;
};

class TextTemplate::IfBlock : public Block {
public:
    IfBlock(std::string name, std::unique_ptr<Block> then_branch,
            std::unique_ptr<Block> else_branch)
        : name_(std::move(name)), then_(std::move(then_branch)), else_(std::move(else_branch)) {}

    void Write(OutputStream& out, TextContent& content) const override {
        const Block* branch = IsTrue(content) ? then_.get() : else_.get();
        if (branch != nullptr) branch->Write(out, content);
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

    void Write(OutputStream& out, TextContent& content) const override {
        RecordList* list = content.GetList(name_);
        size_t count = list == nullptr ? 0 : list->Count();
        for (size_t index = 0; index < count; ++index) {
            list->Select(index);
            content.SetCurrentList(list);
            body_->Write(out, content);
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
    void Write(OutputStream& out, TextContent& content) const override {
        for (const auto& block : blocks_)
            block->Write(out, content);
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

void TextTemplate::Write(TextContent& content, OutputStream& out) const {
    root_->Write(out, content);
}

}  // namespace Zarn
