#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/JsonValue.h"

namespace Zarn {
namespace {

std::optional<JsonValue> Parse(std::string_view text) {
    std::string error;
    std::optional<JsonValue> value = JsonValue::Parse(text, error);
    EXPECT_EQ(value.has_value(), error.empty()) << text;
    return value;
}

TEST(JsonValueTest, ReadsEveryKindOfValueAndWritesItBackCompact) {
    struct Case {
        const char* text;
        const char* compact;
    };
    const Case cases[] = {
        {" null ", "null"},
        {"true", "true"},
        {"false", "false"},
        {"0", "0"},
        {"-12", "-12"},
        {"3.25e-2", "3.25e-2"},
        {"12345678901234567890", "12345678901234567890"},  // kept as sent
        {"\"a\\\"b\\\\c\\/d\\b\\f\\n\\r\\t\"", "\"a\\\"b\\\\c/d\\u0008\\u000c\\n\\r\\t\""},
        {"[ ]", "[]"},
        {"{ }", "{}"},
        {"[1, [2, [3]], {\"a\": null}]", "[1,[2,[3]],{\"a\":null}]"},
        {"{\"z\":1,\"a\":2}", "{\"z\":1,\"a\":2}"},  // members keep their order
        // Escapes decode to UTF-8, surrogate pairs to one character; UTF-8 passes through.
        {"\"\\u0041\\u00e9\"", "\"A\xC3\xA9\""},
        {"\"\\uD55C\\uAE00 \\ud83d\\ude00\"", "\"\xED\x95\x9C\xEA\xB8\x80 \xF0\x9F\x98\x80\""},
        {"\"\\u0000x \xED\x95\x9C\"", "\"\\u0000x \xED\x95\x9C\""},
    };
    for (const Case& c : cases) {
        std::optional<JsonValue> value = Parse(c.text);
        ASSERT_TRUE(value) << c.text;
        EXPECT_EQ(value->ToJson(), c.compact) << c.text;
    }
}

TEST(JsonValueTest, RefusesMalformedAndHostileText) {
    const std::string deep_arrays = std::string(100000, '[') + std::string(100000, ']');
    const std::string deep_objects = [] {
        std::string text;
        for (int i = 0; i < 5000; ++i)
            text += "{\"a\":";
        return text + "1" + std::string(5000, '}');
    }();
    const std::vector<std::string> groups[] = {
        {"", "   ", "nul", "True", "1 2", "[] x"},
        {"01", "-", "1.", ".5", "1e", "1e999", "+1", "0x10"},  // 1e999 has no finite double
        {"\"open", "\"tab\there\"", "\"\\x\"", "\"\\u12\"", "\"\\u12G4\"",
         std::string("\"a\0b\"", 5)},
        {"\"\\ud83d\"", "\"\\ud83d\\u0041\"", "\"\\ude00\""},  // surrogate halves alone
        {"[1,]", "[1 2]", "{\"a\" 1}", "{\"a\":1,}", "{a:1}", "{\"a\":}", "[", "{"},
        {deep_arrays, deep_objects},
    };
    for (const auto& cases : groups) {
        for (const std::string& text : cases) {
            std::string error;
            EXPECT_FALSE(JsonValue::Parse(text, error)) << text.substr(0, 40);
            EXPECT_FALSE(error.empty()) << text.substr(0, 40);
        }
    }
}

TEST(JsonValueTest, AcceptsNestingUpToItsBound) {
    std::string text =
        std::string(JsonValue::kMaxDepth + 1, '[') + std::string(JsonValue::kMaxDepth + 1, ']');
    EXPECT_TRUE(Parse(text));
    text = "[" + text + "]";
    std::string error;
    EXPECT_FALSE(JsonValue::Parse(text, error));
    EXPECT_NE(error.find("deeply"), std::string::npos) << error;
}

}  // namespace
}  // namespace Zarn
