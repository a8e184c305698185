// The sortable code: decoding arbitrary text against a reference decoder, and encoding
// arbitrary times, which must decode back and sort as the times do.
#include <cstdint>
#include <cstring>
#include <string>

#include "FuzzReference.h"
#include "basicutil/timevalue/Timeval.h"

using namespace fuzzref;
using basicutil::Timeval;

namespace {

constexpr std::int64_t kEpochOffset = 11644473600;

bool referenceDecode(std::string_view code, Timeval& out) {
    if (code.size() != 14) return false;
    std::string upper(code);
    for (char& c : upper)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    if (upper == "ZNULLZTIMEZZZZ") return out = {0, 0}, true;
    if (upper == "ZMINZTIMEZZZZZ") return out = Timeval::MIN_TIME, true;
    if (upper == "ZMAXZTIMEZZZZZ") return out = Timeval::MAX_TIME, true;
    static const std::string kAlphabet = "0123456789ABCDEFGHIJKLMNOPQRSTUV";
    Int128 seconds = 0, ns = 0;
    for (std::size_t i = 0; i < 14; ++i) {
        const auto digit = kAlphabet.find(upper[i]);
        if (digit == std::string::npos) return false;
        Int128& field = i < 8 ? seconds : ns;
        field = field * 32 + static_cast<Int128>(digit);
    }
    if (ns > 999999999) return false;
    if (seconds < kEpochOffset) return out = Timeval::MAX_TIME, true;
    out = {static_cast<std::int64_t>(seconds - kEpochOffset), static_cast<std::int64_t>((ns + 500) / 1000)};
    return true;
}

Timeval timeFrom(const std::uint8_t* data) {
    std::int64_t sec = 0, usec = 0;
    std::memcpy(&sec, data, 8);
    std::memcpy(&usec, data + 8, 8);
    usec = static_cast<std::int64_t>(static_cast<std::uint64_t>(usec) % 1000000);
    if (data[16] & 1) sec %= (std::int64_t{1} << 36);  // mostly times the code can hold
    return {sec, usec};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    Timeval got{7, 7}, expected{7, 7};
    const bool ok = got.decodeSortable(text.data(), text.size());
    FUZZ_CHECK(ok == referenceDecode(text, expected));
    if (ok) FUZZ_CHECK(got == expected);

    if (size >= 34) {
        const Timeval a = timeFrom(data), b = timeFrom(data + 17);
        const std::string codeA = a.sortableCode(), codeB = b.sortableCode();
        Timeval back;
        FUZZ_CHECK(back.decodeSortable(codeA.data(), codeA.size()));
        const bool representable = a.tv_sec > 0 && a.tv_sec <= (std::int64_t{1} << 40) - 1 - kEpochOffset;
        if (representable) FUZZ_CHECK(back == a);
        if (representable && b.tv_sec > 0 && b.tv_sec <= (std::int64_t{1} << 40) - 1 - kEpochOffset)
            FUZZ_CHECK((a < b) == (codeA < codeB));
    }
    return 0;
}
