#include <gtest/gtest.h>

#include "core/JsonWriter.h"

namespace Zarn {
namespace {

TEST(JsonWriterTest, NestsWithCommasWhereTheyBelong) {
    JsonWriter json;
    json.BeginObject()
        .Member("a", int64_t{-1})
        .Key("list")
        .BeginArray()
        .Unsigned(18446744073709551615u)
        .BeginObject()
        .EndObject()
        .BeginArray()
        .EndArray()
        .Null()
        .EndArray()
        .Member("ok", true)
        .Member("name", "x")
        .EndObject();
    EXPECT_EQ(json.Text(),
              R"({"a":-1,"list":[18446744073709551615,{},[],null],"ok":true,"name":"x"})");
}

TEST(JsonWriterTest, AnyBytesBecomeValidJsonThatCannotCloseAScript) {
    EXPECT_EQ(JsonWriter::Quote("a\"b\\c\n\r\t\x01\x7f"), R"("a\"b\\c\n\r\t\u0001\u007f")");
    EXPECT_EQ(JsonWriter::Quote("</script><!--&"), R"("\u003c/script\u003e\u003c!--\u0026")");
    // Well-formed UTF-8 passes as it is; every byte that is not becomes U+FFFD.
    EXPECT_EQ(JsonWriter::Quote("한글 é 😀"), "\"한글 é 😀\"");
    EXPECT_EQ(JsonWriter::Quote("raw\xb0\xa1.txt"), "\"raw\xEF\xBF\xBD\xEF\xBF\xBD.txt\"");
    EXPECT_EQ(JsonWriter::Quote("\xC0\xAF"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\"");  // overlong
    EXPECT_EQ(JsonWriter::Quote("\xED\xA0\x80"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"");
    EXPECT_EQ(JsonWriter::Quote("\xF4\x90\x80\x80").substr(0, 4), "\"\xEF\xBF\xBD");
    EXPECT_EQ(JsonWriter::Quote("\xE2\x82"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\"");  // cut short
}

}  // namespace
}  // namespace Zarn
