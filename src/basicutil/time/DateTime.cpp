// Compiling formats and rendering times; parsing is in DateTimeParse.cpp.
#include "basicutil/time/DateTime.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>

#include "basicutil/platform/Assert.h"
#include "basicutil/platform/StartupOrder.h"
#include "basicutil/text/DecimalText.h"
#include "basicutil/time/DateTime_details.h"

namespace basicutil {

const char* const kStandardTimeFormatTexts[6] = {"%FT%T%:z",
                                                 "%FT%T.%Q%:z",
                                                 "%A, %d-%b-%y %H:%M:%S GMT",
                                                 "%a, %d %b %Y %H:%M:%S GMT",
                                                 "%a %b %e %H:%M:%S %Y",
                                                 "%a %b %e %H:%M:%S %Y %z"};

namespace {

struct Composite {
    char letter;
    const char* expansion;
    std::size_t atoms;  // what the expansion compiles to: the first pass counts with these
};

constexpr Composite kComposites[] = {
    {'D', "%m/%d/%y", 5},
    {'F', "%Y-%m-%d", 5},
    {'T', "%H:%M:%S", 5},
    {'X', "%H:%M:%S", 5},
    {'R', "%H:%M", 3},
    {'r', "%I:%M:%S %p", 7},
    {'c', "%a %b %e %H:%M:%S %Y", 13},
    {'+', "%a %b %e %H:%M:%S %Z %Y", 15},
    {'v', "%e-%b-%Y", 5},
    {'x', "%a %b %e %Y", 7},
};

const Composite* compositeOf(char letter) noexcept {
    for (const Composite& c : kComposites) {
        if (c.letter == letter) return &c;
    }
    return nullptr;
}

}  // namespace

const TimeFormat& date_time_details::compositeFormat(char letter) {
    static const struct Expansions {
        TimeFormat formats[std::size(kComposites)];
        Expansions() {
            for (std::size_t i = 0; i < std::size(kComposites); ++i) {
                const bool ok = formats[i]._setFtime(kComposites[i].expansion);
                VESTRA_ASSERT(ok);
            }
        }
    } expansions;
    const Composite* composite = compositeOf(letter);
    VESTRA_ASSERT(composite != nullptr);
    return expansions.formats[composite - kComposites];
}

namespace {

int punctuationIndex(char c) noexcept {
    for (std::size_t i = 0; i < sizeof TimeFormat::kPunctuation; ++i) {
        if (TimeFormat::kPunctuation[i] == c) return static_cast<int>(i);
    }
    return -1;
}

// The conversion a letter stands for; LITERAL for an unknown letter.
TimeFormat::What whatOf(char letter) noexcept {
    switch (letter) {
        case 'a':
        case 'A':
            return TimeFormat::WEEKDAY_NAME;
        case 'b':
        case 'h':
        case 'B':
            return TimeFormat::MONTH_NAME;
        case 'C':
            return TimeFormat::CENTURY;
        case 'd':
        case 'e':
            return TimeFormat::MONTHDAY_NUM;
        case 'G':
            return TimeFormat::ISO_YEAR;
        case 'g':
            return TimeFormat::ISO_YEAR2;
        case 'H':
        case 'k':
            return TimeFormat::HOUR24_NUM;
        case 'I':
        case 'l':
            return TimeFormat::HOUR12_NUM;
        case 'j':
            return TimeFormat::YDAY_NUM;
        case 'M':
            return TimeFormat::MINUTE_NUM;
        case 'S':
            return TimeFormat::SECOND_NUM;
        case 'm':
            return TimeFormat::MONTH_NUM;
        case 'n':
        case 't':
            return TimeFormat::WHITESPACE;
        case 'p':
        case 'P':
            return TimeFormat::MERIDIAN;
        case 'N':
        case 'Q':
        case 'f':
        case 'q':
            return TimeFormat::SUBSECONDS;
        case 's':
            return TimeFormat::EPOCH;
        case 'U':
        case 'W':
        case 'V':
            return TimeFormat::MONTHWEEK_NUM;
        case 'u':
        case 'w':
            return TimeFormat::WEEKDAY_NUM;
        case 'Y':
        case 'o':
            return TimeFormat::YEAR_NUM;
        case 'y':
            return TimeFormat::YEAR2_NUM;
        case 'Z':
            return TimeFormat::TZ_AS_NEEDEDOFFSET;
        case 'z':
            return TimeFormat::TZ_AS_SECOFFSET;
        default:
            return TimeFormat::LITERAL;
    }
}

}  // namespace

// One walk over format text. Counting (no atoms given) and writing take the same steps, so the
// count of the first pass is what the second writes.
struct TimeFormat::Compiler {
    TimeFormat& format;
    Atom* atoms = nullptr;  // null while counting
    std::size_t capacity = 0;
    Atom* a = nullptr;
    std::size_t count = 0;
    bool inLiteral = false;  // the last atom is a literal run that may grow

    Atom* next() {
        ++count;
        inLiteral = false;
        if (atoms == nullptr) return nullptr;
        VESTRA_ASSERT_TEXT(a < &atoms[capacity], "a < &_atoms[n]");
        return a++;
    }

    void literalChar(char c) {
        if (inLiteral) {
            if (atoms == nullptr) return;
            VESTRA_ASSERT_TEXT(a > atoms, "a > _atoms");
            Atom& run = a[-1];
            if (run.what == PUNCT) {  // a second character: the run needs text of its own
                const char first = kPunctuation[run.x.tmp];
                run.what = LITERAL;
                run.x.text = {static_cast<std::uint32_t>(format._literals.size()), 1};
                format._literals.push_back(first);
            }
            format._literals.push_back(c);
            ++run.x.text.length;
            return;
        }
        Atom* atom = next();
        inLiteral = true;
        if (atom == nullptr) return;
        const int punct = punctuationIndex(c);
        if (punct >= 0) {
            atom->what = PUNCT;
            atom->x.tmp = static_cast<std::uint8_t>(punct);
        } else {
            atom->what = LITERAL;
            atom->x.text = {static_cast<std::uint32_t>(format._literals.size()), 1};
            format._literals.push_back(c);
        }
    }

    // Each punctuation character of a composite's expansion is an atom of its own.
    bool expansion(const char* text) {
        for (const char* p = text; *p != '\0'; ++p) {
            if (*p != '%') {
                Atom* atom = next();
                if (atom != nullptr) {
                    const int punct = punctuationIndex(*p);
                    VESTRA_ASSERT(punct >= 0);
                    atom->what = PUNCT;
                    atom->x.tmp = static_cast<std::uint8_t>(punct);
                }
                continue;
            }
            const char* end = p + 2;
            if (!conversion(p, end)) return false;
            p = end - 1;
        }
        return true;
    }

    // The conversion at ftime ("%..."); on success `end` is just past it.
    bool conversion(const char* ftime, const char*& end) {
        const char* p = ftime + 1;
        Padding padding = PAD_DEFAULT;
        Casing casing = CASE_DEFAULT;
        for (;; ++p) {  // flags, each kind at most once
            if (p == end) return false;
            const char c = *p;
            if (c == '#' || c == '^') {
                if (casing != CASE_DEFAULT) return false;
                casing = c == '#' ? CASE_SWAP : CASE_UPPER;
            } else if (c == '-' || c == '_' || c == '0') {
                if (padding != PAD_DEFAULT) return false;
                padding = c == '-' ? PAD_NONE : c == '_' ? PAD_SPACE : PAD_ZERO;
            } else {
                break;
            }
        }
        unsigned width = 0;
        for (; p != end && *p >= '0' && *p <= '9'; ++p) {
            width = width * 10 + static_cast<unsigned>(*p - '0');
            if (width > 255) return false;
        }
        std::uint8_t modifier = 0;
        if (p != end && (*p == 'E' || *p == 'O')) modifier = *p++ == 'E' ? 1 : 2;
        bool colon = false;
        if (p != end && *p == ':') {
            colon = true;
            ++p;
        }
        if (p == end) return false;
        const char letter = *p++;
        if (colon && letter != 'z') return false;
        if (letter == '%') {  // a literal, whatever flags or width it carries
            end = p;
            literalChar('%');
            return true;
        }
        if (const Composite* composite = compositeOf(letter)) {
            end = p;
            if (width != 0 || casing == CASE_UPPER) {  // one field; other flags change nothing
                Atom* atom = next();
                if (atom != nullptr) {
                    atom->what = COMPOSITE;
                    atom->x.conv = {
                        padding,  casing, static_cast<std::uint8_t>(width), static_cast<std::uint8_t>(letter),
                        modifier, 0};
                }
                return true;
            }
            if (atoms == nullptr) {
                count += composite->atoms;
                inLiteral = false;
                return true;
            }
            return expansion(composite->expansion);
        }
        What what = whatOf(letter);
        if (what == LITERAL) return false;
        std::uint8_t written = static_cast<std::uint8_t>(letter);
        if ((letter == 'U' || letter == 'S') && p != end && *p == 'T') {  // %UT, %ST
            what = letter == 'U' ? EPOCH10 : SORTABLE;
            ++p;
        }
        if (what == SUBSECONDS && (width > 9 || padding == PAD_NONE || padding == PAD_SPACE)) return false;
        if ((letter == 'e' || letter == 'k' || letter == 'l') && padding == PAD_DEFAULT) padding = PAD_SPACE;
        end = p;
        Atom* atom = next();
        if (atom != nullptr) {
            atom->what = what;
            atom->x.conv = {padding, casing,   static_cast<std::uint8_t>(width),
                            written, modifier, static_cast<std::uint8_t>(colon ? 1 : 0)};
        }
        return true;
    }

    bool run(const char* ftime, const char* ftime_end) {
        while (ftime != ftime_end) {
            VESTRA_ASSERT(ftime < ftime_end);
            if (*ftime != '%') {
                literalChar(*ftime++);
                continue;
            }
            const char* end = ftime_end;
            if (!conversion(ftime, end)) return false;
            ftime = end;
        }
        VESTRA_ASSERT(ftime == ftime_end);
        return true;
    }
};

TimeFormat::TimeFormat() noexcept = default;

TimeFormat::TimeFormat(StrSegment format) {
    static_cast<void>(_setFtime(format));
}

TimeFormat::~TimeFormat() = default;

bool TimeFormat::_setFtime(StrSegment format) {
    _valid = false;
    _n = 0;
    _atoms.reset();
    _literals.clear();
    _layout.clear();
    _slots.clear();
    _hasLayout = false;
    _subsecondDigits = 0;
    _text = Str(format);
    const char* ftime = _text.data();
    const char* ftime_end = ftime + _text.size();
    Compiler counter{*this};
    if (!counter.run(ftime, ftime_end)) return false;
    _atoms = std::make_unique<Atom[]>(counter.count);
    Compiler writer{*this, _atoms.get(), counter.count, _atoms.get()};
    const bool ok = writer.run(ftime, ftime_end);
    VESTRA_ASSERT(ok && writer.count == counter.count);
    _n = counter.count;
    _valid = true;
    buildLayout();
    static std::atomic<std::uint64_t> serials{0};
    _serial = ++serials;
    for (std::size_t i = 0; i < _n; ++i) {
        const Atom& a = _atoms[i];
        if (a.what == SORTABLE) _subsecondDigits = 6;
        if (a.what == SUBSECONDS) {
            _subsecondDigits = std::max(_subsecondDigits, std::min(subsecondDigitsOf(a), 6u));
        }
    }
    return true;
}

// --- Rendering ---

// Rendered pieces gather in a stack buffer and reach the string in a few appends.
struct TimeFormat::Sink {
    explicit Sink(Str& out) noexcept : _out(out) {}
    void flush() {
        _out.append(_buf, _n);
        _n = 0;
    }
    void append(const char* data, std::size_t k) {
        if (k > sizeof _buf - _n) {
            flush();
            if (k > sizeof _buf) {
                _out.append(data, k);
                return;
            }
        }
        std::memcpy(_buf + _n, data, k);
        _n += k;
    }
    void append(std::size_t k, char c) {
        char* p = appendUninitialized(k);
        std::memset(p, c, k);
    }
    void push_back(char c) {
        if (_n == sizeof _buf) flush();
        _buf[_n++] = c;
    }
    char* appendUninitialized(std::size_t k) {
        if (k > sizeof _buf - _n) {
            flush();
            if (k > sizeof _buf) return _out.appendUninitialized(k);
        }
        char* p = _buf + _n;
        _n += k;
        return p;
    }

    Str& _out;
    std::size_t _n = 0;
    char _buf[256];
};

namespace {

using Sink = TimeFormat::Sink;

char fillOf(TimeFormat::Padding padding) noexcept {
    return padding == TimeFormat::PAD_ZERO ? '0' : ' ';
}

// A number as the C library's strftime writes it: at least `digits` wide, or the width when
// that is more; with "-" only as wide as an explicit width. Zeros go after the sign, blanks
// before it.
void appendNumber(Sink& out, std::int64_t value, unsigned digits, TimeFormat::Padding defaultPadding,
                  const TimeFormat::Atom& atom) {
    if (atom.x.conv.padding == TimeFormat::PAD_DEFAULT && atom.x.conv.width == 0 && digits == 2 &&
        defaultPadding == TimeFormat::PAD_ZERO && value >= 0 && value < 100) {  // most fields
        writeTwoDigits(out.appendUninitialized(2), static_cast<unsigned>(value));
        return;
    }
    if (atom.x.conv.padding == TimeFormat::PAD_DEFAULT && atom.x.conv.width == 0 && digits == 1 &&
        value >= 1000 && value < 10000) {  // years
        writeDecimalDigits(out.appendUninitialized(4), static_cast<std::uint64_t>(value), 4);
        return;
    }
    const TimeFormat::Padding padding =
        atom.x.conv.padding == TimeFormat::PAD_DEFAULT ? defaultPadding : atom.x.conv.padding;
    const unsigned width =
        padding == TimeFormat::PAD_NONE ? atom.x.conv.width : std::max<unsigned>(atom.x.conv.width, digits);
    const std::uint64_t magnitude =
        value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
    char text[kMaxUint64Digits];
    const auto digitCount = static_cast<unsigned>(formatUnsigned(text, magnitude));
    const auto length = digitCount + (value < 0 ? 1 : 0);
    const unsigned fill = width > length ? width - length : 0;
    const char fillChar = padding == TimeFormat::PAD_NONE ? ' ' : fillOf(padding);
    if (fillChar == ' ') out.append(fill, ' ');
    if (value < 0) out.push_back('-');
    if (fillChar == '0') out.append(fill, '0');
    out.append(text, digitCount);
}

// Text, padded to an explicit width (blanks, zeros with "0"), in the case the flags ask.
void appendText(Sink& out, std::string_view text, const TimeFormat::Atom& atom, bool swapToUpper) {
    if (atom.x.conv.casing == TimeFormat::CASE_DEFAULT && atom.x.conv.width == 0) {
        out.append(text.data(), text.size());
        return;
    }
    const bool upper = atom.x.conv.casing == TimeFormat::CASE_UPPER ||
                       (atom.x.conv.casing == TimeFormat::CASE_SWAP && swapToUpper);
    const bool lower = atom.x.conv.casing == TimeFormat::CASE_SWAP && !swapToUpper;
    if (atom.x.conv.width > text.size())
        out.append(atom.x.conv.width - text.size(), fillOf(atom.x.conv.padding));
    char* p = out.appendUninitialized(text.size());
    for (char c : text) {
        if (upper && c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
        if (lower && c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
        *p++ = c;
    }
}

// ISO 8601 week-numbering year and week of a civil date.
void isoWeek(const CivilTime& civil, std::int64_t& isoYear, unsigned& week) noexcept {
    const int mondayBased = static_cast<int>((civil.weekday + 6) % 7);           // 0 = Monday
    const int thursdayYday = static_cast<int>(civil.yearDay) - mondayBased + 3;  // this week's Thursday
    isoYear = civil.year;
    if (thursdayYday < 0) {
        --isoYear;
        const int length = is_leap_year(isoYear) ? 366 : 365;
        week = static_cast<unsigned>((thursdayYday + length) / 7 + 1);
    } else if (thursdayYday >= (is_leap_year(civil.year) ? 366 : 365)) {
        ++isoYear;
        week = 1;
    } else {
        week = static_cast<unsigned>(thursdayYday / 7 + 1);
    }
}

// The number a numeric conversion shows: the one place both renderers take it from. The letter
// tells %U, %W and %V apart, and %u from %w.
[[gnu::always_inline]] inline std::int64_t numericField(TimeFormat::What what, char letter,
                                                        const CivilTime& civil) noexcept {
    using TF = TimeFormat;
    switch (what) {
        case TF::CENTURY:
            return floorDiv(civil.year, 100);
        case TF::MONTHDAY_NUM:
            return civil.day;
        case TF::ISO_YEAR:
        case TF::ISO_YEAR2: {
            std::int64_t isoYear = 0;
            unsigned week = 0;
            isoWeek(civil, isoYear, week);
            return what == TF::ISO_YEAR ? isoYear : floorMod(isoYear, 100);
        }
        case TF::HOUR24_NUM:
            return civil.hour;
        case TF::HOUR12_NUM:
            return civil.hour % 12 == 0 ? 12 : civil.hour % 12;
        case TF::YDAY_NUM:
            return civil.yearDay + 1;
        case TF::MINUTE_NUM:
            return civil.minute;
        case TF::SECOND_NUM:
            return civil.second;
        case TF::MONTH_NUM:
            return civil.month;
        case TF::MONTHWEEK_NUM: {
            unsigned week = 0;
            if (letter == 'V') {
                std::int64_t isoYear = 0;
                isoWeek(civil, isoYear, week);
            } else {
                const unsigned firstDay = letter == 'U' ? civil.weekday : (civil.weekday + 6) % 7;
                week = (civil.yearDay + 7 - firstDay) / 7;
            }
            return week;
        }
        case TF::WEEKDAY_NUM:
            return letter == 'u' && civil.weekday == 0 ? 7 : civil.weekday;
        case TF::YEAR_NUM:
            return civil.year;
        case TF::YEAR2_NUM:
            return floorMod(civil.year, 100);
        default:
            VESTRA_ASSERT_TEXT(false, "numericField of a conversion that is no number");
            return 0;
    }
}

// The digits a numeric conversion shows at least, zero-padded by default.
unsigned minimumDigits(TimeFormat::What what) noexcept {
    using TF = TimeFormat;
    switch (what) {
        case TF::CENTURY:
        case TF::ISO_YEAR:
        case TF::WEEKDAY_NUM:
        case TF::YEAR_NUM:
            return 1;
        case TF::YDAY_NUM:
            return 3;
        default:
            return 2;
    }
}

// The nine digits of the time's fraction of a second, in nanoseconds ("250000000" for 0.25 s):
// a conversion shows the first few.
void subsecondDigits(const Timeval& tv, char (&digits)[9]) noexcept {
    writeFixedDigits(digits, static_cast<std::uint64_t>(tv.tv_usec) * 1000, 9);
}

// "+hh:mm" (6 bytes, with the colon) or "+hhmm" (5) for an offset under 100 hours.
void writeOffset(char* p, std::int32_t offset, bool colon) noexcept {
    const std::uint32_t magnitude =
        offset < 0 ? 0u - static_cast<std::uint32_t>(offset) : static_cast<std::uint32_t>(offset);
    p[0] = offset < 0 ? '-' : '+';
    writeTwoDigits(p + 1, magnitude / 3600);
    if (colon) p[3] = ':';
    writeTwoDigits(p + (colon ? 4 : 3), magnitude / 60 % 60);
}

}  // namespace

void TimeFormat::_fill(const Atom& a, const Timeval& tv, const CivilTime& civil, const TimeZoneLookup& at,
                       Sink& out) const {
    const char letter = static_cast<char>(a.x.conv.letter);
    switch (a.what) {
        case LITERAL:
            out.append(_literals.data() + a.x.text.offset, a.x.text.length);
            return;
        case PUNCT:
            VESTRA_ASSERT_TEXT(a.x.tmp < sizeof(kPunctuation), "a->x.tmp < sizeof(punct)");
            out.push_back(kPunctuation[a.x.tmp]);
            return;
        case WEEKDAY_NAME:
        case MONTH_NAME: {
            const std::string_view name =
                a.what == WEEKDAY_NAME ? kWeekdayNames[civil.weekday] : kMonthNames[civil.month - 1];
            appendText(out, letter == 'A' || letter == 'B' ? name : name.substr(0, 3), a, true);
            return;
        }
        case CENTURY:
        case MONTHDAY_NUM:
        case ISO_YEAR:
        case ISO_YEAR2:
        case HOUR24_NUM:
        case HOUR12_NUM:
        case YDAY_NUM:
        case MINUTE_NUM:
        case SECOND_NUM:
        case MONTH_NUM:
        case MONTHWEEK_NUM:
        case WEEKDAY_NUM:
        case YEAR_NUM:
        case YEAR2_NUM:
            if (letter == 'l' && a.x.conv.padding != PAD_ZERO && a.x.conv.padding != PAD_NONE) {
                VESTRA_ASSERT_TEXT(a.x.conv.padding == PAD_SPACE, "a->x.conv.padding == PAD_SPACE");
            }
            appendNumber(out, numericField(a.what, letter, civil), minimumDigits(a.what), PAD_ZERO, a);
            return;
        case WHITESPACE:  // a width pads it, as any text
            if (a.x.conv.width > 1) out.append(a.x.conv.width - 1u, fillOf(a.x.conv.padding));
            out.push_back(letter == 'n' ? '\n' : '\t');
            return;
        case MERIDIAN: {
            // %p is upper case and "#" lowers it; %P is lower case unless "^" asks for upper.
            const bool pm = civil.hour >= 12;
            Atom shown = a;
            if (letter == 'P' && a.x.conv.casing != CASE_UPPER) shown.x.conv.casing = CASE_SWAP;
            appendText(out, pm ? "PM" : "AM", shown, letter == 'p' && a.x.conv.casing != CASE_SWAP);
            return;
        }
        case SUBSECONDS: {
            const unsigned c = subsecondDigitsOf(a);
            VESTRA_ASSERT(c <= 9);
            char digits[9];
            subsecondDigits(tv, digits);
            out.append(digits, c);
            return;
        }
        case EPOCH: {  // padded as text, as the C library does: "%05s" of -2 is "000-2"
            char digits[kMaxUint64Digits + 1];
            appendText(out, std::string_view(digits, formatSigned(digits, tv.tv_sec)), a, false);
            return;
        }
        case EPOCH10: {
            Atom tenDigits = a;
            tenDigits.x.conv.padding = PAD_ZERO;
            tenDigits.x.conv.width = 10;
            appendNumber(out, tv.tv_sec, 10, PAD_ZERO, tenDigits);
            return;
        }
        case SORTABLE: {
            char code[Timeval::kSortableCodeLength];
            tv.encodeSortable(code);
            out.append(code, sizeof code);
            return;
        }
        case TZ_AS_NEEDEDOFFSET:
            appendText(out, at.abbreviation, a, false);
            return;
        case TZ_AS_SECOFFSET: {
            const std::int32_t offset = at.utcOffset;
            const std::uint32_t magnitude =
                offset < 0 ? 0u - static_cast<std::uint32_t>(offset) : static_cast<std::uint32_t>(offset);
            const std::uint32_t hours = magnitude / 3600, minutes = magnitude / 60 % 60;
            if (a.x.conv.colon != 0 && (a.x.conv.padding != PAD_DEFAULT || a.x.conv.width != 0)) {
                // GNU date's, where %:z comes from: "h:mm" at least, the sign against it, padded
                // to the width (6 by default) with zeros after the sign or blanks before it.
                char digits[kMaxUint64Digits + 3];
                std::size_t n = formatUnsigned(digits, hours);
                digits[n++] = ':';
                writeFixedDigits(digits + n, minutes, 2);
                const auto length = static_cast<unsigned>(n + 2);
                const char* const p = digits;
                const unsigned width = a.x.conv.width != 0 ? a.x.conv.width : 6;
                const unsigned fill =
                    a.x.conv.padding == PAD_NONE || width <= length + 1 ? 0 : width - length - 1;
                if (a.x.conv.padding == PAD_SPACE) out.append(fill, ' ');
                out.push_back(offset < 0 ? '-' : '+');
                if (a.x.conv.padding != PAD_SPACE) out.append(fill, '0');
                out.append(p, length);
                return;
            }
            if (a.x.conv.padding != PAD_DEFAULT || a.x.conv.width != 0) {
                // The C library's: the sign padded to the width, then hhmm as a four-digit
                // number under the flags.
                if (a.x.conv.width > 1)
                    out.append(a.x.conv.width - 1u, a.x.conv.padding == PAD_ZERO ? '0' : ' ');
                out.push_back(offset < 0 ? '-' : '+');
                appendNumber(out, hours * 100 + minutes, 4, PAD_ZERO, a);
                return;
            }
            if (hours >= 100) {  // only a lookup made by hand says so: its hours in full
                out.push_back(offset < 0 ? '-' : '+');
                appendNumber(out, hours, 2, PAD_ZERO, a);
                if (a.x.conv.colon != 0) out.push_back(':');
                appendNumber(out, minutes, 2, PAD_ZERO, a);
                return;
            }
            char text[6];
            writeOffset(text, offset, a.x.conv.colon != 0);
            out.append(text, a.x.conv.colon != 0 ? 6 : 5);
            return;
        }
        case COMPOSITE: {
            // As the C library: the expansion rendered, upper-cased under "^", then padded as a
            // whole to the width.
            const TimeFormat& expansion = date_time_details::compositeFormat(letter);
            Str text;
            Sink inner(text);
            for (std::size_t i = 0; i < expansion._n; ++i)
                expansion._fill(expansion._atoms[i], tv, civil, at, inner);
            inner.flush();
            if (a.x.conv.casing == CASE_UPPER) {
                for (char* c = text.data(); c != text.data() + text.size(); ++c) {
                    if (*c >= 'a' && *c <= 'z') *c = static_cast<char>(*c - 32);
                }
            }
            if (a.x.conv.width > text.size())
                out.append(a.x.conv.width - text.size(), a.x.conv.padding == PAD_ZERO ? '0' : ' ');
            out.append(text.data(), text.size());
            return;
        }
    }
}

namespace {

// The width an atom always renders with (years from 1000 to 9999), or 0 when it varies.
unsigned fixedWidth(const TimeFormat::Atom& a) noexcept {
    using TF = TimeFormat;
    if (a.what == TF::PUNCT) return 1;
    if (a.what == TF::LITERAL) return a.x.text.length;
    const char letter = static_cast<char>(a.x.conv.letter);
    const bool spacePadded = letter == 'e' || letter == 'k' || letter == 'l';
    const bool plain = a.x.conv.width == 0 && (a.x.conv.padding == TF::PAD_DEFAULT ||
                                               (spacePadded && a.x.conv.padding == TF::PAD_SPACE));
    if (a.what == TF::SUBSECONDS) return subsecondDigitsOf(a);
    if (a.what == TF::TZ_AS_SECOFFSET && a.x.conv.padding == TF::PAD_DEFAULT && a.x.conv.width == 0)
        return a.x.conv.colon != 0 ? 6 : 5;
    if (!plain) return 0;
    switch (a.what) {
        case TF::CENTURY:
        case TF::MONTHDAY_NUM:
        case TF::HOUR24_NUM:
        case TF::HOUR12_NUM:
        case TF::MINUTE_NUM:
        case TF::SECOND_NUM:
        case TF::MONTH_NUM:
        case TF::MONTHWEEK_NUM:
        case TF::YEAR2_NUM:
        case TF::MERIDIAN:
            return 2;
        case TF::YDAY_NUM:
            return 3;
        case TF::YEAR_NUM:
            return 4;
        case TF::WEEKDAY_NUM:
            return 1;
        case TF::WEEKDAY_NAME:
        case TF::MONTH_NAME:
            return letter == 'A' || letter == 'B' ? 0 : 3;
        default:
            return 0;
    }
}

}  // namespace

std::uint8_t TimeFormat::twoDigitFieldOf(What what) noexcept {
    using TF2 = TimeFormat;
    switch (what) {
        case TimeFormat::MONTHDAY_NUM:
            return TF2::TWO_DAY;
        case TimeFormat::HOUR24_NUM:
            return TF2::TWO_HOUR;
        case TimeFormat::HOUR12_NUM:
            return TF2::TWO_HOUR12;
        case TimeFormat::MINUTE_NUM:
            return TF2::TWO_MINUTE;
        case TimeFormat::SECOND_NUM:
            return TF2::TWO_SECOND;
        case TimeFormat::MONTH_NUM:
            return TF2::TWO_MONTH;
        case TimeFormat::YEAR2_NUM:
            return TF2::TWO_YY;
        case TimeFormat::CENTURY:
            return TF2::TWO_CENTURY;
        default:
            return TF2::NOT_TWO;
    }
}

namespace {}  // namespace

void TimeFormat::buildLayout() {
    std::vector<Slot> slots;
    Str layout;
    for (std::size_t i = 0; i < _n; ++i) {
        const Atom& a = _atoms[i];
        const unsigned width = fixedWidth(a);
        if (width == 0 || width > UINT16_MAX || layout.size() + width > UINT32_MAX) return;
        if (a.what == LITERAL) {
            layout.append(literalText(a), a.x.text.length);
        } else if (a.what == PUNCT) {
            layout.push_back(kPunctuation[a.x.tmp]);
        } else {
            const char letter = static_cast<char>(a.x.conv.letter);
            slots.push_back({static_cast<std::uint32_t>(layout.size()), static_cast<std::uint32_t>(i),
                             twoDigitFieldOf(a.what),
                             letter == 'e' || letter == 'k' || letter == 'l' ? ' ' : '0',
                             static_cast<std::uint16_t>(width), a.what, letter});
            layout.append(width, '?');
        }
    }
    _layout = std::move(layout);
    _slots = std::move(slots);
    _hasLayout = true;
}

namespace {

// The calendar's names abbreviated, as written and upper-cased, three bytes each.
template <std::size_t N>
constexpr std::array<std::array<std::array<char, 3>, N>, 2> abbreviations(
    const std::string_view (&names)[N]) {
    std::array<std::array<std::array<char, 3>, N>, 2> out{};
    for (std::size_t i = 0; i < N; ++i) {
        for (std::size_t k = 0; k < 3; ++k) {
            const char c = names[i][k];
            out[0][i][k] = c;
            out[1][i][k] = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
        }
    }
    return out;
}
constexpr auto kWeekdays3 = abbreviations(kWeekdayNames);
constexpr auto kMonths3 = abbreviations(kMonthNames);

// v < 100; a single digit leads with `lead`.
void put2(char* p, unsigned v, char lead = '0') noexcept {
    writeTwoDigits(p, v);
    if (v < 10) p[0] = lead;
}

// A numeric field of the layout, `width` digits (years 1000..9999 here: every value fits).
[[gnu::always_inline]] inline void writeNumber(char* p, unsigned width, char lead,
                                               std::int64_t field) noexcept {
    const auto value = static_cast<unsigned>(field);
    if (width == 2) {
        put2(p, value, lead);
    } else if (width == 4) {
        writeTwoDigits(p, value / 100);
        writeTwoDigits(p + 2, value % 100);
    } else {
        writeFixedDigits(p, value, width);
    }
}

}  // namespace

void TimeFormat::renderLayout(const Timeval& tv, const CivilTime& civil, const TimeZoneLookup& at,
                              char* text) const {
    const std::size_t length = _layout.size();
    if (length >= 16 && length <= 32) {  // two fixed-size copies, no call (most machine formats)
        std::memcpy(text, _layout.data(), 16);
        std::memcpy(text + length - 16, _layout.data() + length - 16, 16);
    } else {
        std::memcpy(text, _layout.data(), length);
    }
    for (const Slot& slot : _slots) {
        char* const p = text + slot.position;
        switch (slot.what) {
            // Each case names its conversion, so that the value's own switch folds away.
            case CENTURY:
                writeNumber(p, slot.width, slot.lead, numericField(CENTURY, slot.letter, civil));
                break;
            case MONTHDAY_NUM:
                writeNumber(p, slot.width, slot.lead, numericField(MONTHDAY_NUM, slot.letter, civil));
                break;
            case HOUR24_NUM:
                writeNumber(p, slot.width, slot.lead, numericField(HOUR24_NUM, slot.letter, civil));
                break;
            case HOUR12_NUM:
                writeNumber(p, slot.width, slot.lead, numericField(HOUR12_NUM, slot.letter, civil));
                break;
            case YDAY_NUM:
                writeNumber(p, slot.width, slot.lead, numericField(YDAY_NUM, slot.letter, civil));
                break;
            case MINUTE_NUM:
                writeNumber(p, slot.width, slot.lead, numericField(MINUTE_NUM, slot.letter, civil));
                break;
            case SECOND_NUM:
                writeNumber(p, slot.width, slot.lead, numericField(SECOND_NUM, slot.letter, civil));
                break;
            case MONTH_NUM:
                writeNumber(p, slot.width, slot.lead, numericField(MONTH_NUM, slot.letter, civil));
                break;
            case MONTHWEEK_NUM:
                writeNumber(p, slot.width, slot.lead, numericField(MONTHWEEK_NUM, slot.letter, civil));
                break;
            case WEEKDAY_NUM:
                writeNumber(p, slot.width, slot.lead, numericField(WEEKDAY_NUM, slot.letter, civil));
                break;
            case YEAR_NUM:
                writeNumber(p, slot.width, slot.lead, numericField(YEAR_NUM, slot.letter, civil));
                break;
            case YEAR2_NUM:
                writeNumber(p, slot.width, slot.lead, numericField(YEAR2_NUM, slot.letter, civil));
                break;
            case WEEKDAY_NAME:
            case MONTH_NAME: {
                // "#" and "^" both upper-case names.
                const std::size_t upper = _atoms[slot.atom].x.conv.casing != CASE_DEFAULT ? 1 : 0;
                std::memcpy(p,
                            slot.what == WEEKDAY_NAME ? kWeekdays3[upper][civil.weekday].data()
                                                      : kMonths3[upper][civil.month - 1].data(),
                            3);
                break;
            }
            case MERIDIAN: {
                const Casing casing = _atoms[slot.atom].x.conv.casing;
                const bool lower = slot.letter == 'P' ? casing != CASE_UPPER : casing == CASE_SWAP;
                p[0] = civil.hour >= 12 ? (lower ? 'p' : 'P') : (lower ? 'a' : 'A');
                p[1] = lower ? 'm' : 'M';
                break;
            }
            case SUBSECONDS: {
                char digits[9];
                subsecondDigits(tv, digits);
                std::memcpy(p, digits, slot.width);
                break;
            }
            case TZ_AS_SECOFFSET:
                writeOffset(p, at.utcOffset, _atoms[slot.atom].x.conv.colon != 0);
                break;
            default:
                VESTRA_ASSERT(false);
        }
    }
}

namespace {

// Whether the fixed layout holds the time: four-digit years, and offsets of two-digit hours
// (every zone's; only a lookup made by hand has more).
bool layoutFits(const CivilTime& civil, const TimeZoneLookup& at) noexcept {
    return civil.year >= 1000 && civil.year <= 9999 && at.utcOffset > -100 * 3600 &&
           at.utcOffset < 100 * 3600;
}

}  // namespace

void TimeFormat::render(const Timeval& tv, const TimeZone& zone, Str& output, SentinelText sentinels) const {
    CivilTime civil;
    TimeZoneLookup at;
    if (!_valid || !zone.breakDown(tv.tv_sec, civil, &at)) return;
    if (_hasLayout && layoutFits(civil, at) && !tv.isMin() && !tv.isMax() && !tv.isZero()) {
        renderLayout(tv, civil, at, output.appendUninitialized(_layout.size()));  // the common case, directly
        return;
    }
    render(tv, civil, at, output, sentinels);
}

void TimeFormat::render(const Timeval& tv, const CivilTime& civil, const TimeZoneLookup& at, Str& output,
                        SentinelText sentinels) const {
    if (!_valid) return;
    if (sentinels == SentinelText::MARKERS && (tv.isMin() || tv.isMax() || tv.isZero())) {
        output.append(tv.isMin() ? "<min>" : tv.isMax() ? "<max>" : "<zero>");
        return;
    }
    if (_hasLayout && layoutFits(civil, at)) {
        renderLayout(tv, civil, at, output.appendUninitialized(_layout.size()));
        return;
    }
    Sink sink(output);
    for (std::size_t i = 0; i < _n; ++i) _fill(_atoms[i], tv, civil, at, sink);
    sink.flush();
}

// --- Named epoch formats ---

namespace {

constexpr const char* kNamedFormats[] = {
    "%UT",   "%UT.%Q", "%UT.%3Q", "%UT.%6Q", "%UT.%9Q", "%s",    "%s.%Q", "%s.%3Q", "%s.%6Q", "%s.%9Q",
    "%UT%Q", "%UT%3Q", "%UT%6Q",  "%UT%9Q",  "%s%Q",    "%s%3Q", "%s%6Q", "%s%9Q",  "%ST"};

}  // namespace

int TimeFormat::namedFormatNumber(StrSegment text) noexcept {
    for (std::size_t i = 0; i < std::size(kNamedFormats); ++i) {
        if (text.view() == kNamedFormats[i]) return static_cast<int>(i);
    }
    return -1;
}

void TimeFormat::appendNamedFormat(int number, Str& out) {
    if (number == 2) {
        out.append("UT.%3Q");
    } else if (number >= 0 && static_cast<std::size_t>(number) < std::size(kNamedFormats)) {
        out.append(kNamedFormats[number]);
    } else {
        out.append("Unknown Vestra Time Format: ");
        char digits[kMaxUint64Digits + 1];
        out.append(digits, static_cast<size_type>(formatSigned(digits, number)));
    }
}

// --- The standard formats ---

namespace {

struct StandardFormats {
    TimeFormat formats[6];
    StandardFormats() {
        recordStartupEvent("+basicutil/DateTime");
        for (std::size_t i = 0; i < 6; ++i) {
            const bool ok = formats[i]._setFtime(kStandardTimeFormatTexts[i]);
            VESTRA_ASSERT(ok);
        }
    }
    ~StandardFormats() { recordStartupEvent("-basicutil/DateTime"); }
};

StandardFormats g_standardFormats VESTRA_STARTUP(STARTUP_DATE_TIME);

}  // namespace

const TimeFormat& TimeFormat::standard(std::size_t index) noexcept {
    VESTRA_ASSERT(index < 6);
    return g_standardFormats.formats[index];
}

}  // namespace basicutil
