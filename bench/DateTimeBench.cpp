// Rendering pre-compiled formats and parsing text: ours beside strftime/strptime (the C user's
// tools, subseconds appended by hand) and absl's FormatTime/ParseTime, in one run. Argument 0
// renders in UTC, 1 in "America/New_York".
#include <absl/time/time.h>
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "BenchZones.h"
#include "basicutil/time/DateTime.h"

namespace {

const char* const kZones[] = {"UTC", "America/New_York"};
constexpr const char* kIso = "%FT%T.%Q%:z";
constexpr const char* kHttp = "%a, %d %b %Y %H:%M:%S GMT";

const std::vector<basicutil::Timeval>& instants() {
    static const std::vector<basicutil::Timeval> times = [] {
        std::mt19937_64 rng(7);
        std::vector<basicutil::Timeval> t(64);
        for (auto& v : t) {
            v = {1577836800 + static_cast<std::int64_t>(rng() % 315569260),
                 static_cast<std::int64_t>(rng() % 1000000)};
        }
        return t;
    }();
    return times;
}

void useCLibraryZone(const char* name) {
    setenv("TZ", (std::string(":") + name).c_str(), 1);
    tzset();
}

void renderOurs(benchmark::State& state, const char* text) {
    const basicutil::TimeFormat format(text);
    const basicutil::TimeZonePtr zone = benchZone(kZones[state.range(0)]);
    basicutil::Str out;
    for (auto _ : state) {
        for (const basicutil::Timeval& tv : instants()) {
            out.clear();
            format.render(tv, *zone, out);
            benchmark::DoNotOptimize(out.data());
        }
    }
}

// What a C user writes: localtime_r, strftime, and the milliseconds and the offset's colon by hand.
void renderStrftime(benchmark::State& state, bool iso) {
    useCLibraryZone(kZones[state.range(0)]);
    char buf[64];
    for (auto _ : state) {
        for (const basicutil::Timeval& tv : instants()) {
            const auto t = static_cast<time_t>(tv.tv_sec);
            std::tm tm;
            if (iso) {
                localtime_r(&t, &tm);
                std::size_t n = strftime(buf, sizeof buf, "%FT%T", &tm);
                const long off = tm.tm_gmtoff < 0 ? -tm.tm_gmtoff : tm.tm_gmtoff;
                std::snprintf(buf + n, sizeof buf - n, ".%03d%c%02ld:%02ld",
                              static_cast<int>(tv.tv_usec / 1000), tm.tm_gmtoff < 0 ? '-' : '+', off / 3600,
                              off / 60 % 60);
            } else {
                if (state.range(0) == 0) {
                    gmtime_r(&t, &tm);
                } else {
                    localtime_r(&t, &tm);
                }
                strftime(buf, sizeof buf, kHttp, &tm);
            }
            benchmark::DoNotOptimize(buf);
        }
    }
}

void renderAbsl(benchmark::State& state, const char* text) {
    absl::TimeZone zone;
    absl::LoadTimeZone(kZones[state.range(0)], &zone);
    const std::string format =
        std::string(text) == kIso ? "%Y-%m-%dT%H:%M:%E3S%Ez" : "%a, %d %b %Y %H:%M:%S GMT";
    for (auto _ : state) {
        for (const basicutil::Timeval& tv : instants()) {
            const absl::Time t = absl::FromUnixMicros(tv.tv_sec * 1000000 + tv.tv_usec);
            benchmark::DoNotOptimize(absl::FormatTime(format, t, zone));
        }
    }
}

void BM_RenderIso_Ours(benchmark::State& state) {
    renderOurs(state, kIso);
}
void BM_RenderIso_Strftime(benchmark::State& state) {
    renderStrftime(state, true);
}
void BM_RenderIso_Absl(benchmark::State& state) {
    renderAbsl(state, kIso);
}
void BM_RenderHttp_Ours(benchmark::State& state) {
    renderOurs(state, kHttp);
}
void BM_RenderHttp_Strftime(benchmark::State& state) {
    renderStrftime(state, false);
}
void BM_RenderHttp_Absl(benchmark::State& state) {
    renderAbsl(state, kHttp);
}
BENCHMARK(BM_RenderIso_Ours)->Arg(0)->Arg(1);
BENCHMARK(BM_RenderIso_Strftime)->Arg(0)->Arg(1);
BENCHMARK(BM_RenderIso_Absl)->Arg(0)->Arg(1);
BENCHMARK(BM_RenderHttp_Ours)->Arg(0)->Arg(1);
BENCHMARK(BM_RenderHttp_Strftime)->Arg(0)->Arg(1);
BENCHMARK(BM_RenderHttp_Absl)->Arg(0)->Arg(1);

// "%FT%T%:z" texts to times.
const std::vector<std::string>& isoTexts() {
    static const std::vector<std::string> texts = [] {
        const basicutil::TimeFormat format("%FT%T%:z");
        const basicutil::TimeZonePtr zone = benchZone("America/New_York");
        std::vector<std::string> out;
        for (const basicutil::Timeval& tv : instants()) {
            basicutil::Str text;
            format.render(tv, *zone, text);
            out.emplace_back(text.c_str());
        }
        return out;
    }();
    return texts;
}

void BM_ParseIso_Ours(benchmark::State& state) {
    const basicutil::TimeFormat format("%FT%T%:z");
    const basicutil::TimeZonePtr utc = basicutil::TimeZone::utc();
    for (auto _ : state) {
        for (const std::string& text : isoTexts()) {
            basicutil::TimeFormatRawParseResult r;
            basicutil::Timeval tv;
            benchmark::DoNotOptimize(format.rawParse(std::string_view(text), r) && tv._set(r, *utc, {0, 0}));
            benchmark::DoNotOptimize(tv);
        }
    }
}
BENCHMARK(BM_ParseIso_Ours);

// strptime reads "%z" with the colon (glibc); timegm and the offset make the time.
void BM_ParseIso_Strptime(benchmark::State& state) {
    for (auto _ : state) {
        for (const std::string& text : isoTexts()) {
            std::tm tm{};
            const char* end = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S%z", &tm);
            const long offset = tm.tm_gmtoff;
            benchmark::DoNotOptimize(end);
            benchmark::DoNotOptimize(timegm(&tm) - offset);
        }
    }
}
BENCHMARK(BM_ParseIso_Strptime);

void BM_ParseIso_Absl(benchmark::State& state) {
    for (auto _ : state) {
        for (const std::string& text : isoTexts()) {
            absl::Time t;
            std::string error;
            benchmark::DoNotOptimize(absl::ParseTime("%Y-%m-%dT%H:%M:%S%Ez", text, &t, &error));
            benchmark::DoNotOptimize(t);
        }
    }
}
BENCHMARK(BM_ParseIso_Absl);

}  // namespace
