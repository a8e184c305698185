#include "basicutil/files/FileSystem.h"

#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "basicutil/files/FileSystem_details.h"
#include "basicutil/files/Pathname.h"
#include "support/fault-injection.h"

namespace basicutil {
namespace {

std::string contentsOf(StrSegment path) {
    FileDescriptor fd;
    Str all;
    if (!fd.open(path, O_RDONLY).ok() || !fd.readAll(all).ok()) return "<unreadable>";
    return std::string(all.view());
}

std::string randomBytes(std::size_t n, unsigned seed) {
    std::mt19937 rng(seed);
    std::string s(n, '\0');
    for (char& c : s) c = static_cast<char>(rng());
    return s;
}

// Runs `body` in a child process and returns its exit status (0 = passed). The child may change
// limits, signals or its user without touching the test process.
int inChild(const std::function<int()>& body) {
    const pid_t child = ::fork();
    if (child < 0) return -1;
    if (child == 0) _exit(body());
    int status = 0;
    if (::waitpid(child, &status, 0) != child) return -2;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Root may read anything, so permission tests run as "nobody" when the test runs as root.
bool dropPrivileges() {
    if (::geteuid() != 0) return true;
    return ::setgroups(0, nullptr) == 0 && ::setgid(65534) == 0 && ::setuid(65534) == 0;
}

class FileSystemTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(_dir.create("vestra-fs-test.").ok()); }
    Str path(const char* name) const { return _dir / name; }
    // Names in the directory other than `keep`: leftover temporary files.
    std::vector<Str> others(std::initializer_list<const char*> keep) const {
        std::vector<Str> names, left;
        EXPECT_TRUE(listDirectory(_dir.path(), names).ok());
        for (Str& n : names) {
            bool kept = false;
            for (const char* k : keep) kept = kept || n.view() == k;
            if (!kept) left.push_back(std::move(n));
        }
        return left;
    }
    TemporaryDirectory _dir;
};

TEST_F(FileSystemTest, PermissionsAndAccess) {
    ASSERT_TRUE(replaceFileContents(path("f"), "data", 0640).ok());
    mode_t mode = 0;
    ASSERT_TRUE(filePermissions(path("f"), mode).ok());
    EXPECT_EQ(mode, 0640u);
    ASSERT_TRUE(setFilePermissions(path("f"), 0600).ok());
    ASSERT_TRUE(filePermissions(path("f"), mode).ok());
    EXPECT_EQ(mode, 0600u);
    EXPECT_TRUE(checkAccess(path("f"), ACCESS_READ | ACCESS_WRITE).ok());
    EXPECT_EQ(checkAccess(path("f"), ACCESS_EXECUTE).error(), EACCES);  // even root needs an x bit
    EXPECT_EQ(checkAccess(path("none"), ACCESS_EXISTS).error(), ENOENT);
    EXPECT_EQ(setFilePermissions(path("none"), 0600).error(), ENOENT);
}

TEST_F(FileSystemTest, PermissionDenied) {
    // A file nobody else may read, in a directory nobody else may write.
    ASSERT_TRUE(replaceFileContents(path("secret"), "old", 0600).ok());
    ASSERT_TRUE(makeDirectory(path("locked"), 0755).ok());
    ASSERT_TRUE(setFilePermissions(_dir.path(), 0755).ok());
    const Str secret = path("secret"), locked = path("locked");
    const int status = inChild([&] {
        if (!dropPrivileges()) return 10;
        FileDescriptor fd;
        if (fd.open(secret, O_RDONLY).error() != EACCES) return 11;
        if (checkAccess(secret, ACCESS_READ).error() != EACCES) return 12;
        if (replaceFileContents(pathJoin(locked, "new"), "x").error() != EACCES) return 13;
        const Status copy = copyFile(secret, pathJoin(locked, "copy"));
        if (copy.error() != EACCES || !copy.text().view().starts_with("copying source to destination: \""))
            return 14;
        if (moveFile(secret, pathJoin(locked, "moved")).error() != EACCES) return 15;
        return 0;
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(contentsOf(secret), "old");
    std::vector<Str> names;
    ASSERT_TRUE(listDirectory(locked, names).ok());
    EXPECT_TRUE(names.empty());
}

TEST_F(FileSystemTest, MissingDirectories) {
    const Str deep = path("a/b/c/file");
    EXPECT_EQ(replaceFileContents(deep, "x").error(), ENOENT);
    ASSERT_TRUE(replaceFileContents(path("src"), "payload").ok());
    Status st = copyFile(path("src"), deep);
    EXPECT_EQ(st.error(), ENOENT);
    EXPECT_TRUE(st.text().view().starts_with("copying source to destination: \"")) << st.text().c_str();
    st = moveFile(path("nothing"), path("x"));
    EXPECT_EQ(st.error(), ENOENT);
    EXPECT_TRUE(st.text().view().starts_with("moving source to destination: \"")) << st.text().c_str();
    st = hardLink(path("src"), deep);
    EXPECT_EQ(st.error(), ENOENT);
    EXPECT_TRUE(st.text().view().starts_with("hard linking source to destination: \"")) << st.text().c_str();
    EXPECT_EQ(makeDirectory(pathDirname(deep)).error(), ENOENT);

    ASSERT_TRUE(makeDirectory(pathDirname(deep), 0755, true).ok());
    ASSERT_TRUE(makeDirectory(pathDirname(deep), 0755, true).ok());  // already there: fine
    EXPECT_EQ(makeDirectory(path("src/x"), 0755, true).error(), ENOTDIR);
    ASSERT_TRUE(copyFile(path("src"), deep).ok());
    EXPECT_EQ(contentsOf(deep), "payload");
}

TEST_F(FileSystemTest, CopyKeepsDataAndChoosesPermissions) {
    const std::string data = randomBytes(3 << 20, 1);
    ASSERT_TRUE(replaceFileContents(path("src"), std::string_view(data), 0640).ok());
    struct timespec old[2] = {{0, UTIME_OMIT}, {1000000000, 123456789}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path("src").c_str(), old, 0), 0);

    ASSERT_TRUE(copyFile(path("src"), path("new"), COPY_KEEP_TIMES | COPY_SYNC).ok());
    EXPECT_EQ(contentsOf(path("new")), data);
    FileInfo info;
    ASSERT_TRUE(fileInfo(path("new"), info).ok());
    EXPECT_EQ(info.permissions, 0640u);  // no destination before: the source's
    EXPECT_EQ(info.modifiedSeconds, 1000000000);
    EXPECT_EQ(info.modifiedNanoseconds, 123456789);

    ASSERT_TRUE(replaceFileContents(path("existing"), "old", 0600).ok());
    ASSERT_TRUE(copyFile(path("src"), path("existing")).ok());
    ASSERT_TRUE(fileInfo(path("existing"), info).ok());
    EXPECT_EQ(info.permissions, 0600u);  // an old destination keeps its own
    ASSERT_TRUE(copyFile(path("src"), path("existing"), COPY_SOURCE_PERMISSIONS).ok());
    ASSERT_TRUE(fileInfo(path("existing"), info).ok());
    EXPECT_EQ(info.permissions, 0640u);

    EXPECT_EQ(copyFile(path("src"), path("new"), COPY_NO_OVERWRITE).error(), EEXIST);
    ASSERT_TRUE(copyFile(path("src"), path("fresh"), COPY_NO_OVERWRITE).ok());
    EXPECT_EQ(contentsOf(path("fresh")), data);
    EXPECT_EQ(copyFile(_dir.path(), path("dir-copy")).error(), EISDIR);
    EXPECT_TRUE(others({"src", "new", "existing", "fresh"}).empty());

    // The kernel copy and the buffered one give the same bytes, from the current positions. The
    // kernel is asked for what remains, never more: FreeBSD holds the length asked for against
    // RLIMIT_FSIZE.
    for (bool kernel : {true, false}) {
        FileDescriptor in, out;
        ASSERT_TRUE(in.open(path("src"), O_RDONLY).ok());
        ASSERT_TRUE(in.seek(1000, SEEK_SET).ok());
        ASSERT_TRUE(out.open(path("partial"), O_WRONLY | O_CREAT | O_TRUNC).ok());
        vestra_record_copy_requests();
        ASSERT_TRUE(file_details::copyData(in, out, kernel).ok());
        EXPECT_EQ(contentsOf(path("partial")), data.substr(1000)) << kernel;
        EXPECT_EQ(vestra_copy_requests() > 0, kernel);
        EXPECT_LE(vestra_largest_copy_request(), data.size() - 1000);
    }
}

TEST_F(FileSystemTest, HardLinkMoveAndSameFile) {
    ASSERT_TRUE(replaceFileContents(path("a"), "A").ok());
    ASSERT_TRUE(hardLink(path("a"), path("b")).ok());
    bool same = false;
    ASSERT_TRUE(sameFile(path("a"), path("b"), same).ok());
    EXPECT_TRUE(same);
    EXPECT_EQ(hardLink(path("a"), path("b")).error(), EEXIST);

    ASSERT_TRUE(moveFile(path("b"), path("c")).ok());
    EXPECT_FALSE(fileExists(path("b")));
    ASSERT_TRUE(sameFile(path("a"), path("c"), same).ok());
    EXPECT_TRUE(same);
    ASSERT_TRUE(replaceFileContents(path("d"), "D").ok());
    ASSERT_TRUE(sameFile(path("a"), path("d"), same).ok());
    EXPECT_FALSE(same);
    ASSERT_TRUE(sameDevice(path("a"), path("d"), same).ok());
    EXPECT_TRUE(same);
    EXPECT_EQ(sameFile(path("a"), path("none"), same).error(), ENOENT);

    // What a move does across file systems, forced: the data, permissions and time go over.
    ASSERT_TRUE(setFilePermissions(path("d"), 0604).ok());
    FileInfo before, after;
    ASSERT_TRUE(fileInfo(path("d"), before).ok());
    ASSERT_TRUE(file_details::moveByCopy(path("d"), path("e")).ok());
    EXPECT_FALSE(fileExists(path("d")));
    ASSERT_TRUE(fileInfo(path("e"), after).ok());
    EXPECT_EQ(contentsOf(path("e")), "D");
    EXPECT_EQ(after.permissions, 0604u);
    EXPECT_EQ(after.modifiedSeconds, before.modifiedSeconds);
    EXPECT_EQ(after.modifiedNanoseconds, before.modifiedNanoseconds);
    ASSERT_TRUE(makeDirectory(path("dir")).ok());
    EXPECT_EQ(file_details::moveByCopy(path("dir"), path("dir2")).error(), EXDEV);
}

// A real move between two file systems, where the machine has a second one at hand.
TEST_F(FileSystemTest, MoveAcrossFileSystems) {
    Str other;
    for (const char* candidate : {"/dev/shm", "/run", "/var/tmp"}) {
        bool same = true;
        if (sameDevice(candidate, _dir.path(), same).ok() && !same &&
            checkAccess(candidate, ACCESS_WRITE).ok()) {
            other = candidate;
            break;
        }
    }
    if (other.empty()) GTEST_SKIP() << "no second writable file system here";
    TemporaryDirectory far;
    ASSERT_TRUE(far.create("vestra-fs-far.", other).ok());
    ASSERT_TRUE(replaceFileContents(path("m"), "moved", 0612).ok());
    ASSERT_TRUE(moveFile(path("m"), far / "m").ok());
    EXPECT_FALSE(fileExists(path("m")));
    EXPECT_EQ(contentsOf(far / "m"), "moved");
    mode_t mode = 0;
    ASSERT_TRUE(filePermissions(far / "m", mode).ok());
    EXPECT_EQ(mode, 0612u);
    ASSERT_TRUE(makeDirectory(path("d")).ok());
    EXPECT_EQ(moveFile(path("d"), far / "d").error(), EXDEV);
}

TEST_F(FileSystemTest, ReplacementWhileTheOldFileIsOpen) {
    ASSERT_TRUE(replaceFileContents(path("t"), "old contents").ok());
    FileDescriptor reader;
    ASSERT_TRUE(reader.open(path("t"), O_RDONLY).ok());
    FileInfo opened, now;
    ASSERT_TRUE(reader.info(opened).ok());

    ASSERT_TRUE(replaceFileContents(path("t"), "new").ok());
    Str old;
    ASSERT_TRUE(reader.readAll(old).ok());
    EXPECT_EQ(old.view(), "old contents");  // the open file is whole and unchanged
    EXPECT_EQ(contentsOf(path("t")), "new");
    ASSERT_TRUE(fileInfo(path("t"), now).ok());
    EXPECT_FALSE(now.sameFileAs(opened));  // how a reader notices the replacement

    // Abandoned replacements leave nothing behind: a second begin abandons the first, and so
    // does the end of the object.
    {
        FileReplacement r;
        ASSERT_TRUE(r.begin(path("t")).ok());
        ASSERT_TRUE(r.write("never seen").ok());
        const Str first = r.temporaryPath();
        EXPECT_TRUE(fileExists(first));
        ASSERT_TRUE(r.begin(path("u")).ok());
        EXPECT_FALSE(fileExists(first));
        EXPECT_TRUE(fileExists(r.temporaryPath()));
        EXPECT_EQ(others({"t"}).size(), 1u);  // the second one's only
    }
    EXPECT_EQ(contentsOf(path("t")), "new");
    EXPECT_TRUE(others({"t"}).empty());
}

TEST_F(FileSystemTest, FullDiskLeavesTheTargetWhole) {
    ASSERT_TRUE(replaceFileContents(path("target"), "old").ok());
    ASSERT_TRUE(replaceFileContents(path("big"), std::string_view(randomBytes(2 << 20, 2))).ok());
    const Str target = path("target"), big = path("big");
    const int status = inChild([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{1 << 20, 1 << 20};
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 10;
        if (replaceFileContents(target, std::string_view(randomBytes(2 << 20, 3))).error() != EFBIG)
            return 11;
        const Status copy = copyFile(big, target);
        if (copy.error() != EFBIG) return 12;
        // A file below the limit copies whole.
        if (!copyFile(target, Str(target).append(".copy")).ok()) return 13;
        return 0;
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(contentsOf(target), "old");
    EXPECT_TRUE(others({"target", "big", "target.copy"}).empty());
}

// A process killed at random moments while it replaces a file: the file is always one whole
// version, never a mixture or a cut.
TEST_F(FileSystemTest, KilledInTheMiddleOfAReplacement) {
    const std::string versions[] = {std::string(1 << 20, 'a'), std::string(3 << 20, 'b'),
                                    std::string(2 << 20, 'c')};
    ASSERT_TRUE(replaceFileContents(path("t"), std::string_view(versions[0])).ok());
    const Str target = path("t");
    std::mt19937 rng(4);
    int killedMidway = 0;
    for (int round = 0; round < 12; ++round) {
        int ready[2];
        ASSERT_EQ(::pipe(ready), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(ready[0]);
            if (::write(ready[1], "r", 1) != 1) _exit(2);
            for (unsigned i = 1;; ++i) {
                FileReplacement r;
                const std::string& v = versions[i % 3];
                if (!r.begin(target).ok()) _exit(3);
                for (std::size_t at = 0; at < v.size(); at += 65536) {
                    if (!r.write(std::string_view(v).substr(at, 65536)).ok()) _exit(4);
                }
                if (!r.commit().ok()) _exit(5);
            }
        }
        ::close(ready[1]);
        char c;
        ASSERT_EQ(::read(ready[0], &c, 1), 1);
        ::close(ready[0]);
        ::usleep(static_cast<useconds_t>(1000 + rng() % 40000));
        ASSERT_EQ(::kill(child, SIGKILL), 0);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the writer stopped by itself: " << status;
        const std::string now = contentsOf(target);
        const bool whole = now == versions[0] || now == versions[1] || now == versions[2];
        ASSERT_TRUE(whole) << "round " << round << ": " << now.size() << " bytes";
        // The debris a kill may leave: the temporary file, named after the target.
        for (const Str& name : others({"t"})) {
            EXPECT_TRUE(name.view().starts_with(".t.")) << name.c_str();
            ASSERT_TRUE(removeFile(path(name.c_str())).ok());
            ++killedMidway;
        }
    }
    EXPECT_GT(killedMidway, 0) << "no kill landed inside a replacement";
}

TEST_F(FileSystemTest, TemporaryFilesHonourTmpdir) {
    const char* saved = std::getenv("TMPDIR");
    const std::string savedValue = saved != nullptr ? saved : "";
    ASSERT_EQ(::setenv("TMPDIR", _dir.path().c_str(), 1), 0);
    EXPECT_EQ(temporaryDirectory(), _dir.path());
    FileDescriptor fd;
    Str name;
    ASSERT_TRUE(makeTemporaryFile(fd, name, "x.").ok());
    EXPECT_EQ(pathDirname(name).view(), _dir.path().view());
    EXPECT_TRUE(pathBasename(name).view().starts_with("x."));
    mode_t mode = 0;
    ASSERT_TRUE(filePermissions(name, mode).ok());
    EXPECT_EQ(mode, 0600u);
    ASSERT_EQ(::setenv("TMPDIR", "relative/dir", 1), 0);  // not absolute: ignored
    EXPECT_EQ(temporaryDirectory().view(), "/tmp");
    ASSERT_EQ(::setenv("TMPDIR", path("gone").c_str(), 1), 0);
    EXPECT_EQ(makeTemporaryFile(fd, name).error(), ENOENT);
    if (saved != nullptr) {
        ::setenv("TMPDIR", savedValue.c_str(), 1);
    } else {
        ::unsetenv("TMPDIR");
    }
}

TEST_F(FileSystemTest, SpaceAndTreeRemoval) {
    FileSystemSpace space;
    ASSERT_TRUE(fileSystemSpace(_dir.path(), space).ok());
    EXPECT_GT(space.total, 0u);
    EXPECT_LE(space.available, space.free);
    EXPECT_LE(space.free, space.total);
    EXPECT_EQ(fileSystemSpace(path("none"), space).error(), ENOENT);

    // A link inside the tree to a directory outside it: removed, never followed.
    TemporaryDirectory outside;
    ASSERT_TRUE(outside.create().ok());
    ASSERT_TRUE(replaceFileContents(outside / "keep", "k").ok());
    ASSERT_TRUE(makeDirectory(path("tree/a/b"), 0755, true).ok());
    ASSERT_TRUE(replaceFileContents(path("tree/a/b/f"), "f").ok());
    ASSERT_TRUE(replaceFileContents(path("tree/g"), "g").ok());
    ASSERT_EQ(::symlink(outside.path().c_str(), path("tree/a/out").c_str()), 0);
    ASSERT_TRUE(removeTree(path("tree")).ok());
    EXPECT_FALSE(fileExists(path("tree")));
    EXPECT_EQ(contentsOf(outside / "keep"), "k");
    EXPECT_TRUE(removeTree(path("tree")).ok());  // already gone: fine
}

}  // namespace
}  // namespace basicutil
