// Regular expressions: Perl-compatible patterns (PCRE2, 8-bit), JIT-compiled where the platform
// allows, with named groups, substitution, bounded matching and a cache of compiled patterns.
//
//   Regex re;
//   if (Status st = re.compile("(?<user>\\w+) logged in from (?<host>\\S+)", REGEX_CASELESS); !st)
//       return fail(st.text(), st.offset());      // also logged on "Regex"
//   RegexMatch m;
//   if (re.match(line, 0, m)) use(m.named("user"), m.group(2));   // a limit or an error is no match
//
//   std::shared_ptr<const Regex> cached = regexCache().get(pattern, options);   // compiled once
//
// Limits. Every match runs under a match limit (how many times PCRE2 may call its internal
// match step, which bounds backtracking) and a depth limit (how deeply it may nest
// backtracking points, which bounds memory). The defaults stop a catastrophic pattern within
// milliseconds; a caller may pass others per call. Hitting a limit is REGEX_LIMIT, never
// "no match", and is logged on the "Regex" channel (similar lines are counted, not repeated).
// Under JIT the depth is bounded by the JIT stack (kJitStackBytes); a caller that sets a depth
// limit of its own gets the interpreter, where that limit is exact.
//
// Subjects are bytes. With REGEX_UTF the pattern and the subject are UTF-8; invalid UTF-8 in a
// subject never matches a character but does not fail the match, and an offset inside a
// character means the start of the next one.
//
// Substitution: in a replacement text,
//   $n, ${n}    group n (any number of digits; 0 is the whole match)
//   \0 .. \9    group 0 to 9 (one digit)
//   ${name}     the named group
//   $$, \\      a literal "$", a literal "\"
// Any other character stands for itself, a backslash before a non-digit included. A group that
// did not take part in the match is empty. A reference to a group the pattern does not have, or
// a "$" that starts no reference, is an error reported before anything is replaced.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "basicutil/text/Status.h"
#include "basicutil/text/Str.h"

struct pcre2_real_code_8;
struct pcre2_real_match_data_8;

namespace basicutil {

class Logger;

namespace regex_details {
struct NameKey;  // Regex_details.h
}  // namespace regex_details

// The "Regex" channel: compile errors and exceeded limits.
Logger& regexChannel() noexcept;

// The characters quoteRegex escapes: "\^$.[]|()?*+{}".
const ByteSet& regexMetacharacters() noexcept;

// `text` with a backslash before each metacharacter, so that it matches itself literally.
void quoteRegex(Str& out, StrSegment text);
Str quoteRegex(StrSegment text);

// How a pattern is compiled: a bitwise or of these.
enum RegexOptions : unsigned {
    REGEX_DEFAULT = 0,
    REGEX_CASELESS = 1u << 0,   // letters match either case
    REGEX_MULTILINE = 1u << 1,  // ^ and $ at every line start and end
    REGEX_DOTALL = 1u << 2,     // . matches a newline too
    REGEX_EXTENDED = 1u << 3,   // unescaped blanks ignored, # starts a comment
    REGEX_UTF = 1u << 4,        // UTF-8 pattern and subject, by characters
    REGEX_ANCHORED = 1u << 5,   // a match starts exactly at the offset given
    REGEX_NO_JIT = 1u << 6,     // interpreter only (JIT compilation costs time and memory)
};
// Every option bit; compile refuses others.
inline constexpr unsigned kRegexAllOptions = (1u << 7) - 1;

// How much work one match may do before it stops with REGEX_LIMIT (PCRE2's match and depth
// limits). A caller's own depth limit runs the interpreter, where it is exact.
struct RegexLimits {
    static constexpr std::uint32_t kDefaultMatchLimit = 1000000;  // PCRE2's own is 10000000
    static constexpr std::uint32_t kDefaultDepthLimit = 100000;   // PCRE2's own is 10000000
    std::uint32_t matchLimit = kDefaultMatchLimit;                // backtracking steps
    std::uint32_t depthLimit = kDefaultDepthLimit;                // nested backtracking points
};

// The JIT stack of each thread that matches: enough for patterns of ordinary depth, bounded
// for the others.
inline constexpr std::size_t kJitStackBytes = 512 * 1024;

// How a match call ended.
enum RegexStatus : int {
    REGEX_MATCH = 1,
    REGEX_NO_MATCH = 0,
    REGEX_LIMIT = -1,  // a match, depth, heap or JIT-stack limit stopped the match
    REGEX_ERROR = -2,  // not compiled, an offset past the subject, or another PCRE2 failure
};

// How a match call ended, as a value that cannot be taken for a match by mistake: only
// REGEX_MATCH converts to true (a limit or an error is no match, and no "no match" either), and
// a result cannot be dropped unread. It compares with the RegexStatus values.
//
//   if (re.match(line, 0, m)) use(m);                 // a match, and only a match
//   const RegexResult r = re.match(line, 0, m);
//   if (r == REGEX_LIMIT || r == REGEX_ERROR) fail();  // or switch (r.status())
class [[nodiscard]] RegexResult {
  public:
    // From a status; implicit, so that a status compares with a result.
    constexpr RegexResult(RegexStatus status) noexcept : _status(status) {}
    // The status itself.
    constexpr RegexStatus status() const noexcept { return _status; }
    // True for a match only.
    constexpr explicit operator bool() const noexcept { return _status == REGEX_MATCH; }
    // Equal when the statuses are.
    friend constexpr bool operator==(RegexResult a, RegexResult b) noexcept { return a._status == b._status; }

  private:
    RegexStatus _status;
};

class Regex;

// The spans of one match. It refers to the subject and to the Regex that made it: both must
// outlive it. Reusing one RegexMatch across calls avoids an allocation per match.
class RegexMatch {
  public:
    RegexMatch() noexcept = default;  // no match yet
    ~RegexMatch();
    // Moving hands the spans over; the source is left with none.
    RegexMatch(RegexMatch&& other) noexcept;
    RegexMatch& operator=(RegexMatch&& other) noexcept;
    RegexMatch(const RegexMatch&) = delete;
    RegexMatch& operator=(const RegexMatch&) = delete;

    // Groups of the pattern, group 0 (the whole match) included.
    unsigned size() const noexcept { return _groups; }
    // Whether group i took part in the match.
    bool has(unsigned i) const noexcept { return i < _groups && _ovector[2 * i] != kUnset; }
    // Group i's text; empty when it did not take part or does not exist.
    StrSegment group(unsigned i) const noexcept {
        if (!has(i) || _ovector[2 * i + 1] < _ovector[2 * i])
            return {};  // \K can put the start after the end
        return {_subject.data() + _ovector[2 * i], _ovector[2 * i + 1] - _ovector[2 * i]};
    }
    // Group i's span as offsets into the subject; npos for both when it did not take part.
    size_type begin(unsigned i) const noexcept { return has(i) ? _ovector[2 * i] : npos; }
    size_type end(unsigned i) const noexcept { return has(i) ? _ovector[2 * i + 1] : npos; }
    // The named group's text (the first set one, for duplicate names); empty when unknown.
    StrSegment named(StrSegment name) const noexcept;
    bool hasNamed(StrSegment name) const noexcept;            // whether a group of that name took part
    StrSegment subject() const noexcept { return _subject; }  // the subject matched
    // When the status was REGEX_LIMIT: which limit ("match limit", "depth limit", "heap limit",
    // "JIT stack limit"); otherwise "".
    const char* limitName() const noexcept { return _limitName; }

  private:
    friend class Regex;
    friend class RegexCache;
    int groupNumber(StrSegment name) const noexcept;

    static constexpr std::size_t kUnset = ~std::size_t{0};  // PCRE2_UNSET

    pcre2_real_match_data_8* _data = nullptr;
    const std::size_t* _ovector = nullptr;  // _data's: pairs of offsets, group by group
    unsigned _capacity = 0;                 // groups _data holds
    unsigned _groups = 0;
    const Regex* _regex = nullptr;
    StrSegment _subject;
    const char* _limitName = "";
    std::shared_ptr<const Regex> _keep;  // the pattern, when the cache's match() made this match
};

// A compiled pattern (PCRE2 syntax, JIT-compiled where the platform has it). Matching is
// const and safe from many threads at once.
class Regex {
  public:
    Regex() noexcept;  // not compiled: ok() is false
    ~Regex();
    // Moving hands the compiled pattern over; the source is left not compiled.
    Regex(Regex&& other) noexcept;
    Regex& operator=(Regex&& other) noexcept;
    Regex(const Regex&) = delete;
    Regex& operator=(const Regex&) = delete;

    // A failure (EINVAL) on a bad pattern, with PCRE2's message and the offset it stopped at;
    // logged. Any previous pattern is released first.
    Status compile(StrSegment pattern, unsigned options = REGEX_DEFAULT);
    bool ok() const noexcept { return _code != nullptr; }     // compiled
    const Str& pattern() const noexcept { return _pattern; }  // as given to compile
    unsigned options() const noexcept { return _options; }    // as given to compile
    bool jitCompiled() const noexcept { return _jit; }        // runs JIT code

    // Capturing groups, group 0 not counted.
    unsigned captureCount() const noexcept { return _captures; }
    // Names in group order, each once.
    const std::vector<Str>& groupNames() const noexcept { return _names; }
    // The group with this name (the lowest, for duplicate names), or -1.
    int groupNumber(StrSegment name) const noexcept;

    // The first match at or after `offset` (an offset inside the subject, or its end).
    RegexResult match(StrSegment subject, size_type offset, RegexMatch& m,
                      const RegexLimits& limits = {}) const {
        return matchWith(subject, offset, 0, m, limits);
    }
    // The same for a subject the caller has found to be valid UTF-8 (isValidUtf8, perhaps of a
    // larger text that holds it): under REGEX_UTF this skips the check of the subject that every
    // other match makes, which is most of the cost of matching a short line. A subject that is
    // not valid UTF-8 must never come here: PCRE2's results would be undefined.
    RegexResult matchValidUtf8(StrSegment subject, size_type offset, RegexMatch& m,
                               const RegexLimits& limits = {}) const {
        return matchWith(subject, offset, kSubjectValidUtf8, m, limits);
    }
    // Whether it matches anywhere, without the spans.
    RegexResult matches(StrSegment subject, const RegexLimits& limits = {}) const;

    // Checks a replacement text against this pattern: a failure, with a message and the offset
    // of the reference, on a bad one.
    Status checkReplacement(StrSegment replacement) const;
    // Appends `subject` to `out` with the first match (or every match) replaced. On success
    // `replaced` receives the count. On REGEX_LIMIT or REGEX_ERROR (a bad replacement included,
    // with its message logged) `out` is left as it was.
    RegexResult replaceFirst(StrSegment subject, StrSegment replacement, Str& out,
                             unsigned* replaced = nullptr, const RegexLimits& limits = {}) const;
    RegexResult replaceAll(StrSegment subject, StrSegment replacement, Str& out, unsigned* replaced = nullptr,
                           const RegexLimits& limits = {}) const;

  private:
    friend class RegexMatch;
    friend class RegexMatchIterator;
    void release() noexcept;
    RegexStatus replace(StrSegment subject, StrSegment replacement, Str& out, bool all, unsigned* replaced,
                        const RegexLimits& limits) const;
    // A match with PCRE2 option bits of the caller's (the iterator's empty-match retry), or
    // kSubjectValidUtf8 alone.
    RegexStatus matchWith(StrSegment subject, size_type offset, std::uint32_t matchOptions, RegexMatch& m,
                          const RegexLimits& limits) const;
    // A bit PCRE2 does not use for match options: the subject is known to be valid UTF-8.
    static constexpr std::uint32_t kSubjectValidUtf8 = 1u << 31;

    pcre2_real_code_8* _code = nullptr;
    pcre2_real_code_8* _invalidUtfCode = nullptr;  // REGEX_UTF: for subjects that are not UTF-8
    Str _pattern;
    unsigned _options = 0;
    bool _jit = false;
    bool _crlfNewline = false;  // CR LF is one newline: an empty match never splits it
    unsigned _captures = 0;
    std::vector<Str> _names;
    std::vector<std::pair<Str, unsigned>> _nameToGroup;  // sorted by name, lowest group first
    std::vector<regex_details::NameKey> _nameIndex;      // _nameToGroup's keys, in its order
};

// Every match of a pattern in a subject, left to right, none overlapping. After an empty
// match the next search starts one character further on (a whole UTF-8 character under
// REGEX_UTF, and past a CR LF pair as one), so iteration always ends.
//
//   RegexMatchIterator it(re, text);
//   while (it.next()) use(it.match().group(0));
//   if (it.status() == REGEX_LIMIT) ...
class RegexMatchIterator {
  public:
    // Before the first match; `regex` and `subject` must outlive the iterator.
    RegexMatchIterator(const Regex& regex, StrSegment subject, const RegexLimits& limits = {});

    // Moves to the next match; false at the end, or when a limit or an error stopped it.
    bool next();
    const RegexMatch& match() const noexcept { return _match; }  // the current match
    // REGEX_MATCH while matches come, REGEX_NO_MATCH at the end, or what stopped it.
    RegexResult status() const noexcept { return _status; }

  private:
    const Regex& _regex;
    StrSegment _subject;
    RegexLimits _limits;
    RegexMatch _match;
    size_type _offset = 0;
    bool _lastWasEmpty = false;
    RegexStatus _status = REGEX_MATCH;
};

// Compiled patterns by pattern text and options, in two generations. A lookup tries the current
// generation, then the previous one, moving a hit there into the current one. When the current
// generation is full it becomes the previous one and the old previous one is dropped (patterns
// still held by callers live on until released). So a pattern in steady use is never compiled
// twice, and one used once is gone after two generations. Safe from any thread.
//
// Each thread also keeps a memo of the last 8 patterns it looked up (while no generation has
// been retired since): a repeated lookup is answered from there without the lock, and is not
// counted in Counts, which counts lookups that reached the generations. The memo holds its
// patterns alive until the next retirement or clear, or the thread's end.
class RegexCache {
  public:
    static constexpr std::size_t kDefaultGenerationSize = 256;  // patterns per generation

    // An empty cache; regexCache() is the process's own.
    explicit RegexCache(std::size_t generationSize = kDefaultGenerationSize);

    ~RegexCache();
    RegexCache(const RegexCache&) = delete;
    RegexCache& operator=(const RegexCache&) = delete;

    // The compiled pattern, or null when it does not compile (with why in `*failure` when
    // given; failures are not kept).
    std::shared_ptr<const Regex> get(StrSegment pattern, unsigned options = REGEX_DEFAULT,
                                     Status* failure = nullptr);

    // Looks the pattern up (compiling it on first use) and matches: the per-line form, with no
    // reference count changed while `m` keeps matching with the same pattern. `m` holds the
    // compiled pattern for as long as it refers to it. REGEX_ERROR, with why in `*failure` when
    // given, when the pattern does not compile.
    RegexResult match(StrSegment pattern, unsigned options, StrSegment subject, size_type offset,
                      RegexMatch& m, const RegexLimits& limits = {}, Status* failure = nullptr);

    // What the lookups that reached the generations found.
    struct Counts {
        std::uint64_t currentHits = 0;   // found in the current generation
        std::uint64_t previousHits = 0;  // each promoted the pattern
        std::uint64_t misses = 0;        // compiled (or failed)
        std::uint64_t generations = 0;   // times the current generation was retired
        std::size_t currentSize = 0;     // patterns in the current generation
        std::size_t previousSize = 0;    // ... and in the previous one
    };
    Counts counts() const;  // the counts so far and the sizes now
    // Drops both generations and every thread's memo; patterns held by callers live on.
    void clear();

  private:
    struct State;
    [[gnu::noinline]] RegexResult matchSlowly(StrSegment pattern, unsigned options, StrSegment subject,
                                              size_type offset, RegexMatch& m, const RegexLimits& limits,
                                              Status* failure);
    std::unique_ptr<State> _state;
};

// The process-wide cache; never torn down.
RegexCache& regexCache() noexcept;

}  // namespace basicutil
