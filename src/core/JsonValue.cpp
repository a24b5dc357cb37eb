#include "core/JsonValue.h"

#include <cmath>
#include <cstdlib>

#include "core/JsonWriter.h"

namespace Zarn {
namespace {

void AppendUtf8(std::string& out, uint32_t code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// A recursive-descent reader over the whole text; the depth bound keeps hostile nesting
// from exhausting the stack.
class Reader {
public:
    explicit Reader(std::string_view text) : text_(text) {}

    std::optional<JsonValue> ReadDocument(std::string& error) {
        std::optional<JsonValue> value = ReadValue(0);
        SkipBlanks();
        if (value && at_ != text_.size()) Fail("text after the value");
        if (!failure_.empty()) {
            error = failure_ + " at byte " + std::to_string(at_);
            return std::nullopt;
        }
        return value;
    }

private:
    std::nullopt_t Fail(const char* why) {
        if (failure_.empty()) failure_ = why;
        return std::nullopt;
    }
    void SkipBlanks() {
        while (at_ < text_.size() && (text_[at_] == ' ' || text_[at_] == '\t' ||
                                      text_[at_] == '\n' || text_[at_] == '\r'))
            ++at_;
    }
    bool Take(char c) {
        if (at_ < text_.size() && text_[at_] == c) {
            ++at_;
            return true;
        }
        return false;
    }
    bool TakeWord(std::string_view word) {
        if (text_.substr(at_, word.size()) != word) return false;
        at_ += word.size();
        return true;
    }

    std::optional<JsonValue> ReadValue(int depth) {
        if (depth > JsonValue::kMaxDepth) return Fail("nested too deeply");
        SkipBlanks();
        if (at_ >= text_.size()) return Fail("unexpected end");
        char c = text_[at_];
        if (c == '{') return ReadObject(depth);
        if (c == '[') return ReadArray(depth);
        if (c == '"') {
            std::optional<std::string> text = ReadString();
            if (!text) return std::nullopt;
            return JsonValue::MakeString(std::move(*text));
        }
        if (c == '-' || IsDigit(c)) return ReadNumber();
        if (TakeWord("true")) return JsonValue::MakeBool(true);
        if (TakeWord("false")) return JsonValue::MakeBool(false);
        if (TakeWord("null")) return JsonValue();
        return Fail("unexpected character");
    }

    std::optional<JsonValue> ReadArray(int depth) {
        ++at_;
        std::vector<JsonValue> items;
        SkipBlanks();
        if (Take(']')) return JsonValue::MakeArray(std::move(items));
        for (;;) {
            std::optional<JsonValue> item = ReadValue(depth + 1);
            if (!item) return std::nullopt;
            items.push_back(std::move(*item));
            SkipBlanks();
            if (Take(']')) return JsonValue::MakeArray(std::move(items));
            if (!Take(',')) return Fail("expected ',' or ']'");
        }
    }

    std::optional<JsonValue> ReadObject(int depth) {
        ++at_;
        std::vector<JsonValue::Member> members;
        SkipBlanks();
        if (Take('}')) return JsonValue::MakeObject(std::move(members));
        for (;;) {
            SkipBlanks();
            if (at_ >= text_.size() || text_[at_] != '"') return Fail("expected a member name");
            std::optional<std::string> name = ReadString();
            if (!name) return std::nullopt;
            SkipBlanks();
            if (!Take(':')) return Fail("expected ':'");
            std::optional<JsonValue> value = ReadValue(depth + 1);
            if (!value) return std::nullopt;
            members.emplace_back(std::move(*name), std::move(*value));
            SkipBlanks();
            if (Take('}')) return JsonValue::MakeObject(std::move(members));
            if (!Take(',')) return Fail("expected ',' or '}'");
        }
    }

    std::optional<JsonValue> ReadNumber() {
        size_t begin = at_;
        (void)Take('-');
        if (Take('0')) {
            if (at_ < text_.size() && IsDigit(text_[at_])) return Fail("leading zero");
        } else if (!TakeDigits()) {
            return Fail("bad number");
        }
        if (Take('.') && !TakeDigits()) return Fail("bad number");
        if (Take('e') || Take('E')) {
            if (!Take('+')) (void)Take('-');
            if (!TakeDigits()) return Fail("bad number");
        }
        std::string text(text_.substr(begin, at_ - begin));
        double value = std::strtod(text.c_str(), nullptr);
        if (!std::isfinite(value)) return Fail("number out of range");
        return JsonValue::MakeNumber(std::move(text), value);
    }
    bool TakeDigits() {
        size_t begin = at_;
        while (at_ < text_.size() && IsDigit(text_[at_]))
            ++at_;
        return at_ > begin;
    }

    // Four hexadecimal digits after "\u".
    std::optional<uint32_t> ReadHex4() {
        if (text_.size() - at_ < 4) return Fail("bad \\u escape");
        uint32_t code = 0;
        for (int i = 0; i < 4; ++i) {
            char c = text_[at_++];
            int digit = IsDigit(c)               ? c - '0'
                        : (c >= 'a' && c <= 'f') ? c - 'a' + 10
                        : (c >= 'A' && c <= 'F') ? c - 'A' + 10
                                                 : -1;
            if (digit < 0) return Fail("bad \\u escape");
            code = code * 16 + static_cast<uint32_t>(digit);
        }
        return code;
    }

    // The code point of a "\u" escape, joining a surrogate pair; a lone half is refused
    // because it has no UTF-8 form.
    std::optional<uint32_t> ReadCodePoint() {
        std::optional<uint32_t> high = ReadHex4();
        if (!high) return std::nullopt;
        if (*high >= 0xDC00 && *high <= 0xDFFF) return Fail("lone low surrogate");
        if (*high < 0xD800 || *high > 0xDBFF) return high;
        if (!TakeWord("\\u")) return Fail("lone high surrogate");
        std::optional<uint32_t> low = ReadHex4();
        if (!low) return std::nullopt;
        if (*low < 0xDC00 || *low > 0xDFFF) return Fail("lone high surrogate");
        return 0x10000 + ((*high - 0xD800) << 10) + (*low - 0xDC00);
    }

    std::optional<std::string> ReadString() {
        ++at_;
        std::string out;
        for (;;) {
            if (at_ >= text_.size()) return Fail("unterminated string");
            char c = text_[at_++];
            if (c == '"') return out;
            if (static_cast<unsigned char>(c) < 0x20) return Fail("control character in string");
            if (c != '\\') {
                out += c;
                continue;
            }
            if (at_ >= text_.size()) return Fail("unterminated string");
            char escape = text_[at_++];
            switch (escape) {
                case '"':
                case '\\':
                case '/':
                    out += escape;
                    break;
                case 'b':
                    out += '\b';
                    break;
                case 'f':
                    out += '\f';
                    break;
                case 'n':
                    out += '\n';
                    break;
                case 'r':
                    out += '\r';
                    break;
                case 't':
                    out += '\t';
                    break;
                case 'u': {
                    std::optional<uint32_t> code = ReadCodePoint();
                    if (!code) return std::nullopt;
                    AppendUtf8(out, *code);
                    break;
                }
                default:
                    return Fail("bad escape");
            }
        }
    }

    std::string_view text_;
    size_t at_ = 0;
    std::string failure_;
};

void Write(std::string& out, const JsonValue& value) {
    switch (value.GetType()) {
        case JsonValue::Type::kNull:
            out += "null";
            return;
        case JsonValue::Type::kBool:
        case JsonValue::Type::kNumber:
            out += value.AsText();
            return;
        case JsonValue::Type::kString:
            out += JsonWriter::Quote(value.AsText());
            return;
        case JsonValue::Type::kArray:
        case JsonValue::Type::kObject:
            break;
    }
    bool object = value.IsObject();
    out += object ? '{' : '[';
    for (size_t i = 0; i < value.Items().size(); ++i) {
        if (i > 0) out += ',';
        if (object) out += JsonWriter::Quote(value.Names()[i]) + ":";
        Write(out, value.Items()[i]);
    }
    out += object ? '}' : ']';
}

}  // namespace

std::optional<JsonValue> JsonValue::Parse(std::string_view text, std::string& error) {
    return Reader(text).ReadDocument(error);
}

JsonValue JsonValue::MakeBool(bool value) {
    JsonValue made;
    made.type_ = Type::kBool;
    made.number_ = value ? 1 : 0;
    return made;
}

JsonValue JsonValue::MakeNumber(std::string text, double value) {
    JsonValue made;
    made.type_ = Type::kNumber;
    made.text_ = std::move(text);
    made.number_ = value;
    return made;
}

JsonValue JsonValue::MakeString(std::string value) {
    JsonValue made;
    made.type_ = Type::kString;
    made.text_ = std::move(value);
    return made;
}

JsonValue JsonValue::MakeArray(std::vector<JsonValue> items) {
    JsonValue made;
    made.type_ = Type::kArray;
    made.items_ = std::move(items);
    return made;
}

JsonValue JsonValue::MakeObject(std::vector<Member> members) {
    JsonValue made;
    made.type_ = Type::kObject;
    for (Member& member : members) {
        made.names_.push_back(std::move(member.first));
        made.items_.push_back(std::move(member.second));
    }
    return made;
}

const JsonValue* JsonValue::Find(std::string_view name) const {
    if (type_ != Type::kObject) return nullptr;
    for (size_t i = 0; i < names_.size(); ++i) {
        if (names_[i] == name) return &items_[i];
    }
    return nullptr;
}

std::string JsonValue::Text(std::string_view name) const {
    const JsonValue* member = Find(name);
    return member == nullptr ? std::string() : member->AsText();
}

bool JsonValue::IsTrue(std::string_view name) const {
    const JsonValue* member = Find(name);
    return member != nullptr && member->AsBool();
}

std::optional<int64_t> JsonValue::Integer(std::string_view name) const {
    const JsonValue* member = Find(name);
    return member == nullptr ? std::nullopt : member->AsInteger();
}

std::string JsonValue::AsText() const {
    switch (type_) {
        case Type::kNull:
            return {};
        case Type::kBool:
            return AsBool() ? "true" : "false";
        case Type::kNumber:
        case Type::kString:
            return text_;
        case Type::kArray:
        case Type::kObject:
            return ToJson();
    }
    return {};
}

std::optional<int64_t> JsonValue::AsInteger() const {
    if (type_ != Type::kNumber && type_ != Type::kString) return std::nullopt;
    std::string_view digits = text_;
    if (digits.starts_with('-')) digits.remove_prefix(1);
    if (digits.empty() || digits.size() > 18) return std::nullopt;
    for (char c : digits) {
        if (!IsDigit(c)) return std::nullopt;
    }
    return std::strtoll(text_.c_str(), nullptr, 10);
}

std::string JsonValue::ToJson() const {
    std::string out;
    Write(out, *this);
    return out;
}

}  // namespace Zarn
