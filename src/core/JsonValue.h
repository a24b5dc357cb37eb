#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Zarn {

// One JSON value read from text: what the command line gets back from the console's
// interface. Objects keep their members in the order they came; a number keeps its text
// as well, so that a large integer is shown as sent. Parse never trusts its input: any
// malformed or too deeply nested text gives an error, never a crash. Values are plain
// data; any thread may read its own.
class JsonValue {
public:
    enum class Type { kNull, kBool, kNumber, kString, kArray, kObject };
    using Member = std::pair<std::string, JsonValue>;

    static constexpr int kMaxDepth = 64;

    // The value of the whole text (blanks around it allowed), or nothing with `error`
    // saying what is wrong and at which byte.
    [[nodiscard]] static std::optional<JsonValue> Parse(std::string_view text, std::string& error);

    static JsonValue MakeBool(bool value);
    static JsonValue MakeNumber(std::string text, double value);
    static JsonValue MakeString(std::string value);
    static JsonValue MakeArray(std::vector<JsonValue> items);
    static JsonValue MakeObject(std::vector<Member> members);

    [[nodiscard]] Type GetType() const { return type_; }
    [[nodiscard]] bool IsNull() const { return type_ == Type::kNull; }
    [[nodiscard]] bool IsObject() const { return type_ == Type::kObject; }
    [[nodiscard]] bool IsArray() const { return type_ == Type::kArray; }

    // The member of an object by name (the first of that name); null for none or when
    // this is not an object.
    [[nodiscard]] const JsonValue* Find(std::string_view name) const;
    // The items of an array, the members' values of an object; empty for the rest.
    [[nodiscard]] const std::vector<JsonValue>& Items() const { return items_; }
    [[nodiscard]] const std::vector<std::string>& Names() const { return names_; }

    // The member's value as text, whatever its type: a string as it is, a number as
    // sent, true/false, "" for null or a missing member.
    [[nodiscard]] std::string Text(std::string_view name) const;
    // Whether the member is true; false for anything else or when it is missing.
    [[nodiscard]] bool IsTrue(std::string_view name) const;
    // The member as a whole number (see AsInteger), or nothing.
    [[nodiscard]] std::optional<int64_t> Integer(std::string_view name) const;
    // This value as text, as above; an array or object gives its compact JSON.
    [[nodiscard]] std::string AsText() const;
    [[nodiscard]] double AsNumber() const { return number_; }
    [[nodiscard]] bool AsBool() const { return type_ == Type::kBool && number_ != 0; }
    // A number or a numeric string as a whole number, or nothing.
    [[nodiscard]] std::optional<int64_t> AsInteger() const;
    // Compact JSON of this value.
    [[nodiscard]] std::string ToJson() const;

private:
    Type type_ = Type::kNull;
    double number_ = 0;  // a number's value, 1 or 0 for a flag
    std::string text_;   // a string's value, a number's text
    std::vector<std::string> names_;
    std::vector<JsonValue> items_;
};

}  // namespace Zarn
