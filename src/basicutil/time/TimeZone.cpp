// The conversions of a built zone: instant to local time and back.
#include "basicutil/time/TimeZone.h"

#include <algorithm>
#include <limits>

#include "basicutil/platform/Assert.h"
#include "basicutil/text/DecimalText.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/time/TimeZone_details.h"

namespace basicutil {

const char* const kTimeZoneDirectoryName = "zoneinfo";
const char* const kLocalTimeZoneFile = "/etc/localtime";
const char* const kSerializedTimeZoneHeader = "### SERIALIZED TIMEZONE FORMAT 1.0";

namespace {

constexpr std::int64_t kTimeMin = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kTimeMax = std::numeric_limits<std::int64_t>::max();
// The widest offsets a zone file may carry (-24:59:59 .. +25:59:59).
constexpr std::int32_t kMinOffset = -89999, kMaxOffset = 93599;
constexpr std::int64_t kYear1900 = -2208988800, kYear2200 = 7258118400;
constexpr unsigned kBucketShift = 22;
// Past this many spans (a file with transitions across millions of years) lookups bisect the
// whole table.
constexpr std::uint64_t kMaxBuckets = 1 << 16;

// The index of the type with these fields, appended (with its abbreviation) when missing.
std::size_t typeFor(TimeZone::Data& data, std::int32_t offset, bool isDst, const Str& abbreviation) {
    for (std::size_t i = 0; i < data.types.size(); ++i) {
        const TimeZone::Type& t = data.types[i];
        if (t.utcOffset == offset && t.isDst == isDst &&
            abbreviation.view() == std::string_view(data.abbreviations.c_str() + t.abbreviation)) {
            return i;
        }
    }
    data.types.push_back({offset, isDst, static_cast<std::uint32_t>(data.abbreviations.size())});
    data.abbreviations.append(abbreviation);
    data.abbreviations.push_back('\0');
    return data.types.size() - 1;
}

}  // namespace

Status checkTimeZoneData(const TimeZone::Data& data) {
    if (data.name.empty()) return Status::invalid("a zone without a name");
    for (char c : data.name.view()) {
        if (static_cast<unsigned char>(c) <= ' ')
            return Status::invalid("a zone name with a blank or control byte");
    }
    if (data.abbreviations.empty() || data.abbreviations.back() != '\0') {
        return Status::invalid("abbreviations not NUL-terminated");
    }
    if (data.types.empty() || data.types.size() > 256) return Status::invalid("type count outside 1..256");
    for (const TimeZone::Type& t : data.types) {
        if (t.abbreviation >= data.abbreviations.size())
            return Status::invalid("an abbreviation index past the end");
        if (t.utcOffset < kMinOffset || t.utcOffset > kMaxOffset)
            return Status::invalid("an offset beyond 25 hours");
        // Abbreviations travel in text (the serialized form, rendered times): no control bytes.
        for (const char* p = data.abbreviations.c_str() + t.abbreviation; *p != '\0'; ++p) {
            if (static_cast<unsigned char>(*p) < ' ' || *p == '\x7f')
                return Status::invalid("an abbreviation with a control byte");
        }
    }
    if (data.transitions.size() != data.transitionTypes.size())
        return Status::invalid("transitions without types");
    for (std::size_t i = 0; i < data.transitions.size(); ++i) {
        if (i > 0 && data.transitions[i] <= data.transitions[i - 1]) {
            return Status::invalid("transitions out of order");
        }
        if (data.transitionTypes[i] >= data.types.size())
            return Status::invalid("a transition to a missing type");
    }
    for (std::size_t i = 1; i < data.leaps.size(); ++i) {
        if (data.leaps[i].occurrence <= data.leaps[i - 1].occurrence) {
            return Status::invalid("leap seconds out of order");
        }
    }
    PosixTimeZoneRule rule;
    if (data.rule.empty()) return {};
    return PosixTimeZoneRule::parse(data.rule, rule);
}

TimeZone::TimeZone(Data&& data)
    : _name(std::move(data.name)),
      _fileTypes(data.types.size()),
      _transitions(std::move(data.transitions)),
      _transitionTypes(std::move(data.transitionTypes)),
      _leaps(std::move(data.leaps)),
      _ruleText(std::move(data.rule)) {
    if (!_ruleText.empty()) {
        _rule = std::make_unique<PosixTimeZoneRule>();
        const Status parsed = PosixTimeZoneRule::parse(_ruleText, *_rule);
        VESTRA_ASSERT_TEXT(parsed.ok(), "a zone's rule is checked by its loader");
        _ruleStdType = typeFor(data, _rule->stdOffset, false, _rule->stdAbbreviation);
        _ruleDstType =
            _rule->hasDst ? typeFor(data, _rule->dstOffset, true, _rule->dstAbbreviation) : _ruleStdType;
    }
    _types = std::move(data.types);
    _abbreviations = std::move(data.abbreviations);
    // Before the first transition: the first standard-time type, as the C library reads files.
    const auto standard =
        std::find_if(_types.begin(), _types.begin() + static_cast<std::ptrdiff_t>(_fileTypes),
                     [](const Type& t) { return !t.isDst; });
    _initialType = standard == _types.begin() + static_cast<std::ptrdiff_t>(_fileTypes)
                       ? 0
                       : static_cast<std::size_t>(standard - _types.begin());
    const auto [lo, hi] = std::minmax_element(
        _types.begin(), _types.end(), [](const Type& a, const Type& b) { return a.utcOffset < b.utcOffset; });
    _minOffset = lo->utcOffset;
    _maxOffset = hi->utcOffset;
    buildTable();
}

void TimeZone::buildTable() {
    _table = _transitions;
    _tableTypes = _transitionTypes;
    _ruleFrom = _transitions.empty() ? kTimeMin : _transitions.back();
    if (_rule != nullptr && _rule->hasDst) {
        // From the last transition (or 1900 for a rule alone) to 2200, one entry per change.
        std::int64_t t = _transitions.empty() ? kYear1900 : _transitions.back();
        std::int64_t since = 0, until = 0;
        const bool dst = _rule->stateAt(t, since, until);
        const auto type = static_cast<std::uint8_t>(dst ? _ruleDstType : _ruleStdType);
        if (_transitions.empty()) {
            _table.push_back(t);
            _tableTypes.push_back(type);
        } else {
            _tableTypes.back() = type;
        }
        for (t = until; t < kYear2200; t = until) {
            const bool next = _rule->stateAt(t, since, until);
            _table.push_back(t);
            _tableTypes.push_back(static_cast<std::uint8_t>(next ? _ruleDstType : _ruleStdType));
        }
    }
    if (_table.size() < 2) return;
    const auto span = static_cast<std::uint64_t>(_table.back()) - static_cast<std::uint64_t>(_table.front());
    _buckets.resize(static_cast<std::size_t>(std::min<std::uint64_t>(span >> kBucketShift, kMaxBuckets)) + 2);
    std::size_t i = 0;
    for (std::size_t b = 0; b < _buckets.size(); ++b) {
        const Int128 start = static_cast<Int128>(_table.front()) + (static_cast<Int128>(b) << kBucketShift);
        while (i + 1 < _table.size() && _table[i + 1] <= start) ++i;
        _buckets[b] = static_cast<std::uint32_t>(i);
    }
}

TimeZone::~TimeZone() = default;

TimeZone::Piece TimeZone::pieceAt(std::int64_t t) const noexcept {
    const std::size_t n = _table.size();
    const bool ruleAlone = _rule != nullptr && _transitions.empty();
    if (_rule != nullptr && (n == 0 || t >= _table[n - 1] || (ruleAlone && t < _table[0]))) {
        if (!_rule->hasDst) return {_ruleStdType, _ruleFrom, kTimeMax};
        std::int64_t since = 0, until = 0;
        const bool dst = _rule->stateAt(t, since, until);
        return {dst ? _ruleDstType : _ruleStdType, std::max(since, _ruleFrom), until};
    }
    if (n == 0 || t < _table[0]) return {_initialType, kTimeMin, n == 0 ? kTimeMax : _table[0]};
    std::size_t i = n - 1;
    if (!_buckets.empty()) {
        const std::uint64_t b =
            (static_cast<std::uint64_t>(t) - static_cast<std::uint64_t>(_table[0])) >> kBucketShift;
        if (b + 1 < _buckets.size()) {
            i = _buckets[b];
            const std::size_t last = _buckets[b + 1];  // the answer lies in [i, last]
            if (last - i <= 4) {
                for (int step = 0; step < 4; ++step) {  // without branches: the steps are unpredictable
                    const std::size_t next = i + (i < last ? 1 : 0);
                    i = _table[next] <= t ? next : i;
                }
            } else {
                i = static_cast<std::size_t>(
                        std::upper_bound(_table.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                                         _table.begin() + static_cast<std::ptrdiff_t>(last) + 1, t) -
                        _table.begin()) -
                    1;
            }
        } else {
            i = static_cast<std::size_t>(std::upper_bound(_table.begin(), _table.end(), t) - _table.begin()) -
                1;
        }
    }
    return {_tableTypes[i], _table[i], i + 1 < n ? _table[i + 1] : kTimeMax};
}

TimeZoneLookup TimeZone::lookup(std::int64_t seconds) const noexcept {
    return lookupType(pieceAt(seconds).type);
}

// The correction in force at the instant; *hit is 1 on the inserted second itself.
std::int64_t TimeZone::leapCorrection(std::int64_t t, unsigned* hit) const noexcept {
    *hit = 0;
    auto after = std::upper_bound(_leaps.begin(), _leaps.end(), t,
                                  [](std::int64_t v, const LeapSecond& l) { return v < l.occurrence; });
    if (after == _leaps.begin()) return 0;
    const LeapSecond& leap = *(after - 1);
    const std::int64_t before = after - 1 == _leaps.begin() ? 0 : (after - 2)->correction;
    if (t == leap.occurrence && leap.correction > before) *hit = 1;
    return leap.correction;
}

bool TimeZone::breakDown(std::int64_t seconds, CivilTime& civil, TimeZoneLookup* at) const noexcept {
    const TimeZoneLookup found =
        _table.empty() && _rule == nullptr ? lookupType(_initialType) : lookup(seconds);
    unsigned hit = 0;
    const std::int64_t correction = _leaps.empty() ? 0 : leapCorrection(seconds, &hit);
    // Days and the second of the day apart, so that no sum can overflow.
    std::int64_t days = seconds / kSecondsPerDay;  // one division for both
    std::int64_t secondOfDay = seconds % kSecondsPerDay + found.utcOffset - correction;
    // The remainder, the offset and the correction move the day by at most three either way.
    while (secondOfDay < 0) {
        secondOfDay += kSecondsPerDay;
        --days;
    }
    while (secondOfDay >= kSecondsPerDay) {
        secondOfDay -= kSecondsPerDay;
        ++days;
    }
    const CivilDate date = civilFromDays(days);
    civil.year = date.year;
    civil.month = date.month;
    civil.day = date.day;
    const auto clock = static_cast<unsigned>(secondOfDay);  // 32-bit division from here
    civil.hour = clock / 3600;
    civil.minute = clock / 60 % 60;
    civil.second = clock % 60 + hit;
    civil.weekday = weekdayFromDays(days);
    civil.yearDay = date.yearDay;
    if (at != nullptr) *at = found;
    return true;
}

bool TimeZone::resolveLocal(std::int64_t year, std::int64_t month, std::int64_t day, std::int64_t hour,
                            std::int64_t minute, std::int64_t second, LocalTimeResolution& out,
                            LocalTimeChoice choice) const noexcept {
    // Every field below 2^40 in size keeps the arithmetic below in range.
    constexpr std::int64_t kFieldLimit = std::int64_t{1} << 40;
    for (std::int64_t field : {year, month, day, hour, minute, second}) {
        if (field <= -kFieldLimit || field >= kFieldLimit) return false;
    }
    if (second < 0 || second > 59) {
        // As mktime does: the minute first, then the seconds counted on from its start, so that
        // 23:59:60 is the leap second itself in a zone that counts them.
        if (!resolveLocal(year, month, day, hour, minute, 0, out, choice)) return false;
        std::int64_t t = 0;
        if (__builtin_add_overflow(out.seconds, second, &t)) return false;
        out.seconds = t;
        out.lookup = lookup(t);
        return true;
    }
    const bool monthInRange = month >= 1 && month <= 12;  // the common case skips the division
    const std::int64_t days =
        (monthInRange ? daysFromCivil(year, static_cast<unsigned>(month), 1)
                      : daysFromCivil(year + floorDiv(month - 1, 12),
                                      static_cast<unsigned>(floorMod(month - 1, 12) + 1), 1)) +
        (day - 1);
    // The fields themselves, and every instant they may stand for, within 64 bits.
    std::int64_t civil = 0;
    if (__builtin_mul_overflow(days, kSecondsPerDay, &civil) ||
        __builtin_add_overflow(civil, hour * 3600 + minute * 60 + second, &civil) ||
        (_maxOffset > 0 && civil < kTimeMin + _maxOffset) ||
        (_minOffset < 0 && civil > kTimeMax + _minOffset)) {
        return false;
    }

    // Every stretch of time whose offset could map onto the fields: at most a few.
    std::int64_t solutions[4];
    std::size_t solutionTypes[4];
    std::size_t found = 0;
    std::int64_t gapBefore = 0, gapAfter = 0;  // the offsets around a gap holding the fields
    bool inGap = false;
    Piece piece = pieceAt(civil - _maxOffset);
    for (int steps = 0; steps < 16; ++steps) {
        const std::int64_t offset = _types[piece.type].utcOffset;
        const std::int64_t t = civil - offset;
        if (t >= piece.start && t < piece.end && found < 4) {
            solutionTypes[found] = piece.type;
            solutions[found++] = t;
        }
        if (piece.end == kTimeMax || piece.end > civil - _minOffset) break;
        const Piece next = pieceAt(piece.end);
        const std::int64_t nextOffset = _types[next.type].utcOffset;
        if (t >= piece.end && civil - nextOffset < next.start) {
            inGap = true;
            gapBefore = offset;
            gapAfter = nextOffset;
        }
        piece = next;
    }
    std::int64_t chosen = 0;
    if (found > 0) {
        out.kind = found == 1 ? LocalTimeResolution::UNIQUE : LocalTimeResolution::REPEATED;
        const std::size_t pick = choice == LocalTimeChoice::PRE_TRANSITION ? 0 : found - 1;
        chosen = solutions[pick];
        out.lookup = lookupType(solutionTypes[pick]);
    } else if (inGap) {
        out.kind = LocalTimeResolution::SKIPPED;
        chosen = civil - (choice == LocalTimeChoice::PRE_TRANSITION ? gapBefore : gapAfter);
        out.lookup = lookup(chosen);
    } else {
        return false;
    }
    if (!_leaps.empty()) {  // the zone counts leap seconds in its times
        unsigned hit = 0;
        const std::int64_t guess = leapCorrection(chosen, &hit);
        chosen += leapCorrection(chosen + guess, &hit);
        out.lookup = lookup(chosen);
    }
    out.seconds = chosen;
    return true;
}

bool TimeZone::sameAs(const TimeZone& other) const noexcept {
    if (_name != other._name || _fileTypes != other._fileTypes || _transitions != other._transitions ||
        _transitionTypes != other._transitionTypes || _leaps != other._leaps ||
        _ruleText != other._ruleText) {
        return false;
    }
    for (std::size_t i = 0; i < _fileTypes; ++i) {
        const Type& a = _types[i];
        const Type& b = other._types[i];
        if (a.utcOffset != b.utcOffset || a.isDst != b.isDst ||
            std::string_view(_abbreviations.c_str() + a.abbreviation) !=
                std::string_view(other._abbreviations.c_str() + b.abbreviation)) {
            return false;
        }
    }
    return true;
}

}  // namespace basicutil
