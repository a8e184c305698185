#include "basicutil/timevalue/DateTimeCalendar.h"

namespace basicutil {

namespace {

constexpr unsigned kDaysBeforeMonth[2][13] = {
    {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366},
};

}  // namespace

unsigned dayOfYear(std::int64_t year, unsigned month, unsigned day) noexcept {
    return kDaysBeforeMonth[is_leap_year(year) ? 1 : 0][month - 1] + day - 1;
}

namespace {

// The era arithmetic on a day count already shifted to start at 0000-03-01 and non-negative.
template <typename U>
CivilDate civilFromMarchDays(U z, std::int64_t eraBase) noexcept {
    const U era = z / static_cast<U>(kDaysPer400Years);
    const U dayOfEra = z - era * static_cast<U>(kDaysPer400Years);  // 0..146096
    const U yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;  // 0..399
    const U dayOfMarchYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const U mp = (5 * dayOfMarchYear + 2) / 153;  // 0 = March
    const auto day = static_cast<unsigned>(dayOfMarchYear - (153 * mp + 2) / 5 + 1);
    const auto month = static_cast<unsigned>(mp < 10 ? mp + 3 : mp - 9);
    // The civil year's place in its 400 years tells a leap year; January 1 is March-year day 306.
    const auto yearIn400 = static_cast<unsigned>(yearOfEra + (month <= 2 ? 1 : 0)) % 400;
    const bool leap = yearIn400 % 4 == 0 && (yearIn400 % 100 != 0 || yearIn400 == 0);
    const auto yearDay =
        static_cast<unsigned>(month <= 2 ? dayOfMarchYear - 306 : dayOfMarchYear + 59 + (leap ? 1 : 0));
    return {static_cast<std::int64_t>(yearOfEra) + (static_cast<std::int64_t>(era) + eraBase) * 400 +
                (month <= 2 ? 1 : 0),
            month, day, yearDay};
}

// 0000-03-01 to 1970-01-01.
constexpr std::int64_t kMarchEpoch = 719468;
// Eras added so that every day within 2^30 of 1970 counts up from 0 in 32 bits.
constexpr std::int64_t kEraShift = 7350;

}  // namespace

// Years 1600..2399 from tables built at compile time: the first day of each year, and the month
// and day of each day of a common and a leap year. Times near now are most of what is converted.
constexpr std::int64_t kTableFirstYear = 1600, kTableYears = 800;

struct YearTable {
    std::int32_t firstDay[kTableYears + 1];
    std::uint8_t month[2][366], day[2][366];
};

constexpr YearTable makeYearTable() {
    YearTable t{};
    for (std::int64_t i = 0; i <= kTableYears; ++i) {
        t.firstDay[i] = static_cast<std::int32_t>(daysFromCivil(kTableFirstYear + i, 1, 1));
    }
    for (int leap = 0; leap < 2; ++leap) {
        int yearDay = 0;
        for (unsigned m = 1; m <= 12; ++m) {
            const unsigned length = kDaysBeforeMonth[leap][m] - kDaysBeforeMonth[leap][m - 1];
            for (unsigned d = 1; d <= length; ++d, ++yearDay) {
                t.month[leap][yearDay] = static_cast<std::uint8_t>(m);
                t.day[leap][yearDay] = static_cast<std::uint8_t>(d);
            }
        }
    }
    return t;
}

constexpr YearTable kYears = makeYearTable();

CivilDate civilFromDays(std::int64_t days) noexcept {
    if (days >= kYears.firstDay[0] && days < kYears.firstDay[kTableYears]) {
        // The mean year gives the index within one either way.
        // 32-bit arithmetic: fewer than 300,000 days into the table.
        std::int64_t i = static_cast<std::uint32_t>(days - kYears.firstDay[0]) * 400u / 146097u;
        if (kYears.firstDay[i] > days) --i;
        if (kYears.firstDay[i + 1] <= days) ++i;
        const auto yearDay = static_cast<unsigned>(days - kYears.firstDay[i]);
        const int leap = kYears.firstDay[i + 1] - kYears.firstDay[i] == 366 ? 1 : 0;
        return {kTableFirstYear + i, kYears.month[leap][yearDay], kYears.day[leap][yearDay], yearDay};
    }
    constexpr std::int64_t kSmall = std::int64_t{1} << 30;
    if (days > -kSmall && days < kSmall) {  // 32-bit arithmetic: the common case, twice as fast
        return civilFromMarchDays(
            static_cast<std::uint32_t>(days + kMarchEpoch + kEraShift * kDaysPer400Years), -kEraShift);
    }
    const std::int64_t z = days + kMarchEpoch;
    const std::int64_t era = floorDiv(z, kDaysPer400Years);
    return civilFromMarchDays(static_cast<std::uint64_t>(z - era * kDaysPer400Years), era);
}

std::int64_t DateRule::secondsFromJanuary(std::int64_t year) const noexcept {
    std::int64_t day = 0;  // 0-based day of the year
    switch (_type) {
        case JULIAN_NO_LEAP:
            day = _day - 1;
            if (is_leap_year(year) && _day >= 60) ++day;
            break;
        case ZERO_BASED:
            day = _day;
            break;
        case DOW: {
            const std::int64_t first = daysFromCivil(year, _month, 1);
            const unsigned firstWeekday = weekdayFromDays(first);
            std::int64_t monthDay = (_weekday + 7u - firstWeekday) % 7u + 7u * (_week - 1u);  // 0-based
            while (monthDay >= daysInMonth(year, _month)) monthDay -= 7;  // week 5: the last
            day = dayOfYear(year, _month, 1) + monthDay;
            break;
        }
    }
    return day * kSecondsPerDay + _time;
}

}  // namespace basicutil
