// Signed whole seconds: the parser against a reference that clamps an exact value.
#include <cstdint>

#include "FuzzReference.h"
#include "basicutil/timevalue/Timeval.h"

using namespace fuzzref;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    std::int64_t got = 3;
    const bool ok = basicutil::mem_parse_signed_seconds(text.data(), text.size(), got);

    const bool negative = !text.empty() && text.front() == '-';
    if (negative) text.remove_prefix(1);
    const bool valid = !text.empty() && allDigits(text);
    FUZZ_CHECK(ok == valid);
    if (valid) {
        Int128 v = cappedValue(text);
        if (negative) v = -v;
        if (v > INT64_MAX) v = INT64_MAX;
        if (v < INT64_MIN) v = INT64_MIN;
        FUZZ_CHECK(got == static_cast<std::int64_t>(v));
    }
    return 0;
}
