// Archives: any bytes are refused, or every name in the index finds its zone file.
#include "TimeZoneFuzzChecks.h"
#include "basicutil/time/TimeZoneArchive.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace basicutil;
    std::shared_ptr<const TimeZoneArchive> archive;
    if (!fuzzref::accepted(
            TimeZoneArchive::fromBytes(Str(reinterpret_cast<const char*>(data), size), archive)))
        return 0;
    for (std::size_t i = 0; i < archive->size(); ++i) {
        StrSegment tzif;
        FUZZ_CHECK(archive->find(archive->nameAt(i), tzif));
        TimeZonePtr zone;
        if (!fuzzref::accepted(TimeZone::fromTzif("fuzz", tzif, zone))) continue;
        fuzzref::checkZone(*zone, data, size);
    }
    return 0;
}
