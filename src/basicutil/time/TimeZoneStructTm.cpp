// struct tm bound to a zone object, failing and clamping as the local-zone records do.
#include "basicutil/time/TimeZoneStructTm.h"

#include <climits>

#include "basicutil/log/Logger.h"
#include "basicutil/platform/Platform.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/time/TimevalStructTm.h"

namespace basicutil {

namespace {

bool fill(std::tm& tm, const TimeZone& zone, std::int64_t seconds) noexcept {
    CivilTime civil;
    TimeZoneLookup at;
    if (!zone.breakDown(seconds, civil, &at) || civil.year - 1900 < INT_MIN || civil.year - 1900 > INT_MAX) {
        return false;
    }
    tm.tm_year = static_cast<int>(civil.year - 1900);
    tm.tm_mon = static_cast<int>(civil.month - 1);
    tm.tm_mday = static_cast<int>(civil.day);
    tm.tm_hour = static_cast<int>(civil.hour);
    tm.tm_min = static_cast<int>(civil.minute);
    tm.tm_sec = static_cast<int>(civil.second);
    tm.tm_wday = static_cast<int>(civil.weekday);
    tm.tm_yday = static_cast<int>(civil.yearDay);
    tm.tm_isdst = at.isDst ? 1 : 0;
    tm.tm_gmtoff = at.utcOffset;
    platform::setTmZone(tm, at.abbreviation);
    return true;
}

}  // namespace

bool StructTmInTimezone::convert(std::int64_t seconds, const char* function) noexcept {
    if (fill(*this, *_zone, seconds)) return true;
    timevalChannel().log(LOG_ERROR, strprintf("%s(%lld) failed!", function, static_cast<long long>(seconds)));
    if (!fill(*this, *_zone, 0)) *static_cast<std::tm*>(this) = std::tm{};  // the zone fields
    const bool negative = seconds < 0;
    tm_year = negative ? 0 : 9999 - 1900;
    tm_mon = negative ? 0 : 11;
    tm_mday = negative ? 1 : 31;
    tm_hour = negative ? 0 : 23;
    tm_min = tm_sec = negative ? 0 : 59;
    tm_wday = negative ? 1 : 5;
    tm_yday = negative ? 0 : 364;
    tm_isdst = -1;
    return false;
}

Timeval StructTmInTimezone::inverse(const char* function) const noexcept {
    LocalTimeResolution earlier, later;
    const bool ok = _zone->resolveLocal(tm_year + 1900LL, tm_mon + 1LL, tm_mday, tm_hour, tm_min, tm_sec,
                                        earlier, LocalTimeChoice::PRE_TRANSITION) &&
                    _zone->resolveLocal(tm_year + 1900LL, tm_mon + 1LL, tm_mday, tm_hour, tm_min, tm_sec,
                                        later, LocalTimeChoice::POST_TRANSITION);
    if (!ok) {
        timevalChannel().log(LOG_ERROR,
                             strprintf("%s(%lld-%lld-%d %d:%02d:%02d) failed!", function, tm_year + 1900LL,
                                       tm_mon + 1LL, tm_mday, tm_hour, tm_min, tm_sec));
        return tm_year > 69 ? Timeval::MAX_TIME : Timeval::MIN_TIME;
    }
    const bool wantsLater = earlier.kind == LocalTimeResolution::REPEATED && tm_isdst >= 0 &&
                            later.lookup.isDst == (tm_isdst > 0) && earlier.lookup.isDst != (tm_isdst > 0);
    return {wantsLater ? later.seconds : earlier.seconds, 0};
}

bool StructTmInTimezone::fromUnixTime(std::int64_t seconds) noexcept {
    return convert(seconds, "StructTmInTimezone::fromUnixTime");
}

Timeval StructTmInTimezone::toUnixTime() const noexcept {
    return inverse("StructTmInTimezone::toUnixTime");
}

bool StructTmInTimezoneHires::fromUnixTime(const Timeval& tv) noexcept {
    const bool ok = convert(tv.tv_sec, "StructTmInTimezoneHires::fromUnixTime");
    tm_usec = ok ? tv.tv_usec : (tv.tv_sec < 0 ? 0 : 999999);
    return ok;
}

Timeval StructTmInTimezoneHires::toUnixTime() const noexcept {
    Timeval tv = inverse("StructTmInTimezoneHires::toUnixTime");
    if (!tv.isMax() && !tv.isMin()) tv.tv_usec = tm_usec;
    return tv;
}

}  // namespace basicutil
