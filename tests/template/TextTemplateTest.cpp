#include <gtest/gtest.h>

#include <sstream>

#include "i18n/LocalizationStringTable.h"
#include "template/TextTemplate.h"

namespace Zarn {
namespace {

std::string Render(std::string_view text, TextContent& content) {
    TextTemplate page;
    page.Parse(text);
    MemoryOutputStream out;
    page.Write(content, out);
    return out.Data();
}

std::string Render(std::string_view text) {
    TextContent content;
    content.SetScalar("$name", "World");
    content.SetScalar("$zero", "0");
    content.SetScalar("$double_zero", "00");
    content.SetScalar("$empty", "");
    content.SetList("$files", {{{"$file", "a.txt"}, {"$name", "record"}}, {{"$file", "b.txt"}}});
    content.SetList("$none", {});
    return Render(text, content);
}

TEST(TextTemplateTest, RendersTheLanguage) {
    struct Case {
        const char* text;
        const char* output;
    };
    const Case cases[] = {
        {"Hello, $name.", "Hello, World."},
        {"$ and $! and $-x and 100$", "$ and $! and $-x and 100$"},
        {"$unknown_var stays", "$unknown_var stays"},
        {"# not a directive ## $name#", "# not a directive ## World#"},
        {"#if( $zero )a#else b#end", " b"},
        {"#if( $double_zero )a#else b#end", "a"},
        {"#if( $absent )a#else b#end", " b"},
        {"#if( $empty )a#end.", "."},
        {"#if( $files )has files#end", "has files"},
        {"#if( $none )x#else empty list#end", " empty list"},
        {"#if($name)yes#end", "yes"},
        {"#if (\n$name\n)yes#end", "yes"},
        {"#foreach( $files )[$file:$name]#end $name", "[a.txt:record][b.txt:World] World"},
        {"#foreach( $none )x#end$name", "World"},
        {"#foreach( $absent )x#end", ""},
        {"#iffy", "#iffy"},
        {"", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        if (std::string_view(c.text) == "#iffy") {
            // "#if" is a prefix match: "#iffy" is #if then "fy", which lacks its "(".
            EXPECT_THROW(Render(c.text), TemplateParseError);
            continue;
        }
        EXPECT_EQ(Render(c.text), c.output);
    }
}

TEST(TextTemplateTest, NestedLoopLeavesTheOuterBodyWithoutACurrentRecord) {
    TextContent content;
    content.SetScalar("$x", "scalar");
    content.SetList("$outer", {{{"$x", "o1"}}, {{"$x", "o2"}}});
    content.SetList("$inner", {{{"$y", "i"}}});
    EXPECT_EQ(Render("#foreach($outer)$x<#foreach($inner)$y#end>$x;#end", content),
              "o1<i>scalar;o2<i>scalar;");
}

TEST(TextTemplateTest, CopiedContentKeepsItsOwnLists) {
    TextContent original;
    original.SetList("$rows", {{{"$x", "1"}}, {{"$x", "2"}}});
    TextContent copy = original;
    original.SetList("$rows", {{{"$x", "changed"}}});
    EXPECT_EQ(Render("#foreach($rows)$x;#end", copy), "1;2;");
    EXPECT_EQ(Render("#foreach($rows)$x;#end", original), "changed;");
}

TEST(TextTemplateTest, ReportsEverySyntaxError) {
    struct Case {
        const char* text;
        const char* message;
    };
    const Case cases[] = {
        {"#if $x)", "'(' expected after #if"},
        {"#if( x)", "'$variable' expected in #if"},
        {"#if( $x a", "')' expected after #if( $variable"},
        {"#foreach $x", "'(' expected after #foreach"},
        {"#foreach( #end", "'$variable' expected in #foreach"},
        {"#foreach( $x", "')' expected after #foreach( $variable"},
        {"#if( $x )never closed", "'#end' expected"},
        {"#if( $x )a#else b", "'#end' expected"},
        {"#foreach( $x )a#else b#end", "'#end' expected"},
        {"#U \"x\")", "'(' expected after #U"},
        {"#Uber", "'(' expected after #U"},
        {"#U( \"x\")", "\"Double-quoted string\" expected after #U("},
        {"#U(\"", "\"Double-quoted string\" expected after #U("},
        {"#U(\"unterminated", "\"Double-quoted string\" expected after #U("},
        {"#U(\"ends in backslash\\", "\"Double-quoted string\" expected after #U("},
        {"#QU(\"x\" y", "')' expected after #U(\"...\""},
        {"text #else more", "Unexpected #else"},
        {"text #end more", "Unexpected #end"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        TextTemplate page;
        try {
            page.Parse(c.text);
            ADD_FAILURE() << "parsed";
        } catch (const TemplateParseError& error) {
            EXPECT_STREQ(error.what(), c.message);
        }
        // A failed parse leaves a template that renders nothing.
        TextContent content;
        MemoryOutputStream out;
        page.Write(content, out);
        EXPECT_EQ(out.Data(), "");
    }
}

TEST(TextTemplateTest, TranslatesWhenParsedWithRawKeys) {
    std::istringstream language(
        "\"파일\" = \"File\"\n"
        "\"a\\\\\\\"b\" = \"escaped key\"\n");
    ASSERT_TRUE(LocalizationStringTable::Instance().Load(language));
    TextTemplate page;
    page.Parse("#U(\"파일\") #QU (\"파일\" ) #U(\"없음\") #U(\"a\\\"b\")");
    LocalizationStringTable::Instance().Clear();  // the parsed page keeps its language
    TextContent content;
    MemoryOutputStream out;
    page.Write(content, out);
    EXPECT_EQ(out.Data(), "File \"File\" 없음 escaped key");
}

TEST(TextTemplateTest, RefusesNestingPastTheLimitButTakesLongFlatText) {
    std::string deep;
    for (int i = 0; i <= TextTemplate::kMaxNesting + 1; ++i)
        deep += "#if($x)";
    TextTemplate page;
    EXPECT_THROW(page.Parse(deep), TemplateParseError);

    std::string nested;
    for (int i = 0; i < TextTemplate::kMaxNesting; ++i)
        nested += "#if($x)";
    nested += "in";
    for (int i = 0; i < TextTemplate::kMaxNesting; ++i)
        nested += "#end";
    TextContent content;
    content.SetScalar("$x", "1");
    EXPECT_EQ(Render(nested, content), "in");

    std::string flat;
    for (int i = 0; i < 100000; ++i)
        flat += "$x#";
    EXPECT_EQ(Render(flat, content).size(), 200000u);
}

}  // namespace
}  // namespace Zarn
