// The string hash beside XXH3, wyhash, abseil's hash and std::hash; the static sets beside gperf
// tables, std::unordered_set and absl::flat_hash_set; the random generator beside
// std::mt19937_64 and PCG64.
#include <absl/container/flat_hash_set.h>
#include <absl/hash/hash.h>
#include <benchmark/benchmark.h>
#include <xxhash.h>
#include <pcg_random.hpp>

#include <cstdio>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#if __has_include(<wyhash/wyhash.h>)
#include <wyhash/wyhash.h>
#define VESTRA_BENCH_WYHASH 1
#endif

#include "basicutil/text/SimpleRandomNumber.h"
#include "basicutil/text/StaticStrSet.h"
#include "basicutil/text/StrHash.h"

// The gperf tables the build generates from bench/data.
const char* levels_find(const char* text, std::size_t length);
const char* keys_find(const char* text, std::size_t length);
const char* words_find(const char* text, std::size_t length);
// Our constant sets of the same keys, built by the compiler in units of their own.
std::size_t levels_constant_find(const char* text, std::size_t length);
std::size_t keys_constant_find(const char* text, std::size_t length);
std::size_t words_constant_find(const char* text, std::size_t length);

namespace {

// --- Hashing: 256 random keys of each length, taken in turn --------------------------------------

const std::vector<std::string>& keysOfLength(std::size_t n) {
    static std::vector<std::vector<std::string>> cache(4097);
    std::vector<std::string>& keys = cache[n];
    if (keys.empty()) {
        std::mt19937_64 rng(n);
        for (int i = 0; i < 256; ++i) {
            std::string s(n, '\0');
            for (char& c : s) c = static_cast<char>(rng());
            keys.push_back(std::move(s));
        }
    }
    return keys;
}

template <class Hash>
void hashKeys(benchmark::State& state, Hash hash) {
    const auto n = static_cast<std::size_t>(state.range(0));
    const std::vector<std::string>& keys = keysOfLength(n);
    std::size_t i = 0;
    for (auto _ : state) {
        const std::string& key = keys[i++ & 255];
        benchmark::DoNotOptimize(hash(key.data(), key.size()));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(n));
}

void BM_Hash_Ours(benchmark::State& state) {
    hashKeys(state, [](const char* p, std::size_t n) { return basicutil::strHashBytes(p, n); });
}
void BM_Hash_Xxh3(benchmark::State& state) {
    hashKeys(state, [](const char* p, std::size_t n) { return XXH3_64bits(p, n); });
}
#if defined(VESTRA_BENCH_WYHASH)
void BM_Hash_Wyhash(benchmark::State& state) {
    hashKeys(state, [](const char* p, std::size_t n) { return wyhash(p, n, 0, _wyp); });
}
#endif
void BM_Hash_Absl(benchmark::State& state) {
    hashKeys(state, [](const char* p, std::size_t n) {
        return absl::Hash<std::string_view>()(std::string_view(p, n));
    });
}
void BM_Hash_StdHash(benchmark::State& state) {
    hashKeys(state, [](const char* p, std::size_t n) {
        return std::hash<std::string_view>()(std::string_view(p, n));
    });
}

#define HASH_SIZES ->Arg(4)->Arg(8)->Arg(16)->Arg(32)->Arg(64)->Arg(256)->Arg(4096)
BENCHMARK(BM_Hash_Ours) HASH_SIZES;
BENCHMARK(BM_Hash_Xxh3) HASH_SIZES;
#if defined(VESTRA_BENCH_WYHASH)
BENCHMARK(BM_Hash_Wyhash) HASH_SIZES;
#endif
BENCHMARK(BM_Hash_Absl) HASH_SIZES;
BENCHMARK(BM_Hash_StdHash) HASH_SIZES;

// --- Static sets: the members, and as many keys that are none of them --------------------------

struct KeySet {
    std::vector<std::string> members, misses;
};

// The list's members; the misses are the members with their last byte changed (the hardest
// misses: same length, same prefix).
const KeySet& keySet(int which) {
    static KeySet sets[3];
    KeySet& set = sets[which];
    if (set.members.empty()) {
        static const char* const kFiles[] = {"levels.txt", "config-keys.txt", "words.txt"};
        std::ifstream in(std::string(VESTRA_BENCH_DATA) + "/" + kFiles[which]);
        std::string line;
        std::getline(in, line);  // the comment
        while (std::getline(in, line)) set.members.push_back(line);
        std::unordered_set<std::string> all(set.members.begin(), set.members.end());
        for (const std::string& m : set.members) {
            std::string miss = m;
            for (char c = 'A'; all.count(miss) != 0 || miss == m; ++c) miss.back() = c;
            set.misses.push_back(miss);
        }
    }
    return set;
}

template <class Find>
void lookUp(benchmark::State& state, Find find) {
    const KeySet& set = keySet(static_cast<int>(state.range(0)));
    const std::vector<std::string>& keys = state.range(1) != 0 ? set.members : set.misses;
    std::size_t i = 0, found = 0;
    for (auto _ : state) {
        const std::string& key = keys[i];
        if (++i == keys.size()) i = 0;
        found += find(std::string_view(key)) ? 1u : 0u;
    }
    benchmark::DoNotOptimize(found);
    if ((found != 0) != (state.range(1) != 0)) state.SkipWithError("a lookup gave the wrong answer");
}

void BM_SetLookup_Ours(benchmark::State& state) {
    const KeySet& set = keySet(static_cast<int>(state.range(0)));
    basicutil::StaticStrSet ours;
    if (!basicutil::StaticStrSet::build(std::vector<std::string_view>(set.members.begin(), set.members.end()),
                                        ours))
        state.SkipWithError("build failed");
    lookUp(state, [&](std::string_view key) { return ours.find(key) != ours.npos; });
}
void BM_SetLookup_OursConstant(benchmark::State& state) {
    static const auto kFinds = {levels_constant_find, keys_constant_find, words_constant_find};
    const auto find = *(kFinds.begin() + state.range(0));
    lookUp(state, [&](std::string_view key) {
        return find(key.data(), key.size()) != basicutil::StaticStrSet::npos;
    });
}
void BM_SetLookup_Gperf(benchmark::State& state) {
    static const auto kFinds = {levels_find, keys_find, words_find};
    const auto find = *(kFinds.begin() + state.range(0));
    lookUp(state, [&](std::string_view key) { return find(key.data(), key.size()) != nullptr; });
}
void BM_SetLookup_UnorderedSet(benchmark::State& state) {
    const KeySet& set = keySet(static_cast<int>(state.range(0)));
    const std::unordered_set<std::string_view> table(set.members.begin(), set.members.end());
    lookUp(state, [&](std::string_view key) { return table.find(key) != table.end(); });
}
void BM_SetLookup_FlatHashSet(benchmark::State& state) {
    const KeySet& set = keySet(static_cast<int>(state.range(0)));
    const absl::flat_hash_set<std::string_view> table(set.members.begin(), set.members.end());
    lookUp(state, [&](std::string_view key) { return table.contains(key); });
}

// Ours: a set built at run time; OursConstant: one the compiler built (as gperf's tables are).
// set: 0 the 9 level names, 1 the 60 configuration keys, 2 the 2,000 words; hit: 1 members, 0 misses.
#define SET_ARGS ->ArgNames({"set", "hit"})->ArgsProduct({{0, 1, 2}, {1, 0}})
BENCHMARK(BM_SetLookup_Ours) SET_ARGS;
BENCHMARK(BM_SetLookup_OursConstant) SET_ARGS;
BENCHMARK(BM_SetLookup_Gperf) SET_ARGS;
BENCHMARK(BM_SetLookup_UnorderedSet) SET_ARGS;
BENCHMARK(BM_SetLookup_FlatHashSet) SET_ARGS;

// --- Random numbers --------------------------------------------------------------------------

void BM_Random64_Ours(benchmark::State& state) {
    basicutil::SimpleRandomNumber rng(1);
    for (auto _ : state) benchmark::DoNotOptimize(rng.next());
}
void BM_Random64_Mt19937(benchmark::State& state) {
    std::mt19937_64 rng(1);
    for (auto _ : state) benchmark::DoNotOptimize(rng());
}
void BM_Random64_Pcg64(benchmark::State& state) {
    pcg64 rng(1);
    for (auto _ : state) benchmark::DoNotOptimize(rng());
}
BENCHMARK(BM_Random64_Ours);
BENCHMARK(BM_Random64_Mt19937);
BENCHMARK(BM_Random64_Pcg64);

// Below n = 1000 and n = 3 * 2^62 (a range where rejections happen): each unbiased.
void BM_RandomBelow_Ours(benchmark::State& state) {
    basicutil::SimpleRandomNumber rng(1);
    const auto n = static_cast<std::uint64_t>(state.range(0) == 0 ? 1000 : 3ULL << 62);
    for (auto _ : state) benchmark::DoNotOptimize(rng.below(n));
}
void BM_RandomBelow_Mt19937(benchmark::State& state) {
    std::mt19937_64 rng(1);
    std::uniform_int_distribution<std::uint64_t> range(0, (state.range(0) == 0 ? 1000 : 3ULL << 62) - 1);
    for (auto _ : state) benchmark::DoNotOptimize(range(rng));
}
void BM_RandomBelow_Pcg64(benchmark::State& state) {
    pcg64 rng(1);
    const auto n = static_cast<std::uint64_t>(state.range(0) == 0 ? 1000 : 3ULL << 62);
    for (auto _ : state) benchmark::DoNotOptimize(rng(n));
}
BENCHMARK(BM_RandomBelow_Ours)->Arg(0)->Arg(1);
BENCHMARK(BM_RandomBelow_Mt19937)->Arg(0)->Arg(1);
BENCHMARK(BM_RandomBelow_Pcg64)->Arg(0)->Arg(1);

void BM_RandomDouble_Ours(benchmark::State& state) {
    basicutil::SimpleRandomNumber rng(1);
    for (auto _ : state) benchmark::DoNotOptimize(rng.unit());
}
void BM_RandomDouble_Mt19937(benchmark::State& state) {
    std::mt19937_64 rng(1);
    std::uniform_real_distribution<double> unit(0, 1);
    for (auto _ : state) benchmark::DoNotOptimize(unit(rng));
}
void BM_RandomDouble_Pcg64(benchmark::State& state) {
    pcg64 rng(1);
    for (auto _ : state) benchmark::DoNotOptimize(static_cast<double>(rng() >> 11) * 0x1.0p-53);
}
BENCHMARK(BM_RandomDouble_Ours);
BENCHMARK(BM_RandomDouble_Mt19937);
BENCHMARK(BM_RandomDouble_Pcg64);

}  // namespace
