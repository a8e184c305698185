#include "basicutil/text/StrEscape.h"

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

// Valid UTF-8 passes as it is; a byte that is not part of a valid sequence is escaped alone, and
// the bytes after it are judged afresh.
TEST(StrEscapeTest, JsonStrings) {
    struct Case {
        const char* text;
        const char* json;
    } cases[] = {
        {"plain / text", "plain / text"},
        {"q\" b\\ n\n r\r t\t", "q\\\" b\\\\ n\\n r\\r t\\t"},
        {"\x01\x1f\x7f", "\\u0001\\u001f\x7f"},
        {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80"},
        {"\xc3", "\\u00c3"},                                               // a lead at the end
        {"\xc3(", "\\u00c3("},                                             // a bad second byte
        {"\xe2\x82", "\\u00e2\\u0082"},                                    // cut short
        {"\xe2\x82(", "\\u00e2\\u0082("},                                  // three-byte lead, bad third byte
        {"\xf0\x9f(\x80", "\\u00f0\\u009f(\\u0080"},                       // four-byte lead, bad third byte
        {"\xf0\x9f\x98(", "\\u00f0\\u009f\\u0098("},                       // four-byte lead, bad fourth byte
        {"\xe0\x80\x80", "\\u00e0\\u0080\\u0080"},                         // overlong
        {"\xed\xa0\x80", "\\u00ed\\u00a0\\u0080"},                         // a surrogate
        {"\xf4\x90\x80\x80", "\\u00f4\\u0090\\u0080\\u0080"},              // above U+10FFFF
        {"\x80\xbf\xff\xfe", "\\u0080\\u00bf\\u00ff\\u00fe"},              // never valid
        {"\xef\xbf\xbf\xf4\x8f\xbf\xbf", "\xef\xbf\xbf\xf4\x8f\xbf\xbf"},  // the largest of each length
    };
    for (const Case& c : cases) {
        Str out("[");
        appendJsonEscaped(out, c.text);
        EXPECT_EQ(out.view(), std::string("[") + c.json) << ::testing::PrintToString(std::string(c.text));
    }
    Str nul;
    appendJsonEscaped(nul, StrSegment("a\0b", 3));
    EXPECT_EQ(nul.view(), "a\\u0000b");
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
