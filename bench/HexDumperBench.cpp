// Dumping 64 MiB into memory: ours beside `hexdump -C -v` and `xxd` (whole processes, output to
// /dev/null) and a plain snprintf loop; and parsing 10^6 decimal fields beside strtoull.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "basicutil/hexdump/HexDumper.h"
#include "basicutil/text/BasicConversions.h"

namespace {

constexpr std::size_t kDumpBytes = 64 << 20;

const std::string& dumpInput() {
    static const std::string bytes = [] {
        std::string b(kDumpBytes, '\0');
        std::mt19937_64 rng(5);
        for (std::size_t i = 0; i < b.size(); i += 8) {
            const std::uint64_t r = rng();
            std::memcpy(&b[i], &r, 8);
        }
        return b;
    }();
    return bytes;
}

const std::string& dumpFile() {
    static const std::string path = [] {
        const std::string p = "/tmp/vestra-hexdump-bench-" + std::to_string(::getpid());
        std::ofstream(p, std::ios::binary) << dumpInput();
        return p;
    }();
    return path;
}

void BM_Dump64MiB_Ours(benchmark::State& state) {
    const std::string& bytes = dumpInput();
    basicutil::Str out;
    for (auto _ : state) {
        out.clear();
        basicutil::HexDumper_to_Str(out).do_dump(bytes.data(), bytes.size());
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_Dump64MiB_Ours)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_Dump64MiB_Snprintf(benchmark::State& state) {
    const std::string& bytes = dumpInput();
    std::string out;
    for (auto _ : state) {
        out.clear();
        char line[96];
        for (std::size_t off = 0; off < bytes.size(); off += 16) {
            const auto* b = reinterpret_cast<const unsigned char*>(bytes.data() + off);
            char text[17];
            for (int i = 0; i < 16; ++i)
                text[i] = b[i] >= 0x20 && b[i] <= 0x7e ? static_cast<char>(b[i]) : '.';
            text[16] = '\0';
            const int n = std::snprintf(
                line, sizeof line,
                "%08zx  %02x %02x %02x %02x %02x %02x %02x %02x  %02x %02x %02x %02x %02x %02x %02x "
                "%02x  |%s|\n",
                off, b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13],
                b[14], b[15], text);
            out.append(line, static_cast<std::size_t>(n));
        }
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_Dump64MiB_Snprintf)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void runProcess(benchmark::State& state, const char* tool) {
    const std::string command = std::string(tool) + " " + dumpFile() + " > /dev/null";
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0) state.SkipWithError("the tool failed");
    }
}
void BM_Dump64MiB_Hexdump(benchmark::State& state) {
    runProcess(state, "hexdump -C -v");
}
void BM_Dump64MiB_Xxd(benchmark::State& state) {
    runProcess(state, "xxd");
}
BENCHMARK(BM_Dump64MiB_Hexdump)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_Dump64MiB_Xxd)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

const std::vector<std::string>& fields() {
    static const std::vector<std::string> all = [] {
        std::mt19937_64 rng(9);
        std::vector<std::string> f(1000000);
        for (auto& s : f) s = std::to_string(rng() >> (rng() % 60));
        return f;
    }();
    return all;
}

void BM_ParseMillionFields_Ours(benchmark::State& state) {
    for (auto _ : state) {
        std::uint64_t sum = 0;
        for (const std::string& f : fields()) {
            std::uint64_t v = 0;
            if (basicutil::parse_unsigned_val(f.data(), f.data() + f.size(), v, UINT64_MAX)) sum += v;
        }
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(BM_ParseMillionFields_Ours)->Unit(benchmark::kMillisecond);

void BM_ParseMillionFields_Strtoull(benchmark::State& state) {
    for (auto _ : state) {
        std::uint64_t sum = 0;
        for (const std::string& f : fields()) {
            char* end = nullptr;
            sum += std::strtoull(f.c_str(), &end, 10);
        }
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(BM_ParseMillionFields_Strtoull)->Unit(benchmark::kMillisecond);

}  // namespace
