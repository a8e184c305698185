#include "basicutil/regex/Regex.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <gtest/gtest.h>
#include <pcre2.h>

#include <cerrno>
#include <chrono>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/LogCapture.h"

namespace basicutil {
namespace {

// --- PCRE2 called directly: the oracle ---------------------------------------------------------

struct Oracle {
    pcre2_code* code = nullptr;
    int errorCode = 0;
    PCRE2_SIZE errorOffset = 0;

    Oracle(std::string_view pattern, std::uint32_t flags) {
        code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(), flags, &errorCode,
                             &errorOffset, nullptr);
    }
    ~Oracle() { pcre2_code_free(code); }
    Oracle(const Oracle&) = delete;
    Oracle& operator=(const Oracle&) = delete;

    std::string errorText() const {
        PCRE2_UCHAR buffer[256];
        const int n = pcre2_get_error_message(errorCode, buffer, sizeof buffer);
        return std::string(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(n));
    }
    // Every group's span, or {} on no match.
    std::vector<std::pair<size_type, size_type>> spans(std::string_view subject, size_type offset) const {
        pcre2_match_data* data = pcre2_match_data_create_from_pattern(code, nullptr);
        const int rc = pcre2_match(code, reinterpret_cast<PCRE2_SPTR>(subject.data()), subject.size(), offset,
                                   PCRE2_NO_JIT, data, nullptr);
        std::vector<std::pair<size_type, size_type>> out;
        if (rc > 0) {
            const PCRE2_SIZE* ov = pcre2_get_ovector_pointer(data);
            for (std::uint32_t i = 0; i < pcre2_get_ovector_count(data); ++i) {
                const bool set = ov[2 * i] != PCRE2_UNSET;
                out.emplace_back(set ? ov[2 * i] : npos, set ? ov[2 * i + 1] : npos);
            }
        }
        pcre2_match_data_free(data);
        return out;
    }
    // pcre2_substitute over the whole subject ("$" syntax only).
    std::string substitute(std::string_view subject, std::string_view replacement, bool global) const {
        std::string out(subject.size() * 4 + replacement.size() * 16 + 64, '\0');
        PCRE2_SIZE length = out.size();
        const int rc =
            pcre2_substitute(code, reinterpret_cast<PCRE2_SPTR>(subject.data()), subject.size(), 0,
                             (global ? PCRE2_SUBSTITUTE_GLOBAL : 0) | PCRE2_SUBSTITUTE_UNSET_EMPTY, nullptr,
                             nullptr, reinterpret_cast<PCRE2_SPTR>(replacement.data()), replacement.size(),
                             reinterpret_cast<PCRE2_UCHAR*>(out.data()), &length);
        if (rc < 0) return "<error " + std::to_string(rc) + ">";
        out.resize(length);
        return out;
    }
};

std::uint32_t pcre2Flags(unsigned options) {
    std::uint32_t f = 0;
    if (options & REGEX_CASELESS) f |= PCRE2_CASELESS;
    if (options & REGEX_MULTILINE) f |= PCRE2_MULTILINE;
    if (options & REGEX_DOTALL) f |= PCRE2_DOTALL;
    if (options & REGEX_EXTENDED) f |= PCRE2_EXTENDED;
    if (options & REGEX_UTF) f |= PCRE2_UTF | PCRE2_MATCH_INVALID_UTF;
    if (options & REGEX_ANCHORED) f |= PCRE2_ANCHORED;
    return f;
}

struct Case {
    const char* pattern;
    unsigned options;
    std::string_view subject;
    size_type offset;
};

const Case kCases[] = {
    {"(\\d+)-(\\d+)?", 0, "ab 12- 34-56", 0},
    {"(\\d+)-(\\d+)?", 0, "ab 12- 34-56", 6},
    {"(?<user>\\w+)@(?<host>[\\w.]+)", 0, "mail alice@example.org now", 0},
    {"(a)|(b)", 0, "xxb", 0},
    {"^error", REGEX_MULTILINE, "ok\nerror: disk\n", 0},
    {"^error", 0, "ok\nerror: disk\n", 0},
    {"a.c", REGEX_DOTALL, "a\nc", 0},
    {"a.c", 0, "a\nc", 0},
    {"HELLO", REGEX_CASELESS, "say hello", 0},
    {"a b c # comment", REGEX_EXTENDED, "xabc", 0},
    {"b", REGEX_ANCHORED, "ab", 0},
    {"b", REGEX_ANCHORED, "ab", 1},
    {"(\\w)(\\w)", REGEX_UTF, "\xc3\xa9t\xc3\xa9", 0},
    {"..", REGEX_UTF, "x\xff\xc3\xa9\xc3\xa9", 0},  // invalid UTF-8 in the subject
    {"..", 0, "x\xff\xc3\xa9", 0},
    {"\\W+", REGEX_UTF, "w$\xc3\xa9t", 0},  // non-ASCII is \W: right whether JIT or not
    {"\\W+", REGEX_UTF, "w$\xc3\xa9t", 2},
    {"\\W+", REGEX_UTF, "w$\xc3\xa9t\xff", 2},
    {"(\\w)(\\w)", REGEX_UTF, "\xc3\xa9t\xc3\xa9", 1},  // inside a character: from the next one
    {"", 0, "abc", 3},
    {"x*", 0, "abc", 1},
    {"(?:(a)|b)+", 0, "abab", 0},
    {"\\bword\\b", 0, "a word.", 0},
    {"(?i)straße", REGEX_UTF, "STRASSE STRAßE", 0},
    {std::string_view("a\0b", 3).data(), 0, std::string_view("xa\0b", 4), 0},
    {"(*NO_JIT)b+", 0, "abbc", 0},  // no JIT code is made: the interpreter answers
    {"(*NO_JIT)(\\w)\\w", REGEX_UTF, "\xc3\xa9t", 0},
    {"(*NO_JIT)x", 0, "abc", 0},
};

TEST(RegexTest, SpansAgreeWithPcre2) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(std::string(c.pattern) + " on \"" + std::string(c.subject) + "\" at " +
                     std::to_string(c.offset));
        Regex re;
        const Status compiled = re.compile(c.pattern, c.options);
        ASSERT_TRUE(compiled) << compiled.text().view();
        const Oracle oracle(c.pattern, pcre2Flags(c.options));
        ASSERT_NE(oracle.code, nullptr);
        const auto expected = oracle.spans(c.subject, c.offset);
        RegexMatch m;
        const RegexStatus status = re.match(c.subject, c.offset, m).status();
        ASSERT_EQ(status, expected.empty() ? REGEX_NO_MATCH : REGEX_MATCH);
        if (expected.empty()) continue;
        ASSERT_EQ(m.size(), expected.size());
        for (unsigned i = 0; i < m.size(); ++i) {
            EXPECT_EQ(m.begin(i), expected[i].first) << "group " << i;
            EXPECT_EQ(m.end(i), expected[i].second) << "group " << i;
            EXPECT_EQ(m.has(i), expected[i].first != npos);
            if (m.has(i)) {
                EXPECT_EQ(m.group(i).view(),
                          c.subject.substr(expected[i].first, expected[i].second - expected[i].first));
            }
        }
        EXPECT_TRUE(m.group(m.size()).empty());  // past the last group
    }
}

// A NUL inside the pattern is a character, not its end: the table's last case, spelled out.
// Only a match is true: a limit or an error is neither a match nor "no match".
TEST(RegexTest, ResultsTellAMatchFromEverythingElse) {
    static_assert(!std::is_convertible_v<RegexResult, bool>, "explicit only");
    static_assert(!std::is_convertible_v<RegexResult, int>, "no arithmetic on results");
    for (const RegexStatus status : {REGEX_MATCH, REGEX_NO_MATCH, REGEX_LIMIT, REGEX_ERROR}) {
        EXPECT_EQ(static_cast<bool>(RegexResult(status)), status == REGEX_MATCH) << status;
        EXPECT_TRUE(RegexResult(status) == status);
    }
    Regex re;
    ASSERT_TRUE(re.compile("(a+)+$"));
    RegexMatch m;
    const std::string subject = std::string(40, 'a') + "b";
    RegexLimits tight;
    tight.matchLimit = 1000;
    const RegexResult limited = re.match(subject, 0, m, tight);
    EXPECT_FALSE(limited);
    EXPECT_EQ(limited, REGEX_LIMIT);
    EXPECT_EQ(re.matches(subject, tight), REGEX_LIMIT);
    EXPECT_EQ(re.match("abc", 9, m), REGEX_ERROR);  // an offset past the subject
    EXPECT_FALSE(re.match("abc", 9, m));
    EXPECT_TRUE(re.matches("xaa"));
    EXPECT_TRUE(re.jitCompiled());
    ASSERT_TRUE(re.compile("(*NO_JIT)a+"));
    EXPECT_FALSE(re.jitCompiled());
    EXPECT_TRUE(re.matches("xaa"));
}

// A subject known to be valid UTF-8 skips the check, and matches as any other.
TEST(RegexTest, KnownValidSubjectsMatchAsAnyOther) {
    for (const char* pattern : {"(\\w)(.)\\b", "\\W+", "caf.", "x*"}) {
        for (const unsigned options :
             {unsigned{REGEX_UTF}, unsigned{REGEX_DEFAULT}, unsigned{REGEX_UTF | REGEX_NO_JIT}}) {
            Regex re;
            ASSERT_TRUE(re.compile(pattern, options));
            for (std::string_view subject : {"caf\xc3\xa9 au lait", "", "\xe2\x82\xac 5"}) {
                RegexMatch a, b;
                const RegexResult checked = re.match(subject, 0, a),
                                  trusted = re.matchValidUtf8(subject, 0, b);
                ASSERT_EQ(checked, trusted) << pattern << " on " << subject;
                if (checked) {
                    EXPECT_EQ(a.begin(0), b.begin(0));
                    EXPECT_EQ(a.end(0), b.end(0));
                }
            }
        }
    }
}

TEST(RegexTest, PatternsAndSubjectsAreBytes) {
    Regex re;
    ASSERT_TRUE(re.compile(StrSegment("a\0b", 3)));
    RegexMatch m;
    ASSERT_EQ(re.match(StrSegment("xa\0b", 4), 0, m), REGEX_MATCH);
    EXPECT_EQ(m.begin(0), 1u);
    EXPECT_EQ(m.end(0), 4u);
    EXPECT_FALSE(re.matches("ab"));
}

TEST(RegexTest, NamedGroups) {
    Regex re;
    ASSERT_TRUE(re.compile("(?<year>\\d{4})-(?<month>\\d\\d)(?:-(?<day>\\d\\d))?(x)?"));
    EXPECT_EQ(re.captureCount(), 4u);
    EXPECT_EQ(re.groupNames(), (std::vector<Str>{Str("year"), Str("month"), Str("day")}));
    EXPECT_EQ(re.groupNumber("month"), 2);
    EXPECT_EQ(re.groupNumber("nope"), -1);
    RegexMatch m;
    ASSERT_EQ(re.match("on 2026-11", 0, m), REGEX_MATCH);
    EXPECT_EQ(m.named("year").view(), "2026");
    EXPECT_EQ(m.named("month").view(), "11");
    EXPECT_FALSE(m.hasNamed("day"));
    EXPECT_TRUE(m.named("day").empty());
    EXPECT_FALSE(m.hasNamed("nope"));

    // Names past 8 bytes that share their first 8, and a name that is a prefix of them.
    Regex longNames;
    ASSERT_TRUE(longNames.compile("(?<component_a>x)(?<component_b>y)(?<c>z)"));
    ASSERT_EQ(longNames.match("xyz", 0, m), REGEX_MATCH);
    EXPECT_EQ(m.named("component_a").view(), "x");
    EXPECT_EQ(m.named("component_b").view(), "y");
    EXPECT_EQ(m.named("c").view(), "z");
    EXPECT_FALSE(m.hasNamed("component_c"));
    EXPECT_FALSE(m.hasNamed("component"));
    EXPECT_FALSE(m.hasNamed(""));

    // Duplicate names: the one that took part.
    Regex dup;
    ASSERT_TRUE(dup.compile("(?J)(?:(?<n>a+)|(?<n>b+))"));
    EXPECT_EQ(dup.groupNames(), std::vector<Str>{Str("n")});
    ASSERT_EQ(dup.match("bbb", 0, m), REGEX_MATCH);
    EXPECT_EQ(m.named("n").view(), "bbb");
    ASSERT_EQ(dup.match("aa", 0, m), REGEX_MATCH);
    EXPECT_EQ(m.named("n").view(), "aa");
}

TEST(RegexTest, CompileErrorsCarryPcre2sMessageAndOffset) {
    const struct {
        const char* pattern;
        unsigned options;
    } bad[] = {{"(abc", 0}, {"a{2,1}", 0},       {"[z-a]", 0},   {"(?<n>a)(?<n>b)", 0},
               {"\\", 0},   {"\xff", REGEX_UTF}, {"(?<=a+)b", 0}};
    for (const auto& b : bad) {
        testing::LogCapture log;
        Regex re;
        const Status st = re.compile(b.pattern, b.options);
        EXPECT_FALSE(st) << b.pattern;
        EXPECT_EQ(st.error(), EINVAL);
        EXPECT_FALSE(re.ok());
        const Oracle oracle(b.pattern, pcre2Flags(b.options));
        ASSERT_EQ(oracle.code, nullptr) << b.pattern;
        EXPECT_EQ(st.text().view(), oracle.errorText()) << b.pattern;
        EXPECT_EQ(st.offset(), oracle.errorOffset) << b.pattern;
        ASSERT_EQ(log.lines().size(), 1u) << b.pattern;
        EXPECT_EQ(log.lines()[0].channel, "Regex");
        EXPECT_NE(log.lines()[0].message.find("cannot compile /"), std::string::npos)
            << log.lines()[0].message;
        RegexMatch m;
        EXPECT_EQ(re.match("abc", 0, m), REGEX_ERROR);
    }
    Regex re;
    EXPECT_FALSE(re.compile("a", 1u << 20));
    Regex good;
    ASSERT_TRUE(good.compile("a"));
    RegexMatch m;
    EXPECT_EQ(good.match("abc", 4, m), REGEX_ERROR);  // past the end
    EXPECT_EQ(good.match("abc", 3, m), REGEX_NO_MATCH);
}

// Every match, left to right, as pcre2_substitute's global mode finds them: "[$0]" marks each.
TEST(RegexTest, IterationAgreesWithGlobalSubstitution) {
    const struct {
        const char* pattern;
        unsigned options;
        std::string_view subject;
    } cases[] = {
        {"x*", 0, "abc"},
        {"\\d+", 0, "a1b22c333"},
        {"", 0, ""},
        {"", REGEX_UTF, "\xc3\xa9t\xc3\xa9"},
        {"b*", 0, "abba"},
        {"(?=a)|a", 0, "aaa"},
        {"$", REGEX_MULTILINE, "a\nb\n"},
        {"(?m)^", 0, "a\r\nb"},
        {"(*CRLF)(?m)$|x", 0, "a\r\nb\r\n"},
        {"\\w+", REGEX_UTF, "un \xc3\xa9t\xc3\xa9 \xff chaud"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pattern);
        Regex re;
        ASSERT_TRUE(re.compile(c.pattern, c.options));
        const Oracle oracle(c.pattern, pcre2Flags(c.options));
        Str ours;
        unsigned count = 0;
        ASSERT_GE(re.replaceAll(c.subject, "[$0]", ours, &count).status(), REGEX_NO_MATCH);
        EXPECT_EQ(ours.view(), oracle.substitute(c.subject, "[$0]", true));
        unsigned iterated = 0;
        RegexMatchIterator it(re, c.subject);
        while (it.next()) ++iterated;
        EXPECT_EQ(it.status(), REGEX_NO_MATCH);
        EXPECT_EQ(iterated, count);
    }
}

TEST(RegexTest, Substitution) {
    const struct {
        const char* pattern;
        std::string_view subject;
        const char* replacement;
        bool all;
        const char* expected;
        unsigned count;
    } cases[] = {
        {"(\\w+)@(\\w+)", "a@b c@d", "$2 at $1", true, "b at a d at c", 2},
        {"(\\w+)@(\\w+)", "a@b c@d", "\\2 at \\1", false, "b at a c@d", 1},
        {"(?<u>\\w+)@(?<h>\\w+)", "a@b", "${h}/${u}/${0}", true, "b/a/a@b", 1},
        {"(a)(b)(c)(d)(e)(f)(g)(h)(i)(j)(k)", "abcdefghijk", "$11|${1}1|\\11", true, "k|a1|a1", 1},
        {"x", "axb", "$$\\\\\\q", true, "a$\\\\qb", 1},
        {"(a)|(b)", "b", "[$1]", true, "[]", 1},
        {"z", "abc", "-", true, "abc", 0},
        {"", "ab", "-", true, "-a-b-", 3},
        {"\\s+$", "trail  ", "", true, "trail", 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.pattern) + " -> " + c.replacement);
        Regex re;
        ASSERT_TRUE(re.compile(c.pattern));
        EXPECT_TRUE(re.checkReplacement(c.replacement));
        Str out("<");
        unsigned count = 99;
        const RegexResult result = c.all ? re.replaceAll(c.subject, c.replacement, out, &count)
                                         : re.replaceFirst(c.subject, c.replacement, out, &count);
        EXPECT_EQ(result.status(), c.count > 0 ? REGEX_MATCH : REGEX_NO_MATCH);
        EXPECT_EQ(out.view(), std::string("<") + c.expected);
        EXPECT_EQ(count, c.count);
    }
}

// The "$" forms mean what they mean to pcre2_substitute.
TEST(RegexTest, DollarFormsAgreeWithPcre2) {
    const char* pattern = "(?<key>\\w+)=(?<value>\\w*)(;)?";
    const std::string_view subject = "a=1;b=;c=3 d";
    Regex re;
    ASSERT_TRUE(re.compile(pattern));
    const Oracle oracle(pattern, 0);
    for (const char* replacement : {"$2:$1", "${value}<-${key}", "$$$0$$", "${3}x$3", "", "$0$0"}) {
        for (bool all : {false, true}) {
            Str ours;
            (void)(all ? re.replaceAll(subject, replacement, ours)
                       : re.replaceFirst(subject, replacement, ours));
            EXPECT_EQ(ours.view(), oracle.substitute(subject, replacement, all))
                << replacement << " all=" << all;
        }
    }
}

TEST(RegexTest, BadReplacementsChangeNothing) {
    Regex re;
    ASSERT_TRUE(re.compile("(?<a>x)(y)"));
    const struct {
        const char* replacement;
        const char* message;
    } cases[] = {
        {"$3", "replacement refers to group 3 at offset 0, the pattern has 2"},
        {"ab\\5", "replacement refers to group 5 at offset 2, the pattern has 2"},
        {"${nope}", "replacement refers to unknown group name \"nope\" at offset 0"},
        {"x${a", "unclosed ${ at offset 1"},
        {"${}", "empty ${} at offset 0"},
        {"5$", "\"$\" starts no reference at offset 1 (write $$ for a dollar)"},
        {"$x", "\"$\" starts no reference at offset 0 (write $$ for a dollar)"},
        {"${999999}", "group number too large at offset 0"},
        {"$999999", "group number too large at offset 0"},
    };
    for (const auto& c : cases) {
        testing::LogCapture log;
        const Status st = re.checkReplacement(c.replacement);
        EXPECT_FALSE(st) << c.replacement;
        EXPECT_EQ(st.text().view(), c.message);
        // The offset the text names, as a number.
        const std::string_view message = c.message;
        const std::size_t at = message.find("at offset ") + 10;
        EXPECT_EQ(st.offset(), std::stoul(std::string(message.substr(at)))) << c.replacement;
        Str out("kept");
        EXPECT_EQ(re.replaceAll("xy xy", c.replacement, out), REGEX_ERROR);
        EXPECT_EQ(out.view(), "kept");
        ASSERT_EQ(log.lines().size(), 1u);
        EXPECT_NE(log.lines()[0].message.find(c.message), std::string::npos) << log.lines()[0].message;
    }
}

// A catastrophic pattern stops at the limit, reported as such and logged; never "no match".
TEST(RegexTest, LimitsStopCatastrophicPatterns) {
    const std::string subjectText = std::string(40, 'a') + "b";
    const StrSegment subject(subjectText);
    for (unsigned options : {unsigned{REGEX_DEFAULT}, unsigned{REGEX_NO_JIT}}) {
        Regex re;
        ASSERT_TRUE(re.compile("(a+)+$", options));
        const struct {
            RegexLimits limits;
            const char* name;
        } cases[] = {
            {{}, "match limit"},
            {{1000, RegexLimits::kDefaultDepthLimit}, "match limit"},
            {{RegexLimits::kDefaultMatchLimit, 5}, "depth limit"},
        };
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(c.name) + (options ? " interpreter" : " jit"));
            testing::LogCapture log;
            RegexMatch m;
            const auto start = std::chrono::steady_clock::now();
            EXPECT_EQ(re.match(subject, 0, m, c.limits), REGEX_LIMIT);
            EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
            EXPECT_STREQ(m.limitName(), c.name);
            ASSERT_FALSE(log.lines().empty());
            EXPECT_EQ(log.lines()[0].message.rfind(std::string(c.name) + " exceeded matching /(a+)+$/", 0),
                      0u)
                << log.lines()[0].message;
            Str out("kept");
            EXPECT_EQ(re.replaceAll(subject, "x", out, nullptr, c.limits), REGEX_LIMIT);
            EXPECT_EQ(out.view(), "kept");
            RegexMatchIterator it(re, subject, c.limits);
            EXPECT_FALSE(it.next());
            EXPECT_EQ(it.status(), REGEX_LIMIT);
        }
        EXPECT_FALSE(re.matches(subject));
        EXPECT_TRUE(re.matches("aaaa"));  // within the limits, the same pattern still works
    }
    // A generous limit lets a pattern finish that a small one stops.
    Regex re;
    ASSERT_TRUE(re.compile("(a|b)*c"));
    const std::string longSubject = std::string(5000, 'a') + "c";
    RegexMatch m;
    EXPECT_EQ(re.match(std::string_view(longSubject), 0, m, {1000000, 100000}), REGEX_MATCH);
    EXPECT_EQ(re.match(std::string_view(longSubject), 0, m, {1000000, 50}), REGEX_LIMIT);
}

TEST(RegexTest, QuotedTextMatchesItselfOnly) {
    const struct {
        const char* text;
        const char* quoted;
    } cases[] = {
        {"a.b", "a\\.b"},
        {"\\^$.[]|()?*+{}", "\\\\\\^\\$\\.\\[\\]\\|\\(\\)\\?\\*\\+\\{\\}"},
        {"plain-text_0", "plain-text_0"},
        {"", ""},
    };
    for (const auto& c : cases) EXPECT_EQ(quoteRegex(c.text).view(), c.quoted);
    for (char c : std::string_view("\\^$.[]|()?*+{}")) EXPECT_TRUE(regexMetacharacters().contains(c)) << c;
    EXPECT_FALSE(regexMetacharacters().contains('-'));

    // Any bytes at all, quoted, match exactly themselves from start to end.
    std::mt19937 random(7);
    for (int round = 0; round < 2000; ++round) {
        std::string text(random() % 12, '\0');
        for (char& ch : text) ch = "ab.*+?()[]{}|^$\\-#x "[random() % 21];
        Regex re;
        ASSERT_TRUE(re.compile(quoteRegex(std::string_view(text)), REGEX_ANCHORED)) << text;
        RegexMatch m;
        ASSERT_EQ(re.match(std::string_view(text), 0, m), REGEX_MATCH) << text;
        EXPECT_EQ(m.end(0), text.size()) << text;
    }
}

// A lookup from a thread of its own, so that no thread's memo answers it.
std::shared_ptr<const Regex> lookup(RegexCache& cache, const char* pattern, unsigned options = REGEX_DEFAULT,
                                    Status* failure = nullptr) {
    std::shared_ptr<const Regex> result;
    std::thread([&] { result = cache.get(pattern, options, failure); }).join();
    return result;
}

// Generation size 2: hits, a promotion from the previous generation, retirements and eviction.
TEST(RegexCacheTest, Generations) {
    RegexCache cache(2);
    auto a = lookup(cache, "a+");
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(lookup(cache, "a+"), a);                  // current hit
    EXPECT_NE(lookup(cache, "a+", REGEX_CASELESS), a);  // other options, other entry
    auto c = lookup(cache, "c");                        // current full: {a+, a+/i} retired
    RegexCache::Counts n = cache.counts();
    EXPECT_EQ(n.currentHits, 1u);
    EXPECT_EQ(n.misses, 3u);
    EXPECT_EQ(n.generations, 1u);
    EXPECT_EQ(n.currentSize, 1u);
    EXPECT_EQ(n.previousSize, 2u);

    EXPECT_EQ(lookup(cache, "a+"), a);  // previous hit: promoted, the same compiled pattern
    n = cache.counts();
    EXPECT_EQ(n.previousHits, 1u);
    EXPECT_EQ(n.currentSize, 2u);
    EXPECT_EQ(n.previousSize, 1u);

    auto d = lookup(cache, "d");  // current {c, a+} retired; {a+/i} dropped
    EXPECT_EQ(cache.counts().generations, 2u);
    EXPECT_EQ(lookup(cache, "a+"), a);  // still there: promoted again
    const std::uint64_t misses = cache.counts().misses;
    EXPECT_NE(lookup(cache, "a+", REGEX_CASELESS), nullptr);  // dropped: compiled anew
    EXPECT_EQ(cache.counts().misses, misses + 1);

    Status failure;
    EXPECT_EQ(lookup(cache, "(", 0, &failure), nullptr);
    EXPECT_EQ(failure.text().view(), "missing closing parenthesis");
    EXPECT_EQ(failure.offset(), 1u);
    EXPECT_TRUE(a->matches("aaa"));  // held by the caller: alive whatever the cache dropped
    cache.clear();
    EXPECT_EQ(cache.counts().currentSize, 0u);
    EXPECT_TRUE(a->matches("aaa"));
}

// A thread's repeated lookups come from its memo; a retirement sends it back to the generations.
TEST(RegexCacheTest, ThreadMemo) {
    RegexCache cache(2);
    auto a = cache.get("a");
    auto b = cache.get("b");
    const RegexCache::Counts before = cache.counts();
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(cache.get("a"), a);
        EXPECT_EQ(cache.get("b"), b);
    }
    EXPECT_EQ(cache.counts().currentHits, before.currentHits);  // none reached the generations
    auto c = cache.get("c");                                    // retires {a, b}: a new epoch
    EXPECT_EQ(cache.get("a"), a);                               // from the previous generation
    EXPECT_EQ(cache.counts().previousHits, before.previousHits + 1);
    cache.clear();
    EXPECT_NE(cache.get("a"), a);  // the memo went with the clear: compiled anew
}

// The per-line form: a match through the cache keeps its pattern alive after the cache lets go.
TEST(RegexCacheTest, MatchThroughTheCache) {
    RegexCache cache(2);
    RegexMatch m;
    ASSERT_EQ(cache.match("(?<k>\\w+)=(?<v>\\d+)", 0, "x a=1", 0, m), REGEX_MATCH);
    EXPECT_EQ(m.named("v").view(), "1");
    EXPECT_EQ(cache.match("(?<k>\\w+)=(?<v>\\d+)", 0, "b=22", 0, m), REGEX_MATCH);  // from the memo
    cache.clear();
    (void)cache.get("p");
    (void)cache.get("q");
    (void)cache.get("r");  // two retirements: nothing of the first pattern left in the cache
    EXPECT_EQ(m.named("k").view(), "b");
    EXPECT_EQ(m.group(2).view(), "22");
    EXPECT_EQ(cache.match("(?<k>\\w+)=(?<v>\\d+)", REGEX_CASELESS, "c=3", 0, m), REGEX_MATCH);
    EXPECT_EQ(cache.match("z", 0, "c=3", 0, m), REGEX_NO_MATCH);
    Status failure;
    EXPECT_EQ(cache.match("(", 0, "c=3", 0, m, {}, &failure), REGEX_ERROR);
    EXPECT_EQ(failure.text().view(), "missing closing parenthesis");
    EXPECT_EQ(m.size(), 0u);
    EXPECT_TRUE(m.named("k").empty());
}

// Threads share one small cache over more patterns than two generations hold.
TEST(RegexCacheTest, StressFromManyThreads) {
    RegexCache cache(4);
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            RegexMatch m;
            for (int i = 0; i < 2000; ++i) {
                const int k = (i * 7 + t) % 13;
                const std::string pattern = "^k" + std::to_string(k) + "=(\\d+)$";
                auto re = cache.get(std::string_view(pattern));
                const std::string subject = "k" + std::to_string(k) + "=" + std::to_string(i);
                if (re == nullptr || re->match(std::string_view(subject), 0, m) != REGEX_MATCH ||
                    m.group(1).view() != std::to_string(i))
                    wrong.fetch_add(1);
            }
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(wrong.load(), 0);
    const RegexCache::Counts n = cache.counts();
    EXPECT_EQ(n.currentHits + n.previousHits + n.misses, 8000u);
    EXPECT_LE(n.currentSize, 4u);
    EXPECT_LE(n.previousSize, 4u);
    EXPECT_EQ(&regexCache(), &regexCache());
}

}  // namespace
}  // namespace basicutil
