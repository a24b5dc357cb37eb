#include "core/JsonWriter.h"

#include <charconv>

namespace Zarn {
namespace {

// The length of the well-formed UTF-8 sequence at the start of `text`; 0 when it is not
// one (a stray continuation byte, a truncated or overlong sequence, a surrogate).
size_t Utf8SequenceLength(std::string_view text) {
    auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    unsigned char lead = byte(0);
    size_t length = lead < 0x80                    ? 1
                    : lead >= 0xC2 && lead <= 0xDF ? 2
                    : (lead & 0xF0) == 0xE0        ? 3
                    : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                   : 0;
    if (length == 0 || text.size() < length) return 0;
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
    }
    if (length == 3) {
        if (lead == 0xE0 && byte(1) < 0xA0) return 0;   // overlong
        if (lead == 0xED && byte(1) >= 0xA0) return 0;  // a surrogate
    }
    if (length == 4) {
        if (lead == 0xF0 && byte(1) < 0x90) return 0;   // overlong
        if (lead == 0xF4 && byte(1) >= 0x90) return 0;  // beyond U+10FFFF
    }
    return length;
}

}  // namespace

void JsonWriter::BeforeValue() {
    if (after_key_) {
        after_key_ = false;
        return;
    }
    if (!first_.empty()) {
        if (!first_.back()) text_ += ',';
        first_.back() = false;
    }
}

JsonWriter& JsonWriter::BeginObject() {
    BeforeValue();
    text_ += '{';
    first_.push_back(true);
    return *this;
}

JsonWriter& JsonWriter::EndObject() {
    text_ += '}';
    if (!first_.empty()) first_.pop_back();
    return *this;
}

JsonWriter& JsonWriter::BeginArray() {
    BeforeValue();
    text_ += '[';
    first_.push_back(true);
    return *this;
}

JsonWriter& JsonWriter::EndArray() {
    text_ += ']';
    if (!first_.empty()) first_.pop_back();
    return *this;
}

JsonWriter& JsonWriter::Key(std::string_view name) {
    BeforeValue();
    text_ += '"';
    AppendEscaped(text_, name);
    text_ += "\":";
    after_key_ = true;
    return *this;
}

JsonWriter& JsonWriter::String(std::string_view value) {
    BeforeValue();
    text_ += '"';
    AppendEscaped(text_, value);
    text_ += '"';
    return *this;
}

JsonWriter& JsonWriter::Number(int64_t value) {
    BeforeValue();
    char digits[24];
    text_.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
    return *this;
}

JsonWriter& JsonWriter::Unsigned(uint64_t value) {
    BeforeValue();
    char digits[24];
    text_.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
    return *this;
}

JsonWriter& JsonWriter::Bool(bool value) {
    BeforeValue();
    text_ += value ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::Null() {
    BeforeValue();
    text_ += "null";
    return *this;
}

std::string JsonWriter::Quote(std::string_view value) {
    std::string out = "\"";
    AppendEscaped(out, value);
    out += '"';
    return out;
}

void JsonWriter::AppendEscaped(std::string& out, std::string_view value) {
    static constexpr char kHex[] = "0123456789abcdef";
    while (!value.empty()) {
        auto c = static_cast<unsigned char>(value.front());
        size_t length = Utf8SequenceLength(value);
        if (length == 0) {
            out += "\xEF\xBF\xBD";  // U+FFFD for a byte that is not UTF-8
            value.remove_prefix(1);
            continue;
        }
        // U+2028 and U+2029 end a line inside a script's string literal in older engines,
        // so a document inlined into a page could break out of its string.
        if (length == 3 && c == 0xE2 && static_cast<unsigned char>(value[1]) == 0x80 &&
            (static_cast<unsigned char>(value[2]) | 1) == 0xA9) {
            out += value[2] == '\xA8' ? "\\u2028" : "\\u2029";
            value.remove_prefix(length);
            continue;
        }
        if (length > 1) {
            out.append(value.substr(0, length));
            value.remove_prefix(length);
            continue;
        }
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20 || c == '<' || c == '>' || c == '&' || c == 0x7F) {
                    out += "\\u00";
                    out += kHex[c >> 4];
                    out += kHex[c & 0xF];
                } else {
                    out += static_cast<char>(c);
                }
        }
        value.remove_prefix(1);
    }
}

}  // namespace Zarn
