// String hot paths beside a plain byte loop, ICU and the C library, in one run. Texts are
// ASCII-only or mixed UTF-8, 64 bytes to 1 MiB.
#include <benchmark/benchmark.h>
#include <unicode/ucasemap.h>
#include <unicode/utf8.h>

#include <cstring>
#include <string>

#include "basicutil/text/StrCase.h"
#include "basicutil/text/StrEscape.h"
#include "basicutil/text/StrParse.h"
#include "basicutil/text/StrSearch.h"
#include "basicutil/text/StrUtf8.h"

namespace {

using namespace basicutil;

std::string makeText(std::size_t size, bool mixed) {
    const std::string unit =
        mixed ? "Größe naïve Съешь 中文 😀 plain words here\n" : "plain ascii words, and numbers 12345\n";
    std::string text;
    while (text.size() < size) text += unit;
    text.resize(size);
    while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0) == 0x80) text.pop_back();
    return text;
}

const std::string& text(const benchmark::State& state) {
    static std::string cache[2][3];
    const bool mixed = state.range(1) != 0;
    const std::size_t size = static_cast<std::size_t>(state.range(0));
    std::string& slot = cache[mixed][size == 64 ? 0 : size == 4096 ? 1 : 2];
    if (slot.empty()) slot = makeText(size, mixed);
    return slot;
}

void sizes(benchmark::internal::Benchmark* b) {
    for (int mixed : {0, 1})
        for (int size : {64, 4096, 1 << 20}) b->Args({size, mixed});
    b->ArgNames({"bytes", "mixed"});
}

template <typename F>
void run(benchmark::State& state, F f) {
    const std::string& t = text(state);
    for (auto _ : state) benchmark::DoNotOptimize(f(t));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(t.size()));
}

// --- Counting codepoints ---
void BM_Count_Ours(benchmark::State& s) {
    run(s, [](const std::string& t) { return mem_count_utf8_codepoints(t.data(), t.size()); });
}
void BM_Count_ByteLoop(benchmark::State& s) {
    run(s, [](const std::string& t) {
        std::size_t count = 0;
        for (std::size_t i = 0; i < t.size(); ++count)
            i += utf8SequenceLength(static_cast<unsigned char>(t[i]));
        return count;
    });
}
void BM_Count_IcuU8Next(benchmark::State& s) {
    run(s, [](const std::string& t) {
        std::size_t count = 0;
        const auto* p = reinterpret_cast<const uint8_t*>(t.data());
        for (int32_t i = 0, n = static_cast<int32_t>(t.size()); i < n; ++count) {
            UChar32 c;
            U8_NEXT(p, i, n, c);
            benchmark::DoNotOptimize(c);
        }
        return count;
    });
}
BENCHMARK(BM_Count_Ours)->Apply(sizes);
BENCHMARK(BM_Count_ByteLoop)->Apply(sizes);
BENCHMARK(BM_Count_IcuU8Next)->Apply(sizes);

// --- Validity ---
void BM_Valid_Ours(benchmark::State& s) {
    run(s, [](const std::string& t) { return isValidUtf8(StrSegment(t)); });
}
void BM_Valid_IcuU8Next(benchmark::State& s) {
    run(s, [](const std::string& t) {
        const auto* p = reinterpret_cast<const uint8_t*>(t.data());
        for (int32_t i = 0, n = static_cast<int32_t>(t.size()); i < n;) {
            UChar32 c;
            U8_NEXT(p, i, n, c);
            if (c < 0) return false;
        }
        return true;
    });
}
BENCHMARK(BM_Valid_Ours)->Apply(sizes);
BENCHMARK(BM_Valid_IcuU8Next)->Apply(sizes);

// --- Truncation to half the characters ---
void BM_Truncate_Ours(benchmark::State& s) {
    run(s, [](const std::string& t) {
        StrSegment v(t);
        utf8_character_count_truncate(v, t.size() / 2);
        return v._len;
    });
}
void BM_Truncate_ByteLoop(benchmark::State& s) {
    run(s, [](const std::string& t) {
        std::size_t i = 0;
        for (std::size_t k = 0; k < t.size() / 2 && i < t.size(); ++k)
            i += utf8SequenceLength(static_cast<unsigned char>(t[i]));
        return i;
    });
}
BENCHMARK(BM_Truncate_Ours)->Apply(sizes);
BENCHMARK(BM_Truncate_ByteLoop)->Apply(sizes);

// --- Non-ASCII detection ---
void BM_NonAscii_Ours(benchmark::State& s) {
    run(s, [](const std::string& t) {
        return hasNonAscii(StrSegment(t.data(), t.size() - (t.size() > 8 ? 8 : 0)));
    });
}
void BM_NonAscii_ByteLoop(benchmark::State& s) {
    run(s, [](const std::string& t) {
        for (std::size_t i = 0; i + 8 < t.size(); ++i)
            if (static_cast<unsigned char>(t[i]) >= 0x80) return true;
        return false;
    });
}
BENCHMARK(BM_NonAscii_Ours)->Apply(sizes);
BENCHMARK(BM_NonAscii_ByteLoop)->Apply(sizes);

// --- Lines ---
void BM_LineCount_Ours(benchmark::State& s) {
    run(s, [](const std::string& t) { return lineCount(StrSegment(t)); });
}
void BM_LineCount_ByteLoop(benchmark::State& s) {
    run(s, [](const std::string& t) {
        std::size_t n = 1;
        for (char c : t) n += c == '\n';
        return n;
    });
}
BENCHMARK(BM_LineCount_Ours)->Apply(sizes);
BENCHMARK(BM_LineCount_ByteLoop)->Apply(sizes);

// The line end searched for is the text's last byte position: each run scans the whole text.
std::string lineEndText(const std::string& t) {
    std::string u = t;
    for (char& c : u)
        if (c == '\n') c = ' ';
    u.back() = '\n';
    return u;
}
void BM_LineEnd_Ours(benchmark::State& s) {
    const std::string u = lineEndText(text(s));
    for (auto _ : s) benchmark::DoNotOptimize(findLineEnd(StrSegment(u)));
    s.SetBytesProcessed(s.iterations() * static_cast<std::int64_t>(u.size()));
}
void BM_LineEnd_Strcspn(benchmark::State& s) {
    const std::string u = lineEndText(text(s));
    for (auto _ : s) benchmark::DoNotOptimize(std::strcspn(u.c_str(), "\r\n"));
    s.SetBytesProcessed(s.iterations() * static_cast<std::int64_t>(u.size()));
}
void BM_LineEnd_MemchrTwice(benchmark::State& s) {  // memchr finds one byte: both, then the nearer
    const std::string u = lineEndText(text(s));
    for (auto _ : s) {
        const void* lf = std::memchr(u.data(), '\n', u.size());
        const void* cr = std::memchr(u.data(), '\r', u.size());
        benchmark::DoNotOptimize(cr != nullptr && cr < lf ? cr : lf);
    }
    s.SetBytesProcessed(s.iterations() * static_cast<std::int64_t>(u.size()));
}
BENCHMARK(BM_LineEnd_Ours)->Apply(sizes);
BENCHMARK(BM_LineEnd_Strcspn)->Apply(sizes);
BENCHMARK(BM_LineEnd_MemchrTwice)->Apply(sizes);

// --- Case ---
void BM_Upper_Ours(benchmark::State& s) {
    const std::string& t = text(s);
    Str work;
    for (auto _ : s) {
        work.assign(t.data(), t.size());
        toUpperInPlace(work);
        benchmark::DoNotOptimize(work.data());
    }
    s.SetBytesProcessed(s.iterations() * static_cast<std::int64_t>(t.size()));
}
void BM_Lower_Ours(benchmark::State& s) {
    const std::string& t = text(s);
    Str work;
    for (auto _ : s) {
        work.assign(t.data(), t.size());
        toLowerInPlace(work);
        benchmark::DoNotOptimize(work.data());
    }
    s.SetBytesProcessed(s.iterations() * static_cast<std::int64_t>(t.size()));
}
template <bool kUpper>
void icuCase(benchmark::State& s) {
    const std::string& t = text(s);
    UErrorCode status = U_ZERO_ERROR;
    UCaseMap* map = ucasemap_open("", 0, &status);
    std::string out(t.size() * 2 + 16, '\0');
    for (auto _ : s) {
        status = U_ZERO_ERROR;
        const auto convert = kUpper ? ucasemap_utf8ToUpper : ucasemap_utf8ToLower;
        benchmark::DoNotOptimize(convert(map, out.data(), static_cast<int32_t>(out.size()), t.data(),
                                         static_cast<int32_t>(t.size()), &status));
    }
    ucasemap_close(map);
    s.SetBytesProcessed(s.iterations() * static_cast<std::int64_t>(t.size()));
}
void BM_Upper_IcuCaseMap(benchmark::State& s) {
    icuCase<true>(s);
}
void BM_Lower_IcuCaseMap(benchmark::State& s) {
    icuCase<false>(s);
}
BENCHMARK(BM_Upper_Ours)->Apply(sizes);
BENCHMARK(BM_Upper_IcuCaseMap)->Apply(sizes);
BENCHMARK(BM_Lower_Ours)->Apply(sizes);
BENCHMARK(BM_Lower_IcuCaseMap)->Apply(sizes);

// --- Per-byte costs of the escapers and natural order (4 KiB mixed text) ---
void BM_UrlEncode(benchmark::State& s) {
    const std::string& t = text(s);
    Str out;
    for (auto _ : s) {
        out.clear();
        urlEncodeAppend(out, StrSegment(t));
        benchmark::DoNotOptimize(out.data());
    }
    s.SetBytesProcessed(s.iterations() * static_cast<std::int64_t>(t.size()));
}
void BM_UrlDecode(benchmark::State& s) {
    const Str encoded = urlEncode(StrSegment(text(s)));
    Str work;
    for (auto _ : s) {
        work = encoded;
        benchmark::DoNotOptimize(urlDecodeInPlace(work));
    }
    s.SetBytesProcessed(s.iterations() * static_cast<std::int64_t>(encoded.size()));
}
void BM_CsvAppend(benchmark::State& s) {
    const std::string& t = text(s);
    Str out;
    for (auto _ : s) {
        out.clear();
        appendCsvField(out, StrSegment(t));
        benchmark::DoNotOptimize(out.data());
    }
    s.SetBytesProcessed(s.iterations() * static_cast<std::int64_t>(t.size()));
}
void BM_NaturalCompare(benchmark::State& s) {
    const std::string a = text(s) + "file0010", b = text(s) + "file9";
    for (auto _ : s) benchmark::DoNotOptimize(naturalCompare(StrSegment(a), StrSegment(b), false));
    s.SetBytesProcessed(s.iterations() * static_cast<std::int64_t>(a.size()));
}
BENCHMARK(BM_UrlEncode)->Args({4096, 1});
BENCHMARK(BM_UrlDecode)->Args({4096, 1});
BENCHMARK(BM_CsvAppend)->Args({4096, 1});
BENCHMARK(BM_NaturalCompare)->Args({4096, 1});

}  // namespace
