#include "basicutil/text/StrSplit.h"

#include <gtest/gtest.h>

namespace basicutil {
namespace {

std::vector<std::string> strings(const std::vector<StrSegment>& segments) {
    std::vector<std::string> out;
    for (const StrSegment& s : segments) out.emplace_back(s.view());
    return out;
}

using Strings = std::vector<std::string>;

TEST(StrSplitTest, FieldsKeepEmptiesAndStopCutting) {
    struct Case {
        const char* text;
        std::int32_t maxCuts;
        Strings fields;
    } cases[] = {{"", -1, {}},
                 {",", -1, {"", ""}},
                 {"a,,b", -1, {"a", "", "b"}},
                 {"a,", -1, {"a", ""}},
                 {"a,b,c", 1, {"a", "b,c"}},
                 {"a,b,c", 0, {"a,b,c"}},
                 {"a,b,c", 2, {"a", "b", "c"}},
                 {"a,b,c", -7, {"a", "b", "c"}},
                 {"a,b,c", INT32_MIN, {"a", "b", "c"}},
                 {"a,b,c", INT32_MAX, {"a", "b", "c"}}};
    for (const Case& c : cases) {
        std::vector<StrSegment> out;
        splitFields(StrSegment(c.text), out, ',', c.maxCuts);
        EXPECT_EQ(strings(out), c.fields) << c.text << " " << c.maxCuts;
    }
    StrVector copies;
    splitFields(StrSegment("x;y"), copies, ';');
    EXPECT_EQ(copies, (StrVector{"x", "y"}));
}

TEST(StrSplitTest, TokensSkipSeparatorsAndKeepTheRest) {
    struct Case {
        const char* text;
        std::int32_t maxTokens;
        Strings tokens;
    } cases[] = {{"  a  b ", -1, {"a", "b"}},
                 {"  a  b ", 1, {"a", "b "}},
                 {"", -1, {}},
                 {"   ", -1, {}},
                 {"a", 0, {"a"}},
                 {"a b\tc d", 2, {"a", "b", "c d"}},
                 {"a ", 1, {"a"}},
                 {"a b c", INT32_MIN, {"a", "b", "c"}},
                 {"a b c", -2, {"a", "b", "c"}}};
    for (const Case& c : cases) {
        std::vector<StrSegment> out;
        splitTokens(StrSegment(c.text), out, kWhitespace, c.maxTokens);
        EXPECT_EQ(strings(out), c.tokens) << '"' << c.text << "\" " << c.maxTokens;
    }
}

TEST(StrSplitTest, LinesKeepTheUnterminatedCarriageReturn) {
    struct Case {
        const char* text;
        Strings lines;
    } cases[] = {{"x\r\ny\r", {"x", "y\r"}}, {"", {}},       {"a\n", {"a"}},
                 {"\n\n", {"", ""}},         {"\r\n", {""}}, {"a\rb", {"a\rb"}}};
    for (const Case& c : cases) {
        std::vector<StrSegment> out;
        splitLines(StrSegment(c.text), out);
        EXPECT_EQ(strings(out), c.lines) << c.text;
    }
}

TEST(StrSplitTest, AccumulateLineAcrossChunks) {
    Str line;
    StrSegment first("ab\r");
    EXPECT_FALSE(accumulateLine(first, line));
    EXPECT_TRUE(first.empty());
    StrSegment second("\ncd");
    EXPECT_TRUE(accumulateLine(second, line));
    EXPECT_EQ(line, std::string_view("ab"));  // the CR that ended the first chunk is gone
    EXPECT_EQ(second.view(), "cd");
    line.clear();
    StrSegment both("x\r\ny\n");
    EXPECT_TRUE(accumulateLine(both, line));
    EXPECT_EQ(line, std::string_view("x"));
    line.clear();
    EXPECT_TRUE(accumulateLine(both, line));
    EXPECT_EQ(line, std::string_view("y"));
    EXPECT_TRUE(both.empty());
}

TEST(StrSplitTest, Join) {
    EXPECT_EQ(join({StrSegment("a"), StrSegment(""), StrSegment("b")}, ','), std::string_view("a,,b"));
    EXPECT_EQ(join({}, ','), std::string_view(""));
}

}  // namespace
}  // namespace basicutil
