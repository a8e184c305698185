// vestra printf, hexdump, hex, utf8, url, csv and regex.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "basicutil/hexdump/HexDumper.h"
#include "basicutil/regex/Regex.h"
#include "basicutil/text/BasicConversions.h"
#include "basicutil/text/PrintHexBytes.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/text/StrCase.h"
#include "basicutil/text/StrEscape.h"
#include "basicutil/text/StrSearch.h"
#include "basicutil/text/StrUtf8.h"
#include "main/vestra_details.h"

namespace vestra::tool {

using namespace basicutil;

namespace {

// --- printf ---

// The backslash escapes printf(1) reads in its format: \\ \" \a \b \f \n \r \t \v, \NNN (octal,
// up to three digits) and \xHH (up to two).
std::string unescapeFormat(const std::string& text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out.push_back(text[i]);
            continue;
        }
        const char c = text[++i];
        const char* const simple = "\\\\\"\"a\ab\bf\fn\nr\rt\tv\v";
        bool done = false;
        for (const char* p = simple; *p != '\0'; p += 2) {
            if (*p == c) {
                out.push_back(p[1]);
                done = true;
                break;
            }
        }
        if (done) continue;
        unsigned value = 0, digits = 0;
        if (c >= '0' && c <= '7') {
            for (; digits < 3 && i < text.size() && text[i] >= '0' && text[i] <= '7'; ++digits, ++i)
                value = value * 8 + static_cast<unsigned>(text[i] - '0');
            --i;
            out.push_back(static_cast<char>(value));
        } else if (c == 'x' && i + 1 < text.size() &&
                   std::isxdigit(static_cast<unsigned char>(text[i + 1]))) {
            for (;
                 digits < 2 && i + 1 < text.size() && std::isxdigit(static_cast<unsigned char>(text[i + 1]));
                 ++digits) {
                const char h = text[++i];
                value = value * 16 + static_cast<unsigned>(h <= '9' ? h - '0' : (h | 0x20) - 'a' + 10);
            }
            out.push_back(static_cast<char>(value));
        } else {
            out.push_back('\\');
            out.push_back(c);
        }
    }
    return out;
}

// A numeric argument as printf(1) takes it: C syntax (0x.., 0.. for integers), or 'c / "c for
// the character's code; empty is 0. Bad text or a value out of range is diagnosed as printf(1)
// does and makes the exit status 1; the value is then what was converted, or the limit.
template <typename T, typename Parse>
T numericArgument(const std::string& text, Context& context, Parse parse) {
    if (text.empty()) return T{};
    if (text.size() >= 2 && (text[0] == '\'' || text[0] == '"'))
        return static_cast<T>(static_cast<unsigned char>(text[1]));
    errno = 0;
    char* end = nullptr;
    const T value = parse(text.c_str(), &end);
    const char* problem = errno == ERANGE       ? "Numerical result out of range"
                          : end == text.c_str() ? "expected a numeric value"
                          : *end != '\0'        ? "value not completely converted"
                                                : nullptr;
    if (problem != nullptr) {
        diagnose("'" + text + "': " + problem);
        context.status = kNegative;
    }
    return value;
}

// printf(1)'s arguments through the library's printf: the format is used again while arguments
// remain, a missing argument is empty (or 0), integers are 64-bit whatever the length modifier,
// and the output streams out as it is rendered.
int printfCommand(const std::string& formatText, const std::vector<std::string>& arguments,
                  Context& context) {
    const std::string format = unescapeFormat(formatText);
    // The format as the engine will render it: every conversion checked, integers made 64-bit.
    Str rendering;
    std::vector<PrintfFormatAtom> atoms;
    StrSegment rest(format);
    for (PrintfFormatAtom atom; !rest.empty();) {
        const char* const start = rest.data();
        static_cast<void>(atom.getNext(rest));
        const std::string_view written(start, static_cast<std::size_t>(rest.data() - start));
        if (atom.conversion == PrintfFormatAtom::CONV_CONSTANT_STRING && written[0] == '%' &&
            written != "%%") {
            diagnose(std::string(written) + ": invalid conversion");
            return kUsage;
        }
        if (atom.conversion == PrintfFormatAtom::CONV_POINTER ||
            atom.conversion == PrintfFormatAtom::CONV_ERRNO_STRING) {
            diagnose("%p and %m take nothing from the command line");
            return kUsage;
        }
        if (atom.isInteger()) atom.size = 8;
        append_stringified(rendering, atom);
        atoms.push_back(atom);
    }
    std::size_t next = 0;
    std::vector<PrintfArg> args;
    do {
        args.clear();
        bool consumed = false;
        const auto take = [&]() -> const std::string& {
            static const std::string missing;
            consumed = true;
            return next < arguments.size() ? arguments[next++] : missing;
        };
        const auto integer = [&context](const std::string& text) {
            return numericArgument<long long>(text, context,
                                              [](const char* s, char** e) { return std::strtoll(s, e, 0); });
        };
        for (const PrintfFormatAtom& atom : atoms) {
            if (atom.conversion == PrintfFormatAtom::CONV_CONSTANT_STRING) continue;
            if (atom.has(PrintfFormatAtom::FLAG_VARIABLE_WIDTH)) args.emplace_back(integer(take()));
            if (atom.has(PrintfFormatAtom::FLAG_VARIABLE_PRECISION)) args.emplace_back(integer(take()));
            const std::string& text = take();
            if (atom.conversion == PrintfFormatAtom::CONV_SIGNED_DECIMAL) {
                args.emplace_back(integer(text));
            } else if (atom.isInteger()) {
                args.emplace_back(numericArgument<unsigned long long>(
                    text, context, [](const char* s, char** e) { return std::strtoull(s, e, 0); }));
            } else if (atom.isFloat()) {
                args.emplace_back(numericArgument<double>(
                    text, context, [](const char* s, char** e) { return std::strtod(s, e); }));
            } else if (atom.conversion == PrintfFormatAtom::CONV_CHAR) {
                args.emplace_back(text.empty() ? '\0' : text[0]);
            } else {
                args.emplace_back(std::string_view(text));
            }
        }
        appendPrintf(PrintfOutput(out()), rendering, args);
        if (!consumed) break;  // a format without conversions is written once
    } while (next < arguments.size());
    return context.status;
}

// --- hexdump and hex ---

// Lines straight into the output buffer.
class DumpToOutput : public HexDumper {
  public:
    void line(const char* text, std::size_t length) override {
        char* p = out().room(length + 1);
        std::memcpy(p, text, length);
        p[length] = '\n';
        out().commit(length + 1);
    }
};

// Dumps whole lines as the input comes, carrying fewer than 16 bytes from one block to the next.
int hexdumpCommand(const std::string& path) {
    DumpToOutput dump;
    std::uint64_t total = 0;
    unsigned char carry[16];
    std::size_t carried = 0;
    const bool ok = forEachChunk(path, [&](std::string_view chunk) {
        const auto* p = reinterpret_cast<const unsigned char*>(chunk.data());
        std::size_t n = chunk.size();
        if (carried != 0) {
            const std::size_t take = std::min(n, sizeof carry - carried);
            std::memcpy(carry + carried, p, take);
            carried += take;
            p += take;
            n -= take;
            if (carried < sizeof carry) return;
            dump.dumpLines(carry, sizeof carry, total);
            total += sizeof carry;
            carried = 0;
        }
        const std::size_t whole = n / 16 * 16;
        dump.dumpLines(p, whole, total);
        total += whole;
        carried = n - whole;
        std::memcpy(carry, p + whole, carried);
    });
    if (!ok) return kNegative;
    dump.dumpLines(carry, carried, total);
    dump.lengthLine(total + carried);
    return kOk;
}

int hexEncodeCommand(const std::string& path) {
    static constexpr char kDigits[] = "0123456789abcdef";
    const bool ok = forEachChunk(path, [](std::string_view chunk) {
        for (std::size_t at = 0; at < chunk.size();) {
            const std::size_t n = std::min(chunk.size() - at, kBlock / 2);
            char* p = out().room(2 * n);
            for (std::size_t i = 0; i < n; ++i) {
                const auto c = static_cast<unsigned char>(chunk[at + i]);
                p[2 * i] = kDigits[c >> 4];
                p[2 * i + 1] = kDigits[c & 15];
            }
            out().commit(2 * n);
            at += n;
        }
    });
    out().write("\n");
    return ok ? kOk : kNegative;
}

int hexValue(char c) noexcept {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Pairs of digits; blanks and line ends between pairs are allowed. The first byte that is
// neither is named by its offset in the input, as iconv names a bad sequence.
int hexDecodeCommand(const std::string& path) {
    std::uint64_t at = 0;  // offset of the next input byte
    int high = -1;         // the first digit of a pair, while the second is awaited
    std::uint64_t highAt = 0;
    bool bad = false;
    const bool ok = forEachChunk(path, [&](std::string_view chunk) {
        for (std::size_t from = 0; from < chunk.size() && !bad; from += kBlock) {  // at most kBlock / 2 out
            const std::string_view slice = chunk.substr(from, kBlock);
            char* p = out().room(slice.size() / 2 + 1);
            std::size_t written = 0;
            for (std::size_t i = 0; i < slice.size(); ++i, ++at) {
                const char c = slice[i];
                if (high < 0 && (c == ' ' || c == '\t' || c == '\n' || c == '\r')) continue;
                const int v = hexValue(c);
                if (v < 0) {
                    diagnose(strprintf("not a hexadecimal digit at byte %llu",
                                       static_cast<unsigned long long>(at)));
                    bad = true;
                    break;
                }
                if (high < 0) {
                    high = v;
                    highAt = at;
                } else {
                    p[written++] = static_cast<char>(high << 4 | v);
                    high = -1;
                }
            }
            out().commit(written);
        }
    });
    if (!ok) return kNegative;
    if (!bad && high >= 0) {
        diagnose(strprintf("a digit without its pair at byte %llu", static_cast<unsigned long long>(highAt)));
        bad = true;
    }
    return bad ? kNegative : kOk;
}

// --- utf8 ---

// Hands on whole characters only, carrying a sequence cut by a block's end (at most 3 bytes)
// to the next block.
class CharacterChunks {
  public:
    template <typename F>
    void add(std::string_view chunk, F&& f) {
        if (_carried != 0) {  // complete the cut character first, a byte at a time
            while (_carried < sizeof _carry && !chunk.empty()) {
                _carry[_carried++] = chunk.front();
                chunk.remove_prefix(1);
                if (_carried >= utf8SequenceLength(static_cast<unsigned char>(_carry[0]))) break;
            }
            if (_carried < utf8SequenceLength(static_cast<unsigned char>(_carry[0])) && chunk.empty()) return;
            f(std::string_view(_carry, _carried));
            _carried = 0;
        }
        std::size_t end = chunk.size();
        for (std::size_t back = 1; back <= 3 && back <= chunk.size(); ++back) {
            const auto b = static_cast<unsigned char>(chunk[chunk.size() - back]);
            if ((b & 0xC0) == 0x80) continue;
            if (utf8SequenceLength(b) > back) end = chunk.size() - back;
            break;
        }
        f(chunk.substr(0, end));
        std::memcpy(_carry, chunk.data() + end, chunk.size() - end);
        _carried = chunk.size() - end;
    }
    template <typename F>
    void finish(F&& f) {
        if (_carried != 0) f(std::string_view(_carry, _carried));
        _carried = 0;
    }

  private:
    char _carry[4];
    std::size_t _carried = 0;
};

// Runs `each` over the input's text in whole characters, block by block. False when the input
// cannot be read (diagnosed).
template <typename F>
bool forEachCharacterRun(const std::string& path, F&& each) {
    CharacterChunks chunks;
    if (!forEachChunk(path, [&](std::string_view chunk) { chunks.add(chunk, each); })) return false;
    chunks.finish(each);
    return true;
}

int utf8Command(const std::string& action, std::uint64_t n, const std::string& path) {
    if (action == "count") {
        std::uint64_t count = 0;
        if (!forEachCharacterRun(path, [&](std::string_view text) {
                count += mem_count_utf8_codepoints(text.data(), text.size());
            }))
            return kNegative;
        out().write(strprintf("%llu\n", static_cast<unsigned long long>(count)));
        return kOk;
    }
    if (action == "validate") {
        std::uint64_t at = 0;
        bool valid = true;
        if (!forEachCharacterRun(path, [&](std::string_view text) {
                if (!valid) return;
                const size_type good = utf8ValidLength(StrSegment(text));
                if (good != text.size()) {
                    valid = false;
                    at += good;
                    return;
                }
                at += text.size();
            }))
            return kNegative;
        if (!valid) {
            diagnose(
                strprintf("%s: not valid UTF-8 at byte %llu", path, static_cast<unsigned long long>(at)));
            return kNegative;
        }
        return kOk;
    }
    if (action == "upper" || action == "lower") {  // character by character: no line is held
        const bool upper = action == "upper";
        Str mapped;
        return forEachCharacterRun(path,
                                   [&](std::string_view text) {
                                       mapped.assign(text.data(), text.size());
                                       if (upper) {
                                           toUpperInPlace(mapped);
                                       } else {
                                           toLowerInPlace(mapped);
                                       }
                                       out().write(mapped);
                                   })
                   ? kOk
                   : kNegative;
    }
    // width and truncate: per line, counted as the characters stream past.
    const bool width = action == "width";
    std::uint64_t lineWidth = 0, kept = 0;
    bool open = false;  // a line begun and not yet ended
    const bool ok = forEachCharacterRun(path, [&](std::string_view text) {
        while (!text.empty()) {
            const std::size_t nl = text.find('\n');
            const std::string_view piece = text.substr(0, nl);
            open = true;
            if (width) {
                lineWidth += utf8DisplayWidth(StrSegment(piece));
            } else if (kept < n) {
                StrSegment cut(piece);
                utf8_character_count_truncate(cut, n - kept);
                kept += mem_count_utf8_codepoints(cut.data(), cut.size());
                out().write(cut.view());
            }
            if (nl == std::string_view::npos) break;
            if (width) out().write(strprintf("%llu", static_cast<unsigned long long>(lineWidth)));
            out().write("\n");
            lineWidth = kept = 0;
            open = false;
            text.remove_prefix(nl + 1);
        }
    });
    if (ok && open && width) out().write(strprintf("%llu\n", static_cast<unsigned long long>(lineWidth)));
    return ok ? kOk : kNegative;
}

// --- url, csv ---

int urlCommand(const std::string& action, const std::string& path) {
    Str text;
    if (action == "encode") {
        const bool ok = forEachChunk(path, [&text](std::string_view chunk) {
            text.clear();
            urlEncodeAppend(text, StrSegment(chunk));
            out().write(text);
        });
        out().write("\n");
        return ok ? kOk : kNegative;
    }
    // Decoded as it streams: an escape cut by a block's end ("%" or "%4") waits for the next
    // block, and what is decoded is checked as UTF-8 in whole characters.
    std::string carry;  // at most two bytes
    bool valid = true;
    CharacterChunks characters;
    const auto check = [&valid](std::string_view decoded) {
        if (valid && !isValidUtf8(StrSegment(decoded))) valid = false;
    };
    const auto decode = [&](std::string_view input, bool last) {
        std::size_t keep = 0;
        if (!last) {
            const std::size_t percent = input.find('%', input.size() >= 2 ? input.size() - 2 : 0);
            if (percent != std::string_view::npos) keep = input.size() - percent;
        }
        text.assign(input.data(), input.size() - keep);
        static_cast<void>(urlDecodeInPlace(text));
        characters.add(text.view(), check);
        out().write(text);
        carry.assign(input.substr(input.size() - keep));
    };
    std::string joined;
    const bool ok = forEachChunk(path, [&](std::string_view chunk) {
        if (carry.empty()) return decode(chunk, false);
        joined.assign(carry);
        joined.append(chunk);
        decode(joined, false);
    });
    if (!ok) return kNegative;
    joined.assign(carry);
    decode(joined, true);
    characters.finish(check);
    if (!valid) {
        diagnose("the decoded text is not valid UTF-8");
        return kNegative;
    }
    return kOk;
}

// One CSV field a line. A line is written as it comes once it has shown it needs quotes; until
// then its start is held (it may need none), so memory is at most that start of one line.
int csvQuoteCommand(const std::string& path) {
    Str held;             // the line so far, while it needs no quotes
    bool quoted = false;  // the current line has started quoted: the rest streams out
    const auto special = [](char c) { return c == ',' || c == '"' || c == '\r'; };
    const auto writeQuotedRun = [](std::string_view text) {
        for (std::size_t quote; (quote = text.find('"')) != std::string_view::npos;) {
            out().write(text.substr(0, quote + 1));
            out().write("\"");
            text.remove_prefix(quote + 1);
        }
        out().write(text);
    };
    const bool ok = forEachChunk(path, [&](std::string_view chunk) {
        while (!chunk.empty()) {
            const std::size_t nl = chunk.find('\n');
            const std::string_view piece = chunk.substr(0, nl);
            if (!quoted && std::find_if(piece.begin(), piece.end(), special) != piece.end()) {
                out().write("\"");
                writeQuotedRun(held.view());
                held.clear();
                quoted = true;
            }
            if (quoted) {
                writeQuotedRun(piece);
            } else {
                held.append(piece);
            }
            if (nl == std::string_view::npos) break;
            if (quoted) {
                out().write("\"\n");
            } else {
                held.push_back('\n');
                out().write(held);
                held.clear();
            }
            quoted = false;
            chunk.remove_prefix(nl + 1);
        }
    });
    if (quoted) {
        out().write("\"\n");
    } else if (!held.empty()) {
        held.push_back('\n');
        out().write(held);
    }
    return ok ? kOk : kNegative;
}

// --- regex ---

// Whether a pattern that finds nothing in a run of whole lines searched as one text (with ^ and $
// at every line's ends) can be trusted to find nothing in any one of them. It can unless it
// looks past a line's ends or gives up for every position at once: lookaround and the other
// "(?" groups, "(*" verbs, \A \Z \z \G, possessive quantifiers. Judged from the text, erring on
// the side of no (an escaped "\(?" counts too).
bool searchableAsOneText(std::string_view pattern) {
    for (std::string_view unsafe : {"(?", "(*", "\\A", "\\Z", "\\z", "\\G", "*+", "++", "?+", "}+"}) {
        if (pattern.find(unsafe) != std::string_view::npos) return false;
    }
    return true;
}

// grep -P's statuses: 0 when a line matched, 1 when none did, 2 when a limit or an error stopped
// the search of any line (the other lines are still searched and printed).
int regexCommand(const std::string& pattern, bool onlyMatching, bool json, const std::string& path) {
    // Characters, not bytes, where the text is UTF-8 ("." is "é"); other input is searched as
    // bytes. A pattern that is no UTF-8 itself is taken as bytes.
    Regex re;
    if (!re.compile(StrSegment(pattern), REGEX_UTF).ok()) {
        if (const Status st = re.compile(StrSegment(pattern)); !st) {
            diagnose(strprintf("bad pattern at offset %zu: %s", st.offset(), st.text()).view());
            return kUsage;
        }
    }
    std::uint64_t lineNumber = 0;
    bool matched = false, stopped = false;
    RegexMatch m;
    Str text;
    const auto stoppedAt = [&](RegexResult result, const RegexMatch& at) {
        stopped = true;
        diagnose(strprintf("line %llu: %s", static_cast<unsigned long long>(lineNumber),
                           result == REGEX_LIMIT ? strprintf("%s exceeded", at.limitName()).view()
                                                 : std::string_view("the match failed")));
    };
    // Whole lines of a block are checked for UTF-8 once, together; a line found valid that way
    // is matched without PCRE2's check of each subject.
    bool linesValid = false;
    const auto eachLine = [&](std::string_view line) {
        ++lineNumber;
        const bool hasEnd = !line.empty() && line.back() == '\n';
        const StrSegment body(line.substr(0, line.size() - (hasEnd ? 1 : 0)));
        if (!json && !onlyMatching) {  // the line itself, once: no copy of it is made
            const RegexResult result = linesValid ? re.matchValidUtf8(body, 0, m) : re.match(body, 0, m);
            if (result) {
                matched = true;
                out().write(line);
                if (!hasEnd) out().write("\n");
            } else if (result != REGEX_NO_MATCH) {
                stoppedAt(result, m);
            }
            return;
        }
        RegexMatchIterator it(re, body);
        while (it.next()) {
            const RegexMatch& match = it.match();
            matched = true;
            if (!json) {
                if (match.begin(0) == match.end(0)) continue;  // as grep -o: no empty matches
                out().write(match.group(0).view());
                out().write("\n");
                continue;
            }
            text.clear();
            appendf(text, "{\"line\":%llu,\"offset\":%llu,\"match\":\"",
                    static_cast<unsigned long long>(lineNumber),
                    static_cast<unsigned long long>(match.begin(0)));
            appendJsonEscaped(text, match.group(0));
            text.append("\",\"groups\":{");
            bool first = true;
            for (const Str& name : re.groupNames()) {
                text.append(first ? "\"" : ",\"");
                first = false;
                appendJsonEscaped(text, name);
                text.append("\":");
                if (match.hasNamed(name)) {
                    text.push_back('"');
                    appendJsonEscaped(text, match.named(name));
                    text.push_back('"');
                } else {
                    text.append("null");
                }
            }
            text.append("}}\n");
            out().write(text);
        }
        if (it.status() != REGEX_NO_MATCH) stoppedAt(it.status(), it.match());
    };
    // Printing whole lines, a run of lines is searched as one text first, as grep does, when
    // that is sure to miss no line: only the lines that hold a match are then matched alone, so
    // a pattern that rarely matches costs one search a block instead of one a line.
    Regex wholeRun;
    const bool runs = !json && !onlyMatching && searchableAsOneText(pattern) &&
                      wholeRun.compile(StrSegment(pattern), re.options() | REGEX_MULTILINE).ok();
    RegexMatch found;
    const auto eachRun = [&](std::string_view lines) {
        std::size_t at = 0;
        unsigned adjacent = 0;  // candidates in consecutive lines: matches are dense here
        while (runs && at < lines.size() && adjacent < 8) {
            const StrSegment run(lines);
            const RegexResult result =
                linesValid ? wholeRun.matchValidUtf8(run, at, found) : wholeRun.match(run, at, found);
            if (result == REGEX_NO_MATCH) {
                lineNumber += countByte(run, '\n', at);
                return;
            }
            if (!result) break;  // a limit on the whole run: line by line, where limits are the lines'
            const std::size_t hit = std::min<std::size_t>(found.begin(0), lines.size() - 1);
            const std::size_t lineStart = hit == 0 ? 0 : lines.rfind('\n', hit - 1) + 1;
            if (lineStart < at) break;  // cannot happen: the search starts at a line start
            const std::size_t lineEnd = lines.find('\n', hit) + 1;
            adjacent = lineStart == at ? adjacent + 1 : 0;
            lineNumber += countByte(run, '\n', at, lineStart - at);
            eachLine(lines.substr(lineStart, lineEnd - lineStart));
            at = lineEnd;
        }
        while (at < lines.size()) {
            const std::size_t end = lines.find('\n', at) + 1;
            eachLine(lines.substr(at, end - at));
            at = end;
        }
    };
    std::string pending;  // a line that crosses blocks
    const bool ok = forEachChunk(path, [&](std::string_view chunk) {
        const std::size_t lastEnd = chunk.rfind('\n');
        if (lastEnd == std::string_view::npos) {
            pending.append(chunk);
            return;
        }
        std::size_t start = 0;
        if (!pending.empty()) {
            start = chunk.find('\n') + 1;
            pending.append(chunk.substr(0, start));
            linesValid = false;
            eachLine(pending);
            pending.clear();
        }
        const std::string_view lines = chunk.substr(start, lastEnd + 1 - start);
        linesValid = (re.options() & REGEX_UTF) != 0 && isValidUtf8(StrSegment(lines));
        eachRun(lines);
        pending.append(chunk.substr(lastEnd + 1));
    });
    linesValid = false;
    if (ok && !pending.empty()) eachLine(pending);
    if (!ok) return kNegative;
    return stopped ? kUsage : matched ? kOk : kNegative;
}

}  // namespace

int printfArguments(std::vector<std::string> arguments, Context& context) {
    if (!arguments.empty() && arguments.front() == "--") arguments.erase(arguments.begin());
    if (arguments.empty()) {
        diagnose("printf needs a FORMAT (see: vestra printf --help)");
        return kUsage;
    }
    const std::string format = arguments.front();
    arguments.erase(arguments.begin());
    return printfCommand(format, arguments, context);
}

namespace {

// vestra printf FORMAT [ARG...]
class PrintfCommand final : public Command {
  public:
    explicit PrintfCommand(Context& context) : _context(context) {}
    CLI::App* define(CLI::App& parent) override {
        _app = parent.add_subcommand(
            "printf",
            "Format with the library's printf; arguments are typed by their conversion.\n"
            "Example: vestra printf '%-6s|%08.3f|%x\\n' name 3.14159 255");
        // Everything after the format is an argument, however it looks ("-x", "--help", "-inf").
        _app->prefix_command();
        _app->footer(
            "FORMAT: the format, with printf(1)'s backslash escapes; integers are 64-bit.\n"
            "ARG: the arguments, whatever they look like; the format is used again while some remain,\n"
            "and a missing one is empty or zero.");
        return _app;
    }
    int run() override { return printfArguments(_app->remaining(), _context); }

  private:
    Context& _context;  // numeric arguments that do not convert set its status as they go
    CLI::App* _app = nullptr;
};

// vestra hexdump [FILE]
class HexdumpCommand final : public Command {
  public:
    CLI::App* define(CLI::App& parent) override {
        CLI::App* hexdump = parent.add_subcommand(
            "hexdump", "Canonical hex dump, as hexdump -C -v writes it.\nExample: vestra hexdump /bin/true");
        hexdump->add_option("FILE", _path, "the input, - for standard input")->capture_default_str();
        return hexdump;
    }
    int run() override { return hexdumpCommand(_path); }

  private:
    std::string _path = "-";
};

// vestra hex encode|decode [FILE]
class HexCommand final : public Command {
  public:
    CLI::App* define(CLI::App& parent) override {
        CLI::App* hex = parent.add_subcommand(
            "hex", "Bytes to hexadecimal digits and back.\nExample: printf 'hi' | vestra hex encode");
        hex->add_option("ACTION", _action, "encode or decode")
            ->required()
            ->check(CLI::IsMember({"encode", "decode"}));
        hex->add_option("FILE", _path, "the input, - for standard input")->capture_default_str();
        return hex;
    }
    int run() override { return _action == "encode" ? hexEncodeCommand(_path) : hexDecodeCommand(_path); }

  private:
    std::string _action, _path = "-";
};

// vestra utf8 ACTION [N] [FILE]
class Utf8Command final : public Command {
  public:
    CLI::App* define(CLI::App& parent) override {
        CLI::App* utf8 = parent.add_subcommand(
            "utf8",
            "Measure, check and change UTF-8 text; all but count and validate work line by line.\n"
            "Example: vestra utf8 truncate 10 notes.txt");
        utf8->add_option("ACTION", _action, "count, width, validate, upper, lower or truncate")
            ->required()
            ->check(CLI::IsMember({"count", "width", "validate", "upper", "lower", "truncate"}));
        utf8->add_option("ARGS", _arguments,
                         "for truncate the character count N first; then the input (- for standard input)");
        return utf8;
    }
    int run() override {
        std::vector<std::string> rest = _arguments;
        std::uint64_t n = 0;
        if (_action == "truncate") {
            if (rest.empty()) {
                diagnose("utf8 truncate needs a character count N (see: vestra utf8 --help)");
                return kUsage;
            }
            if (!decimalCount(rest[0], n)) {
                diagnose("utf8 truncate: '" + rest[0] +
                         "' is not a count of characters from 0 to 18446744073709551615 (see: "
                         "vestra utf8 --help)");
                return kUsage;
            }
            rest.erase(rest.begin());
        }
        if (rest.size() > 1) {
            diagnose("utf8: one input at most (see: vestra utf8 --help)");
            return kUsage;
        }
        return utf8Command(_action, n, rest.empty() ? "-" : rest[0]);
    }

  private:
    std::string _action;
    std::vector<std::string> _arguments;
};

// vestra url encode|decode [FILE]
class UrlCommand final : public Command {
  public:
    CLI::App* define(CLI::App& parent) override {
        CLI::App* url =
            parent.add_subcommand("url",
                                  "Percent-encoding of everything outside A-Z a-z 0-9 - _ . ~, and back.\n"
                                  "Example: vestra url encode <<< 'a b&c'");
        url->add_option("ACTION", _action, "encode or decode")
            ->required()
            ->check(CLI::IsMember({"encode", "decode"}));
        url->add_option("FILE", _path, "the input, - for standard input")->capture_default_str();
        return url;
    }
    int run() override { return urlCommand(_action, _path); }

  private:
    std::string _action, _path = "-";
};

// vestra csv quote [FILE]
class CsvCommand final : public Command {
  public:
    CLI::App* define(CLI::App& parent) override {
        CLI::App* csv = parent.add_subcommand(
            "csv", "Quote each line as one CSV field.\nExample: vestra csv quote <<< 'a,\"b\"'");
        csv->add_option("ACTION", _action, "quote")->required()->check(CLI::IsMember({"quote"}));
        csv->add_option("FILE", _path, "the input, - for standard input")->capture_default_str();
        return csv;
    }
    int run() override { return csvQuoteCommand(_path); }

  private:
    std::string _action, _path = "-";
};

// vestra regex [-o] [--json] PATTERN [FILE]
class RegexCommand final : public Command {
  public:
    CLI::App* define(CLI::App& parent) override {
        CLI::App* regex =
            parent.add_subcommand("regex",
                                  "Lines that match a PCRE2 pattern; exit 1 when none does.\n"
                                  "Example: vestra regex -o --json '(?<user>\\w+)@(?<host>\\S+)' mail.log");
        regex->add_flag("-o,--only-matching", _onlyMatching, "each match, not the whole line");
        regex->add_flag("--json", _json,
                        "one JSON object per match: line, offset, match and the named groups");
        regex->add_option("PATTERN", _pattern, "the pattern")->required();
        regex->add_option("FILE", _path, "the input, - for standard input")->capture_default_str();
        return regex;
    }
    int run() override { return regexCommand(_pattern, _onlyMatching, _json, _path); }

  private:
    std::string _pattern, _path = "-";
    bool _onlyMatching = false, _json = false;
};

}  // namespace

void addTextCommands(CLI::App& app, Context& context) {
    context.add<PrintfCommand>(app, context);
    context.add<HexdumpCommand>(app);
    context.add<HexCommand>(app);
    context.add<Utf8Command>(app);
    context.add<UrlCommand>(app);
    context.add<CsvCommand>(app);
    context.add<RegexCommand>(app);
}

}  // namespace vestra::tool
