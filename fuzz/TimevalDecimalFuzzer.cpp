// Decimal seconds: the parser against a reference built from the grammar, and the renderer's
// round trip.
#include <cstdint>
#include <string>

#include "FuzzReference.h"
#include "basicutil/timevalue/Timeval.h"

using namespace fuzzref;
using basicutil::Timeval;

namespace {

// -?[0-9]+(\.[0-9]*)? with the range rules: positive up to INT64_MAX, negative whole seconds
// down to -2^63, negative with a fraction only while |whole| + 1 stays below 2^63.
bool referenceParse(std::string_view text, Timeval& out) {
    const bool negative = !text.empty() && text.front() == '-';
    if (negative) text.remove_prefix(1);
    const auto dot = text.find('.');
    const std::string_view whole = text.substr(0, dot);
    std::string_view fraction = dot == std::string_view::npos ? std::string_view() : text.substr(dot + 1);
    if (whole.empty() || !allDigits(whole) || !allDigits(fraction)) return false;
    const Int128 w = cappedValue(whole);
    std::string six(fraction.substr(0, 6));
    six.resize(6, '0');
    const auto f = static_cast<std::int64_t>(cappedValue(six));
    if (!negative) {
        if (w > INT64_MAX) return false;
        out = {static_cast<std::int64_t>(w), f};
    } else if (f == 0) {
        if (w > kTwo63) return false;
        out = {static_cast<std::int64_t>(-w), 0};
    } else {
        if (w >= kTwo63 - 1) return false;
        out = {static_cast<std::int64_t>(-(w + 1)), 1000000 - f};
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    Timeval got{7, 7}, expected{7, 7};
    const bool ok = got.mem_parse_into(text.data(), text.size());
    FUZZ_CHECK(ok == referenceParse(text, expected));
    FUZZ_CHECK(got == expected);
    if (ok) {
        FUZZ_CHECK(got.tv_usec >= 0 && got.tv_usec <= 999999);
        Timeval back;
        const std::string rendered = got.toDecimal(6);
        FUZZ_CHECK(back.parse_into(rendered.c_str()));
        FUZZ_CHECK(back == got);
    }
    return 0;
}
