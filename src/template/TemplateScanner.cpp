#include "template/TemplateScanner.h"

namespace Zarn {
namespace {

bool IsNameChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

bool IsWhiteSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

struct Keyword {
    std::string_view text;
    TemplateScanner::Kind kind;
};

constexpr Keyword kKeywords[] = {
    {"#if", TemplateScanner::Kind::kIf},   {"#else", TemplateScanner::Kind::kElse},
    {"#end", TemplateScanner::Kind::kEnd}, {"#foreach", TemplateScanner::Kind::kForeach},
    {"#U", TemplateScanner::Kind::kU},     {"#QU", TemplateScanner::Kind::kQU},
};

}  // namespace

TemplateScanner::Token TemplateScanner::Scan(size_t& position) const {
    if (position >= text_.size()) return {Kind::kEndOfText, {}};
    std::string_view rest = text_.substr(position);
    if (rest[0] == '#') {
        for (const Keyword& keyword : kKeywords) {
            if (rest.starts_with(keyword.text)) {
                position += keyword.text.size();
                return {keyword.kind, keyword.text};
            }
        }
    }
    if (rest[0] == '$' && rest.size() > 1 && IsNameChar(rest[1])) {
        size_t end = 2;
        while (end < rest.size() && IsNameChar(rest[end]))
            ++end;
        position += end;
        return {Kind::kVariable, rest.substr(0, end)};
    }
    size_t end = rest.find_first_of("$#", 1);
    if (end == std::string_view::npos) end = rest.size();
    position += end;
    return {Kind::kText, rest.substr(0, end)};
}

TemplateScanner::Token TemplateScanner::Next() {
    return Scan(position_);
}

TemplateScanner::Token TemplateScanner::Peek() {
    size_t position = position_;
    return Scan(position);
}

void TemplateScanner::SkipWhiteSpace() {
    while (position_ < text_.size() && IsWhiteSpace(text_[position_]))
        ++position_;
}

bool TemplateScanner::Expect(char c) {
    if (position_ >= text_.size() || text_[position_] != c) return false;
    ++position_;
    return true;
}

bool TemplateScanner::ReadQuoted(std::string_view& contents) {
    if (position_ >= text_.size() || text_[position_] != '"') return false;
    size_t start = position_ + 1;
    for (size_t i = start; i < text_.size(); ++i) {
        if (text_[i] == '\\') {
            ++i;  // the next character is passed over; both stay in the contents
            continue;
        }
        if (text_[i] == '"') {
            contents = text_.substr(start, i - start);
            position_ = i + 1;
            return true;
        }
    }
    return false;
}

}  // namespace Zarn
