// Durations in milliseconds: the parser against a reference that works on the decimal digits.
#include <cstdint>
#include <string>

#include "FuzzReference.h"
#include "basicutil/timevalue/Timeval.h"

using namespace fuzzref;

namespace {

bool referenceParse(std::string_view text, std::uint64_t& ms) {
    const auto dot = text.find('.');
    const std::string_view whole = text.substr(0, dot);
    const std::string_view fraction =
        dot == std::string_view::npos ? std::string_view() : text.substr(dot + 1);
    if (!allDigits(whole) || !allDigits(fraction) || whole.size() + fraction.size() == 0) return false;
    const Int128 seconds = cappedValue(whole);
    if (seconds >= 18446744073709552) {
        ms = UINT64_MAX;
        return true;
    }
    std::string four(fraction.substr(0, 4));
    four.resize(4, '0');
    const Int128 total = seconds * 1000 + (cappedValue(four) + 5) / 10;
    ms = total > UINT64_MAX ? UINT64_MAX : static_cast<std::uint64_t>(total);
    if (ms == 0 && fraction.find_first_not_of('0') != std::string_view::npos) ms = 1;
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::uint64_t got = 3, expected = 3;
    const bool ok = basicutil::mem_parse_seconds_as_ms(text.data(), text.size(), got);
    FUZZ_CHECK(ok == referenceParse(text, expected));
    if (ok) FUZZ_CHECK(got == expected);
    return 0;
}
