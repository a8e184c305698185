// What every zone a loader accepts must satisfy, whatever bytes it came from.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "FuzzReference.h"
#include "basicutil/time/TimeZone.h"

namespace fuzzref {

// Whether a loader took the input; a refusal must be EINVAL and say why.
inline bool accepted(const basicutil::Status& st) {
    if (st.ok()) return true;
    FUZZ_CHECK(st.error() == EINVAL && !st.text().empty());
    return false;
}

// Instants from the input, the ends of time among them; each breaks down, and comes back from
// its local fields when those fields are unique; the serialized form gives the same zone.
inline void checkZone(const basicutil::TimeZone& zone, const std::uint8_t* data, std::size_t size) {
    using namespace basicutil;
    std::int64_t instants[6] = {INT64_MIN, INT64_MAX, 0, -1, 1700000000, 4102444800};
    for (std::size_t i = 0; i + 8 <= size && i < 16; i += 8) std::memcpy(&instants[2 + i / 8], data + i, 8);
    for (std::int64_t t : instants) {
        CivilTime civil;
        TimeZoneLookup at;
        FUZZ_CHECK(zone.breakDown(t, civil, &at));
        FUZZ_CHECK(civil.month >= 1 && civil.month <= 12 && civil.day >= 1 && civil.day <= 31 &&
                   civil.hour < 24);
        FUZZ_CHECK(at.abbreviation != nullptr);
        LocalTimeResolution back;
        if (zone.leapSeconds().empty() &&
            zone.resolveLocal(civil.year, civil.month, civil.day, civil.hour, civil.minute, civil.second,
                              back) &&
            back.kind == LocalTimeResolution::UNIQUE) {
            FUZZ_CHECK(back.seconds == t);
        }
    }
    TimeZonePtr again;
    FUZZ_CHECK(TimeZone::fromSerialized(zone.serialize(), again).ok() && again->sameAs(zone));
}

}  // namespace fuzzref
