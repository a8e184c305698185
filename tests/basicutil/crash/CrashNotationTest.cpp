#include "basicutil/crash/CrashNotation.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "basicutil/platform/Platform.h"
#include "libzero/create-crash-dump.h"

namespace basicutil {
namespace {

// What writeCrashNotations says of a thread, through a crash dump into a file.
std::string notationsOf(std::uint64_t threadId) {
    FILE* file = std::tmpfile();
    EXPECT_NE(file, nullptr);
    crash_dump d;
    crash_dump_init(&d, fileno(file));
    writeCrashNotations(&d, threadId, "> ");
    EXPECT_EQ(crash_dump_flush(&d), 0);
    std::rewind(file);
    std::string out;
    char buf[4096];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, file)) > 0;) out.append(buf, n);
    EXPECT_EQ(std::fclose(file), 0);
    return out;
}

std::string mine() {
    return notationsOf(platform::currentThreadId());
}

TEST(CrashNotationTest, NestedNotationsInnermostFirst) {
    EXPECT_EQ(mine(), "");
    {
        CrashNotation outer("serving request");
        {
            CrashNotation middle("loading zone %s for user %d", "Europe/Paris", 42);
            {
                CrashNotation inner("parsing");
                EXPECT_EQ(mine(), "> parsing\n> loading zone Europe/Paris for user 42\n> serving request\n");
            }
            EXPECT_EQ(mine(), "> loading zone Europe/Paris for user 42\n> serving request\n");
        }
    }
    EXPECT_EQ(mine(), "");
}

// Texts are cut at the slot's size, never inside a UTF-8 sequence; notations past the depth are
// counted and said, and popping them leaves the kept ones as they were.
TEST(CrashNotationTest, LimitsCutAndCount) {
    const std::size_t max = CrashNotation::kMaxBytes;
    const struct {
        std::string text;
        std::string kept;
    } cases[] = {
        {std::string(max, 'a'), std::string(max, 'a')},
        {std::string(max + 10, 'b'), std::string(max, 'b')},
        {std::string(max - 1, 'c') + "\xC3\xA9", std::string(max - 1, 'c')},      // é across the cut
        {std::string(max - 2, 'd') + "\xE2\x82\xAC", std::string(max - 2, 'd')},  // € across it
        {std::string(max - 3, 'e') + "\xE2\x82\xAC", std::string(max - 3, 'e') + "\xE2\x82\xAC"},  // it fits
    };
    for (const auto& c : cases) {
        CrashNotation plain(c.text);
        EXPECT_EQ(mine(), "> " + c.kept + "\n");
    }
    for (const auto& c : cases) {
        CrashNotation formatted("%s", c.text);
        EXPECT_EQ(mine(), "> " + c.kept + "\n");
    }

    std::string expected;
    {
        std::vector<std::unique_ptr<CrashNotation>> stack;
        for (std::size_t i = 0; i < CrashNotation::kMaxDepth + 3; ++i) {
            stack.push_back(std::make_unique<CrashNotation>("level %zu", i));
            if (i < CrashNotation::kMaxDepth) expected = "> level " + std::to_string(i) + "\n" + expected;
        }
        EXPECT_EQ(mine(), "> (3 deeper notations not kept)\n" + expected);
        stack.resize(CrashNotation::kMaxDepth);
        EXPECT_EQ(mine(), expected);
    }
    EXPECT_EQ(mine(), "");
}

// Each thread has its own stack; a thread's slot is given back when it ends, so threads that come
// and go never use the table up.
TEST(CrashNotationTest, ThreadsHaveTheirOwnAndGiveThemBack) {
    CrashNotation here("main's");
    for (std::size_t round = 0; round < crash_notation_details::kMaxThreads + 50; ++round) {
        std::uint64_t id = 0;
        std::string seen;
        std::thread t([&] {
            CrashNotation note("worker %zu", round);
            id = platform::currentThreadId();
            seen = mine();
        });
        t.join();
        ASSERT_EQ(seen, "> worker " + std::to_string(round) + "\n") << round;
        ASSERT_EQ(notationsOf(id), "");
    }
    EXPECT_EQ(mine(), "> main's\n");
}

// A fork's child keeps the forking thread's notations under its own id, and none of the parent's
// other threads (which the child does not have). The child says what it saw through its status.
TEST(CrashNotationTest, ForkedChildKeepsOnlyTheForkingThreadsNotations) {
    CrashNotation outer("forking from main");
    std::atomic<int> stage{0};
    std::thread other([&] {
        CrashNotation note("another parent thread");
        stage = 1;
        while (stage.load() != 2) std::this_thread::yield();
    });
    while (stage.load() != 1) std::this_thread::yield();
    const std::uint64_t parentId = platform::currentThreadId();
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        int fault = 0;
        const std::uint64_t childId = platform::currentThreadId();
        if (childId == parentId) fault |= 1;
        if (mine() != "> forking from main\n") fault |= 2;
        if (notationsOf(parentId) != "") fault |= 4;
        std::size_t noted = 0;
        forEachNotedThread([](std::uint64_t, void* n) { ++*static_cast<std::size_t*>(n); }, &noted);
        if (noted != 1) fault |= 8;
        {
            CrashNotation inner("in the child");
            if (mine() != "> in the child\n> forking from main\n") fault |= 16;
        }
        _exit(fault);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    stage = 2;
    other.join();
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "1: same id, 2: own notations lost, 4: parent id kept, "
                                         "8: other threads' stacks kept, 16: pushing after fork";
    EXPECT_EQ(mine(), "> forking from main\n");
}

}  // namespace
}  // namespace basicutil
