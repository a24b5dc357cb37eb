#include <gtest/gtest.h>

#include <sstream>

#include "i18n/LocalizationStringTable.h"
#include "support/LogCapture.h"
#include "template/TextTemplate.h"

namespace Zarn {
namespace {

std::string Render(std::string_view text, TextContent content) {
    TextTemplate page;
    page.Parse(text);
    MemoryOutputStream out;
    page.Write(content, out);
    return out.Data();
}

TEST(TextTemplateTest, RendersTheLanguage) {
    TextContent content;
    content.SetScalar("$name", "World");
    content.SetScalar("$zero", "0");
    content.SetScalar("$double_zero", "00");
    content.SetScalar("$empty", "");
    content.SetList("$files", {{{"$file", "a.txt"}, {"$name", "record"}}, {{"$file", "b.txt"}}});
    content.SetList("$none", {});
    content.SetList("$inner", {{{"$y", "i"}}});
    const std::pair<const char*, const char*> cases[] = {
        {"$ and $! and $-x and 100$ and $unknown_var",
         "$ and $! and $-x and 100$ and $unknown_var"},
        {"# not a directive ## $name#", "# not a directive ## World#"},
        {"#if( $zero )a#else b#end", " b"},
        {"#if( $double_zero )a#else b#end", "a"},
        {"#if( $absent )a#else b#end#if( $empty )a#end.", " b."},
        {"#if( $files )has files#end#if( $none )x#else empty list#end", "has files empty list"},
        {"#if($name)yes#end#if (\n$name\n)yes#end", "yesyes"},
        {"#foreach( $files )[$file:$name]#end $name", "[a.txt:record][b.txt:World] World"},
        {"#foreach( $none )x#end#foreach( $absent )x#end$name", "World"},
        // An inner loop leaves the outer body without a current record.
        {"#foreach($files)$file<#foreach($inner)$y#end>$file;#end", "a.txt<i>$file;b.txt<i>$file;"},
    };
    for (const auto& [text, output] : cases) {
        SCOPED_TRACE(text);
        EXPECT_EQ(Render(text, content), output);
    }
}

// That a refused page renders nothing, the fuzzing harness checks for every input.
TEST(TextTemplateTest, ReportsEverySyntaxError) {
    const std::pair<const char*, const char*> cases[] = {
        {"#if $x)", "'(' expected after #if"},
        {"#iffy", "'(' expected after #if"},  // "#if" is a prefix match
        {"#if( x)", "'$variable' expected in #if"},
        {"#if( $x a", "')' expected after #if( $variable"},
        {"#foreach $x", "'(' expected after #foreach"},
        {"#foreach( #end", "'$variable' expected in #foreach"},
        {"#foreach( $x", "')' expected after #foreach( $variable"},
        {"#if( $x )a#else b", "'#end' expected"},
        {"#foreach( $x )a#else b#end", "'#end' expected"},
        {"#Uber", "'(' expected after #U"},
        {"#U( \"x\")", "\"Double-quoted string\" expected after #U("},
        {"#U(\"ends in backslash\\", "\"Double-quoted string\" expected after #U("},
        {"#QU(\"x\" y", "')' expected after #U(\"...\""},
        {"text #else more", "Unexpected #else"},
        {"text #end more", "Unexpected #end"},
    };
    for (const auto& [text, message] : cases) {
        SCOPED_TRACE(text);
        TextTemplate page;
        try {
            page.Parse(text);
            ADD_FAILURE() << "parsed";
        } catch (const TemplateParseError& error) {
            EXPECT_STREQ(error.what(), message);
        }
    }
}

TEST(TextTemplateTest, TranslatesWhenParsedWithRawKeys) {
    std::istringstream language("\"파일\" = \"File\"\n\"a\\\\\\\"b\" = \"escaped key\"\n");
    ASSERT_TRUE(LocalizationStringTable::Instance().Load(language));
    TextTemplate page;
    page.Parse("#U(\"파일\") #QU (\"파일\" ) #U(\"없음\") #U(\"a\\\"b\")");
    LocalizationStringTable::Instance().Clear();  // the parsed page keeps its language
    TextContent nothing;
    MemoryOutputStream out;
    page.Write(nothing, out);
    EXPECT_EQ(out.Data(), "File \"File\" 없음 escaped key");
}

TEST(TextTemplateTest, RefusesNestingPastTheLimit) {
    std::string open, close;
    for (int i = 0; i < TextTemplate::kMaxNesting; ++i) {
        open += "#if($x)";
        close += "#end";
    }
    TextContent content;
    content.SetScalar("$x", "1");
    EXPECT_EQ(Render(open + "in" + close, content), "in");
    TextTemplate page;
    EXPECT_THROW(page.Parse(open + "#if($x)" + close + "#end"), TemplateParseError);
}

// Forty loops nested over two records would write 2^40 bodies; the render stops at its
// budget, says so once, and the next render of the same page has a budget of its own.
TEST(TextTemplateTest, NestedLoopsStopAtTheWorkLimitAndSayItOnce) {
    std::string open, close;
    for (int i = 0; i < 40; ++i) {
        open += "#foreach($two)";
        close += "#end";
    }
    TextTemplate page;
    page.Parse("<" + open + "x" + close + "$after>");
    TextContent content;
    content.SetList("$two", {{{"$v", "1"}}, {{"$v", "2"}}});
    content.SetScalar("$after", "tail");
    testing::LogCapture log;
    for (int render = 1; render <= 2; ++render) {
        MemoryOutputStream out;
        EXPECT_FALSE(page.Write(content, out));
        EXPECT_EQ(log.Lines().size(), static_cast<size_t>(render));
        // The page ends where the work ran out: nothing after the loops is written.
        EXPECT_EQ(out.Data().find("tail"), std::string::npos);
        EXPECT_GT(out.Data().size(), 1000u);
        EXPECT_LE(out.Data().size(), TextTemplate::Limits{}.steps);
    }
    ASSERT_FALSE(log.Lines().empty());
    EXPECT_EQ(log.Lines().front().first, kLogError);
    EXPECT_NE(log.Lines().front().second.find("#foreach"), std::string::npos);

    // Bytes are bounded too, and a text that would pass the bound is left out whole.
    TextTemplate two;
    two.Parse("#foreach($two)[$v]#end");
    MemoryOutputStream out;
    EXPECT_FALSE(two.Write(content, out, {.steps = 1000, .bytes = 5}));
    EXPECT_EQ(out.Data(), "[1][2");
    // Within the bounds nothing is cut and nothing is logged.
    MemoryOutputStream whole;
    EXPECT_TRUE(two.Write(content, whole, {.steps = 1000, .bytes = 6}));
    EXPECT_EQ(whole.Data(), "[1][2]");
    EXPECT_EQ(log.Lines().size(), 3u);
}

}  // namespace
}  // namespace Zarn
