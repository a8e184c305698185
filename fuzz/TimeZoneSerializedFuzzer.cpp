// The serialized form: any text is refused or gives a zone that behaves and writes itself back
// as the same text.
#include "TimeZoneFuzzChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const basicutil::StrSegment text(reinterpret_cast<const char*>(data), size);
    basicutil::TimeZonePtr zone;
    if (!fuzzref::accepted(basicutil::TimeZone::fromSerialized(text, zone))) return 0;
    fuzzref::checkZone(*zone, data, size);
    FUZZ_CHECK(zone->serialize().view() == text.view());
    return 0;
}
