// Zone files: any bytes are refused or give a zone that behaves.
#include "TimeZoneFuzzChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    basicutil::TimeZonePtr zone;
    if (fuzzref::accepted(basicutil::TimeZone::fromTzif(
            "fuzz", basicutil::StrSegment(reinterpret_cast<const char*>(data), size), zone)))
        fuzzref::checkZone(*zone, data, size);
    return 0;
}
