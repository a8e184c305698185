// vestra printf, hexdump, hex, utf8, url, csv and regex.
#include <cstdlib>
#include <string>
#include <vector>

#include "basicutil/BasicConversions.h"
#include "basicutil/HexDumper.h"
#include "basicutil/PrintHexBytes.h"
#include "basicutil/PrintfFormat.h"
#include "basicutil/Regex.h"
#include "basicutil/StrCase.h"
#include "basicutil/StrEscape.h"
#include "basicutil/StrUtf8.h"
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

// A numeric argument as printf(1) takes it: C integer syntax (0x.., 0..), or 'c / "c for the
// character's code. Bad text is diagnosed, counts as 0, and makes the exit status 1.
template <typename T, typename Parse>
T numericArgument(const std::string& text, Context& context, Parse parse) {
    if (text.size() >= 2 && (text[0] == '\'' || text[0] == '"'))
        return static_cast<T>(static_cast<unsigned char>(text[1]));
    errno = 0;
    char* end = nullptr;
    const T value = parse(text.c_str(), &end);
    if (text.empty() || end == text.c_str() || *end != '\0' || errno == ERANGE) {
        diagnose("'" + text + "': " + (errno == ERANGE ? "out of range" : "expected a numeric value"));
        context.status = kNegative;
    }
    return value;
}

int printfCommand(const std::string& formatText, const std::vector<std::string>& arguments,
                  Context& context) {
    const std::string format = unescapeFormat(formatText);
    Str output;
    std::size_t next = 0;
    std::vector<std::string> keep;  // the texts the string arguments point into
    keep.reserve(arguments.size() + 64);
    do {
        std::vector<PrintfArg> args;
        StrSegment rest(format);
        PrintfFormatAtom atom;
        bool consumed = false;
        const auto take = [&]() -> const std::string& {
            static const std::string empty;
            consumed = true;
            return next < arguments.size() ? arguments[next++] : empty;
        };
        while (atom.getNext(rest)) {
            if (atom.conversion == PrintfFormatAtom::CONV_CONSTANT_STRING) continue;
            if (atom.conversion == PrintfFormatAtom::CONV_POINTER ||
                atom.conversion == PrintfFormatAtom::CONV_ERRNO_STRING) {
                diagnose("%p and %m take nothing from the command line");
                return kUsage;
            }
            for (std::uint8_t flag :
                 {PrintfFormatAtom::FLAG_VARIABLE_WIDTH, PrintfFormatAtom::FLAG_VARIABLE_PRECISION}) {
                if (atom.has(flag))
                    args.emplace_back(numericArgument<long long>(
                        take(), context, [](const char* s, char** e) { return std::strtoll(s, e, 0); }));
            }
            const std::string& text = take();
            if (atom.conversion == PrintfFormatAtom::CONV_SIGNED_DECIMAL) {
                args.emplace_back(numericArgument<long long>(
                    text, context, [](const char* s, char** e) { return std::strtoll(s, e, 0); }));
            } else if (atom.isInteger()) {
                args.emplace_back(numericArgument<unsigned long long>(
                    text, context, [](const char* s, char** e) { return std::strtoull(s, e, 0); }));
            } else if (atom.isFloat()) {
                args.emplace_back(
                    text.empty() ? 0.0 : numericArgument<double>(text, context, [](const char* s, char** e) {
                        return std::strtod(s, e);
                    }));
            } else if (atom.conversion == PrintfFormatAtom::CONV_CHAR) {
                args.emplace_back(text.empty() ? '\0' : text[0]);
            } else {
                keep.push_back(text);
                args.emplace_back(std::string_view(keep.back()));
            }
        }
        appendPrintf(PrintfOutput(output), StrSegment(format), args);
        if (!consumed) break;  // a format without conversions is written once
    } while (next < arguments.size());
    out().write(output);
    return context.status;
}

// --- hexdump and hex ---

// Dumps in whole lines of 16 bytes, moving each line's offset on by what came before.
class StreamingDump {
  public:
    void add(std::string_view bytes) {
        _pending.append(bytes);
        const std::size_t whole = _pending.size() / 16 * 16;
        if (whole >= 4096) dump(whole, false);
    }
    void finish() { dump(_pending.size(), true); }

  private:
    void dump(std::size_t n, bool last) {
        Str text;
        HexDumper_to_Str dumper(text);
        dumper.do_dump(_pending.data(), n);
        // Each line starts with its offset in at least 8 hex digits; the last line is the total.
        std::size_t start = 0;
        while (start < text.size()) {
            const std::size_t nl = text.view().find('\n', start);
            const std::size_t digits = text.view().find_first_not_of("0123456789abcdef", start);
            std::uint64_t offset = 0;
            for (std::size_t i = start; i < digits; ++i) {
                const char h = text[i];
                offset = offset * 16 + static_cast<std::uint64_t>(h <= '9' ? h - '0' : h - 'a' + 10);
            }
            const bool totalLine = nl + 1 == text.size();
            if (!totalLine || last) {
                Str line;
                appendHex(line, _base + offset, 8);
                line.append(text.data() + digits, nl + 1 - digits);
                out().write(line);
            }
            start = nl + 1;
        }
        _base += n;
        _pending.erase(0, n);
    }

    std::string _pending;
    std::uint64_t _base = 0;
};

int hexdumpCommand(const std::string& path) {
    StreamingDump dump;
    if (!forEachChunk(path, [&](std::string_view chunk) { dump.add(chunk); })) return kNegative;
    dump.finish();
    return kOk;
}

int hexEncodeCommand(const std::string& path) {
    static const char digits[] = "0123456789abcdef";
    const bool ok = forEachChunk(path, [](std::string_view chunk) {
        std::string text;
        text.reserve(chunk.size() * 2);
        for (char byte : chunk) {
            const auto c = static_cast<unsigned char>(byte);
            text.push_back(digits[c >> 4]);
            text.push_back(digits[c & 15]);
        }
        out().write(text);
    });
    out().write("\n");
    return ok ? kOk : kNegative;
}

int hexDecodeCommand(const std::string& path) {
    // Pairs of digits; blanks and line ends between pairs are allowed.
    int status = kOk;
    std::string digits;
    const bool ok = forEachChunk(path, [&](std::string_view chunk) {
        for (char c : chunk) {
            if (c == ' ' || c == '\t' || c == '\n' || c == '\r') continue;
            digits.push_back(c);
        }
        const std::size_t even = digits.size() / 2 * 2;
        if (even == 0 || status != kOk) return;
        std::string bytes(even / 2, '\0');
        std::size_t written = 0;
        if (!parse_from_hex(digits.data(), digits.data() + even,
                            reinterpret_cast<unsigned char*>(bytes.data()), bytes.size(), written)) {
            diagnose("not hexadecimal digit pairs");
            status = kNegative;
            return;
        }
        out().write(std::string_view(bytes.data(), written));
        digits.erase(0, even);
    });
    if (ok && status == kOk && !digits.empty()) {
        diagnose("an odd number of hexadecimal digits");
        status = kNegative;
    }
    return ok ? status : kNegative;
}

// --- utf8 ---

// Hands on whole characters only, carrying a sequence cut by a chunk's end to the next.
class CharacterChunks {
  public:
    template <typename F>
    void add(std::string_view chunk, F&& f) {
        _carry.append(chunk);
        std::size_t end = _carry.size();
        for (std::size_t back = 1; back <= 3 && back <= _carry.size(); ++back) {
            const auto b = static_cast<unsigned char>(_carry[_carry.size() - back]);
            if ((b & 0xC0) == 0x80) continue;
            if (utf8SequenceLength(b) > back) end = _carry.size() - back;
            break;
        }
        f(std::string_view(_carry.data(), end));
        _carry.erase(0, end);
    }
    template <typename F>
    void finish(F&& f) {
        if (!_carry.empty()) f(std::string_view(_carry));
        _carry.clear();
    }

  private:
    std::string _carry;
};

int utf8Command(const std::string& action, std::uint64_t n, const std::string& path) {
    if (action == "count" || action == "validate") {
        CharacterChunks chunks;
        std::uint64_t count = 0;
        bool valid = true;
        const auto each = [&](std::string_view text) {
            count += mem_count_utf8_codepoints(text.data(), text.size());
            if (valid && !isValidUtf8(StrSegment(text))) valid = false;
        };
        if (!forEachChunk(path, [&](std::string_view chunk) { chunks.add(chunk, each); })) return kNegative;
        chunks.finish(each);
        if (action == "count") {
            out().write(strprintf("%llu\n", static_cast<unsigned long long>(count)));
            return kOk;
        }
        if (!valid) {
            diagnose(path + ": not valid UTF-8");
            return kNegative;
        }
        return kOk;
    }
    // The rest work line by line, the line end kept.
    const bool ok = forEachLine(path, [&](std::string_view line) {
        const bool hasEnd = !line.empty() && line.back() == '\n';
        const StrSegment body(line.substr(0, line.size() - (hasEnd ? 1 : 0)));
        Str result;
        if (action == "width") {
            result = strprintf("%llu", static_cast<unsigned long long>(utf8DisplayWidth(body)));
        } else if (action == "upper") {
            result = toUpperCopy(body);
        } else if (action == "lower") {
            result = toLowerCopy(body);
        } else {  // truncate
            StrSegment cut = body;
            utf8_character_count_truncate(cut, n);
            result = Str(cut);
        }
        if (hasEnd || action == "width") result.push_back('\n');
        out().write(result);
    });
    return ok ? kOk : kNegative;
}

// --- url, csv ---

int urlCommand(const std::string& action, const std::string& path) {
    if (action == "encode") {
        const bool ok =
            forEachChunk(path, [](std::string_view chunk) { out().write(urlEncode(StrSegment(chunk))); });
        out().write("\n");
        return ok ? kOk : kNegative;
    }
    int status = kOk;
    const bool ok = forEachLine(path, [&](std::string_view line) {
        const bool hasEnd = !line.empty() && line.back() == '\n';
        Str text(line.substr(0, line.size() - (hasEnd ? 1 : 0)));
        if (!urlDecodeInPlace(text)) status = kNegative;  // decoded, but not UTF-8
        if (hasEnd) text.push_back('\n');
        out().write(text);
    });
    if (status != kOk) diagnose("the decoded text is not valid UTF-8");
    return ok ? status : kNegative;
}

int csvQuoteCommand(const std::string& path) {
    const bool ok = forEachLine(path, [](std::string_view line) {
        const bool hasEnd = !line.empty() && line.back() == '\n';
        Str field;
        appendCsvField(field, StrSegment(line.substr(0, line.size() - (hasEnd ? 1 : 0))));
        field.push_back('\n');
        out().write(field);
    });
    return ok ? kOk : kNegative;
}

// --- regex ---

void appendJsonString(std::string& out, std::string_view text) {
    out.push_back('"');
    for (char byte : text) {
        const auto c = static_cast<unsigned char>(byte);
        if (c == '"' || c == '\\') {
            out.push_back('\\');
            out.push_back(static_cast<char>(c));
        } else if (c < 0x20) {
            static const char digits[] = "0123456789abcdef";
            out.append("\\u00");
            out.push_back(digits[c >> 4]);
            out.push_back(digits[c & 15]);
        } else {
            out.push_back(static_cast<char>(c));
        }
    }
    out.push_back('"');
}

int regexCommand(const std::string& pattern, bool onlyMatching, bool json, const std::string& path) {
    Regex re;
    if (!re.compile(StrSegment(pattern))) {
        diagnose(strprintf("bad pattern at offset %zu: %s", static_cast<std::size_t>(re.errorOffset()),
                           re.errorText().c_str())
                     .view());
        return kUsage;
    }
    std::uint64_t lineNumber = 0, matches = 0;
    int status = kOk;
    const bool ok = forEachLine(path, [&](std::string_view line) {
        ++lineNumber;
        const std::string_view body =
            line.substr(0, line.size() - (!line.empty() && line.back() == '\n' ? 1 : 0));
        RegexMatchIterator it(re, StrSegment(body));
        bool lineMatched = false;
        while (it.next()) {
            const RegexMatch& m = it.match();
            ++matches;
            lineMatched = true;
            if (json) {
                std::string text = "{\"line\":" + std::to_string(lineNumber) +
                                   ",\"offset\":" + std::to_string(m.begin(0)) + ",\"match\":";
                appendJsonString(text, m.group(0).view());
                text += ",\"groups\":{";
                bool first = true;
                for (const Str& name : re.groupNames()) {
                    if (!first) text += ",";
                    first = false;
                    appendJsonString(text, name.view());
                    text += ":";
                    if (m.hasNamed(name)) {
                        appendJsonString(text, m.named(name).view());
                    } else {
                        text += "null";
                    }
                }
                text += "}}\n";
                out().write(text);
            } else if (onlyMatching) {
                out().write(std::string(m.group(0).view()) + "\n");
            } else {
                break;  // the line once
            }
        }
        if (it.status() == REGEX_LIMIT) {
            diagnose(strprintf("line %llu: %s exceeded", static_cast<unsigned long long>(lineNumber),
                               it.match().limitName())
                         .view());
            status = kNegative;
        }
        if (lineMatched && !json && !onlyMatching) out().write(std::string(body) + "\n");
    });
    if (!ok) return kNegative;
    return status != kOk ? status : matches > 0 ? kOk : kNegative;
}

}  // namespace

void addTextCommands(CLI::App& app, Context& context) {
    static std::string format, path = "-", action, pattern;
    static std::vector<std::string> arguments;
    static bool onlyMatching = false, json = false;

    CLI::App* printf =
        app.add_subcommand("printf",
                           "Format with the library's printf; arguments are typed by their conversion.\n"
                           "Example: vestra printf '%-6s|%08.3f|%x\\n' name 3.14159 255");
    printf->add_option("FORMAT", format, "the format, with printf(1)'s backslash escapes")->required();
    printf->add_option("ARG", arguments, "the arguments; the format is used again while some remain");
    printf->callback([&context] { context.status = printfCommand(format, arguments, context); });

    CLI::App* hexdump = app.add_subcommand(
        "hexdump", "Canonical hex dump, as hexdump -C -v writes it.\nExample: vestra hexdump /bin/true");
    hexdump->add_option("FILE", path, "the input, - for standard input")->capture_default_str();
    hexdump->callback([&context] { context.status = hexdumpCommand(path); });

    CLI::App* hex = app.add_subcommand(
        "hex", "Bytes to hexadecimal digits and back.\nExample: printf 'hi' | vestra hex encode");
    hex->add_option("ACTION", action, "encode or decode")
        ->required()
        ->check(CLI::IsMember({"encode", "decode"}));
    hex->add_option("FILE", path, "the input, - for standard input")->capture_default_str();
    hex->callback([&context] {
        context.status = action == "encode" ? hexEncodeCommand(path) : hexDecodeCommand(path);
    });

    CLI::App* utf8 = app.add_subcommand(
        "utf8",
        "Measure, check and change UTF-8 text; all but count and validate work line by line.\n"
        "Example: vestra utf8 truncate 10 notes.txt");
    utf8->add_option("ACTION", action, "count, width, validate, upper, lower or truncate")
        ->required()
        ->check(CLI::IsMember({"count", "width", "validate", "upper", "lower", "truncate"}));
    utf8->add_option("ARGS", arguments,
                     "for truncate the character count N first; then the input (- for standard input)");
    utf8->callback([&context] {
        std::vector<std::string> rest = arguments;
        std::uint64_t n = 0;
        if (action == "truncate") {
            char* end = nullptr;
            if (rest.empty() || (n = std::strtoull(rest[0].c_str(), &end, 10), *end != '\0') ||
                rest[0].empty()) {
                diagnose("utf8 truncate needs a character count N (see: vestra utf8 --help)");
                context.status = kUsage;
                return;
            }
            rest.erase(rest.begin());
        }
        if (rest.size() > 1) {
            diagnose("utf8: one input at most (see: vestra utf8 --help)");
            context.status = kUsage;
            return;
        }
        context.status = utf8Command(action, n, rest.empty() ? "-" : rest[0]);
    });

    CLI::App* url =
        app.add_subcommand("url",
                           "Percent-encoding of everything outside A-Z a-z 0-9 - _ . ~, and back.\n"
                           "Example: vestra url encode <<< 'a b&c'");
    url->add_option("ACTION", action, "encode or decode")
        ->required()
        ->check(CLI::IsMember({"encode", "decode"}));
    url->add_option("FILE", path, "the input, - for standard input")->capture_default_str();
    url->callback([&context] { context.status = urlCommand(action, path); });

    CLI::App* csv = app.add_subcommand(
        "csv", "Quote each line as one CSV field.\nExample: vestra csv quote <<< 'a,\"b\"'");
    csv->add_option("ACTION", action, "quote")->required()->check(CLI::IsMember({"quote"}));
    csv->add_option("FILE", path, "the input, - for standard input")->capture_default_str();
    csv->callback([&context] { context.status = csvQuoteCommand(path); });

    CLI::App* regex =
        app.add_subcommand("regex",
                           "Lines that match a PCRE2 pattern; exit 1 when none does.\n"
                           "Example: vestra regex -o --json '(?<user>\\w+)@(?<host>\\S+)' mail.log");
    regex->add_flag("-o,--only-matching", onlyMatching, "each match, not the whole line");
    regex->add_flag("--json", json, "one JSON object per match: line, offset, match and the named groups");
    regex->add_option("PATTERN", pattern, "the pattern")->required();
    regex->add_option("FILE", path, "the input, - for standard input")->capture_default_str();
    regex->callback([&context] { context.status = regexCommand(pattern, onlyMatching, json, path); });
}

}  // namespace vestra::tool
