// The printf engine on arbitrary format text and arbitrary typed arguments: no crash, no
// sanitizer report, output no longer than a bound worked out from the parsed atoms, the same
// text through every kind of output, and the exact rounding of doubles agreeing with rounding of
// the shortest digits whenever it decides.
//
// Input: format bytes, a 0 byte, then arguments of 9 bytes each (a kind byte and 8 value bytes);
// the last argument is a string made of whatever bytes are left.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzReference.h"
#include "basicutil/text/PrintFloatingPoint.h"
#include "basicutil/text/PrintfFormat.h"

using namespace basicutil;

namespace {
constexpr std::size_t kLargestField = 100000;  // wider fields only cost time, not coverage
constexpr unsigned kOptions = PrintfFormatAtom::OPTION_ERRNO | PrintfFormatAtom::OPTION_POINTERS;

// The digits both ways, without the trailing zeros that do not change what is printed.
void checkExactRounding(double value) {
    if (!std::isfinite(value)) return;
    for (std::size_t limit = 0; limit <= 17; ++limit) {
        for (const bool significant : {false, true}) {
            DoubleWithSignificantFigures exact;
            if (!(significant ? roundSignificantExactly(value, limit, exact)
                              : roundFixedExactly(value, limit, exact)))
                continue;
            DoubleWithSignificantFigures general(value);
            (significant ? general.sigfigs : general.precision) = static_cast<std::uint16_t>(limit);
            roundForSigfigsAndPrecision(general);
            while (general.ndigits > 1 && general.digits[general.ndigits - 1] == '0')
                general.digits[--general.ndigits] = '\0';
            FUZZ_CHECK(std::strcmp(exact.digits, general.digits) == 0);
            FUZZ_CHECK(exact.digits[0] == '0' || exact.point == general.point);
            FUZZ_CHECK(exact.negative == general.negative);
        }
    }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t split = input.find('\0');
    const std::string_view format = input.substr(0, split);
    std::string_view rest = split == std::string_view::npos ? std::string_view() : input.substr(split + 1);

    // A * field takes its width from an integer: with one in the format, integers stay small, or
    // a single argument could ask for two gigabytes of blanks (which the engine would write).
    const bool star = format.find('*') != std::string_view::npos;
    std::vector<PrintfArg> args;
    std::size_t stringBytes = 0;
    while (rest.size() >= 9) {
        std::uint64_t bits;
        std::memcpy(&bits, rest.data() + 1, 8);
        const auto kind = static_cast<unsigned char>(rest[0]) % 5;
        if (kind == 0)
            args.emplace_back(static_cast<std::int64_t>(static_cast<std::int16_t>(bits)));  // fits a * field
        if (kind == 1) args.emplace_back(star ? bits % 40000 : bits);
        if (kind == 2) {
            double d;
            std::memcpy(&d, &bits, 8);
            args.emplace_back(d);
            checkExactRounding(d);
        }
        if (kind == 3) args.emplace_back(reinterpret_cast<const void*>(static_cast<std::uintptr_t>(bits)));
        if (kind == 4)
            args.emplace_back(star ? static_cast<std::int64_t>(bits % 40000)
                                   : static_cast<std::int64_t>(bits));
        rest.remove_prefix(9);
    }
    args.emplace_back(rest);
    stringBytes = rest.size();

    // The bound: each atom's own text, or its field and the widest value it could print.
    std::size_t bound = 0;
    StrSegment cursor(format);
    PrintfFormatAtom atom;
    while (atom.getNext(cursor, kOptions)) {
        if (atom.conversion == PrintfFormatAtom::CONV_CONSTANT_STRING) {
            bound += atom.length;
            continue;
        }
        const std::size_t width = atom.width == PrintfFormatAtom::NONE ? 0 : atom.width;
        const std::size_t precision = atom.precision == PrintfFormatAtom::NONE ? 0 : atom.precision;
        if (width > kLargestField || precision > kLargestField) return 0;
        const std::size_t starField = 40000;  // the largest * field the arguments above allow
        bound += width + precision + 2 * starField + 400 +
                 stringBytes;  // 400: %f of 1e308, or the text as written
    }

    Str out;
    appendPrintf(PrintfOutput(out), StrSegment(format), args, kOptions);
    FUZZ_CHECK(out.size() <= bound);

    // Parsed once, rendered twice: the same text both times.
    const PrintfFormat parsed(StrSegment(format), kOptions);
    Str first, second;
    parsed.appendTo(PrintfOutput(first), args);
    parsed.appendTo(PrintfOutput(second), args);
    FUZZ_CHECK(first == second && first == out);

    // An output that is no Str takes the stack-buffer and piecewise paths.
    std::string viaString;
    appendPrintf(PrintfOutput(viaString), StrSegment(format), args, kOptions);
    FUZZ_CHECK(viaString == out.view());
    return 0;
}
