// The zone loaders' results as the tests use them: the zone, or null when the loader refused
// (tests that look at why call the loaders themselves).
#pragma once

#include "basicutil/time/TimeZone.h"
#include "basicutil/time/TimeZoneArchive.h"

namespace vestra::test_zones {

inline basicutil::TimeZonePtr loadZone(basicutil::StrSegment name) {
    basicutil::TimeZonePtr zone;
    return basicutil::TimeZone::load(name, zone).ok() ? zone : nullptr;
}
inline basicutil::TimeZonePtr ruleZone(basicutil::StrSegment rule) {
    basicutil::TimeZonePtr zone;
    return basicutil::TimeZone::fromPosixRule(rule, zone).ok() ? zone : nullptr;
}
inline basicutil::TimeZonePtr fixedZone(std::int32_t offset, basicutil::StrSegment abbreviation) {
    basicutil::TimeZonePtr zone;
    return basicutil::TimeZone::fixed(offset, abbreviation, zone).ok() ? zone : nullptr;
}
inline basicutil::TimeZonePtr tzifZone(basicutil::StrSegment name, basicutil::StrSegment bytes) {
    basicutil::TimeZonePtr zone;
    return basicutil::TimeZone::fromTzif(name, bytes, zone).ok() ? zone : nullptr;
}
inline basicutil::TimeZonePtr serializedZone(basicutil::StrSegment text) {
    basicutil::TimeZonePtr zone;
    return basicutil::TimeZone::fromSerialized(text, zone).ok() ? zone : nullptr;
}
inline std::shared_ptr<const basicutil::TimeZoneArchive> archiveOf(basicutil::Str bytes) {
    std::shared_ptr<const basicutil::TimeZoneArchive> archive;
    return basicutil::TimeZoneArchive::fromBytes(std::move(bytes), archive).ok() ? archive : nullptr;
}

}  // namespace vestra::test_zones
