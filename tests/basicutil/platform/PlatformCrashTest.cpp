#include "basicutil/platform/PlatformCrash.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

namespace basicutil::platform {
namespace {

// What a SIGUSR1 handler saw: its registers and where its own frame was.
struct Seen {
    Registers registers;
    bool haveRegisters = false;
    std::uintptr_t local = 0;
    bool sent = false;
};
Seen g_seen;

void seeSignal(int, siginfo_t* info, void* context) {
    int local = 0;
    g_seen.local = reinterpret_cast<std::uintptr_t>(&local);
    g_seen.haveRegisters = registersOf(context, g_seen.registers);
    g_seen.sent = signalWasSent(*info);
}

struct HandlerFor {
    int signo;
    struct sigaction old {};
    HandlerFor(int s, bool onStack) : signo(s) {
        struct sigaction action {};
        action.sa_sigaction = seeSignal;
        action.sa_flags = SA_SIGINFO | (onStack ? SA_ONSTACK : 0);
        EXPECT_EQ(sigaction(signo, &action, &old), 0);
    }
    ~HandlerFor() { EXPECT_EQ(sigaction(signo, &old, nullptr), 0); }
};

// The registers a handler reads are the interrupted code's: its stack pointer lies in this
// thread's stack, below the caller's frame, and its pc in this program.
TEST(PlatformCrashTest, RegistersAreTheInterruptedCodes) {
    std::uintptr_t low = 0, high = 0;
    std::size_t guard = 0;
    ASSERT_TRUE(currentStackBounds(low, high, guard));
    int here = 0;
    const auto at = reinterpret_cast<std::uintptr_t>(&here);
    EXPECT_TRUE(at >= low && at < high);
    EXPECT_GE(guard, 4096u);
    HandlerFor handler(SIGUSR1, false);
    g_seen = Seen{};
    ASSERT_EQ(raise(SIGUSR1), 0);
    ASSERT_TRUE(g_seen.haveRegisters);
    EXPECT_TRUE(g_seen.sent);
    EXPECT_TRUE(g_seen.registers.sp >= low && g_seen.registers.sp < at) << std::hex << g_seen.registers.sp;
    EXPECT_NE(g_seen.registers.pc, 0u);
    EXPECT_EQ(g_seen.registers.pc, g_seen.registers.values[16]);
    EXPECT_STREQ(Registers::kNames[16], "rip");
    EXPECT_STREQ(Registers::kNames[7], "rsp");
}

// A handler asked to run on the alternate stack runs inside the mapping above its guard page;
// unmapping takes the stack away again.
TEST(PlatformCrashTest, AlternateStacksCarryHandlers) {
    const std::size_t bytes = alternateStackBytes();
    EXPECT_GE(bytes, 64u * 1024);
    EXPECT_EQ(bytes % static_cast<std::size_t>(sysconf(_SC_PAGESIZE)), 0u);
    // Whatever stack the thread had (a sanitizer's, or none) comes back when ours goes.
    stack_t before{};
    ASSERT_EQ(sigaltstack(nullptr, &before), 0);
    AlternateStack stack;
    ASSERT_EQ(mapAlternateStack(stack), 0);
    const auto base = reinterpret_cast<std::uintptr_t>(stack.mapping);
    EXPECT_EQ(stack.mappingBytes, bytes + static_cast<std::size_t>(sysconf(_SC_PAGESIZE)));
    {
        HandlerFor handler(SIGUSR1, true);
        g_seen = Seen{};
        ASSERT_EQ(raise(SIGUSR1), 0);
        EXPECT_TRUE(g_seen.local > base + stack.mappingBytes - bytes &&
                    g_seen.local < base + stack.mappingBytes);
    }
    ASSERT_EQ(unmapAlternateStack(stack), 0);
    EXPECT_EQ(stack.mapping, nullptr);
    stack_t current{};
    ASSERT_EQ(sigaltstack(nullptr, &current), 0);
    EXPECT_EQ(current.ss_flags & SS_DISABLE, before.ss_flags & SS_DISABLE);
    if ((before.ss_flags & SS_DISABLE) == 0) {
        EXPECT_EQ(current.ss_sp, before.ss_sp);
        EXPECT_EQ(current.ss_size, before.ss_size);
    }
    // One of our own in place of another: the other comes back.
    AlternateStack outer, inner;
    ASSERT_EQ(mapAlternateStack(outer), 0);
    ASSERT_EQ(mapAlternateStack(inner), 0);
    ASSERT_EQ(unmapAlternateStack(inner), 0);
    ASSERT_EQ(sigaltstack(nullptr, &current), 0);
    EXPECT_EQ(current.ss_sp, static_cast<char*>(outer.mapping) + sysconf(_SC_PAGESIZE));
    ASSERT_EQ(unmapAlternateStack(outer), 0);

    // The guard page below it faults.
    ASSERT_EQ(mapAlternateStack(stack), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        signal(SIGSEGV, SIG_DFL);
        static_cast<volatile char*>(stack.mapping)[0] = 1;
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) << status;
    ASSERT_EQ(unmapAlternateStack(stack), 0);
}

TEST(PlatformCrashTest, SignalsAndCodesInWords) {
    const struct {
        int signo, code;
        const char* name;
        const char* text;  // its start
    } cases[] = {
        {SIGSEGV, SEGV_MAPERR, "SIGSEGV", "SEGV_MAPERR (address not mapped"},
        {SIGSEGV, SEGV_ACCERR, "SIGSEGV", "SEGV_ACCERR"},
        {SIGBUS, BUS_ADRERR, "SIGBUS", "BUS_ADRERR"},
        {SIGFPE, FPE_INTDIV, "SIGFPE", "FPE_INTDIV (integer divide by zero)"},
        {SIGILL, ILL_ILLOPN, "SIGILL", "ILL_ILLOPN"},
        {SIGTRAP, TRAP_BRKPT, "SIGTRAP", "TRAP_BRKPT"},
        {SIGABRT, SI_USER, "SIGABRT", "SI_USER"},
        {SIGSYS, SI_QUEUE, "SIGSYS", "SI_QUEUE"},
    };
    for (const auto& c : cases) {
        EXPECT_STREQ(signalName(c.signo), c.name);
        const char* text = signalCodeText(c.signo, c.code);
        ASSERT_NE(text, nullptr) << c.name << " " << c.code;
        EXPECT_EQ(std::strncmp(text, c.text, std::strlen(c.text)), 0) << text;
    }
    EXPECT_EQ(signalName(0), nullptr);
    EXPECT_EQ(signalCodeText(SIGSEGV, 12345), nullptr);
}

// The map names this program and the stack, each line "start-end perms path"; the command line
// has the program's arguments; short buffers cut without overflowing.
TEST(PlatformCrashTest, MapAndCommandLine) {
    static char scratch[1 << 20], map[1 << 18];
    const std::size_t length = readMemoryMap(map, sizeof map, scratch, sizeof scratch);
    ASSERT_GT(length, 0u);
    const std::string text(map, length);
    EXPECT_NE(text.find("PlatformCrashTest"), std::string::npos) << text;
    const auto here = reinterpret_cast<std::uintptr_t>(&scratch);
    bool found = false;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = text.find('\n', start);
        const std::string line = text.substr(start, end - start);
        const std::uintptr_t low = std::stoull(line.substr(0, line.find('-')), nullptr, 16);
        const std::uintptr_t high = std::stoull(line.substr(line.find('-') + 1), nullptr, 16);
        const std::string perms = line.substr(line.find(' ') + 1, 4);
        if (here >= low && here < high) found = perms.substr(0, 2) == "rw";
        start = end + 1;
    }
    EXPECT_TRUE(found) << "no rw- line holds a static buffer";
    char small[8];
    EXPECT_EQ(readMemoryMap(small, sizeof small, scratch, sizeof scratch), 7u);
    EXPECT_EQ(small[7], '\0');

    EXPECT_FALSE(debuggerAttached());  // the tests are not run under one
    EXPECT_TRUE(std::string(debuggerCommand()) == "gdb -p" || std::string(debuggerCommand()) == "lldb -p");

    char line[4096];
    const std::size_t n = readCommandLine(line, sizeof line);
    EXPECT_NE(std::string(line, n).find("PlatformCrashTest"), std::string::npos) << line;
    EXPECT_EQ(readCommandLine(small, sizeof small), 7u);
}

}  // namespace
}  // namespace basicutil::platform
