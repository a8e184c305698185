#include "basicutil/files/File.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "basicutil/platform/Assert.h"
#include "basicutil/platform/Platform.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/text/StrVector.h"

namespace basicutil {

namespace {

// Largest single read or write request: some systems refuse more than INT_MAX at once.
constexpr std::size_t kMaxTransfer = std::size_t{1} << 30;

FileType typeOfMode(mode_t mode) noexcept {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return FILE_TYPE_REGULAR;
        case S_IFDIR:
            return FILE_TYPE_DIRECTORY;
        case S_IFLNK:
            return FILE_TYPE_SYMLINK;
        case S_IFIFO:
            return FILE_TYPE_FIFO;
        case S_IFSOCK:
            return FILE_TYPE_SOCKET;
        case S_IFCHR:
            return FILE_TYPE_CHARACTER_DEVICE;
        case S_IFBLK:
            return FILE_TYPE_BLOCK_DEVICE;
        default:
            return FILE_TYPE_OTHER;
    }
}

void fillInfo(const struct stat& st, FileInfo& out) noexcept {
    out.type = typeOfMode(st.st_mode);
    out.size = st.st_size < 0 ? 0 : static_cast<std::uint64_t>(st.st_size);
    out.permissions = st.st_mode & 07777;
    out.device = st.st_dev;
    out.inode = st.st_ino;
    out.links = static_cast<std::uint64_t>(st.st_nlink);
    out.owner = st.st_uid;
    out.group = st.st_gid;
    out.modifiedSeconds = st.st_mtim.tv_sec;
    out.modifiedNanoseconds = st.st_mtim.tv_nsec;
}

Status statPath(StrSegment path, FileInfo& out, bool followLinks) {
    const Str p(path);
    struct stat st {};
    const int rc = followLinks ? ::stat(p.c_str(), &st) : ::lstat(p.c_str(), &st);
    if (rc != 0) {
        out = FileInfo{};
        return Status::fromErrno(followLinks ? "stat" : "lstat", path);
    }
    fillInfo(st, out);
    return {};
}

// stdio reports EINTR as an error on the stream; clear it and go on.
bool interruptedStream(std::FILE* file) noexcept {
    if (std::ferror(file) && errno == EINTR) {
        std::clearerr(file);
        return true;
    }
    return false;
}

// Calls f (which returns 0 or -1 with errno) again as long as a signal interrupts it.
template <typename F>
int retryInterrupted(F&& f) {
    int rc;
    do {
        rc = f();
    } while (rc != 0 && errno == EINTR);
    return rc;
}

// "e" asks for close-on-exec from both C libraries.
Str withCloseOnExec(const char* mode) {
    Str m(mode);
    if (std::char_traits<char>::find(mode, m.size(), 'e') == nullptr) m.push_back('e');
    return m;
}

}  // namespace

const char* fileTypeName(FileType type) noexcept {
    switch (type) {
        case FILE_TYPE_NONE:
            return "missing file";
        case FILE_TYPE_REGULAR:
            return "regular file";
        case FILE_TYPE_DIRECTORY:
            return "directory";
        case FILE_TYPE_SYMLINK:
            return "symbolic link";
        case FILE_TYPE_FIFO:
            return "fifo";
        case FILE_TYPE_SOCKET:
            return "socket";
        case FILE_TYPE_CHARACTER_DEVICE:
            return "character device";
        case FILE_TYPE_BLOCK_DEVICE:
            return "block device";
        case FILE_TYPE_OTHER:
            break;
    }
    return "special file";
}

Status fileInfo(StrSegment path, FileInfo& out) {
    return statPath(path, out, true);
}

Status linkInfo(StrSegment path, FileInfo& out) {
    return statPath(path, out, false);
}

// --- FileDescriptor ---

FileDescriptor::FileDescriptor(int fd, StrSegment path) noexcept : _fd(fd), _path(path) {}

FileDescriptor::~FileDescriptor() {
    // Nothing can be done with a failed close here; close() reports it to those who ask.
    if (_fd >= 0) static_cast<void>(::close(_fd));
}

FileDescriptor::FileDescriptor(FileDescriptor&& other) noexcept
    : _fd(std::exchange(other._fd, -1)), _path(std::move(other._path)) {}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
        if (_fd >= 0) static_cast<void>(::close(_fd));
        _fd = std::exchange(other._fd, -1);
        _path = std::move(other._path);
    }
    return *this;
}

Status FileDescriptor::open(StrSegment path, int flags, mode_t mode) {
    // Whatever was open before is closed first; close() first to see how that went.
    static_cast<void>(close());
    _path = Str(path);
    int fd;
    do {
        fd = ::open(_path.c_str(), flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        errno = platform::openErrno(AT_FDCWD, _path.c_str(), flags, errno);
        return Status::fromErrno("open", path);
    }
    _fd = fd;
    return {};
}

Status FileDescriptor::openAt(int directory, StrSegment name, int flags, mode_t mode) {
    // Whatever was open before is closed first; close() first to see how that went.
    static_cast<void>(close());
    _path = Str(name);
    int fd;
    do {
        fd = ::openat(directory, _path.c_str(), flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        errno = platform::openErrno(directory, _path.c_str(), flags, errno);
        return Status::fromErrno("openat", name);
    }
    _fd = fd;
    return {};
}

Status FileDescriptor::close() {
    if (_fd < 0) return {};
    // Never retried: after EINTR the descriptor is already released on both systems, and a
    // retry could close one another thread has just been given.
    const int rc = ::close(std::exchange(_fd, -1));
    if (rc != 0 && errno != EINTR) return Status::fromErrno("close", _path);
    return {};
}

int FileDescriptor::release() noexcept {
    return std::exchange(_fd, -1);
}

Status FileDescriptor::readSome(void* buffer, std::size_t size, std::size_t& got) {
    got = 0;
    ssize_t n;
    do {
        n = ::read(_fd, buffer, std::min(size, kMaxTransfer));
    } while (n < 0 && errno == EINTR);
    if (n < 0) return Status::fromErrno("read", _path);
    got = static_cast<std::size_t>(n);
    return {};
}

Status FileDescriptor::read(void* buffer, std::size_t size, std::size_t& got) {
    got = 0;
    auto* p = static_cast<char*>(buffer);
    while (got < size) {
        std::size_t n = 0;
        if (Status st = readSome(p + got, size - got, n); !st) return st;
        if (n == 0) break;
        got += n;
    }
    return {};
}

Status FileDescriptor::readAt(void* buffer, std::size_t size, std::uint64_t offset, std::size_t& got) {
    got = 0;
    auto* p = static_cast<char*>(buffer);
    while (got < size) {
        const ssize_t n =
            ::pread(_fd, p + got, std::min(size - got, kMaxTransfer), static_cast<off_t>(offset + got));
        if (n < 0) {
            if (errno == EINTR) continue;
            return Status::fromErrno("pread", _path);
        }
        if (n == 0) break;
        got += static_cast<std::size_t>(n);
    }
    return {};
}

Status FileDescriptor::readAll(Str& out, std::uint64_t limit) {
    // A regular file says its size, so most files take one allocation and two reads.
    struct stat st {};
    std::uint64_t chunk = 64 * 1024;
    if (::fstat(_fd, &st) != 0) return Status::fromErrno("fstat", _path);
    if (S_ISREG(st.st_mode) && st.st_size > 0) chunk = static_cast<std::uint64_t>(st.st_size) + 1;
    std::uint64_t total = 0;
    for (;;) {
        // One byte past the limit shows whether there is more.
        const std::uint64_t left = limit - total;
        const std::uint64_t room = left < chunk ? left + 1 : chunk;
        const size_type before = out.size();
        char* const p = out.appendUninitialized(room);
        std::size_t got = 0;
        Status st2 = read(p, static_cast<std::size_t>(room), got);
        out.resize(before + got);
        total += got;
        if (!st2) return st2;
        if (total > limit) {
            out.resize(out.size() - (total - limit));
            return Status::failure(EFBIG, strprintf("\"%s\": file larger than the limit", _path.view()));
        }
        if (got < room) return {};
        chunk = std::max<std::uint64_t>(chunk, 64 * 1024);
    }
}

Status FileDescriptor::write(const void* data, std::size_t size) {
    const auto* p = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t n = ::write(_fd, p, std::min(size, kMaxTransfer));
        if (n < 0) {
            if (errno == EINTR) continue;
            return Status::fromErrno("write", _path);
        }
        p += n;
        size -= static_cast<std::size_t>(n);
    }
    return {};
}

Status FileDescriptor::writeAt(const void* data, std::size_t size, std::uint64_t offset) {
    const auto* p = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t n = ::pwrite(_fd, p, std::min(size, kMaxTransfer), static_cast<off_t>(offset));
        if (n < 0) {
            if (errno == EINTR) continue;
            return Status::fromErrno("pwrite", _path);
        }
        p += n;
        offset += static_cast<std::uint64_t>(n);
        size -= static_cast<std::size_t>(n);
    }
    return {};
}

Status FileDescriptor::seek(std::int64_t offset, int whence, std::uint64_t* position) {
    const off_t at = ::lseek(_fd, static_cast<off_t>(offset), whence);
    if (at < 0) return Status::fromErrno("lseek", _path);
    if (position != nullptr) *position = static_cast<std::uint64_t>(at);
    return {};
}

Status FileDescriptor::truncate(std::uint64_t size) {
    if (retryInterrupted([&] { return ::ftruncate(_fd, static_cast<off_t>(size)); }) != 0)
        return Status::fromErrno("ftruncate", _path);
    return {};
}

Status FileDescriptor::sync() {
    if (retryInterrupted([&] { return ::fsync(_fd); }) != 0) return Status::fromErrno("fsync", _path);
    return {};
}

Status FileDescriptor::syncData() {
    if (retryInterrupted([&] { return ::fdatasync(_fd); }) != 0) return Status::fromErrno("fdatasync", _path);
    return {};
}

Status FileDescriptor::info(FileInfo& out) const {
    struct stat st {};
    if (::fstat(_fd, &st) != 0) {
        out = FileInfo{};
        return Status::fromErrno("fstat", _path);
    }
    fillInfo(st, out);
    return {};
}

Status FileDescriptor::setPermissions(mode_t mode) {
    if (::fchmod(_fd, mode) != 0) return Status::fromErrno("fchmod", _path);
    return {};
}

// --- FileStream ---

FileStream::~FileStream() {
    if (_file != nullptr) static_cast<void>(std::fclose(_file));
}

FileStream::FileStream(FileStream&& other) noexcept
    : _file(std::exchange(other._file, nullptr)), _path(std::move(other._path)) {}

FileStream& FileStream::operator=(FileStream&& other) noexcept {
    if (this != &other) {
        if (_file != nullptr) static_cast<void>(std::fclose(_file));
        _file = std::exchange(other._file, nullptr);
        _path = std::move(other._path);
    }
    return *this;
}

Status FileStream::open(StrSegment path, const char* mode) {
    // Whatever was open before is closed first; close() first to see how that went.
    static_cast<void>(close());
    _path = Str(path);
    const Str m = withCloseOnExec(mode);
    std::FILE* file;
    do {
        file = std::fopen(_path.c_str(), m.c_str());
    } while (file == nullptr && errno == EINTR);
    if (file == nullptr) return Status::fromErrno("fopen", path);
    _file = file;
    return {};
}

Status FileStream::adopt(FileDescriptor& fd, const char* mode) {
    // Whatever was open before is closed first; close() first to see how that went.
    static_cast<void>(close());
    _path = fd.path();
    std::FILE* file = ::fdopen(fd.get(), mode);
    if (file == nullptr) return Status::fromErrno("fdopen", _path);
    static_cast<void>(fd.release());
    _file = file;
    return {};
}

Status FileStream::close() {
    if (_file == nullptr) return {};
    if (std::fclose(std::exchange(_file, nullptr)) != 0) return Status::fromErrno("fclose", _path);
    return {};
}

Status FileStream::read(void* buffer, std::size_t size, std::size_t& got) {
    got = 0;
    auto* p = static_cast<char*>(buffer);
    while (got < size) {
        got += std::fread(p + got, 1, size - got, _file);
        if (got == size || std::feof(_file)) break;
        if (!interruptedStream(_file)) return Status::fromErrno("fread", _path);
    }
    return {};
}

Status FileStream::readLine(Str& line) {
    line.clear();
    ::flockfile(_file);
    for (;;) {
        const int c = getc_unlocked(_file);
        if (c == EOF) {
            if (std::feof(_file)) break;
            if (interruptedStream(_file)) continue;
            const int error = errno;
            ::funlockfile(_file);
            errno = error;
            return Status::fromErrno("getc", _path);
        }
        line.push_back(static_cast<char>(c));
        if (c == '\n') break;
    }
    ::funlockfile(_file);
    return {};
}

Status FileStream::write(const void* data, std::size_t size) {
    const auto* p = static_cast<const char*>(data);
    std::size_t done = 0;
    while (done < size) {
        done += std::fwrite(p + done, 1, size - done, _file);
        if (done == size) break;
        if (!interruptedStream(_file)) return Status::fromErrno("fwrite", _path);
    }
    return {};
}

Status FileStream::flush() {
    while (std::fflush(_file) != 0) {
        if (!interruptedStream(_file)) return Status::fromErrno("fflush", _path);
    }
    return {};
}

Status FileStream::sync() {
    if (Status st = flush(); !st) return st;
    if (retryInterrupted([&] { return ::fsync(::fileno(_file)); }) != 0)
        return Status::fromErrno("fsync", _path);
    return {};
}

// --- Directory ---

Directory::~Directory() {
    if (_dir != nullptr) static_cast<void>(::closedir(_dir));
}

Directory::Directory(Directory&& other) noexcept
    : _dir(std::exchange(other._dir, nullptr)), _path(std::move(other._path)) {}

Directory& Directory::operator=(Directory&& other) noexcept {
    if (this != &other) {
        if (_dir != nullptr) static_cast<void>(::closedir(_dir));
        _dir = std::exchange(other._dir, nullptr);
        _path = std::move(other._path);
    }
    return *this;
}

Status Directory::open(StrSegment path) {
    // Whatever was open before is closed first; close() first to see how that went.
    static_cast<void>(close());
    FileDescriptor fd;
    // Opened by descriptor so that it is close-on-exec from the start.
    if (Status st = fd.open(path, O_RDONLY | O_DIRECTORY); !st) return st;
    if (Status st = adopt(fd); !st) return st;
    return {};
}

Status Directory::openAt(const Directory& parent, StrSegment name) {
    VESTRA_ASSERT(parent.isOpen() && &parent != this);
    // Whatever was open before is closed first; close() first to see how that went.
    static_cast<void>(close());
    FileDescriptor fd;
    if (Status st = fd.openAt(parent.descriptor(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW); !st) {
        return st.within(parent._path);
    }
    Str path = parent._path;
    path.push_back('/');
    path.append(name);
    fd = FileDescriptor(fd.release(), path);
    if (Status st = adopt(fd); !st) return st;
    return {};
}

Status Directory::adopt(FileDescriptor& fd) {
    DIR* dir = ::fdopendir(fd.get());
    if (dir == nullptr) return Status::fromErrno("fdopendir", fd.path());
    _path = fd.path();
    static_cast<void>(fd.release());
    _dir = dir;
    return {};
}

Status Directory::close() {
    if (_dir == nullptr) return {};
    if (::closedir(std::exchange(_dir, nullptr)) != 0) return Status::fromErrno("closedir", _path);
    return {};
}

int Directory::descriptor() const noexcept {
    return _dir == nullptr ? -1 : ::dirfd(_dir);
}

bool Directory::next(DirectoryEntry& entry, Status& status) {
    status = Status();
    for (;;) {
        errno = 0;
        const struct dirent* d = ::readdir(_dir);
        if (d == nullptr) {
            if (errno != 0) status = Status::fromErrno("readdir", _path);
            return false;
        }
        const char* const name = d->d_name;
        if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) continue;
        entry.name = name;
        switch (d->d_type) {
            case DT_REG:
                entry.type = FILE_TYPE_REGULAR;
                break;
            case DT_DIR:
                entry.type = FILE_TYPE_DIRECTORY;
                break;
            case DT_LNK:
                entry.type = FILE_TYPE_SYMLINK;
                break;
            case DT_FIFO:
                entry.type = FILE_TYPE_FIFO;
                break;
            case DT_SOCK:
                entry.type = FILE_TYPE_SOCKET;
                break;
            case DT_CHR:
                entry.type = FILE_TYPE_CHARACTER_DEVICE;
                break;
            case DT_BLK:
                entry.type = FILE_TYPE_BLOCK_DEVICE;
                break;
            default: {
                // Some file systems do not say; ask the inode.
                struct stat st {};
                if (::fstatat(::dirfd(_dir), name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
                    if (errno == ENOENT) continue;  // removed since readdir saw it
                    status = Status::fromErrno("fstatat", entry.name);
                    return false;
                }
                entry.type = typeOfMode(st.st_mode);
            }
        }
        return true;
    }
}

Status listDirectory(StrSegment path, std::vector<Str>& names) {
    names.clear();
    Directory dir;
    if (Status st = dir.open(path); !st) return st;
    DirectoryEntry entry;
    Status st;
    while (dir.next(entry, st)) names.push_back(std::move(entry.name));
    if (!st) return st;
    sortStrVector(names);
    return dir.close();
}

}  // namespace basicutil
