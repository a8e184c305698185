// Unicode lookups and case conversion beside the C library and ICU, in one run.
#include <benchmark/benchmark.h>
#include <unicode/ucasemap.h>
#include <unicode/uchar.h>

#include <clocale>
#include <cwchar>
#include <string>
#include <vector>

#include "basicutil/text/UnicodeCodepoint.h"
#include "libzero/codepoint-width.h"

namespace {

using namespace basicutil;

// Mixed text: Latin with accents, Cyrillic, CJK, Hangul, emoji and combining marks.
const std::string kMixed =
    "Größenwahn café naïve Ærøskøbing — Съешь же ещё этих мягких французских булок 中文字符测试 "
    "한국어 텍스트 😀🎉 e\xCC\x81 ｆｕｌｌｗｉｄｔｈ ";

std::vector<std::uint32_t> codepoints(const std::string& text) {
    std::vector<std::uint32_t> cps;
    std::string_view view = text;
    std::uint32_t cp;
    while (decode_next_codepoint(view, cp)) cps.push_back(cp);
    return cps;
}

const std::vector<std::uint32_t> kMixedCodepoints = codepoints(kMixed);

void BM_Width_Ours(benchmark::State& state) {
    for (auto _ : state) {
        int sum = 0;
        for (std::uint32_t cp : kMixedCodepoints) sum += codepoint_width(cp);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kMixedCodepoints.size()));
}
BENCHMARK(BM_Width_Ours);

void BM_Width_GlibcWcwidth(benchmark::State& state) {
    if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) {
        state.SkipWithError("no C.UTF-8 locale");
        return;
    }
    for (auto _ : state) {
        int sum = 0;
        for (std::uint32_t cp : kMixedCodepoints) sum += wcwidth(static_cast<wchar_t>(cp));
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kMixedCodepoints.size()));
}
BENCHMARK(BM_Width_GlibcWcwidth);

void BM_Property_Ours(benchmark::State& state) {
    for (auto _ : state) {
        std::uint32_t acc = 0;
        for (std::uint32_t cp : kMixedCodepoints) acc ^= cp < 0x80 ? cp : flags_from_cp(cp);
        benchmark::DoNotOptimize(acc);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kMixedCodepoints.size()));
}
BENCHMARK(BM_Property_Ours);

void BM_Property_IcuCharType(benchmark::State& state) {
    for (auto _ : state) {
        int acc = 0;
        for (std::uint32_t cp : kMixedCodepoints) acc ^= u_charType(static_cast<UChar32>(cp));
        benchmark::DoNotOptimize(acc);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kMixedCodepoints.size()));
}
BENCHMARK(BM_Property_IcuCharType);

std::string repeated(const std::string& unit, std::size_t bytes) {
    std::string text;
    while (text.size() < bytes) text += unit;
    return text;
}

const std::string kLatin = repeated("Größenwahn Ærøskøbing café naïve Élan Œuvre ", 4096);
const std::string kCyrillic = repeated("Съешь же ещё этих мягких французских булок, да выпей чаю. ", 4096);
const std::string kCjk = repeated("中文字符测试日本語のテキスト한국어 ", 4096);

const std::string& sample(std::int64_t which) {
    return which == 0 ? kLatin : which == 1 ? kCyrillic : kCjk;
}

void BM_Upper_Ours(benchmark::State& state) {
    const std::string& text = sample(state.range(0));
    std::string out;
    for (auto _ : state) {
        utf8_to_upper(text, out);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(BM_Upper_Ours)->Arg(0)->Arg(1)->Arg(2)->ArgNames({"latin0_cyrillic1_cjk2"});

void BM_Upper_IcuCaseMap(benchmark::State& state) {
    const std::string& text = sample(state.range(0));
    UErrorCode status = U_ZERO_ERROR;
    UCaseMap* map = ucasemap_open("", 0, &status);
    std::string out(text.size() * 3 / 2 + 16, '\0');
    for (auto _ : state) {
        status = U_ZERO_ERROR;
        const int32_t n = ucasemap_utf8ToUpper(map, out.data(), static_cast<int32_t>(out.size()), text.data(),
                                               static_cast<int32_t>(text.size()), &status);
        benchmark::DoNotOptimize(n);
    }
    if (U_FAILURE(status)) state.SkipWithError(u_errorName(status));
    ucasemap_close(map);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(BM_Upper_IcuCaseMap)->Arg(0)->Arg(1)->Arg(2)->ArgNames({"latin0_cyrillic1_cjk2"});

}  // namespace
