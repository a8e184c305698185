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
    "basicutil/Status",
    "basicutil/StaticStrSet",
    "basicutil/SimpleRandomNumber",
    "basicutil/UnicodeCodepoint",
    "basicutil/PrintfFormat",
    "basicutil/PrintFloatingPoint",
    "basicutil/BasicConversions",
    "basicutil/PrintHexBytes",
    "basicutil/HexDumper",
    "basicutil/CrashHandler",
    "basicutil/CrashNotation",
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

// Maps a source path ("src/basicutil/timevalue/TimevalText.cpp") to its unit
// ("basicutil/Timeval"): the library's folder and the file's topic, whatever layer folder lies
// between them. consteval: a file whose topic is missing from the table does not compile.
consteval const char* assertUnitOf(std::string_view path) {
    const auto lastSlash = path.rfind('/');
    const std::string_view file = path.substr(lastSlash == std::string_view::npos ? 0 : lastSlash + 1);
    const std::string_view folders = path.substr(0, lastSlash == std::string_view::npos ? 0 : lastSlash);
    const char* best = nullptr;
    std::size_t bestLen = 0;
    for (std::string_view unit : kAssertUnits) {
        const auto slash = unit.find('/');
        const std::string_view library = unit.substr(0, slash);
        // The library's name must be one of the path's folders.
        bool inLibrary = false;
        for (std::size_t start = 0; start < folders.size();) {
            const auto end = folders.find('/', start);
            const std::size_t stop = end == std::string_view::npos ? folders.size() : end;
            if (folders.substr(start, stop - start) == library) inLibrary = true;
            start = stop + 1;
        }
        if (inLibrary && file.starts_with(unit.substr(slash + 1)) && unit.size() > bestLen) {
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

namespace basicutil {

// What the first failed assertion of the process reported, recorded before the platform's
// routine runs (it aborts), so that a crash log can say it. Null texts until one fails.
struct FailedAssertion {
    const char* expression = nullptr;  // or the text given to VESTRA_ASSERT_TEXT
    const char* function = nullptr;    // __func__
    const char* unit = nullptr;        // "basicutil/Thread"
    unsigned line = 0;                 // in the source file
};
// The record; safe in a signal handler.
FailedAssertion failedAssertion() noexcept;

}  // namespace basicutil

// Checks `expr` in every build; when it is false, reports the expression, the function, the
// topic and the line, and aborts.
#define VESTRA_ASSERT(expr) VESTRA_ASSERT_TEXT(expr, #expr)

// The same, reporting `text` (a string literal) in place of the expression.
#define VESTRA_ASSERT_TEXT(expr, text)                            \
    (static_cast<bool>(expr) ? void(0)                            \
                             : ::vestra::detail::assertionFailed( \
                                   "" text, __func__, ::vestra::detail::assertUnitOf(__FILE__), __LINE__))
