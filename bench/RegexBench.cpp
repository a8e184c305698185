// A log-line pattern with named groups over 10^5 lines (about one in five does not match),
// taking two groups from each match. Ours looks the pattern up in the process-wide cache for
// every line, as callers do (in one call with the match, and as a get() then a match); beside
// it PCRE2 called directly with JIT (compiled once, match data reused; through pcre2_match and
// through its fast path pcre2_jit_match), RE2 (names spelled its way), and std::regex (which has
// no named groups: the same pattern without the names).
#define PCRE2_CODE_UNIT_WIDTH 8
#include <benchmark/benchmark.h>
#include <pcre2.h>
#include <re2/re2.h>

#include <cstdint>
#include <cstdlib>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "basicutil/regex/Regex.h"

namespace {

// A string_view, so that no lookup measures strlen.
constexpr std::string_view kPattern =
    "^(?<date>\\d{4}-\\d\\d-\\d\\d) (?<time>[\\d:,]+) (?<level>[A-Z]+)\\s+\\[(?<thread>[^\\]]+)\\] "
    "(?<component>\\w+): user (?<user>\\w+) logged in from (?<ip>[\\d.]+)";
// RE2 spells names (?P<name>...).
constexpr const char* kRe2Pattern =
    "^(?P<date>\\d{4}-\\d\\d-\\d\\d) (?P<time>[\\d:,]+) (?P<level>[A-Z]+)\\s+\\[(?P<thread>[^\\]]+)\\] "
    "(?P<component>\\w+): user (?P<user>\\w+) logged in from (?P<ip>[\\d.]+)";
constexpr const char* kUnnamedPattern =
    "^(\\d{4}-\\d\\d-\\d\\d) ([\\d:,]+) ([A-Z]+)\\s+\\[([^\\]]+)\\] (\\w+): user (\\w+) logged in from "
    "([\\d.]+)";
constexpr int kLines = 100000;

const std::vector<std::string>& lines() {
    static const std::vector<std::string> all = [] {
        std::vector<std::string> out;
        std::uint32_t x = 12345;
        auto next = [&] { return x = x * 1103515245u + 12345u; };
        const char* users[] = {"alice", "bob", "carol", "dave", "erin"};
        for (int i = 0; i < kLines; ++i) {
            const std::string stamp = "2026-11-23 18:" + std::to_string(10 + i % 50) + ":0" +
                                      std::to_string(i % 10) + "," + std::to_string(100 + i % 900);
            const std::string thread = "[worker-" + std::to_string(next() % 16) + "] ";
            if (next() % 5 == 0) {
                out.push_back(stamp + " WARN  " + thread + "disk: volume /var at " +
                              std::to_string(next() % 100) + "% after rotation");
            } else {
                out.push_back(stamp + " INFO  " + thread + "auth: user " + users[next() % 5] +
                              " logged in from 10.0." + std::to_string(next() % 256) + "." +
                              std::to_string(next() % 256) + " after " + std::to_string(next() % 5) +
                              " tries");
            }
        }
        return out;
    }();
    return all;
}

// Runs `matchLine(line, m)` (true on a match) over every line, taking the two groups from m.
template <typename MatchLine, typename Take>
void ourLines(benchmark::State& state, MatchLine matchLine, Take take) {
    basicutil::RegexMatch m;
    for (auto _ : state) {
        std::size_t taken = 0;
        for (const std::string& line : lines())
            if (matchLine(std::string_view(line), m)) taken += take(m);
        benchmark::DoNotOptimize(taken);
    }
}

std::size_t takeByName(const basicutil::RegexMatch& m) {
    return m.named("user").size() + m.named("ip").size();
}

// The per-line form: look up and match in one call. The group numbers are resolved once, as
// the PCRE2 and RE2 contenders resolve theirs.
void BM_LogLines_Ours(benchmark::State& state) {
    const auto compiled = basicutil::regexCache().get(kPattern);
    const auto user = static_cast<unsigned>(compiled->groupNumber("user"));
    const auto ip = static_cast<unsigned>(compiled->groupNumber("ip"));
    ourLines(
        state,
        [](std::string_view line, basicutil::RegexMatch& m) {
            return basicutil::regexCache().match(kPattern, 0, line, 0, m) == basicutil::REGEX_MATCH;
        },
        [&](const basicutil::RegexMatch& m) { return m.group(user).size() + m.group(ip).size(); });
}
BENCHMARK(BM_LogLines_Ours)->Unit(benchmark::kMillisecond);

// The same, taking the groups by name on every line.
void BM_LogLines_OursNamed(benchmark::State& state) {
    ourLines(
        state,
        [](std::string_view line, basicutil::RegexMatch& m) {
            return basicutil::regexCache().match(kPattern, 0, line, 0, m) == basicutil::REGEX_MATCH;
        },
        takeByName);
}
BENCHMARK(BM_LogLines_OursNamed)->Unit(benchmark::kMillisecond);

// A compiled pattern held by the caller, no cache: what the cache lookup adds.
void BM_LogLines_OursCompiled(benchmark::State& state) {
    basicutil::Regex re;
    if (!re.compile(kPattern)) std::abort();
    const auto user = static_cast<unsigned>(re.groupNumber("user"));
    const auto ip = static_cast<unsigned>(re.groupNumber("ip"));
    ourLines(
        state,
        [&](std::string_view line, basicutil::RegexMatch& m) {
            return re.match(line, 0, m) == basicutil::REGEX_MATCH;
        },
        [&](const basicutil::RegexMatch& m) { return m.group(user).size() + m.group(ip).size(); });
}
BENCHMARK(BM_LogLines_OursCompiled)->Unit(benchmark::kMillisecond);

// The compiled pattern taken from the cache for every line (get()), then matched.
void BM_LogLines_OursGet(benchmark::State& state) {
    ourLines(
        state,
        [](std::string_view line, basicutil::RegexMatch& m) {
            return basicutil::regexCache().get(kPattern)->match(line, 0, m) == basicutil::REGEX_MATCH;
        },
        takeByName);
}
BENCHMARK(BM_LogLines_OursGet)->Unit(benchmark::kMillisecond);

// pcre2_match on a JIT-compiled pattern, as PCRE2's documentation shows; or its fast path
// pcre2_jit_match, which skips the argument checks.
template <bool kFastPath>
void BM_LogLines_Pcre2(benchmark::State& state) {
    int error = 0;
    PCRE2_SIZE offset = 0;
    pcre2_code* code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(kPattern.data()), kPattern.size(), 0,
                                     &error, &offset, nullptr);
    if (code == nullptr || pcre2_jit_compile(code, PCRE2_JIT_COMPLETE) != 0) std::abort();
    const int user = pcre2_substring_number_from_name(code, reinterpret_cast<PCRE2_SPTR>("user"));
    const int ip = pcre2_substring_number_from_name(code, reinterpret_cast<PCRE2_SPTR>("ip"));
    pcre2_match_data* data = pcre2_match_data_create_from_pattern(code, nullptr);
    for (auto _ : state) {
        std::size_t taken = 0;
        for (const std::string& line : lines()) {
            const auto* subject = reinterpret_cast<PCRE2_SPTR>(line.data());
            const int rc = kFastPath ? pcre2_jit_match(code, subject, line.size(), 0, 0, data, nullptr)
                                     : pcre2_match(code, subject, line.size(), 0, 0, data, nullptr);
            if (rc > 0) {
                const PCRE2_SIZE* ov = pcre2_get_ovector_pointer(data);
                taken += (ov[2 * user + 1] - ov[2 * user]) + (ov[2 * ip + 1] - ov[2 * ip]);
            }
        }
        benchmark::DoNotOptimize(taken);
    }
    pcre2_match_data_free(data);
    pcre2_code_free(code);
}
BENCHMARK(BM_LogLines_Pcre2<false>)->Name("BM_LogLines_Pcre2Jit")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LogLines_Pcre2<true>)->Name("BM_LogLines_Pcre2JitFastPath")->Unit(benchmark::kMillisecond);

void BM_LogLines_Re2(benchmark::State& state) {
    const re2::RE2 re(kRe2Pattern);
    if (!re.ok()) std::abort();
    const int user = re.NamedCapturingGroups().at("user");
    const int ip = re.NamedCapturingGroups().at("ip");
    const int groups = re.NumberOfCapturingGroups() + 1;
    std::vector<re2::StringPiece> spans(static_cast<std::size_t>(groups));
    for (auto _ : state) {
        std::size_t taken = 0;
        for (const std::string& line : lines()) {
            if (re.Match(line, 0, line.size(), re2::RE2::UNANCHORED, spans.data(), groups))
                taken +=
                    spans[static_cast<std::size_t>(user)].size() + spans[static_cast<std::size_t>(ip)].size();
        }
        benchmark::DoNotOptimize(taken);
    }
}
BENCHMARK(BM_LogLines_Re2)->Unit(benchmark::kMillisecond);

void BM_LogLines_StdRegex(benchmark::State& state) {
    const std::regex re(kUnnamedPattern);
    std::cmatch m;
    for (auto _ : state) {
        std::size_t taken = 0;
        for (const std::string& line : lines()) {
            if (std::regex_search(line.data(), line.data() + line.size(), m, re))
                taken += static_cast<std::size_t>(m.length(6) + m.length(7));
        }
        benchmark::DoNotOptimize(taken);
    }
}
BENCHMARK(BM_LogLines_StdRegex)->Unit(benchmark::kMillisecond);

}  // namespace
