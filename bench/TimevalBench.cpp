// Timeval's text forms beside the C library doing the same job.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "basicutil/timevalue/Timeval.h"

namespace {

using basicutil::Timeval;

const Timeval kTimes[] = {{1700000000, 123456}, {-2, 750000}, {42, 0}, {9000000000, 999999}};

void BM_RenderDecimal_Ours(benchmark::State& state) {
    std::string out;
    for (auto _ : state) {
        for (const Timeval& tv : kTimes) {
            out.clear();
            tv.appendDecimal(out, 6);
            benchmark::DoNotOptimize(out.data());
        }
    }
}
BENCHMARK(BM_RenderDecimal_Ours);

void BM_RenderDecimal_Snprintf(benchmark::State& state) {
    char buf[64];
    for (auto _ : state) {
        for (const Timeval& tv : kTimes) {
            // Positive-only peer: the sign handling of ours has no printf equivalent.
            std::snprintf(buf, sizeof buf, "%lld.%06lld", static_cast<long long>(tv.tv_sec),
                          static_cast<long long>(tv.tv_usec));
            benchmark::DoNotOptimize(buf);
        }
    }
}
BENCHMARK(BM_RenderDecimal_Snprintf);

const char* const kTexts[] = {"1700000000.123456", "-1.25", "42", "9000000000.999999"};

void BM_ParseDecimal_Ours(benchmark::State& state) {
    Timeval tv;
    for (auto _ : state) {
        for (const char* text : kTexts) {
            benchmark::DoNotOptimize(tv.parse_into(text));
        }
    }
}
BENCHMARK(BM_ParseDecimal_Ours);

void BM_ParseDecimal_Strtod(benchmark::State& state) {
    for (auto _ : state) {
        for (const char* text : kTexts) {
            char* end = nullptr;
            benchmark::DoNotOptimize(std::strtod(text, &end));
        }
    }
}
BENCHMARK(BM_ParseDecimal_Strtod);

void BM_SortableCode_Encode(benchmark::State& state) {
    char code[Timeval::kSortableCodeLength];
    for (auto _ : state) {
        for (const Timeval& tv : kTimes) {
            tv.encodeSortable(code);
            benchmark::DoNotOptimize(code);
        }
    }
}
BENCHMARK(BM_SortableCode_Encode);

}  // namespace
