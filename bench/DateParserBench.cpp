// Timestamps found in log lines, lines a second: one format all along (ISO 8601 with a fraction
// and an offset; syslog), a mix of ten formats, and lines without a timestamp. Beside ours, what a
// user would write instead: a PCRE2 JIT pattern per format, tried in turn, and strptime on what
// matched (fractions and offsets by hand, timegm); and python3-dateutil's fuzzy parser, run in a
// subprocess over the same lines (a scale: the time a line, the interpreter's start taken off).
// The parser's channels are off: its warnings are the caller's to say (vestra timestamps does so).
#define PCRE2_CODE_UNIT_WIDTH 8
#include <benchmark/benchmark.h>
#include <pcre2.h>

#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "basicutil/dateparser/DateParser.h"
#include "basicutil/log/Logger.h"

namespace {

constexpr int kLines = 100000;
constexpr std::int64_t kStart = 1704164645;  // 2024-01-02T03:04:05Z

const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
const char* const kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

// One line of kind k for the instant t (seconds) and milliseconds ms.
std::string lineOf(int kind, std::int64_t t, int ms) {
    const time_t seconds = static_cast<time_t>(t);
    struct tm tm {};
    gmtime_r(&seconds, &tm);
    char buf[256];
    const char* mon = kMonths[tm.tm_mon];
    const char* day = kDays[tm.tm_wday];
    const int y = tm.tm_year + 1900, mo = tm.tm_mon + 1, d = tm.tm_mday, h = tm.tm_hour, mi = tm.tm_min,
              s = tm.tm_sec;
    switch (kind) {
        case 0:
            std::snprintf(
                buf, sizeof buf,
                "%04d-%02d-%02dT%02d:%02d:%02d.%03d+00:00 INFO [worker-3] request %d served in 3 ms", y, mo,
                d, h, mi, s, ms, ms * 7);
            break;
        case 1:
            std::snprintf(buf, sizeof buf,
                          "%s %2d %02d:%02d:%02d host sshd[1234]: Accepted publickey for deploy", mon, d, h,
                          mi, s);
            break;
        case 2:
            std::snprintf(buf, sizeof buf,
                          "%04d-%02d-%02d %02d:%02d:%02d,%03d WARN  c.e.Service - slow query", y, mo, d, h,
                          mi, s, ms);
            break;
        case 3:
            std::snprintf(buf, sizeof buf, "Date: %s, %02d %s %04d %02d:%02d:%02d GMT", day, d, mon, y, h, mi,
                          s);
            break;
        case 4:
            std::snprintf(
                buf, sizeof buf,
                "192.0.2.7 - - [%02d/%s/%04d:%02d:%02d:%02d +0000] \"GET /index.html HTTP/1.1\" 200 512", d,
                mon, y, h, mi, s);
            break;
        case 5:
            std::snprintf(buf, sizeof buf, "%s %s %2d %02d:%02d:%02d %04d kernel: eth0 link up", day, mon, d,
                          h, mi, s, y);
            break;
        case 6:
            std::snprintf(buf, sizeof buf, "%02d/%02d/%04d %02d:%02d:%02d %s job finished", mo, d, y,
                          h % 12 == 0 ? 12 : h % 12, mi, s, h < 12 ? "AM" : "PM");
            break;
        case 7:
            std::snprintf(buf, sizeof buf, "%02d.%02d.%04d %02d:%02d:%02d Verbindung hergestellt", d, mo, y,
                          h, mi, s);
            break;
        case 8:
            std::snprintf(buf, sizeof buf, "%02d%02d%02d %2d:%02d:%02d [Note] Aborted connection 42", y % 100,
                          mo, d, h, mi, s);
            break;
        default:
            std::snprintf(buf, sizeof buf, "level=info ts=%lld.%03d caller=main.go:42 msg=\"tick\"",
                          static_cast<long long>(t), ms);
            break;
    }
    return buf;
}

enum class Set { STEADY_ISO, STEADY_SYSLOG, MIX, NONE };

const std::vector<std::string>& lines(Set set) {
    static std::vector<std::string> all[4];
    std::vector<std::string>& out = all[static_cast<int>(set)];
    if (!out.empty()) return out;
    for (int i = 0; i < kLines; ++i) {
        const std::int64_t t = kStart + i / 10;
        const int ms = i % 10 * 100;
        switch (set) {
            case Set::STEADY_ISO:
                out.push_back(lineOf(0, t, ms));
                break;
            case Set::STEADY_SYSLOG:
                out.push_back(lineOf(1, t, ms));
                break;
            case Set::MIX:
                out.push_back(lineOf(i % 10, t, ms));
                break;
            case Set::NONE:
                // Half of them with colons (a stack trace's lines), which no pre-test turns away.
                if (i % 2 == 0) {
                    out.push_back("user " + std::to_string(i) + " logged in from host-" +
                                  std::to_string(i % 97) +
                                  " with session a1b2c3d4 and 3 items in the cart, version 2.4.10");
                } else {
                    out.push_back(
                        "    at com.example.orders.Service.handle(Service.java:" + std::to_string(i % 900) +
                        ") ~[orders-2.4.10.jar:2.4.10] caused by: timeout 30 s");
                }
                break;
        }
    }
    return out;
}

void quietChannels() {
    basicutil::dateParserChannel().setThreshold(basicutil::LOG_EMERG + 1);
    basicutil::dateParserVerboseChannel().setThreshold(basicutil::LOG_EMERG + 1);
}

void runOurs(benchmark::State& state, Set set) {
    quietChannels();
    const std::vector<std::string>& all = lines(set);
    basicutil::DateParserOptions options;
    options.zone = basicutil::TimeZone::utc();
    options.reference = basicutil::Timeval{kStart + 86400 * 365, 0};
    options.year = 2024;
    std::int64_t sum = 0;
    for (auto _ : state) {
        basicutil::DateParser parser(options);
        for (const std::string& line : all) {
            const basicutil::DateParseResult r = parser.parse(basicutil::StrSegment(line));
            sum += r.time.tv_sec;
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(all.size()));
}

// --- The regex-and-strptime way -----------------------------------------------------------------

struct Peer {
    struct Format {
        const char* pattern;  // group 1: what strptime reads; 2: a fraction; 3: an offset or zone
        const char* strptime;
        pcre2_code* code = nullptr;
    };
    std::vector<Format> formats = {
        {R"((\d{4}-\d\d-\d\d[T ]\d\d:\d\d:\d\d)(?:[.,](\d{1,9}))?(Z|[+-]\d\d:?\d\d)?)", "%Y-%m-%d %H:%M:%S"},
        {R"((?:\w{3}, )?(\d{1,2} \w{3} \d{4} \d\d:\d\d:\d\d)()( [+-]\d{4}| GMT))", "%d %b %Y %H:%M:%S"},
        {R"(\w{3} (\w{3} +\d{1,2} \d\d:\d\d:\d\d \d{4})()())", "%b %d %H:%M:%S %Y"},
        {R"((\w{3} +\d{1,2} \d\d:\d\d:\d\d)()())", "%b %d %H:%M:%S"},
        {R"((\d\d/\w{3}/\d{4}:\d\d:\d\d:\d\d)()( [+-]\d{4}))", "%d/%b/%Y:%H:%M:%S"},
        {R"((\d{1,2}/\d{1,2}/\d{4} \d{1,2}:\d\d:\d\d [AP]M)()())", "%m/%d/%Y %I:%M:%S %p"},
        {R"((\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d)()())", "%d.%m.%Y %H:%M:%S"},
        {R"((\d{6} +\d{1,2}:\d\d:\d\d)()())", "%y%m%d %H:%M:%S"},
        {R"(ts=(\d{10})(?:\.(\d+))?())", nullptr},
        {R"((\d{4}/\d\d/\d\d \d\d:\d\d:\d\d)()())", "%Y/%m/%d %H:%M:%S"},
    };
    pcre2_match_data* data = nullptr;

    Peer() {
        for (Format& f : formats) {
            int error = 0;
            PCRE2_SIZE offset = 0;
            f.code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(f.pattern), PCRE2_ZERO_TERMINATED, 0, &error,
                                   &offset, nullptr);
            if (f.code == nullptr || pcre2_jit_compile(f.code, PCRE2_JIT_COMPLETE) != 0) std::abort();
        }
        data = pcre2_match_data_create(8, nullptr);
    }
    ~Peer() {
        for (Format& f : formats) pcre2_code_free(f.code);
        pcre2_match_data_free(data);
    }

    // The instant of the first format that matches; 0 for none.
    std::int64_t parse(const std::string& line) {
        for (const Format& f : formats) {
            const int rc = pcre2_jit_match(f.code, reinterpret_cast<PCRE2_SPTR>(line.data()), line.size(), 0,
                                           0, data, nullptr);
            if (rc < 0) continue;
            const PCRE2_SIZE* v = pcre2_get_ovector_pointer(data);
            char core[64];
            const std::size_t n = v[3] - v[2] < sizeof core - 1 ? v[3] - v[2] : sizeof core - 1;
            std::memcpy(core, line.data() + v[2], n);
            core[n] = '\0';
            if (f.strptime == nullptr) return std::strtoll(core, nullptr, 10);
            if (n > 10 && core[10] == 'T') core[10] = ' ';
            struct tm tm {};
            tm.tm_year = 124;  // a year for formats without one
            if (strptime(core, f.strptime, &tm) == nullptr) continue;
            std::int64_t t = timegm(&tm);
            if (rc > 3 && v[7] > v[6]) {  // an offset: "+hh:mm", "+hhmm", " +hhmm", "Z", " GMT"
                const char* z = line.data() + v[6];
                if (*z == ' ') ++z;
                if (*z == '+' || *z == '-') {
                    const int hh = (z[1] - '0') * 10 + (z[2] - '0');
                    const char* m = z[3] == ':' ? z + 4 : z + 3;
                    const int mm = (m[0] - '0') * 10 + (m[1] - '0');
                    t -= (*z == '-' ? -1 : 1) * (hh * 3600 + mm * 60);
                }
            }
            return t;
        }
        return 0;
    }
};

void runRegexStrptime(benchmark::State& state, Set set) {
    const std::vector<std::string>& all = lines(set);
    Peer peer;
    std::int64_t sum = 0;
    for (auto _ : state) {
        for (const std::string& line : all) sum += peer.parse(line);
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(all.size()));
}

// --- dateutil, in a subprocess ----------------------------------------------------------------------

// Seconds python3 takes over `count` lines of the set with dateutil's fuzzy parser, its start-up
// (measured on no lines) taken off; negative when python3 or dateutil is missing.
double dateutilSeconds(Set set, int count) {
    char path[] = "/tmp/dateparser-bench.XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0) return -1;
    FILE* file = fdopen(fd, "w");
    const std::vector<std::string>& all = lines(set);
    for (int i = 0; i < count; ++i) std::fprintf(file, "%s\n", all[static_cast<std::size_t>(i)].c_str());
    std::fclose(file);
    auto run = [&](int n) {
        const std::string command =
            "python3 -c 'import sys\nfrom dateutil import parser\nn=" + std::to_string(n) +
            "\nfor i, line in enumerate(open(sys.argv[1])):\n    if i >= n: break\n    try: "
            "parser.parse(line, fuzzy=True)\n    except (ValueError, OverflowError): pass' " +
            path;
        const auto start = std::chrono::steady_clock::now();
        const int rc = std::system(command.c_str());
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        return rc == 0 ? seconds : -1.0;
    };
    const double empty = run(0), full = run(count);
    unlink(path);
    return empty < 0 || full < 0 ? -1 : full - empty;
}

void runDateutil(benchmark::State& state, Set set) {
    constexpr int kCount = 2000;
    for (auto _ : state) {
        const double seconds = dateutilSeconds(set, kCount);
        if (seconds < 0) {
            state.SkipWithError("python3 with dateutil is not installed");
            return;
        }
        state.SetIterationTime(seconds / kCount * kLines);  // as if it had read all the lines
    }
    state.SetItemsProcessed(state.iterations() * kLines);
}

#define DATE_BENCH(name, set)                                            \
    void BM_##name##_Ours(benchmark::State& state) {                     \
        runOurs(state, set);                                             \
    }                                                                    \
    void BM_##name##_RegexStrptime(benchmark::State& state) {            \
        runRegexStrptime(state, set);                                    \
    }                                                                    \
    void BM_##name##_Dateutil(benchmark::State& state) {                 \
        runDateutil(state, set);                                         \
    }                                                                    \
    BENCHMARK(BM_##name##_Ours)->Unit(benchmark::kMillisecond);          \
    BENCHMARK(BM_##name##_RegexStrptime)->Unit(benchmark::kMillisecond); \
    BENCHMARK(BM_##name##_Dateutil)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1)

DATE_BENCH(SteadyIso, Set::STEADY_ISO);
DATE_BENCH(SteadySyslog, Set::STEADY_SYSLOG);
DATE_BENCH(MixOfTen, Set::MIX);
DATE_BENCH(NoTimestamp, Set::NONE);

}  // namespace
