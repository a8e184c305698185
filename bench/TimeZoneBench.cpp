// A zone's offset and abbreviation for a time (Offset), the same with the local fields (Fields),
// and local fields back to a time (ToEpoch): ours beside cctz and the C library, for a cached
// "America/New_York" (0) and "Europe/London" (1). The peers have one call for the first two, which
// gives everything; it stands against both of ours.
#include <benchmark/benchmark.h>
#include <cctz/time_zone.h>

#include <cstdlib>
#include <ctime>
#include <random>
#include <vector>

#include "BenchZones.h"
#include "basicutil/time/TimeZone.h"

namespace {

const char* const kZones[] = {"America/New_York", "Europe/London"};

// Instants spread over 2020..2030, the same for every contender.
const std::vector<std::int64_t>& instants() {
    static const std::vector<std::int64_t> times = [] {
        std::mt19937_64 rng(42);
        std::vector<std::int64_t> t(256);
        for (auto& v : t) v = 1577836800 + static_cast<std::int64_t>(rng() % 315569260);
        return t;
    }();
    return times;
}

void useCLibraryZone(const char* name) {
    setenv("TZ", (std::string(":") + name).c_str(), 1);
    tzset();
}

void BM_Offset_Ours(benchmark::State& state) {
    const basicutil::TimeZonePtr zone = benchZone(kZones[state.range(0)]);
    for (auto _ : state) {
        for (std::int64_t t : instants()) benchmark::DoNotOptimize(zone->lookup(t));
    }
}
BENCHMARK(BM_Offset_Ours)->Arg(0)->Arg(1);

void BM_Fields_Ours(benchmark::State& state) {
    const basicutil::TimeZonePtr zone = benchZone(kZones[state.range(0)]);
    for (auto _ : state) {
        for (std::int64_t t : instants()) {
            basicutil::CivilTime civil;
            basicutil::TimeZoneLookup at;
            if (!zone->breakDown(t, civil, &at)) return state.SkipWithError("breakDown failed");
            benchmark::DoNotOptimize(civil);
            benchmark::DoNotOptimize(at);
        }
    }
}
BENCHMARK(BM_Fields_Ours)->Arg(0)->Arg(1);

void peerCctz(benchmark::State& state) {
    cctz::time_zone zone;
    cctz::load_time_zone(kZones[state.range(0)], &zone);
    for (auto _ : state) {
        for (std::int64_t t : instants()) {
            const auto al = zone.lookup(std::chrono::system_clock::from_time_t(static_cast<time_t>(t)));
            benchmark::DoNotOptimize(al);
        }
    }
}
void BM_Offset_Cctz(benchmark::State& state) {
    peerCctz(state);
}
void BM_Fields_Cctz(benchmark::State& state) {
    peerCctz(state);
}
BENCHMARK(BM_Offset_Cctz)->Arg(0)->Arg(1);
BENCHMARK(BM_Fields_Cctz)->Arg(0)->Arg(1);

void peerLibc(benchmark::State& state) {
    useCLibraryZone(kZones[state.range(0)]);
    for (auto _ : state) {
        for (std::int64_t t : instants()) {
            const auto tt = static_cast<time_t>(t);
            std::tm tm;
            benchmark::DoNotOptimize(localtime_r(&tt, &tm));
            benchmark::DoNotOptimize(tm);
        }
    }
}
void BM_Offset_Libc(benchmark::State& state) {
    peerLibc(state);
}
void BM_Fields_Libc(benchmark::State& state) {
    peerLibc(state);
}
BENCHMARK(BM_Offset_Libc)->Arg(0)->Arg(1);
BENCHMARK(BM_Fields_Libc)->Arg(0)->Arg(1);

// The local fields of every instant, worked out once per zone.
std::vector<std::tm> localFields(const char* zone) {
    useCLibraryZone(zone);
    std::vector<std::tm> fields;
    for (std::int64_t t : instants()) {
        const auto tt = static_cast<time_t>(t);
        std::tm tm{};
        localtime_r(&tt, &tm);
        tm.tm_isdst = -1;
        fields.push_back(tm);
    }
    return fields;
}

void BM_ToEpoch_Ours(benchmark::State& state) {
    const basicutil::TimeZonePtr zone = benchZone(kZones[state.range(0)]);
    const std::vector<std::tm> fields = localFields(kZones[state.range(0)]);
    for (auto _ : state) {
        for (const std::tm& tm : fields) {
            basicutil::LocalTimeResolution r;
            if (!zone->resolveLocal(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min,
                                    tm.tm_sec, r)) {
                return state.SkipWithError("resolveLocal failed");
            }
            benchmark::DoNotOptimize(r);
        }
    }
}
BENCHMARK(BM_ToEpoch_Ours)->Arg(0)->Arg(1);

void BM_ToEpoch_Cctz(benchmark::State& state) {
    cctz::time_zone zone;
    cctz::load_time_zone(kZones[state.range(0)], &zone);
    const std::vector<std::tm> fields = localFields(kZones[state.range(0)]);
    for (auto _ : state) {
        for (const std::tm& tm : fields) {
            const cctz::civil_second cs(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min,
                                        tm.tm_sec);
            benchmark::DoNotOptimize(zone.lookup(cs).pre);
        }
    }
}
BENCHMARK(BM_ToEpoch_Cctz)->Arg(0)->Arg(1);

void BM_ToEpoch_Libc(benchmark::State& state) {
    const std::vector<std::tm> fields = localFields(kZones[state.range(0)]);
    for (auto _ : state) {
        for (const std::tm& tm : fields) {
            std::tm copy = tm;
            benchmark::DoNotOptimize(mktime(&copy));
        }
    }
}
BENCHMARK(BM_ToEpoch_Libc)->Arg(0)->Arg(1);

}  // namespace
