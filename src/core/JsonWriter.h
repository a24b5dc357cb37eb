#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Zarn {

// Writes one JSON text, value by value: objects and arrays are opened and closed, and the
// commas between members come by themselves. Strings are escaped so that the text is
// always valid UTF-8 JSON, whatever bytes they held (a file name that is not UTF-8 shows
// its bad bytes as U+FFFD) and safe inside a <script> element ("<", ">", "&", U+2028 and U+2029
// escaped).
class JsonWriter {
public:
    JsonWriter& BeginObject();
    JsonWriter& EndObject();
    JsonWriter& BeginArray();
    JsonWriter& EndArray();
    // The name of the next member of the open object.
    JsonWriter& Key(std::string_view name);
    JsonWriter& String(std::string_view value);
    JsonWriter& Number(int64_t value);
    JsonWriter& Unsigned(uint64_t value);
    JsonWriter& Bool(bool value);
    JsonWriter& Null();

    // Shorthands for a member of the open object.
    JsonWriter& Member(std::string_view name, std::string_view value) {
        return Key(name).String(value);
    }
    JsonWriter& Member(std::string_view name, const char* value) { return Key(name).String(value); }
    JsonWriter& Member(std::string_view name, int64_t value) { return Key(name).Number(value); }
    JsonWriter& Member(std::string_view name, int value) { return Key(name).Number(value); }
    JsonWriter& Member(std::string_view name, uint64_t value) { return Key(name).Unsigned(value); }
    JsonWriter& Member(std::string_view name, bool value) { return Key(name).Bool(value); }

    [[nodiscard]] const std::string& Text() const { return text_; }

    // The text as a JSON string literal, with its quotes.
    [[nodiscard]] static std::string Quote(std::string_view value);

private:
    // Before a value: the comma that separates it from the one before, unless it follows
    // a key.
    void BeforeValue();
    static void AppendEscaped(std::string& out, std::string_view value);

    std::string text_;
    std::vector<bool> first_;  // per open container: nothing written in it yet
    bool after_key_ = false;
};

}  // namespace Zarn
