#include "main/CrashSymbolizer.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <sstream>
#include <string>

namespace vestra::tool {
namespace {

// The lines that pass for frames, and what they say; everything else is no frame.
TEST(CrashSymbolizerTest, ReadsFrameLines) {
    const struct {
        const char* line;
        bool frame;
        unsigned index;
        std::uint64_t pc;
        const char* module;
        std::uint64_t offset;
        const char* buildId;
    } cases[] = {
        {"  #00 0x000055eb7f6e6a37 in /usr/bin/server +0x69a37 (build id ee7a01) handle+0x7", true, 0,
         0x55eb7f6e6a37, "/usr/bin/server", 0x69a37, "ee7a01"},
        {"  #12 0x00007f98fd7c71f5 in /lib/libc.so.6 +0x891f5", true, 12, 0x7f98fd7c71f5, "/lib/libc.so.6",
         0x891f5, ""},
        {"  #03 0x0000000000401000 in /opt/my app/bin +0x1000 (build id ab)", true, 3, 0x401000,
         "/opt/my app/bin", 0x1000, "ab"},
        {"  #04 0x00000000deadbeef", true, 4, 0xdeadbeef, "", 0, ""},
        {"Backtrace:", false, 0, 0, "", 0, ""},
        {"  #00 0x", false, 0, 0, "", 0, ""},
        {"  # 0 0x0000000000401000", false, 0, 0, "", 0, ""},
        {"  #1234567 0x0000000000401000", false, 0, 0, "", 0, ""},
        {"  #00 0x00000000004010zz in /bin/x +0x10", false, 0, 0, "", 0, ""},
        {"  #00 0x0000000000401000 in /bin/x", false, 0, 0, "", 0, ""},
        {"  #00 0x0000000000401000 in /bin/x +0xg", false, 0, 0, "", 0, ""},
        {"  #00 0x0000000000401000 in /bin/x +0x10 (build id ab", false, 0, 0, "", 0, ""},
        {"  #00 0x00000000000000001 in /bin/x +0x10", false, 0, 0, "", 0, ""},
        {"  noting: #00 0x0000000000401000", false, 0, 0, "", 0, ""},
    };
    for (const auto& c : cases) {
        CrashFrame frame;
        ASSERT_EQ(parseCrashFrame(c.line, frame), c.frame) << c.line;
        if (!c.frame) continue;
        EXPECT_EQ(frame.index, c.index) << c.line;
        EXPECT_EQ(frame.pc, c.pc) << c.line;
        EXPECT_EQ(frame.module, c.module) << c.line;
        EXPECT_EQ(frame.offset, c.offset) << c.line;
        EXPECT_EQ(frame.buildId, c.buildId) << c.line;
    }
}

volatile int g_calls = 0;
// A side effect, so that no two calls are merged into one.
[[gnu::noinline]] const void* returnAddress() {
    g_calls = g_calls + 1;
    return __builtin_return_address(0);
}
// Called where it is inlined: the return address lies in its inlined body.
constexpr int kInlinedLine = __LINE__ + 2;
[[gnu::always_inline]] inline const void* inlinedCall() {
    return returnAddress();
}

std::string hexOf(std::uint64_t value) {
    char text[17];
    std::snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(value));
    return text;
}

// A frame line for `address` in this program, as the crash log writes one.
std::string frameLine(unsigned index, const void* address, const std::string& buildId = "") {
    Dl_info info{};
    EXPECT_NE(dladdr(address, &info), 0);
    const auto pc = reinterpret_cast<std::uintptr_t>(address);
    std::string line = "  #0" + std::to_string(index) + " 0x" + std::string(16 - hexOf(pc).size(), '0') +
                       hexOf(pc) + " in " + info.dli_fname + " +0x" +
                       hexOf(pc - reinterpret_cast<std::uintptr_t>(info.dli_fbase));
    if (!buildId.empty()) line += " (build id " + buildId + ")";
    return line;
}

// This program's own frames read back: the call's line, an inlined call with the place it was
// called from, and the log's own lines kept as they were.
TEST(CrashSymbolizerTest, NamesFunctionsFilesAndLines) {
    const int plainLine = __LINE__ + 1;
    const void* plain = returnAddress();
    const int callLine = __LINE__ + 1;
    const void* inlined = inlinedCall();
    const std::string log =
        "Backtrace:\n" + frameLine(1, plain) + "\n" + frameLine(2, inlined) + "\nThreads:\n";
    CrashSymbolizer symbolizer;
    const std::string out = symbolizer.symbolize(log);
    // A function's name is its linkage name or, where the compiler gave none, its plain name.
    const std::string body = R"(vestra::tool::\(anonymous namespace\)::CrashSymbolizerTest_)"
                             R"(NamesFunctionsFilesAndLines_Test::TestBody\(\))";
    const std::string inlinedName = R"((inlinedCall|vestra::tool::\(anonymous namespace\)::inlinedCall\(\)))";
    // The file as the compiler recorded it: from the source tree's top, under the build directory
    // where a compiler joins the two (clang's DWARF 5 line tables).
    const std::string at = R"( at ([^ ]*/)?tests/main/CrashSymbolizerTest\.cpp:)";
    const std::string expected[] = {
        "Backtrace:",
        frameLine(1, plain),
        "      " + body + at + std::to_string(plainLine) + ":[0-9]+",
        frameLine(2, inlined),
        "      " + inlinedName + at + std::to_string(kInlinedLine) + ":[0-9]+",
        "      inlined into " + body + at + std::to_string(callLine) + ":[0-9]+",
        "Threads:",
    };
    std::istringstream lines(out);
    for (const std::string& pattern : expected) {
        std::string line;
        ASSERT_TRUE(std::getline(lines, line)) << out;
        if (pattern.rfind("  #0", 0) == 0) {
            EXPECT_EQ(line, pattern);
        } else {
            EXPECT_TRUE(std::regex_match(line, std::regex(pattern))) << line << "\n" << pattern;
        }
    }
    EXPECT_EQ(out.substr(out.size() - 9), "Threads:\n");
}

// What cannot be read is said, on one line under the frame: a module that is not there, a module
// that changed since the crash (its build id), an address in no module.
TEST(CrashSymbolizerTest, SaysWhatCannotBeRead) {
    const void* here = returnAddress();
    const struct {
        std::string line;
        std::string says;
    } cases[] = {
        {"  #01 0x0000000000401000 in /nonexistent/module +0x1000",
         "      (cannot read /nonexistent/module: "},
        {frameLine(1, here, "00112233"), " not the log's: it changed since the crash, and is not read)\n"},
        {"  #05 0x0000000000000010", "      (no module: the address lies in none the process had loaded)\n"},
    };
    CrashSymbolizer symbolizer;
    for (const auto& c : cases) {
        CrashFrame frame;
        ASSERT_TRUE(parseCrashFrame(c.line, frame)) << c.line;
        const std::string said = symbolizer.describe(frame);
        EXPECT_NE(said.find(c.says), std::string::npos) << c.line << "\n" << said;
        EXPECT_EQ(said.find('\n'), said.size() - 1) << said;
    }
}

}  // namespace
}  // namespace vestra::tool
