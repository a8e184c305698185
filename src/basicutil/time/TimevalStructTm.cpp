#include "basicutil/time/TimevalStructTm.h"

#include <string>

#include "basicutil/log/Logger.h"
#include "basicutil/platform/StartupOrder.h"
#include "basicutil/text/PrintfFormat.h"

namespace basicutil {

namespace {

// The time value's own globals: its channel. Here, with the conversions that log on it, so that
// the value itself sits below the channels.
struct TimevalGlobals {
    LoggerSimple log{"Timeval", 0, 60, 100};
    TimevalGlobals() { recordStartupEvent("+basicutil/Timeval"); }
    ~TimevalGlobals() { recordStartupEvent("-basicutil/Timeval"); }
};
TimevalGlobals g_timeval VESTRA_STARTUP(STARTUP_TIMEVAL);

}  // namespace

Logger& timevalChannel() noexcept {
    return g_timeval.log;
}

namespace {

using Converter = std::tm* (*)(const time_t*, std::tm*);

void logFromFailure(const char* function, std::int64_t seconds) {
    timevalChannel().log(LOG_ERROR, strprintf("%s(%lld) failed!", function, static_cast<long long>(seconds)));
}

void logToFailure(const char* function, const std::tm& tm) {
    // The year and month are computed in 64 bits: a year near INT_MAX must not overflow here.
    timevalChannel().log(LOG_ERROR,
                         strprintf("%s(%lld-%lld-%d %d:%02d:%02d) failed!", function, tm.tm_year + 1900LL,
                                   tm.tm_mon + 1LL, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec));
}

// Zone fields come from time 0, the date fields from the clamp.
void clamp(std::tm& tm, Converter convert, bool negative) {
    const time_t epoch = 0;
    if (convert(&epoch, &tm) == nullptr) tm = std::tm{};
    if (negative) {
        tm.tm_year = 0;
        tm.tm_mon = 0;
        tm.tm_mday = 1;
        tm.tm_hour = tm.tm_min = tm.tm_sec = 0;
        tm.tm_wday = 1;
        tm.tm_yday = 0;
    } else {
        tm.tm_year = 9999 - 1900;
        tm.tm_mon = 11;
        tm.tm_mday = 31;
        tm.tm_hour = 23;
        tm.tm_min = tm.tm_sec = 59;
        tm.tm_wday = 5;
        tm.tm_yday = 364;
    }
    tm.tm_isdst = -1;
}

bool convertOrClamp(std::tm& tm, Converter convert, std::int64_t seconds, const char* function) {
    const auto t = static_cast<time_t>(seconds);
    if (convert(&t, &tm) != nullptr) return true;
    logFromFailure(function, seconds);
    clamp(tm, convert, seconds < 0);
    return false;
}

Timeval inverseOrSentinel(const std::tm& record, time_t (*inverse)(std::tm*), const char* function) {
    std::tm copy = record;  // mktime and timegm normalise their argument
    const time_t t = inverse(&copy);
    if (t == -1) {
        logToFailure(function, record);
        return record.tm_year > 69 ? Timeval::MAX_TIME : Timeval::MIN_TIME;
    }
    return {static_cast<std::int64_t>(t), 0};
}

}  // namespace

bool LocalStructTm::fromUnixTime(std::int64_t seconds) noexcept {
    return convertOrClamp(*this, &localtime_r, seconds, "LocalStructTm::fromUnixTime");
}

Timeval LocalStructTm::toUnixTime() const noexcept {
    return inverseOrSentinel(*this, &mktime, "LocalStructTm::toUnixTime");
}

bool LocalStructTmHires::fromUnixTime(const Timeval& tv) noexcept {
    if (convertOrClamp(*this, &localtime_r, tv.tv_sec, "LocalStructTmHires::fromUnixTime")) {
        tm_usec = tv.tv_usec;
        return true;
    }
    tm_usec = tv.tv_sec < 0 ? 0 : 999999;
    return false;
}

Timeval LocalStructTmHires::toUnixTime() const noexcept {
    Timeval tv = inverseOrSentinel(*this, &mktime, "LocalStructTmHires::toUnixTime");
    if (!tv.isMax() && !tv.isMin()) tv.tv_usec = tm_usec;
    return tv;
}

bool GmtStructTm::fromUnixTime(std::int64_t seconds) noexcept {
    return convertOrClamp(*this, &gmtime_r, seconds, "GmtStructTm::fromUnixTime");
}

Timeval GmtStructTm::toUnixTime() const noexcept {
    return inverseOrSentinel(*this, &timegm, "GmtStructTm::toUnixTime");
}

}  // namespace basicutil
