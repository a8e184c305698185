#include "basicutil/StrEscape.h"

#include <gtest/gtest.h>

namespace basicutil {
namespace {

TEST(StrEscapeTest, ControlAndNonPrintable) {
    EXPECT_EQ(escapeControlCharacters(StrSegment("a\tb\r\nc\x01")), std::string_view("a\\tb\\r\\nc\x01"));
    struct Case {
        std::string text, escaped;
    } cases[] = {{"plain \\ text~", "plain \\ text~"},
                 {std::string("a\tb\x01", 4), "a b\\x01"},  // a tab becomes a blank here
                 {"x\ny\rz\x7F\xC3\xA9", "x\\ny\\rz\\x7F\\xC3\\xA9"},
                 {std::string("\0", 1), "\\x00"}};
    for (const Case& c : cases) {
        Str s(c.text);
        escapeNonPrintableInPlace(s);
        EXPECT_EQ(s, std::string_view(c.escaped));
    }
}

TEST(StrEscapeTest, CsvFields) {
    Str out;
    appendCsvField(out, StrSegment("plain"));
    out.push_back(',');
    appendCsvField(out, StrSegment("a\"b"));
    out.push_back(',');
    appendCsvField(out, StrSegment(""));
    out.push_back(',');
    appendCsvField(out, StrSegment("x,y\nz"));
    EXPECT_EQ(out, std::string_view("plain,\"a\"\"b\",,\"x,y\nz\""));
}

TEST(StrEscapeTest, SearchTerms) {
    const ByteSet safe("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789");
    struct Case {
        const char* term;
        bool alwaysQuote, keepBackslashes;
        const char* quoted;
    } cases[] = {{"AND", false, false, "\"AND\""},
                 {"and", false, false, "and"},
                 {"", false, false, "\"\""},
                 {"word", true, false, "\"word\""},
                 {"a b", false, false, "\"a b\""},
                 {"say \"hi\"", false, false, "\"say \\\"hi\\\"\""},
                 {"c:\\x", false, false, "\"c:\\\\x\""},
                 {"c:\\x", false, true, "\"c:\\x\""}};
    for (const Case& c : cases) {
        EXPECT_EQ(quoteSearchTerm(StrSegment(c.term), safe, c.alwaysQuote, c.keepBackslashes),
                  std::string_view(c.quoted))
            << c.term;
    }
    Str out("<");
    appendWithoutControlCharacters(out, StrSegment("a\x01\x1F b\n"));
    EXPECT_EQ(out, std::string_view("<a b"));
}

TEST(StrEscapeTest, UrlEncoding) {
    EXPECT_EQ(urlEncode(StrSegment("a b/é~")), std::string_view("a%20b%2F%C3%A9~"));
    Str unchanged("Safe-_.~09");
    urlEncodeInPlace(unchanged);
    EXPECT_EQ(unchanged, std::string_view("Safe-_.~09"));
    Str changed("a&b");
    urlEncodeInPlace(changed);
    EXPECT_EQ(changed, std::string_view("a%26b"));
}

TEST(StrEscapeTest, UrlDecodingKeepsMalformedEscapes) {
    struct Case {
        const char* text;
        const char* decoded;
        bool valid;
    } cases[] = {{"a%2Fb+c%zz", "a/b c%zz", true}, {"%C3%28", "\xC3(", false}, {"%c3%a9", "é", true},
                 {"100%", "100%", true},           {"%4", "%4", true},         {"%%41", "%A", true},
                 {"plain", "plain", true},         {"\xFF", "\xFF", false}};
    for (const Case& c : cases) {
        Str s(c.text);
        EXPECT_EQ(urlDecodeInPlace(s), c.valid) << c.text;
        EXPECT_EQ(s, std::string_view(c.decoded)) << c.text;
    }
}

}  // namespace
}  // namespace basicutil
