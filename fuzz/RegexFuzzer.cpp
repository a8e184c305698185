// Arbitrary patterns and subjects under small limits. Input: an options byte, a byte giving the
// pattern's length, the pattern, then the subject (its first bytes also serve as a replacement).
// Checks: no crash; spans inside the subject; JIT and interpreter agree wherever neither hit a
// limit on whether and where the match is; iteration ends; a replacement that fails leaves the
// output as it was.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "FuzzReference.h"
#include "basicutil/log/Logger.h"
#include "basicutil/regex/Regex.h"

using namespace basicutil;

namespace {

constexpr RegexLimits kJitLimits{20000, RegexLimits::kDefaultDepthLimit};
constexpr RegexLimits kInterpreterLimits{20000, 200};

void checkSpans(const RegexMatch& m, std::size_t subjectSize) {
    for (unsigned i = 0; i < m.size(); ++i) {
        if (!m.has(i)) continue;
        FUZZ_CHECK(m.begin(i) <= subjectSize && m.end(i) <= subjectSize);
        FUZZ_CHECK(m.group(i).size() <= subjectSize);
    }
}

// The whole match only: PCRE2's two engines can set captures differently inside a repeated
// group that matched empty (the interpreter leaves some unset that JIT sets).
bool sameMatch(const RegexMatch& a, const RegexMatch& b) {
    return a.size() == b.size() && a.begin(0) == b.begin(0) && a.end(0) == b.end(0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool quiet = [] {
        regexChannel().setThreshold(LOG_FATAL + 1);  // compile errors and limits are the norm here
        return true;
    }();
    (void)quiet;
    if (size < 2) return 0;
    const unsigned options = data[0] & (kRegexAllOptions & ~unsigned{REGEX_NO_JIT});
    const std::size_t patternSize = data[1] < size - 2 ? data[1] : size - 2;
    const StrSegment pattern(reinterpret_cast<const char*>(data + 2), patternSize);
    const StrSegment subject(reinterpret_cast<const char*>(data + 2 + patternSize), size - 2 - patternSize);

    Regex jit, interpreter;
    const Status compiled = jit.compile(pattern, options);
    const Status interpreted = interpreter.compile(pattern, options | REGEX_NO_JIT);
    FUZZ_CHECK(compiled.ok() == interpreted.ok());
    if (!compiled) {
        FUZZ_CHECK(!compiled.text().empty() && compiled.offset() <= pattern.size());
        FUZZ_CHECK(compiled.text().view() == interpreted.text().view() &&
                   compiled.offset() == interpreted.offset());
        return 0;
    }
    RegexMatch a, b;
    for (std::size_t offset : {std::size_t{0}, subject.size() / 2, subject.size()}) {
        const RegexStatus sa = jit.match(subject, offset, a, kJitLimits).status();
        const RegexStatus sb = interpreter.match(subject, offset, b, kInterpreterLimits).status();
        if (sa == REGEX_MATCH) checkSpans(a, subject.size());
        if (sb == REGEX_MATCH) checkSpans(b, subject.size());
        // Both decided (a limit, or a run-time error such as a recursion loop, is not a decision).
        if (sa >= REGEX_NO_MATCH && sb >= REGEX_NO_MATCH) {
            FUZZ_CHECK(sa == sb);
            if (sa == REGEX_MATCH) FUZZ_CHECK(sameMatch(a, b));
        }
    }

    // Every iteration step consumes a character or returns a non-empty match, or it ends.
    std::size_t steps = 0;
    RegexMatchIterator it(jit, subject, kJitLimits);
    while (it.next()) {
        checkSpans(it.match(), subject.size());
        FUZZ_CHECK(++steps <= 2 * subject.size() + 2);
    }
    FUZZ_CHECK(it.status() != REGEX_MATCH);

    const StrSegment replacement(subject.data(), subject.size() < 8 ? subject.size() : 8);
    Str out("x");
    unsigned count = 0;
    const RegexResult replaced = jit.replaceAll(subject, replacement, out, &count, kJitLimits);
    if (replaced == REGEX_LIMIT || replaced == REGEX_ERROR) {
        FUZZ_CHECK(out.view() == "x");
        if (jit.checkReplacement(replacement)) FUZZ_CHECK(it.status() == replaced);
    } else {
        FUZZ_CHECK(jit.checkReplacement(replacement));
        FUZZ_CHECK((count > 0) == (replaced == REGEX_MATCH));
        if (count == 0) FUZZ_CHECK(out.view().substr(1) == subject.view());
    }
    return 0;
}
