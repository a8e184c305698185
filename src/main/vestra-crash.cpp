// vestra crash test KIND: the crash handler installed, then a crash of the kind asked for, so that
// a user sees a real crash log without writing code. vestra crash symbolize LOG: the log's frames
// read back to functions, files and lines.
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "basicutil/crash/CrashHandler.h"
#include "basicutil/crash/CrashNotation.h"
#include "basicutil/platform/Assert.h"
#include "basicutil/threads/Thread.h"
#include "main/CrashSymbolizer.h"
#include "main/vestra_details.h"

namespace vestra::tool {

using namespace basicutil;

namespace {

// Deeper than any stack; the bound only keeps the compiler from calling it endless.
volatile int g_depthLimit = 1 << 30;
[[gnu::noinline]] int recurse(int depth) {
    volatile char pad[256];
    pad[0] = static_cast<char>(depth);
    if (depth >= g_depthLimit) return 0;
    return recurse(depth + 1) + pad[0];
}

[[noreturn, gnu::noinline]] void raise(const std::string& what) {
    throw std::runtime_error(what);
}
// std::terminate for an exception that leaves a function that may not throw.
void escapes(const std::string& what) noexcept {
    raise(what);
}

void nullWrite() {
    *static_cast<volatile int*>(nullptr) = 1;
}

class CrashTestCommand final : public Command {
  public:
    CLI::App* define(CLI::App& parent) override {
        CLI::App* test = parent.add_subcommand(
            "test",
            "Installs the crash handler and crashes on purpose, to show a crash log (under\n"
            "$VESTRA_HOME/crash, or on standard error without VESTRA_HOME). KIND: segv, bus, fpe,\n"
            "ill, abort, assert, overflow (the stack), exception (uncaught), threads (two at once).\n"
            "Example: VESTRA_HOME=/tmp vestra crash test segv");
        test->add_option("KIND", _kind, "what to crash by")
            ->required()
            ->check(CLI::IsMember(
                {"segv", "bus", "fpe", "ill", "abort", "assert", "overflow", "exception", "threads"}));
        return test;
    }
    int run() override {
        if (Status st = installCrashHandler(); !st) {
            diagnose("cannot install the crash handler: " + std::string(st.text().view()));
            return kNegative;
        }
        CrashNotation note("vestra crash test %s", _kind);
        if (_kind == "segv") nullWrite();
        if (_kind == "bus") {
            FILE* file = std::tmpfile();
            if (file == nullptr || ftruncate(fileno(file), 8192) != 0) return kNegative;
            auto* p =
                static_cast<volatile char*>(mmap(nullptr, 8192, PROT_READ, MAP_SHARED, fileno(file), 0));
            if (p == MAP_FAILED || ftruncate(fileno(file), 0) != 0) return kNegative;
            static_cast<void>(p[4096]);
        }
        if (_kind == "fpe") {
            volatile int zero = 0, some = 12345;  // 1 / x would be turned into a comparison
            volatile int result = some / zero;
            static_cast<void>(result);
        }
        if (_kind == "ill") __builtin_trap();
        if (_kind == "abort") std::abort();
        if (_kind == "assert") VESTRA_ASSERT(_kind == "an assertion that fails");
        if (_kind == "overflow") recurse(0);
        if (_kind == "exception") escapes("vestra crash test exception");
        if (_kind == "threads") {
            static std::atomic<int> ready{0};
            auto crash = [] {
                ++ready;
                while (ready.load() < 2) {
                }
                nullWrite();
            };
            ThreadFunction a(crash, "crash-a"), b(crash, "crash-b");
            a.go();
            b.go();
            a.join();
            b.join();
        }
        diagnose("the " + _kind + " crash did not happen");
        return kNegative;
    }

  private:
    std::string _kind;
};

class CrashSymbolizeCommand final : public Command {
  public:
    CLI::App* define(CLI::App& parent) override {
        CLI::App* symbolize = parent.add_subcommand(
            "symbolize",
            "Writes a crash log with each backtrace frame's function, file and line under it,\n"
            "read from the modules' debugging information (inlined calls included).\n"
            "Example: vestra crash symbolize $VESTRA_HOME/crash/server-4242-20261126T101500Z.log");
        symbolize->add_option("LOG", _path, "the crash log (\"-\": standard input)")->required();
        return symbolize;
    }
    int run() override {
        std::string log;
        if (!forEachChunk(_path, [&](std::string_view chunk) { log += chunk; })) return kNegative;
        CrashSymbolizer symbolizer;
        out().write(symbolizer.symbolize(log));
        return kOk;
    }

  private:
    std::string _path;
};

}  // namespace

void addCrashCommands(CLI::App& app, Context& context) {
    CLI::App* crash = app.add_subcommand(
        "crash", "Crash reporting: see a crash log (test), read one's frames (symbolize).");
    crash->require_subcommand(1);
    context.add<CrashTestCommand>(*crash);
    context.add<CrashSymbolizeCommand>(*crash);
}

}  // namespace vestra::tool
