#include "basicutil/files/File.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <map>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "basicutil/files/FileSystem.h"

namespace basicutil {
namespace {

class FileTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(_dir.create("vestra-file-test.").ok()); }
    Str path(const char* name) const { return _dir / name; }
    TemporaryDirectory _dir;
};

TEST_F(FileTest, FailuresNameTheCallThePathAndTheError) {
    FileDescriptor fd;
    const Str missing = path("no/such/file");
    Status st = fd.open(missing, O_RDONLY);
    EXPECT_FALSE(st.ok());
    EXPECT_EQ(st.error(), ENOENT);
    EXPECT_EQ(st.text().view(), "open \"" + std::string(missing.view()) + "\": No such file or directory");
    EXPECT_FALSE(fd.isOpen());

    FileInfo info;
    st = fileInfo(missing, info);
    EXPECT_EQ(st.error(), ENOENT);
    EXPECT_EQ(info.type, FILE_TYPE_NONE);

    // A compound operation puts its name in front.
    st.within("loading the configuration");
    EXPECT_EQ(st.text().view().substr(0, 33), "loading the configuration: stat \"");
    Status fine;
    fine.within("ignored on success");
    EXPECT_TRUE(fine.ok());
    EXPECT_TRUE(fine.text().empty());
}

TEST_F(FileTest, DescriptorReadsWritesAndOwns) {
    FileDescriptor fd;
    ASSERT_TRUE(fd.open(path("a"), O_RDWR | O_CREAT | O_EXCL, 0640).ok());
    EXPECT_NE(::fcntl(fd.get(), F_GETFD) & FD_CLOEXEC, 0);
    ASSERT_TRUE(fd.write("hello, world").ok());
    ASSERT_TRUE(fd.writeAt("W", 1, 7).ok());
    char buf[32];
    std::size_t got = 0;
    ASSERT_TRUE(fd.readAt(buf, sizeof buf, 0, got).ok());
    EXPECT_EQ(std::string(buf, got), "hello, World");
    ASSERT_TRUE(fd.truncate(5).ok());
    std::uint64_t position = 99;
    ASSERT_TRUE(fd.seek(0, SEEK_SET, &position).ok());
    EXPECT_EQ(position, 0u);
    Str all;
    ASSERT_TRUE(fd.readAll(all).ok());
    EXPECT_EQ(all.view(), "hello");
    FileInfo info;
    ASSERT_TRUE(fd.info(info).ok());
    EXPECT_EQ(info.type, FILE_TYPE_REGULAR);
    EXPECT_EQ(info.size, 5u);
    const mode_t mask = ::umask(0);  // read, then put back
    ::umask(mask);
    EXPECT_EQ(info.permissions, 0640u & ~mask);
    ASSERT_TRUE(fd.sync().ok());
    ASSERT_TRUE(fd.syncData().ok());

    // Moving hands the descriptor over; the moved-from object owns nothing.
    const int raw = fd.get();
    FileDescriptor other(std::move(fd));
    EXPECT_EQ(other.get(), raw);
    EXPECT_FALSE(fd.isOpen());  // NOLINT(bugprone-use-after-move): the documented state
    ASSERT_TRUE(other.close().ok());
    EXPECT_EQ(::fcntl(raw, F_GETFD), -1);  // really closed
    ASSERT_TRUE(other.close().ok());       // and a second close is harmless

    // A limit stops readAll with the first `limit` bytes kept.
    ASSERT_TRUE(fd.open(path("a"), O_RDONLY).ok());
    all.clear();
    const Status st = fd.readAll(all, 3);
    EXPECT_EQ(st.error(), EFBIG);
    EXPECT_EQ(all.view(), "hel");
}

std::atomic<int> g_signals{0};
void countSignal(int) {
    g_signals.fetch_add(1);
}

// A pipe delivers a little at a time and a signal interrupts the blocked read: read() still
// returns exactly what was asked for.
TEST_F(FileTest, ReadsCompleteAcrossShortReadsAndSignals) {
    g_signals.store(0);
    struct sigaction action {};
    action.sa_handler = countSignal;  // no SA_RESTART: the read fails with EINTR
    struct sigaction old {};
    ASSERT_EQ(::sigaction(SIGUSR1, &action, &old), 0);
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    FileDescriptor in(fds[0], "pipe"), out(fds[1], "pipe");
    const pthread_t reader = ::pthread_self();
    std::thread writer([&] {
        for (int i = 0; i < 10; ++i) {
            ::usleep(2000);
            // One signal at a time: a second one sent while the first is still pending would
            // merge with it (on a loaded machine the reader may not run for a while).
            const int before = g_signals.load();
            ::pthread_kill(reader, SIGUSR1);
            while (g_signals.load() == before) ::usleep(100);
            ::usleep(2000);
            ASSERT_TRUE(out.write("0123456789").ok());
        }
        ASSERT_TRUE(out.close().ok());
    });
    char buf[100];
    std::size_t got = 0;
    const Status st = in.read(buf, sizeof buf, got);
    writer.join();
    ASSERT_EQ(::sigaction(SIGUSR1, &old, nullptr), 0);
    ASSERT_TRUE(st.ok()) << st.text().c_str();
    EXPECT_EQ(got, 100u);
    EXPECT_EQ(g_signals.load(), 10);
    ASSERT_TRUE(in.read(buf, sizeof buf, got).ok());
    EXPECT_EQ(got, 0u);  // the end
}

TEST_F(FileTest, StreamLinesAndErrors) {
    FileStream out;
    ASSERT_TRUE(out.open(path("lines"), "w").ok());
    EXPECT_NE(::fcntl(::fileno(out.get()), F_GETFD) & FD_CLOEXEC, 0);
    ASSERT_TRUE(out.write(std::string_view("one\n\ntwo\0x\nlast", 15)).ok());
    ASSERT_TRUE(out.sync().ok());
    ASSERT_TRUE(out.close().ok());

    FileStream in;
    ASSERT_TRUE(in.open(path("lines"), "r").ok());
    const std::string expected[] = {"one\n", "\n", std::string("two\0x\n", 6), "last", ""};
    for (const std::string& line : expected) {
        Str got;
        ASSERT_TRUE(in.readLine(got).ok());
        EXPECT_EQ(got.view(), line);
    }
    ASSERT_TRUE(in.close().ok());

    FileDescriptor fd;
    ASSERT_TRUE(fd.open(path("lines"), O_RDONLY).ok());
    FileStream adopted;
    ASSERT_TRUE(adopted.adopt(fd, "r").ok());
    EXPECT_FALSE(fd.isOpen());
    char buf[64];
    std::size_t got = 0;
    ASSERT_TRUE(adopted.read(buf, sizeof buf, got).ok());
    EXPECT_EQ(got, 15u);

    // Writing to a stream opened for reading fails at the write, with the path in the text.
    FileStream readOnly;
    ASSERT_TRUE(readOnly.open(path("lines"), "r").ok());
    const Status st = readOnly.write("x");
    if (st.ok()) {
        EXPECT_FALSE(readOnly.flush().ok());
    } else {
        EXPECT_NE(st.text().view().find("lines"), std::string_view::npos);
    }
}

TEST_F(FileTest, DirectoryListsEntriesWithTheirTypes) {
    ASSERT_TRUE(replaceFileContents(path("file"), "x").ok());
    ASSERT_TRUE(makeDirectory(path("sub")).ok());
    ASSERT_EQ(::symlink("file", path("link").c_str()), 0);
    ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);

    std::vector<Str> names;
    ASSERT_TRUE(listDirectory(_dir.path(), names).ok());
    EXPECT_EQ(names, (std::vector<Str>{"fifo", "file", "link", "sub"}));

    Directory dir;
    ASSERT_TRUE(dir.open(_dir.path()).ok());
    DirectoryEntry entry;
    Status st;
    std::map<std::string, FileType> types;
    while (dir.next(entry, st)) types[std::string(entry.name.view())] = entry.type;
    ASSERT_TRUE(st.ok());
    EXPECT_EQ(types, (std::map<std::string, FileType>{{"fifo", FILE_TYPE_FIFO},
                                                      {"file", FILE_TYPE_REGULAR},
                                                      {"link", FILE_TYPE_SYMLINK},
                                                      {"sub", FILE_TYPE_DIRECTORY}}));
    Directory sub;
    ASSERT_TRUE(sub.openAt(dir, "sub").ok());
    EXPECT_FALSE(sub.next(entry, st));
    EXPECT_TRUE(st.ok());
    // A link is not followed by openAt, nor by O_NOFOLLOW: ELOOP on every platform.
    Directory viaLink;
    EXPECT_EQ(viaLink.openAt(dir, "link").error(), ELOOP);
    FileDescriptor linkFd;
    EXPECT_EQ(linkFd.open(path("link"), O_RDONLY | O_NOFOLLOW).error(), ELOOP);
    ASSERT_EQ(::symlink("sub", path("dirlink").c_str()), 0);
    EXPECT_EQ(viaLink.openAt(dir, "dirlink").error(), ELOOP);
    EXPECT_EQ(linkFd.open(path("dirlink"), O_RDONLY | O_DIRECTORY | O_NOFOLLOW).error(), ELOOP);

    EXPECT_EQ(listDirectory(path("file"), names).error(), ENOTDIR);
    EXPECT_TRUE(names.empty());
}

}  // namespace
}  // namespace basicutil
