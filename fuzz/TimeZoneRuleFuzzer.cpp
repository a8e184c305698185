// POSIX rules: any text is refused or gives a zone that behaves.
#include "TimeZoneFuzzChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const basicutil::TimeZonePtr zone =
        basicutil::TimeZone::fromPosixRule(basicutil::StrSegment(reinterpret_cast<const char*>(data), size));
    if (zone != nullptr) fuzzref::checkZone(*zone, data, size);
    return 0;
}
