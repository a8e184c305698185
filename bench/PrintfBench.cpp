// The printf engine beside glibc snprintf and fmt, in one run: each format pre-parsed and parsed
// every time.
#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <fmt/printf.h>

#include <cstdio>
#include <iterator>

#include "basicutil/text/PrintfFormat.h"

namespace {

using namespace basicutil;

// One benchmark family per format: the same arguments for every contender. The pre-parsed run
// checks its text against snprintf's, so that a broken argument cannot pass for speed.
#define PRINTF_BENCH(name, cformat, fmtformat, ...)                                        \
    void BM_##name##_OursPreparsed(benchmark::State& state) {                              \
        const PrintfFormat parsed{StrSegment(cformat)};                                    \
        Str out;                                                                           \
        for (auto _ : state) {                                                             \
            out.clear();                                                                   \
            parsed.append(out, __VA_ARGS__);                                               \
            benchmark::DoNotOptimize(out.data());                                          \
        }                                                                                  \
        char expected[256];                                                                \
        std::snprintf(expected, sizeof expected, cformat, __VA_ARGS__);                    \
        if (out.view() != expected) state.SkipWithError("differs from snprintf");          \
    }                                                                                      \
    void BM_##name##_OursParsedEachTime(benchmark::State& state) {                         \
        Str out;                                                                           \
        for (auto _ : state) {                                                             \
            out.clear();                                                                   \
            appendf(out, cformat, __VA_ARGS__);                                            \
            benchmark::DoNotOptimize(out.data());                                          \
        }                                                                                  \
    }                                                                                      \
    void BM_##name##_Snprintf(benchmark::State& state) {                                   \
        char buf[256];                                                                     \
        for (auto _ : state) {                                                             \
            std::snprintf(buf, sizeof buf, cformat, __VA_ARGS__);                          \
            benchmark::DoNotOptimize(buf);                                                 \
        }                                                                                  \
    }                                                                                      \
    void BM_##name##_FmtSprintf(benchmark::State& state) {                                 \
        for (auto _ : state) benchmark::DoNotOptimize(fmt::sprintf(cformat, __VA_ARGS__)); \
    }                                                                                      \
    void BM_##name##_FmtFormatTo(benchmark::State& state) {                                \
        fmt::memory_buffer out;                                                            \
        for (auto _ : state) {                                                             \
            out.clear();                                                                   \
            fmt::format_to(std::back_inserter(out), fmtformat, __VA_ARGS__);               \
            benchmark::DoNotOptimize(out.data());                                          \
        }                                                                                  \
    }                                                                                      \
    BENCHMARK(BM_##name##_OursPreparsed);                                                  \
    BENCHMARK(BM_##name##_OursParsedEachTime);                                             \
    BENCHMARK(BM_##name##_Snprintf);                                                       \
    BENCHMARK(BM_##name##_FmtSprintf);                                                     \
    BENCHMARK(BM_##name##_FmtFormatTo);

// Arguments the compiler cannot see through: with constants it turns snprintf("%s", word)
// into a copy and folds other calls, which would measure nothing. (benchmark::DoNotOptimize's
// register-or-memory constraint loses doubles with this g++; a memory operand does not.)
template <typename T>
T opaque(T value) {
    asm volatile("" : "+m"(value));
    return value;
}

const char* const kWord = "connected";
const char* const kLevel = "INFO";

PRINTF_BENCH(Int, "%d", "{}", opaque(1234567))
PRINTF_BENCH(Hex, "%08x", "{:08x}", opaque(0xBEEFu))
PRINTF_BENCH(String, "%s", "{}", opaque(kWord))
PRINTF_BENCH(Fixed, "%.3f", "{:.3f}", opaque(3.14159265))
PRINTF_BENCH(General, "%g", "{:g}", opaque(0.000123456789))
PRINTF_BENCH(Exponent, "%e", "{:e}", opaque(6.02214076e23))
PRINTF_BENCH(LogLine, "%s %5d %-8s %.3f %s", "{} {:5d} {:<8} {:.3f} {}", opaque("12:00:01"), opaque(4242),
             opaque(kLevel), opaque(2.5), opaque(kWord))

// Grouped thousands: glibc's C locale does not group and fmt's printf has no ' flag, so the
// peers do the nearest job (snprintf ungrouped, fmt with its own grouping).
void BM_Grouped_OursPreparsed(benchmark::State& state) {
    const PrintfFormat parsed{StrSegment("%'d")};
    Str out;
    for (auto _ : state) {
        out.clear();
        parsed.append(out, opaque(1234567));
        benchmark::DoNotOptimize(out.data());
    }
}
void BM_Grouped_Snprintf(benchmark::State& state) {
    char buf[64];
    for (auto _ : state) {
        std::snprintf(buf, sizeof buf, "%'d", opaque(1234567));
        benchmark::DoNotOptimize(buf);
    }
}
void BM_Grouped_FmtFormatTo(benchmark::State& state) {
    fmt::memory_buffer out;
    for (auto _ : state) {
        out.clear();
        fmt::format_to(std::back_inserter(out), "{:L}", opaque(1234567));
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_Grouped_OursPreparsed);
BENCHMARK(BM_Grouped_Snprintf);
BENCHMARK(BM_Grouped_FmtFormatTo);

}  // namespace
