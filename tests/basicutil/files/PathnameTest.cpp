#include "basicutil/files/Pathname.h"

#include <libgen.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "basicutil/files/File.h"

namespace basicutil {
namespace {

// Leading "//" is left out: glibc keeps it ("//a" -> "//"), where we make it "/".
const char* const kSplitCases[] = {
    "",          "/", "///", "a",  "a/",    "a//", "/a",  "///a", "/a/",     "a/b",       "a//b/", "/a/b/c",
    "/a/b/c///", ".", "..",  "./", "../..", "/.",  "a/.", "a/..", "usr/lib", "/usr/lib/", "é/ü",
};

// POSIX dirname and basename (libgen.h) work in place on a copy.
std::string posixDirname(const char* path) {
    std::string copy(path);
    return ::dirname(copy.data());
}
std::string posixBasename(const char* path) {
    std::string copy(path);
    return ::basename(copy.data());  // the POSIX one: <libgen.h> maps it on glibc
}

TEST(PathnameTest, SplitAgreesWithPosixDirnameAndBasename) {
    for (const char* path : kSplitCases) {
        SCOPED_TRACE(path);
        StrSegment directory, base;
        pathSplit(path, directory, base);
        EXPECT_EQ(std::string(directory.view()), posixDirname(path));
        EXPECT_EQ(std::string(base.view()), posixBasename(path));
        EXPECT_EQ(pathDirname(path).view(), directory.view());
        EXPECT_EQ(pathBasename(path).view(), base.view());
    }
    EXPECT_EQ(pathDirname("//a").view(), "/");
    EXPECT_EQ(pathDirname("//").view(), "/");
}

TEST(PathnameTest, JoinNormalizeAndComponents) {
    struct Case {
        const char* head;
        const char* tail;
        const char* joined;
    } joins[] = {
        {"/var/log", "app.log", "/var/log/app.log"},
        {"/var/log/", "app.log", "/var/log/app.log"},
        {"/var/log//", "a/b", "/var/log/a/b"},
        {"/", "etc", "/etc"},
        {"//", "etc", "/etc"},
        {"a", "/abs", "/abs"},
        {"", "x", "x"},
        {"x", "", "x"},
        {"", "", ""},
        {"a", "./b", "a/./b"},
    };
    for (const Case& c : joins) {
        SCOPED_TRACE(std::string(c.head) + " + " + c.tail);
        EXPECT_EQ(pathJoin(c.head, c.tail).view(), c.joined);
    }

    struct Norm {
        const char* path;
        const char* normal;
    } norms[] = {
        {"", "."},
        {".", "."},
        {"./", "."},
        {"/", "/"},
        {"//", "/"},
        {"/..", "/"},
        {"/../a", "/a"},
        {"a//b/./../c/", "a/c"},
        {"a/..", "."},
        {"a/../..", ".."},
        {"../a/../../b", "../../b"},
        {"/a/b/../../..", "/"},
        {"./a/./b/.", "a/b"},
        {"a/b/c/../../d", "a/d"},
        {"...", "..."},
        {"a/.../b", "a/.../b"},
        {"/usr//lib/", "/usr/lib"},
        {"..", ".."},
    };
    for (const Norm& c : norms) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(pathNormalize(c.path).view(), c.normal);
        EXPECT_EQ(pathNormalize(pathNormalize(c.path)).view(), c.normal);  // a fixed point
    }

    StrVector parts;
    pathComponents("//a/./b//c/", parts);
    EXPECT_EQ(parts, (StrVector{"a", ".", "b", "c"}));
    pathComponents("/", parts);
    EXPECT_TRUE(parts.empty());
}

TEST(PathnameTest, Relative) {
    struct Case {
        const char* target;
        const char* base;
        const char* relative;  // nullptr: refused
    } cases[] = {
        {"/a/b/c", "/a/d", "../b/c"},
        {"/a/b", "/a/b", "."},
        {"/a/b", "/a/b/c/d", "../.."},
        {"/", "/a/b", "../.."},
        {"/a/b/", "/", "a/b"},
        {"a/b", "a", "b"},
        {"a", "b", "../a"},
        {"../x", ".", "../x"},
        {"x", "..", nullptr},
        {"../../x", "../y", "../../x"},
        {"/a", "a", nullptr},
        {"a", "/a", nullptr},
        {"/a/./b/../c", "/a//c/", "."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.target) + " from " + c.base);
        Str out("untouched");
        ASSERT_EQ(pathRelative(c.target, c.base, out), c.relative != nullptr);
        EXPECT_EQ(out.view(), c.relative != nullptr ? c.relative : "untouched");
        // Following the answer from the base leads to the target.
        if (c.relative != nullptr) {
            EXPECT_EQ(pathNormalize(pathJoin(c.base, out)), pathNormalize(c.target));
        }
    }
}

TEST(PathnameTest, AbsoluteUsesTheWorkingDirectory) {
    char cwd[4096];
    ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
    Str out;
    ASSERT_TRUE(pathAbsolute("x/../y/", out).ok());
    EXPECT_EQ(out, pathNormalize(std::string_view(std::string(cwd) + "/y")));
    ASSERT_TRUE(pathAbsolute("/a/./b", out).ok());
    EXPECT_EQ(out.view(), "/a/b");
}

TEST(PathnameTest, AbsoluteFailsWhenTheWorkingDirectoryIsGone) {
    // In a child, so that the test's own working directory is left alone.
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        char dir[] = "/tmp/vestra-cwd.XXXXXX";
        if (::mkdtemp(dir) == nullptr || ::chdir(dir) != 0 || ::rmdir(dir) != 0) _exit(2);
        Str out("kept");
        const Status st = pathAbsolute("x", out);
        _exit(!st.ok() && st.error() == ENOENT && out.view() == "kept" &&
                      std::strstr(st.text().c_str(), "getcwd")
                  ? 0
                  : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

}  // namespace
}  // namespace basicutil
