// Calendar arithmetic on the proleptic Gregorian calendar, over 64-bit day and year counts, and
// the day rules of zone descriptions ("M3.2.0", "J60", "59").
//
// Days count from 1970-01-01 (day 0, a Thursday). Months are 1..12 and days of the month 1..31
// unless a comment says otherwise. Nothing here allocates or fails: callers keep their inputs
// inside the ranges named, which every 64-bit time in seconds satisfies.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "basicutil/text/StaticStrSet.h"

namespace basicutil {

// The English day and month names, Sunday and January first. Their abbreviations are their first
// three letters.
inline constexpr std::string_view kWeekdayNames[7] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                      "Thursday", "Friday", "Saturday"};
inline constexpr std::string_view kMonthNames[12] = {"January",   "February", "March",    "April",
                                                     "May",       "June",     "July",     "August",
                                                     "September", "October",  "November", "December"};

// The abbreviations, found in any case: kMonthAbbreviations.find("jan") is 0.
template <std::size_t N>
consteval FixedStrSet<N, STR_CASE_FOLD> abbreviationsOf(const std::string_view (&names)[N]) {
    std::array<std::string_view, N> three{};
    for (std::size_t i = 0; i < N; ++i) three[i] = names[i].substr(0, 3);
    return FixedStrSet<N, STR_CASE_FOLD>(three);
}
inline constexpr auto kWeekdayAbbreviations = abbreviationsOf(kWeekdayNames);  // "Sun" .. "Sat"
inline constexpr auto kMonthAbbreviations = abbreviationsOf(kMonthNames);      // "Jan" .. "Dec"

// Every day has 86400 seconds here; leap seconds are the zones' business.
inline constexpr std::int64_t kSecondsPerDay = 86400;
// The Gregorian calendar repeats itself, weekdays included, every 400 years.
inline constexpr std::int64_t kDaysPer400Years = 146097;
inline constexpr std::int64_t kSecondsPer400Years = kDaysPer400Years * kSecondsPerDay;

// Gregorian: every fourth year, except centuries not divisible by 400.
constexpr bool is_leap_year(std::int64_t year) noexcept {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

// Rounds toward negative infinity; divisor > 0.
constexpr std::int64_t floorDiv(std::int64_t a, std::int64_t b) noexcept {
    return a / b - (a % b < 0 ? 1 : 0);
}
// 0..b-1; never overflows, even at the 64-bit ends.
constexpr std::int64_t floorMod(std::int64_t a, std::int64_t b) noexcept {
    const std::int64_t r = a % b;
    return r < 0 ? r + b : r;
}

// 28..31.
constexpr unsigned daysInMonth(std::int64_t year, unsigned month) noexcept {
    constexpr unsigned char kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return kDays[month - 1] + (month == 2 && is_leap_year(year) ? 1u : 0u);
}

// |year| below 2^50. Counted in eras of 400 years that start on March 1, so that the leap day
// ends each year.
constexpr std::int64_t daysFromCivil(std::int64_t year, unsigned month, unsigned day) noexcept {
    const std::int64_t y = year - (month <= 2 ? 1 : 0);
    const std::int64_t era = floorDiv(y, 400);
    const std::int64_t yearOfEra = y - era * 400;                                                    // 0..399
    const std::int64_t dayOfMarchYear = (153 * ((month + 9) % 12) + 2) / 5 + std::int64_t{day} - 1;  // 0..365
    const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfMarchYear;
    return era * kDaysPer400Years + dayOfEra - 719468;  // 0000-03-01 to 1970-01-01
}

// A date of the calendar.
struct CivilDate {
    std::int64_t year;  // 0 is 1 BC
    unsigned month;     // 1..12
    unsigned day;       // 1..31
    unsigned yearDay;   // 0..365
};
// The date `days` after 1970-01-01 (before it when negative); |days| below 2^50.
CivilDate civilFromDays(std::int64_t days) noexcept;

// 0 = Sunday .. 6 = Saturday.
constexpr unsigned weekdayFromDays(std::int64_t days) noexcept {
    return static_cast<unsigned>(floorMod(days + 4, 7));
}

// 0-based day of the year.
unsigned dayOfYear(std::int64_t year, unsigned month, unsigned day) noexcept;

// A moment of the year as zone rules write it: a day, then a time of day (seconds, possibly
// negative or past 24 h) in the local time in force just before the moment.
struct DateRule {
    // How the day is written.
    enum Type : std::uint8_t {
        JULIAN_NO_LEAP,  // "Jn", n 1..365: February 29 is never counted
        ZERO_BASED,      // "n", 0..365: February 29 counts in leap years
        DOW,             // "Mm.w.d": weekday d (0 Sunday) of week w (1..4, 5 = last) of month m
    };
    Type _type = DOW;
    std::uint16_t _day = 0;         // JULIAN_NO_LEAP and ZERO_BASED
    std::uint8_t _month = 1;        // DOW: 1..12
    std::uint8_t _week = 1;         // DOW: 1..5
    std::uint8_t _weekday = 0;      // DOW: 0 = Sunday
    std::int32_t _time = 2 * 3600;  // seconds after the day's start (02:00 unless given)

    // Seconds from January 1, 00:00:00 of the year to the moment.
    std::int64_t secondsFromJanuary(std::int64_t year) const noexcept;

    friend bool operator==(const DateRule&, const DateRule&) = default;  // every field
};

}  // namespace basicutil
