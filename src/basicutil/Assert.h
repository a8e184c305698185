// The one assertion macro of the library. It stays enabled in every build type.
//
//   VESTRA_ASSERT(span < 1000);
//
// A failure reports the expression, the function and the source unit ("basicutil/Timeval")
// through the platform's own assertion routine and then aborts. Assertions guard programming
// errors only: input errors are reported by return values, never by asserting.
//
//   VESTRA_ASSERT_TEXT(width == NONE, "width == (size_t) -1");
//
// reports the given text (a string literal) instead of the expression, for invariants whose
// report is fixed wording that the natural C++ spelling would not reproduce.
#pragma once

#include <string_view>

namespace vestra::detail {

// Every topic of the library, as assertion messages name it. Files that split a topic share its
// name as their prefix (TimevalText.cpp reports "basicutil/Timeval"); the longest match wins.
inline constexpr std::string_view kAssertUnits[] = {
    "basicutil/Assert",
    "basicutil/Platform",
    "basicutil/Thread",
    "basicutil/DutyCycle",
    "basicutil/MutexByte",
    "basicutil/ReadMostly",
    "basicutil/Timeval",
    "basicutil/DateTime",
    "basicutil/TimeZone",
    "basicutil/Logger",
    "basicutil/Str",
    "basicutil/StrVector",
    "basicutil/UnicodeCodepoint",
    "basicutil/PrintfFormat",
    "basicutil/PrintFloatingPoint",
    "basicutil/BasicConversions",
    "basicutil/PrintHexBytes",
    "basicutil/HexDumper",
    "basicutil/Regex",
    "basicutil/DecimalText",
    "basicutil/StartupOrder",
    "basicutil/BaseException",
    "basicutil/File",
    "basicutil/Pathname",
    "libzero/unicode-file",
    "libzero/codepoint-width",
    "libzero/create-crash-dump",
    "libzero/bounded-path",
    "main/vestra-helper",
    "main/ParentMonitoringThread",
    "main/vestra",
};

// Maps a source path ("src/basicutil/TimevalText.cpp") to its unit ("basicutil/Timeval").
// consteval: a file whose topic is missing from the table does not compile.
consteval const char* assertUnitOf(std::string_view path) {
    const auto lastSlash = path.rfind('/');
    const auto dirSlash =
        lastSlash == std::string_view::npos ? std::string_view::npos : path.rfind('/', lastSlash - 1);
    const std::string_view tail = path.substr(dirSlash == std::string_view::npos ? 0 : dirSlash + 1);
    const char* best = nullptr;
    std::size_t bestLen = 0;
    for (std::string_view unit : kAssertUnits) {
        if (tail.starts_with(unit) && unit.size() > bestLen) {
            best = unit.data();
            bestLen = unit.size();
        }
    }
    if (best == nullptr) throw "source file's topic is missing from kAssertUnits";
    return best;
}

[[noreturn, gnu::cold]] void assertionFailed(const char* expression, const char* function, const char* unit,
                                             unsigned line) noexcept;

}  // namespace vestra::detail

// Checks `expr` in every build; when it is false, reports the expression, the function, the
// topic and the line, and aborts.
#define VESTRA_ASSERT(expr) VESTRA_ASSERT_TEXT(expr, #expr)

// The same, reporting `text` (a string literal) in place of the expression.
#define VESTRA_ASSERT_TEXT(expr, text)                            \
    (static_cast<bool>(expr) ? void(0)                            \
                             : ::vestra::detail::assertionFailed( \
                                   "" text, __func__, ::vestra::detail::assertUnitOf(__FILE__), __LINE__))
