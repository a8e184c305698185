// Archives: any bytes are refused, or every name in the index finds its zone file.
#include "TimeZoneFuzzChecks.h"
#include "basicutil/time/TimeZoneArchive.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace basicutil;
    const auto archive = TimeZoneArchive::fromBytes(Str(reinterpret_cast<const char*>(data), size));
    if (archive == nullptr) return 0;
    for (std::size_t i = 0; i < archive->size(); ++i) {
        StrSegment tzif;
        FUZZ_CHECK(archive->find(archive->nameAt(i), tzif));
        const TimeZonePtr zone = TimeZone::fromTzif("fuzz", tzif);
        if (zone != nullptr) fuzzref::checkZone(*zone, data, size);
    }
    return 0;
}
