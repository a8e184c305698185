// Copying a 256 MiB file: ours against cp(1) (the whole process, as a shell user would run it)
// and std::filesystem::copy_file. Reading a 64 MiB UTF-16 file of mixed text to UTF-8: the
// Unicode reader against ICU's converter reading the same file in the same size of blocks.
// The files live in $TMPDIR (or /tmp) and are removed at exit.
#include <spawn.h>
#include <sys/wait.h>
#include <unicode/ucnv.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "basicutil/files/FileSystem.h"
#include "libzero/unicode-file.h"

extern char** environ;

using namespace basicutil;

namespace {

constexpr std::size_t kCopyBytes = std::size_t{256} << 20;
constexpr std::size_t kTextBytes = std::size_t{64} << 20;
constexpr std::size_t kBlock = 256 * 1024;

struct Files {
    TemporaryDirectory dir;
    Str source, utf16;
    std::string utf8;  // what reading utf16 must give
    std::size_t utf16Bytes = 0;
    bool ok = false;

    Files() {
        if (!dir.create("vestra-file-bench.").ok()) return;
        source = dir / "source";
        std::string data(kCopyBytes, '\0');
        std::uint64_t x = 88172645463325252u;
        for (std::size_t i = 0; i + 8 <= data.size(); i += 8) {
            x ^= x << 13, x ^= x >> 7, x ^= x << 17;
            std::memcpy(&data[i], &x, 8);
        }
        if (!replaceFileContents(source, data).ok()) return;

        // Mixed text: Latin, Cyrillic, CJK, an emoji and line ends, as logs in many languages.
        const char* const words[] = {"status ", "ok ", "Ошибка ", "файл ", "错误 ",
                                     "文件 ",   "é ",  "😀 ",      "\n"};
        std::string text;
        std::size_t units16 = 0;  // UTF-16 bytes so far
        for (std::uint32_t i = 0; units16 < kTextBytes; ++i) {
            const char* word = words[(i * 2654435761u >> 7) % std::size(words)];
            text += word;
            for (const char* p = word; *p != '\0'; ++p) {
                const auto b = static_cast<unsigned char>(*p);
                if ((b & 0xC0) != 0x80) units16 += b >= 0xF0 ? 4 : 2;
            }
        }
        std::string units(text.size() * 2 + 2, '\0');
        UErrorCode status = U_ZERO_ERROR;
        const int32_t n =
            ucnv_convert("UTF-16LE", "UTF-8", units.data() + 2, static_cast<int32_t>(units.size() - 2),
                         text.data(), static_cast<int32_t>(text.size()), &status);
        if (U_FAILURE(status)) return;
        units.resize(static_cast<std::size_t>(n) + 2);
        units[0] = '\xFF';  // the mark
        units[1] = '\xFE';
        utf16Bytes = units.size();
        utf16 = dir / "text.utf16";
        if (!replaceFileContents(utf16, units).ok()) return;
        utf8 = std::move(text);
        ok = true;
    }
};

Files& files() {
    static Files f;
    return f;
}

bool sameContents(const Str& a, const Str& b) {
    FileDescriptor x, y;
    Str ax, by;
    return x.open(a, O_RDONLY).ok() && y.open(b, O_RDONLY).ok() && x.readAll(ax).ok() && y.readAll(by).ok() &&
           ax == by;
}

// Each copy starts from a quiet disk: the previous copy's dirty pages are written out before
// the clock runs again, so no contender pays for another's write-back. Argument 0 copies to a
// new name; 1 copies over an existing file (ours then replaces it whole, where the peers
// truncate and rewrite it in place).
template <typename Copy>
void copyBenchmark(benchmark::State& state, const char* name, Copy&& copy) {
    Files& f = files();
    if (!f.ok) return state.SkipWithError("no test files");
    const Str target = f.dir / name;
    const bool overwrite = state.range(0) != 0;
    FileDescriptor dir;
    if (!dir.open(f.dir.path(), O_RDONLY | O_DIRECTORY).ok()) return state.SkipWithError("no directory");
    if (overwrite && !copyFile(f.source, target).ok()) return state.SkipWithError("copy failed");
    for (auto _ : state) {
        state.PauseTiming();
        // The previous copy's data, then the directory that names it.
        if (FileDescriptor previous; previous.open(target, O_RDONLY).ok() && !previous.sync().ok()) {
            return state.SkipWithError("fsync of the previous copy failed");
        }
        if (!overwrite) static_cast<void>(::unlink(target.c_str()));
        if (!dir.sync().ok()) return state.SkipWithError("fsync of the directory failed");
        state.ResumeTiming();
        if (!copy(f.source, target)) return state.SkipWithError("copy failed");
    }
    if (!sameContents(f.source, target)) state.SkipWithError("the copy differs");
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kCopyBytes));
}

void BM_Copy256MiB_Ours(benchmark::State& state) {
    copyBenchmark(state, "ours", [](const Str& from, const Str& to) { return copyFile(from, to).ok(); });
}
BENCHMARK(BM_Copy256MiB_Ours)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_Copy256MiB_Cp(benchmark::State& state) {
    copyBenchmark(state, "cp", [](const Str& from, const Str& to) {
        char cp[] = "cp";
        char* argv[] = {cp, const_cast<char*>(from.c_str()), const_cast<char*>(to.c_str()), nullptr};
        pid_t pid;
        int status = 0;
        return ::posix_spawnp(&pid, "cp", nullptr, nullptr, argv, environ) == 0 &&
               ::waitpid(pid, &status, 0) == pid && status == 0;
    });
}
BENCHMARK(BM_Copy256MiB_Cp)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_Copy256MiB_StdFilesystem(benchmark::State& state) {
    copyBenchmark(state, "std", [](const Str& from, const Str& to) {
        std::error_code error;
        std::filesystem::copy_file(from.c_str(), to.c_str(),
                                   std::filesystem::copy_options::overwrite_existing, error);
        return !error;
    });
}
BENCHMARK(BM_Copy256MiB_StdFilesystem)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// Reads the whole file as UTF-8, appending it to `sink` when there is one; false on failure.
bool readOurs(const Str& path, std::string* sink) {
    static std::unique_ptr<char[]> out(new char[kBlock * 4]);
    int error = 0;
    utrans_reader* r = utrans_open_read(path.c_str(), UTRANS_DETECT, &error);
    if (r == nullptr) return false;
    std::size_t total = 0;
    ptrdiff_t n;
    while ((n = utrans_read(r, out.get(), kBlock * 4)) > 0) {
        if (sink != nullptr) sink->append(out.get(), static_cast<std::size_t>(n));
        total += static_cast<std::size_t>(n);
    }
    benchmark::DoNotOptimize(total);
    return utrans_close_read(r) == 0 && n == 0;
}

bool readIcu(const Str& path, std::string* sink) {
    static std::unique_ptr<char[]> in(new char[kBlock]), out(new char[kBlock * 4]);
    UErrorCode status = U_ZERO_ERROR;
    UConverter* from = ucnv_open("UTF-16", &status);  // reads the mark, like ours
    UConverter* to = ucnv_open("UTF-8", &status);
    UChar pivot[4096];
    UChar* pivotSource = pivot;
    UChar* pivotTarget = pivot;
    FileDescriptor fd;
    bool ok = U_SUCCESS(status) && fd.open(path, O_RDONLY).ok();
    std::size_t total = 0;
    for (bool reset = true; ok;) {
        std::size_t got = 0;
        if (!fd.readSome(in.get(), kBlock, got).ok()) return false;
        const char* source = in.get();
        const bool flush = got == 0;
        do {
            char* target = out.get();
            status = U_ZERO_ERROR;
            ucnv_convertEx(to, from, &target, out.get() + kBlock * 4, &source, in.get() + got, pivot,
                           &pivotSource, &pivotTarget, pivot + 4096, reset, flush, &status);
            reset = false;
            const std::size_t n = static_cast<std::size_t>(target - out.get());
            if (sink != nullptr) sink->append(out.get(), n);
            total += n;
        } while (status == U_BUFFER_OVERFLOW_ERROR);
        ok = U_SUCCESS(status);
        if (flush) break;
    }
    ucnv_close(from);
    ucnv_close(to);
    benchmark::DoNotOptimize(total);
    return ok;
}

// The answer is checked once, before the clock runs; the timed passes only read.
void readBenchmark(benchmark::State& state, bool (*read)(const Str&, std::string*)) {
    Files& f = files();
    if (!f.ok) return state.SkipWithError("no test files");
    std::string check;
    if (!read(f.utf16, &check) || check != f.utf8)
        return state.SkipWithError("differs from the text written");
    for (auto _ : state) {
        if (!read(f.utf16, nullptr)) return state.SkipWithError("read failed");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(f.utf16Bytes));
}

void BM_ReadUtf16_Ours(benchmark::State& state) {
    readBenchmark(state, readOurs);
}
BENCHMARK(BM_ReadUtf16_Ours)->Unit(benchmark::kMillisecond);

void BM_ReadUtf16_Icu(benchmark::State& state) {
    readBenchmark(state, readIcu);
}
BENCHMARK(BM_ReadUtf16_Icu)->Unit(benchmark::kMillisecond);

}  // namespace
