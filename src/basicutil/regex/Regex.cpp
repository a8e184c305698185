#include "basicutil/regex/Regex.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <utility>

#include "basicutil/log/Logger.h"
#include "basicutil/platform/Assert.h"
#include "basicutil/platform/StartupOrder.h"
#include "basicutil/regex/Regex_details.h"

namespace basicutil {

namespace {

struct RegexGlobals {
    LoggerSimple log{"Regex", 0, 60, 100};
    ByteSet metacharacters{"\\^$.[]|()?*+{}"};
    RegexGlobals() { recordStartupEvent("+basicutil/Regex"); }
    ~RegexGlobals() { recordStartupEvent("-basicutil/Regex"); }
};
RegexGlobals g_regex VESTRA_STARTUP(STARTUP_REGEX);

// Interpreter frames are kept on the heap; this bounds them whatever the depth limit.
constexpr std::uint32_t kHeapLimitKiB = 64 * 1024;
constexpr std::size_t kJitStackStartBytes = 32 * 1024;
constexpr std::size_t kLoggedPatternBytes = 200;

// Each thread's match context (limits are set on it per call) and JIT stack.
struct MatchResources {
    pcre2_match_context* context = nullptr;
    pcre2_jit_stack* jitStack = nullptr;
    RegexLimits limits;  // the ones set on the context
    MatchResources() {
        context = pcre2_match_context_create(nullptr);
        jitStack = pcre2_jit_stack_create(kJitStackStartBytes, kJitStackBytes, nullptr);
        if (context == nullptr) return;
        if (jitStack != nullptr) pcre2_jit_stack_assign(context, nullptr, jitStack);
        pcre2_set_heap_limit(context, kHeapLimitKiB);
        pcre2_set_match_limit(context, limits.matchLimit);
        pcre2_set_depth_limit(context, limits.depthLimit);
    }
    ~MatchResources() {
        pcre2_jit_stack_free(jitStack);
        pcre2_match_context_free(context);
    }
    MatchResources(const MatchResources&) = delete;
    MatchResources& operator=(const MatchResources&) = delete;
};
MatchResources& matchResources() {
    return regex_details::PerThread<MatchResources>::get();
}

// The pattern as a log line shows it: cut, so that one huge pattern cannot flood the log.
std::string patternForLog(StrSegment pattern) {
    std::string text(pattern.view().substr(0, kLoggedPatternBytes));
    if (pattern.size() > kLoggedPatternBytes) text += "...";
    return text;
}

std::string pcre2Message(int code) {
    PCRE2_UCHAR buffer[256];
    const int n = pcre2_get_error_message(code, buffer, sizeof buffer);
    if (n < 0) return "PCRE2 error " + std::to_string(code);
    return std::string(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(n));
}

const char* limitNameOf(int rc) noexcept {
    switch (rc) {
        case PCRE2_ERROR_MATCHLIMIT:
            return "match limit";
        case PCRE2_ERROR_DEPTHLIMIT:
            return "depth limit";
        case PCRE2_ERROR_HEAPLIMIT:
            return "heap limit";
        case PCRE2_ERROR_JIT_STACKLIMIT:
            return "JIT stack limit";
        default:
            return nullptr;
    }
}

std::uint32_t compileFlags(unsigned options) noexcept {
    std::uint32_t flags = 0;
    if (options & REGEX_CASELESS) flags |= PCRE2_CASELESS;
    if (options & REGEX_MULTILINE) flags |= PCRE2_MULTILINE;
    if (options & REGEX_DOTALL) flags |= PCRE2_DOTALL;
    if (options & REGEX_EXTENDED) flags |= PCRE2_EXTENDED;
    if (options & REGEX_UTF) flags |= PCRE2_UTF;
    if (options & REGEX_ANCHORED) flags |= PCRE2_ANCHORED;
    return flags;
}

}  // namespace

Logger& regexChannel() noexcept {
    return g_regex.log;
}

const ByteSet& regexMetacharacters() noexcept {
    return g_regex.metacharacters;
}

void quoteRegex(Str& out, StrSegment text) {
    const ByteSet& meta = regexMetacharacters();
    for (char c : text) {
        if (meta.contains(c)) out.push_back('\\');
        out.push_back(c);
    }
}

Str quoteRegex(StrSegment text) {
    Str out;
    quoteRegex(out, text);
    return out;
}

// --- Compiling ------------------------------------------------------------------------------

Regex::Regex() noexcept = default;

Regex::~Regex() {
    release();
}

Regex::Regex(Regex&& other) noexcept {
    *this = std::move(other);
}

Regex& Regex::operator=(Regex&& other) noexcept {
    if (this == &other) return *this;
    release();
    _code = std::exchange(other._code, nullptr);
    _invalidUtfCode = std::exchange(other._invalidUtfCode, nullptr);
    _pattern = std::move(other._pattern);
    _options = other._options;
    _jit = other._jit;
    _crlfNewline = other._crlfNewline;
    _captures = other._captures;
    _names = std::move(other._names);
    _nameToGroup = std::move(other._nameToGroup);
    _nameIndex = std::move(other._nameIndex);
    return *this;
}

void Regex::release() noexcept {
    pcre2_code_free(_code);
    pcre2_code_free(_invalidUtfCode);
    _code = nullptr;
    _invalidUtfCode = nullptr;
    _jit = false;
    _captures = 0;
    _names.clear();
    _nameToGroup.clear();
    _nameIndex.clear();
}

Status Regex::compile(StrSegment pattern, unsigned options) {
    release();
    _pattern = Str(pattern);
    _options = options;
    if ((options & ~kRegexAllOptions) != 0) {
        regexChannel().logf(LOG_WARN, "cannot compile /%s/: unknown option bits 0x%x", patternForLog(pattern),
                            options & ~kRegexAllOptions);
        return Status::invalid("unknown option bits");
    }
    int code = 0;
    PCRE2_SIZE offset = 0;
    _code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(), compileFlags(options),
                          &code, &offset, nullptr);
    if (_code == nullptr) {
        Status failed = Status::invalid(pcre2Message(code), offset);
        regexChannel().logf(LOG_WARN, "cannot compile /%s/ at offset %llu: %s", patternForLog(pattern),
                            static_cast<unsigned long long>(offset), failed.text());
        return failed;
    }
    // Subjects that are not valid UTF-8 go to a second compilation in PCRE2's invalid-UTF mode,
    // interpreted: in that mode PCRE2's JIT mis-matches some classes on valid text (10.42:
    // \W+ fails on a lone "é").
    if (options & REGEX_UTF) {
        _invalidUtfCode =
            pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                          compileFlags(options) | PCRE2_MATCH_INVALID_UTF, &code, &offset, nullptr);
        if (_invalidUtfCode == nullptr) {
            Status failed = Status::invalid(pcre2Message(code), offset);
            regexChannel().logf(LOG_WARN, "cannot compile /%s/ for invalid UTF-8 subjects at offset %llu: %s",
                                patternForLog(pattern), static_cast<unsigned long long>(offset),
                                failed.text());
            release();
            return failed;
        }
    }
    std::uint32_t captures = 0, nameCount = 0, entrySize = 0, newline = 0;
    PCRE2_SPTR table = nullptr;
    VESTRA_ASSERT(pcre2_pattern_info(_code, PCRE2_INFO_CAPTURECOUNT, &captures) == 0);
    VESTRA_ASSERT(pcre2_pattern_info(_code, PCRE2_INFO_NAMECOUNT, &nameCount) == 0);
    VESTRA_ASSERT(pcre2_pattern_info(_code, PCRE2_INFO_NAMEENTRYSIZE, &entrySize) == 0);
    VESTRA_ASSERT(pcre2_pattern_info(_code, PCRE2_INFO_NAMETABLE, &table) == 0);
    VESTRA_ASSERT(pcre2_pattern_info(_code, PCRE2_INFO_NEWLINE, &newline) == 0);
    _captures = captures;
    _crlfNewline =
        newline == PCRE2_NEWLINE_ANY || newline == PCRE2_NEWLINE_CRLF || newline == PCRE2_NEWLINE_ANYCRLF;
    // Each entry: the group number in two bytes, high first, then the name and a NUL. The
    // table is sorted by name, and duplicates by group number.
    for (std::uint32_t i = 0; i < nameCount; ++i) {
        const auto* entry = reinterpret_cast<const unsigned char*>(table) + std::size_t{i} * entrySize;
        const unsigned group = (unsigned{entry[0]} << 8) | entry[1];
        _nameToGroup.emplace_back(Str(reinterpret_cast<const char*>(entry + 2)), group);
        const Str& name = _nameToGroup.back().first;
        _nameIndex.push_back({regex_details::nameHead(name), static_cast<std::uint32_t>(name.size()), group});
    }
    std::vector<std::pair<unsigned, Str>> byGroup;
    for (const auto& entry : _nameToGroup) {
        const Str& name = entry.first;
        const bool seen =
            std::any_of(byGroup.begin(), byGroup.end(), [&](const auto& e) { return e.second == name; });
        if (!seen) byGroup.emplace_back(entry.second, name);
    }
    std::sort(byGroup.begin(), byGroup.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    for (auto& entry : byGroup) _names.push_back(std::move(entry.second));

    // JIT where the platform has it and the pattern allows it: "(*NO_JIT)" in a pattern makes
    // jit_compile succeed without making code, so the code's size is what tells.
    if ((options & REGEX_NO_JIT) == 0 && pcre2_jit_compile(_code, PCRE2_JIT_COMPLETE) == 0) {
        std::size_t jitSize = 0;
        _jit = pcre2_pattern_info(_code, PCRE2_INFO_JITSIZE, &jitSize) == 0 && jitSize > 0;
    }
    return {};
}

int Regex::groupNumber(StrSegment name) const noexcept {
    const auto it =
        std::lower_bound(_nameToGroup.begin(), _nameToGroup.end(), name,
                         [](const auto& entry, StrSegment n) { return entry.first.view() < n.view(); });
    if (it == _nameToGroup.end() || it->first.view() != name.view()) return -1;
    return static_cast<int>(it->second);
}

// --- Matching -------------------------------------------------------------------------------

RegexMatch::~RegexMatch() {
    pcre2_match_data_free(_data);
}

RegexMatch::RegexMatch(RegexMatch&& other) noexcept {
    *this = std::move(other);
}

RegexMatch& RegexMatch::operator=(RegexMatch&& other) noexcept {
    if (this == &other) return *this;
    pcre2_match_data_free(_data);
    _data = std::exchange(other._data, nullptr);
    _ovector = std::exchange(other._ovector, nullptr);
    _capacity = std::exchange(other._capacity, 0);
    _groups = std::exchange(other._groups, 0);
    _regex = other._regex;
    _subject = other._subject;
    _limitName = other._limitName;
    _keep = std::move(other._keep);
    return *this;
}

static_assert(std::is_same_v<PCRE2_SIZE, std::size_t> && PCRE2_UNSET == ~std::size_t{0});

int RegexMatch::groupNumber(StrSegment name) const noexcept {
    if (_regex == nullptr) return -1;
    // A plain scan over (length, first 8 bytes): tables are short, and this runs for every named
    // group of every match. With duplicate names (?J) the first of them that is set wins.
    const std::uint64_t head = regex_details::nameHead(name);
    const auto& index = _regex->_nameIndex;
    int fallback = -1;
    for (std::size_t i = 0; i < index.size(); ++i) {
        const regex_details::NameKey& key = index[i];
        if (key.size != name.size() || key.head != head) continue;
        if (name.size() > 8 &&
            std::memcmp(_regex->_nameToGroup[i].first.data() + 8, name.data() + 8, name.size() - 8) != 0)
            continue;
        if (has(key.group)) return static_cast<int>(key.group);
        if (fallback < 0) fallback = static_cast<int>(key.group);
    }
    return fallback;
}

StrSegment RegexMatch::named(StrSegment name) const noexcept {
    const int group = groupNumber(name);
    return group < 0 ? StrSegment{} : this->group(static_cast<unsigned>(group));
}

bool RegexMatch::hasNamed(StrSegment name) const noexcept {
    const int group = groupNumber(name);
    return group >= 0 && has(static_cast<unsigned>(group));
}

RegexResult Regex::matches(StrSegment subject, const RegexLimits& limits) const {
    RegexMatch m;
    return match(subject, 0, m, limits);
}

RegexStatus Regex::matchWith(StrSegment subject, size_type offset, std::uint32_t matchOptions, RegexMatch& m,
                             const RegexLimits& limits) const {
    m._groups = 0;
    m._regex = this;
    m._subject = subject;
    m._limitName = "";
    if (_code == nullptr || offset > subject.size()) return REGEX_ERROR;
    const unsigned needed = _captures + 1;
    if (m._capacity < needed) {
        pcre2_match_data_free(m._data);
        m._data = pcre2_match_data_create(needed, nullptr);
        m._capacity = m._data == nullptr ? 0 : needed;
        m._ovector = m._data == nullptr ? nullptr : pcre2_get_ovector_pointer(m._data);
    }
    MatchResources& resources = matchResources();
    if (m._data == nullptr || resources.context == nullptr) {
        regexChannel().log(LOG_ERROR, "cannot match: out of memory");
        return REGEX_ERROR;
    }
    // An offset inside a UTF-8 character moves on to the next character: PCRE2's two engines
    // would otherwise start from different places.
    if (_options & REGEX_UTF)
        while (offset < subject.size() && (static_cast<unsigned char>(subject[offset]) & 0xC0) == 0x80)
            ++offset;
    // A depth limit of the caller's own is exact only in the interpreter.
    if (limits.depthLimit != RegexLimits::kDefaultDepthLimit) matchOptions |= PCRE2_NO_JIT;
    if (resources.limits.matchLimit != limits.matchLimit ||
        resources.limits.depthLimit != limits.depthLimit) {
        pcre2_set_match_limit(resources.context, limits.matchLimit);
        pcre2_set_depth_limit(resources.context, limits.depthLimit);
        resources.limits = limits;
    }
    const auto* bytes = reinterpret_cast<PCRE2_SPTR>(subject.data());
    // PCRE2's fast path skips checks that hold here (a compiled pattern, an offset inside the
    // subject, no match-time options); not for UTF, whose validity check routes bad subjects,
    // unless the caller knows the subject to be valid.
    const bool validUtf8 = (matchOptions & kSubjectValidUtf8) != 0;
    matchOptions &= ~kSubjectValidUtf8;
    int rc =
        _jit && matchOptions == 0 && (validUtf8 || (_options & REGEX_UTF) == 0)
            ? pcre2_jit_match(_code, bytes, subject.size(), offset, 0, m._data, resources.context)
            : pcre2_match(_code, bytes, subject.size(), offset,
                          matchOptions | (validUtf8 ? PCRE2_NO_UTF_CHECK : 0), m._data, resources.context);
    if (rc <= PCRE2_ERROR_UTF8_ERR1 && rc >= PCRE2_ERROR_UTF8_ERR21 && _invalidUtfCode != nullptr)
        rc = pcre2_match(_invalidUtfCode, bytes, subject.size(), offset, matchOptions, m._data,
                         resources.context);
    if (rc > 0) {
        m._groups = needed;
        return REGEX_MATCH;
    }
    if (rc == PCRE2_ERROR_NOMATCH) return REGEX_NO_MATCH;
    if (const char* limit = limitNameOf(rc)) {
        m._limitName = limit;
        regexChannel().logf(LOG_WARN, "%s exceeded matching /%s/ (match limit %u, depth limit %u)", limit,
                            patternForLog(_pattern), limits.matchLimit, limits.depthLimit);
        return REGEX_LIMIT;
    }
    regexChannel().logf(LOG_WARN, "cannot match /%s/: %s", patternForLog(_pattern), pcre2Message(rc));
    return REGEX_ERROR;
}

// --- Iterating ------------------------------------------------------------------------------

RegexMatchIterator::RegexMatchIterator(const Regex& regex, StrSegment subject, const RegexLimits& limits)
    : _regex(regex), _subject(subject), _limits(limits) {}

bool RegexMatchIterator::next() {
    if (_status != REGEX_MATCH) return false;
    for (;;) {
        // After an empty match, first a non-empty one at the same place, then one character on.
        const std::uint32_t options = _lastWasEmpty ? PCRE2_NOTEMPTY_ATSTART | PCRE2_ANCHORED : 0;
        const RegexStatus status = _regex.matchWith(_subject, _offset, options, _match, _limits);
        if (status == REGEX_NO_MATCH && _lastWasEmpty) {
            _lastWasEmpty = false;
            if (_offset >= _subject.size()) break;
            const char* s = _subject.data();
            ++_offset;
            if (_regex._crlfNewline && s[_offset - 1] == '\r' && _offset < _subject.size() &&
                s[_offset] == '\n')
                ++_offset;
            if (_regex._options & REGEX_UTF)
                while (_offset < _subject.size() && (static_cast<unsigned char>(s[_offset]) & 0xC0) == 0x80)
                    ++_offset;
            continue;
        }
        if (status != REGEX_MATCH) {
            _status = status;
            return false;
        }
        const size_type b = _match.begin(0), e = _match.end(0);
        _lastWasEmpty = b == e;
        _offset = std::max(e, _offset);  // never backwards, whatever \K did
        return true;
    }
    _status = REGEX_NO_MATCH;
    return false;
}

// --- Substituting ---------------------------------------------------------------------------

Status regex_details::parseReplacement(const Regex& regex, StrSegment text,
                                       std::vector<ReplacementPiece>& pieces) {
    pieces.clear();
    Status failed;
    auto fail = [&](const std::string& message, size_type at) {
        failed = Status::invalid(message, at);
        return false;
    };
    auto addLiteral = [&](size_type begin, size_type end) {
        if (begin == end) return;
        if (!pieces.empty() && pieces.back().group < 0 && pieces.back().end == begin) {
            pieces.back().end = end;
        } else {
            pieces.push_back({-1, begin, end});
        }
    };
    auto addGroup = [&](unsigned long group, size_type at) {
        if (group > regex.captureCount())
            return fail("replacement refers to group " + std::to_string(group) + " at offset " +
                            std::to_string(at) + ", the pattern has " + std::to_string(regex.captureCount()),
                        at);
        pieces.push_back({static_cast<int>(group), 0, 0});
        return true;
    };
    const char* s = text.data();
    const size_type n = text.size();
    size_type i = 0;
    while (i < n) {
        const char c = s[i];
        if (c == '\\' && i + 1 < n && (s[i + 1] == '\\' || (s[i + 1] >= '0' && s[i + 1] <= '9'))) {
            if (s[i + 1] == '\\') {
                addLiteral(i + 1, i + 2);
            } else if (!addGroup(static_cast<unsigned long>(s[i + 1] - '0'), i)) {
                return failed;
            }
            i += 2;
        } else if (c == '$') {
            const size_type at = i;
            if (i + 1 < n && s[i + 1] == '$') {
                addLiteral(i + 1, i + 2);
                i += 2;
            } else if (i + 1 < n && s[i + 1] >= '0' && s[i + 1] <= '9') {
                unsigned long group = 0;
                for (++i; i < n && s[i] >= '0' && s[i] <= '9'; ++i) {
                    group = group * 10 + static_cast<unsigned long>(s[i] - '0');
                    if (group > 65535) {
                        fail("group number too large at offset " + std::to_string(at), at);
                        return failed;
                    }
                }
                if (!addGroup(group, at)) return failed;
            } else if (i + 1 < n && s[i + 1] == '{') {
                const size_type close = text.view().find('}', i + 2);
                if (close == std::string_view::npos) {
                    fail("unclosed ${ at offset " + std::to_string(at), at);
                    return failed;
                }
                const StrSegment inside(s + i + 2, close - i - 2);
                if (inside.empty()) {
                    fail("empty ${} at offset " + std::to_string(at), at);
                    return failed;
                }
                const bool digits =
                    std::all_of(inside.begin(), inside.end(), [](char d) { return d >= '0' && d <= '9'; });
                if (digits) {
                    if (inside.size() > 5) {
                        fail("group number too large at offset " + std::to_string(at), at);
                        return failed;
                    }
                    if (!addGroup(std::stoul(std::string(inside.view())), at)) return failed;
                } else {
                    const int group = regex.groupNumber(inside);
                    if (group < 0) {
                        fail("replacement refers to unknown group name \"" + std::string(inside.view()) +
                                 "\" at offset " + std::to_string(at),
                             at);
                        return failed;
                    }
                    // The name, not the number: with duplicate names the set one is taken.
                    pieces.push_back({-2, i + 2, close});
                }
                i = close + 1;
            } else {
                fail("\"$\" starts no reference at offset " + std::to_string(at) + " (write $$ for a dollar)",
                     at);
                return failed;
            }
        } else {
            addLiteral(i, i + 1);
            ++i;
        }
    }
    return {};
}

void regex_details::expandReplacement(const std::vector<ReplacementPiece>& pieces, StrSegment replacement,
                                      const RegexMatch& m, Str& out) {
    for (const ReplacementPiece& p : pieces) {
        if (p.group >= 0) {
            out.append(m.group(static_cast<unsigned>(p.group)));
        } else if (p.group == -2) {
            out.append(m.named(StrSegment(replacement.data() + p.begin, p.end - p.begin)));
        } else {
            out.append(replacement.data() + p.begin, p.end - p.begin);
        }
    }
}

Status Regex::checkReplacement(StrSegment replacement) const {
    std::vector<regex_details::ReplacementPiece> pieces;
    return regex_details::parseReplacement(*this, replacement, pieces);
}

RegexResult Regex::replaceFirst(StrSegment subject, StrSegment replacement, Str& out, unsigned* replaced,
                                const RegexLimits& limits) const {
    return replace(subject, replacement, out, false, replaced, limits);
}

RegexResult Regex::replaceAll(StrSegment subject, StrSegment replacement, Str& out, unsigned* replaced,
                              const RegexLimits& limits) const {
    return replace(subject, replacement, out, true, replaced, limits);
}

RegexStatus Regex::replace(StrSegment subject, StrSegment replacement, Str& out, bool all, unsigned* replaced,
                           const RegexLimits& limits) const {
    if (_code == nullptr) return REGEX_ERROR;
    std::vector<regex_details::ReplacementPiece> pieces;
    if (const Status st = regex_details::parseReplacement(*this, replacement, pieces); !st) {
        regexChannel().logf(LOG_WARN, "cannot replace /%s/: %s", patternForLog(_pattern), st.text());
        return REGEX_ERROR;
    }
    // Built aside: a limit half-way leaves the caller's text as it was.
    Str result;
    unsigned count = 0;
    size_type copied = 0;
    RegexMatchIterator it(*this, subject, limits);
    while (it.next()) {
        const RegexMatch& m = it.match();
        const size_type b = std::max(m.begin(0), copied), e = std::max(b, m.end(0));
        result.append(subject.data() + copied, b - copied);
        regex_details::expandReplacement(pieces, replacement, m, result);
        copied = e;
        ++count;
        if (!all) break;
    }
    if (it.status() != REGEX_MATCH && it.status() != REGEX_NO_MATCH) return it.status().status();
    result.append(subject.data() + copied, subject.size() - copied);
    out.append(result);
    if (replaced != nullptr) *replaced = count;
    return count > 0 ? REGEX_MATCH : REGEX_NO_MATCH;
}

}  // namespace basicutil
