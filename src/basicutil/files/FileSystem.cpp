#include "basicutil/files/FileSystem.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <utility>

#include "basicutil/files/FileSystem_details.h"
#include "basicutil/files/Pathname.h"
#include "basicutil/files/Pathname_details.h"
#include "basicutil/platform/Assert.h"
#include "basicutil/platform/Platform.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/text/SimpleRandomNumber.h"

namespace basicutil {

namespace {

// The buffered copy's block: large enough that the calls cost nothing beside the data.
constexpr std::size_t kCopyBlockBytes = 1 << 20;
// copy_file_range is asked for this much at a time, so that a huge file is not one long call.
constexpr std::size_t kCopyRangeBytes = std::size_t{1} << 30;

// "<operation>: \"a\" -> \"b\"", the prefix of a compound operation's failures.
Str operationBetween(const Str& operation, StrSegment source, StrSegment destination) {
    Str text(operation);
    text.append(": \"");
    text.append(source);
    text.append("\" -> \"");
    text.append(destination);
    text.push_back('"');
    return text;
}

Status syncDirectoryOf(StrSegment path) {
    FileDescriptor dir;
    if (Status st = dir.open(pathDirname(path), O_RDONLY | O_DIRECTORY); !st) return st;
    if (Status st = dir.sync(); !st) return st;
    return dir.close();
}

Status setModifiedTime(const FileDescriptor& fd, const FileInfo& from) {
    struct timespec times[2];
    times[0].tv_sec = 0;
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = static_cast<time_t>(from.modifiedSeconds);
    times[1].tv_nsec = static_cast<long>(from.modifiedNanoseconds);
    if (::futimens(fd.get(), times) != 0) return Status::fromErrno("futimens", fd.path());
    return {};
}

// Attempts at a fresh temporary name before giving up (each collides with probability 2^-60).
constexpr int kTemporaryNameAttempts = 16;

// "<dir>/<prefix>" and twelve characters of 32 (5 bits each) from the kernel's random bytes.
Status temporaryName(StrSegment prefix, StrSegment directory, Str& out) {
    static constexpr char kAlphabet[] = "abcdefghijkmnpqrstuvwxyz23456789";  // no look-alikes
    std::uint64_t bits = 0;
    if (Status st = secureRandomBytes(&bits, sizeof bits); !st) return st;
    out = pathJoin(directory.empty() ? StrSegment(temporaryDirectory()) : directory, prefix);
    for (int i = 0; i < 12; ++i, bits >>= 5) out.push_back(kAlphabet[bits & 31]);
    return {};
}

}  // namespace

// --- Permissions and facts ---

Status filePermissions(StrSegment path, mode_t& permissions) {
    FileInfo info;
    Status st = fileInfo(path, info);
    permissions = info.permissions;
    return st;
}

Status setFilePermissions(StrSegment path, mode_t permissions) {
    const Str p(path);
    if (::chmod(p.c_str(), permissions) != 0) return Status::fromErrno("chmod", path);
    return {};
}

Status checkAccess(StrSegment path, unsigned access) {
    VESTRA_ASSERT(access <= (ACCESS_READ | ACCESS_WRITE | ACCESS_EXECUTE));
    const Str p(path);
    if (::faccessat(AT_FDCWD, p.c_str(), static_cast<int>(access), AT_EACCESS) != 0) {
        return Status::fromErrno("access", path);
    }
    return {};
}

Status fileSystemSpace(StrSegment path, FileSystemSpace& out) {
    const Str p(path);
    struct statvfs vfs {};
    out = FileSystemSpace{};
    if (::statvfs(p.c_str(), &vfs) != 0) return Status::fromErrno("statvfs", path);
    const std::uint64_t unit = vfs.f_frsize != 0 ? vfs.f_frsize : vfs.f_bsize;
    out.total = static_cast<std::uint64_t>(vfs.f_blocks) * unit;
    out.available = static_cast<std::uint64_t>(vfs.f_bavail) * unit;
    out.free = static_cast<std::uint64_t>(vfs.f_bfree) * unit;
    return {};
}

Status sameFile(StrSegment a, StrSegment b, bool& same) {
    same = false;
    FileInfo x, y;
    if (Status st = fileInfo(a, x); !st) return st;
    if (Status st = fileInfo(b, y); !st) return st;
    same = x.sameFileAs(y);
    return {};
}

Status sameDevice(StrSegment a, StrSegment b, bool& same) {
    same = false;
    FileInfo x, y;
    if (Status st = fileInfo(a, x); !st) return st;
    if (Status st = fileInfo(b, y); !st) return st;
    same = x.device == y.device;
    return {};
}

bool fileExists(StrSegment path) {
    FileInfo info;
    return linkInfo(path, info).ok();
}

// --- Directories and removal ---

Status makeDirectory(StrSegment path, mode_t mode, bool parents) {
    const Str p(path);
    if (::mkdir(p.c_str(), mode) == 0) return {};
    const int error = errno;
    if (!parents) return Status::fromErrno("mkdir", path);
    if (error == EEXIST) {
        FileInfo info;
        if (fileInfo(path, info).ok() && info.type == FILE_TYPE_DIRECTORY) return {};
        errno = EEXIST;
        return Status::fromErrno("mkdir", path);
    }
    if (error != ENOENT) {
        errno = error;
        return Status::fromErrno("mkdir", path);
    }
    const StrSegment parent = pathDirname(path);
    if (parent.size() >= path.size()) {  // nothing left to make: "/" or "."
        errno = error;
        return Status::fromErrno("mkdir", path);
    }
    if (Status st = makeDirectory(parent, mode, true); !st) return st;
    if (::mkdir(p.c_str(), mode) == 0 || errno == EEXIST) return {};
    return Status::fromErrno("mkdir", path);
}

Status removeFile(StrSegment path) {
    const Str p(path);
    if (::unlink(p.c_str()) != 0) return Status::fromErrno("unlink", path);
    return {};
}

Status removeDirectory(StrSegment path) {
    const Str p(path);
    if (::rmdir(p.c_str()) != 0) return Status::fromErrno("rmdir", path);
    return {};
}

namespace {

// Empties the directory open as `dir` (whose path is `path`, for texts), depth first. Entries
// are opened relative to their parent, so a rename above does not send the walk elsewhere.
Status removeContents(Directory& dir, const Str& path) {
    DirectoryEntry entry;
    Status st;
    while (dir.next(entry, st)) {
        const Str child = pathJoin(path, entry.name);
        if (entry.type == FILE_TYPE_DIRECTORY) {
            Directory subdir;
            if (Status open = subdir.openAt(dir, entry.name); !open) return open;
            if (Status inner = removeContents(subdir, child); !inner) return inner;
            if (Status closed = subdir.close(); !closed) return closed;
            if (::unlinkat(dir.descriptor(), entry.name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) {
                return Status::fromErrno("rmdir", child);
            }
        } else if (::unlinkat(dir.descriptor(), entry.name.c_str(), 0) != 0 && errno != ENOENT) {
            return Status::fromErrno("unlink", child);
        }
    }
    return st;
}

}  // namespace

Status removeTree(StrSegment path) {
    FileInfo info;
    if (Status st = linkInfo(path, info); !st) return st.error() == ENOENT ? Status() : st;
    if (info.type != FILE_TYPE_DIRECTORY) return removeFile(path);
    Directory dir;
    if (Status st = dir.open(path); !st) return st;
    if (Status st = removeContents(dir, Str(path)); !st) return st;
    if (Status st = dir.close(); !st) return st;
    return removeDirectory(path);
}

// --- Temporary files ---

Str temporaryDirectory() {
    // Read once per call: a program that changes TMPDIR later is obeyed.
    const char* tmpdir = std::getenv("TMPDIR");
    if (tmpdir != nullptr && tmpdir[0] == '/') return Str(tmpdir);
    return Str("/tmp");
}

Status makeTemporaryFile(FileDescriptor& fd, Str& path, StrSegment prefix, StrSegment directory) {
    Status st;
    for (int attempt = 0; attempt < kTemporaryNameAttempts; ++attempt) {
        Str name;
        if (st = temporaryName(prefix, directory, name); !st) return st;
        FileDescriptor made;
        st = made.open(name, O_RDWR | O_CREAT | O_EXCL, 0600);
        if (st.ok()) {
            fd = std::move(made);
            path = std::move(name);
            return {};
        }
        if (st.error() != EEXIST) return st;
    }
    return st;
}

Status makeTemporaryDirectory(Str& path, StrSegment prefix, StrSegment directory) {
    Status st;
    for (int attempt = 0; attempt < kTemporaryNameAttempts; ++attempt) {
        Str name;
        if (st = temporaryName(prefix, directory, name); !st) return st;
        if (::mkdir(name.c_str(), 0700) == 0) {
            path = std::move(name);
            return {};
        }
        st = Status::fromErrno("mkdir", name);
        if (st.error() != EEXIST) return st;
    }
    return st;
}

TemporaryDirectory::~TemporaryDirectory() {
    static_cast<void>(remove());
}

Status TemporaryDirectory::create(StrSegment prefix, StrSegment directory) {
    static_cast<void>(remove());  // a directory made before is let go first
    return makeTemporaryDirectory(_path, prefix, directory);
}

Status TemporaryDirectory::remove() {
    if (_path.empty()) return {};
    Status st = removeTree(_path);
    _path.clear();
    return st;
}

Str TemporaryDirectory::operator/(StrSegment name) const {
    return pathJoin(_path, name);
}

// --- Replacement ---

FileReplacement::~FileReplacement() {
    abandon();
}

Status FileReplacement::begin(StrSegment target, mode_t mode) {
    abandon();
    StrSegment directory, base;
    pathSplit(target, directory, base);
    Str prefix(".");
    prefix.append(base);
    prefix.push_back('.');
    FileDescriptor fd;
    Str temporary;
    if (Status st = makeTemporaryFile(fd, temporary, prefix, directory); !st) return st;
    FileInfo old;
    const Status existing = fileInfo(target, old);
    Status st = fd.setPermissions(existing.ok() ? old.permissions : mode);
    if (!st) {
        static_cast<void>(::unlink(temporary.c_str()));
        return st;
    }
    _fd = std::move(fd);
    _target = Str(target);
    _temporary = std::move(temporary);
    return {};
}

Status FileReplacement::write(StrSegment data) {
    VESTRA_ASSERT(_fd.isOpen());
    Status st = _fd.write(data);
    if (!st) abandon();
    return st;
}

Status FileReplacement::commit(bool sync) {
    VESTRA_ASSERT(_fd.isOpen());
    Status st;
    if (sync) st = _fd.sync();
    if (st) st = _fd.close();
    if (st && ::rename(_temporary.c_str(), _target.c_str()) != 0) st = Status::fromErrno("rename", _target);
    if (!st) {
        abandon();
        return st;
    }
    _temporary.clear();
    const Str target = std::move(_target);
    _target.clear();
    return sync ? syncDirectoryOf(target) : Status();
}

void FileReplacement::abandon() noexcept {
    static_cast<void>(_fd.close());
    // Whatever the outcome, the temporary name is no longer ours to use.
    if (!_temporary.empty()) static_cast<void>(::unlink(_temporary.c_str()));
    _temporary.clear();
    _target.clear();
}

Status replaceFileContents(StrSegment target, StrSegment contents, mode_t mode) {
    FileReplacement replacement;
    Status st = replacement.begin(target, mode);
    if (st) st = replacement.write(contents);
    if (st) st = replacement.commit();
    return st;
}

// --- Copy, link, move ---

namespace file_details {

Status copyData(FileDescriptor& in, FileDescriptor& out, bool allowKernelCopy) {
    // The kernel copy is asked for the rest of the file as it is now, never more: FreeBSD holds
    // the requested length against RLIMIT_FSIZE. Whatever the file gains meanwhile, and
    // everything when the kernel cannot copy this pair, goes through the buffer.
    std::uint64_t remaining = 0;
    if (allowKernelCopy) {
        FileInfo info;
        const off_t position = ::lseek(in.get(), 0, SEEK_CUR);
        if (position >= 0 && in.info(info) && info.type == FILE_TYPE_REGULAR &&
            info.size > static_cast<std::uint64_t>(position)) {
            remaining = info.size - static_cast<std::uint64_t>(position);
        }
    }
    bool copiedAny = false;
    while (remaining > 0) {
        const long long n =
            platform::copyFileRange(in.get(), out.get(), std::min<std::uint64_t>(remaining, kCopyRangeBytes));
        if (n > 0) {
            copiedAny = true;
            remaining -= std::min(remaining, static_cast<std::uint64_t>(n));
            continue;
        }
        if (n == 0) break;  // the file got shorter: the buffer finds its end
        if (errno == EINTR) continue;
        // Refused for this pair before anything moved: the buffer loop does the same job.
        if (!copiedAny && (errno == ENOSYS || errno == EXDEV || errno == EINVAL || errno == EOPNOTSUPP ||
                           errno == ETXTBSY || errno == EPERM)) {
            break;
        }
        return Status::fromErrno("copy_file_range", out.path());
    }
    // Usually the end of the file at once: one byte's read tells without the block's allocation.
    char first = 0;
    std::size_t got = 0;
    if (Status st = in.readSome(&first, 1, got); !st) return st;
    if (got == 0) return {};
    if (Status st = out.write(&first, 1); !st) return st;
    std::unique_ptr<char[]> buffer(new char[kCopyBlockBytes]);
    for (;;) {
        if (Status st = in.readSome(buffer.get(), kCopyBlockBytes, got); !st) return st;
        if (got == 0) return {};
        if (Status st = out.write(buffer.get(), got); !st) return st;
    }
}

}  // namespace file_details

namespace {

Status copyInto(StrSegment source, StrSegment destination, unsigned options) {
    FileDescriptor in;
    if (Status st = in.open(source, O_RDONLY); !st) return st;
    FileInfo info;
    if (Status st = in.info(info); !st) return st;
    if (info.type != FILE_TYPE_REGULAR) {
        return Status::failure(
            info.type == FILE_TYPE_DIRECTORY ? EISDIR : EINVAL,
            strprintf("\"%s\": not a regular file but a %s", source.view(), fileTypeName(info.type)));
    }
    if ((options & COPY_NO_OVERWRITE) != 0 && fileExists(destination)) {
        errno = EEXIST;
        return Status::fromErrno("open", destination);
    }
    FileReplacement replacement;
    if (Status st = replacement.begin(destination, info.permissions); !st) return st;
    if ((options & COPY_SOURCE_PERMISSIONS) != 0) {
        if (Status st = replacement.descriptor().setPermissions(info.permissions); !st) return st;
    }
    if (Status st = file_details::copyData(in, replacement.descriptor(), true); !st) return st;
    if ((options & COPY_KEEP_TIMES) != 0) {
        if (Status st = setModifiedTime(replacement.descriptor(), info); !st) return st;
    }
    if ((options & COPY_NO_OVERWRITE) != 0) {
        // Linked in rather than renamed, so that a file made meanwhile is not overwritten.
        if ((options & COPY_SYNC) != 0) {
            if (Status st = replacement.descriptor().sync(); !st) return st;
        }
        const Str destinationPath(destination);
        if (::link(replacement.temporaryPath().c_str(), destinationPath.c_str()) != 0) {
            return Status::fromErrno("link", destination);
        }
        replacement.abandon();
        return (options & COPY_SYNC) != 0 ? syncDirectoryOf(destination) : Status();
    }
    return replacement.commit((options & COPY_SYNC) != 0);
}

}  // namespace

Status copyFile(StrSegment source, StrSegment destination, unsigned options) {
    Status st = copyInto(source, destination, options);
    return st.within(operationBetween(copyingOperationText(), source, destination));
}

Status hardLink(StrSegment source, StrSegment destination) {
    const Str from(source), to(destination);
    Status st;
    if (::link(from.c_str(), to.c_str()) != 0) st = Status::fromErrno("link", destination);
    return st.within(operationBetween(hardLinkingOperationText(), source, destination));
}

namespace file_details {

Status moveByCopy(StrSegment source, StrSegment destination) {
    FileInfo info;
    if (Status st = linkInfo(source, info); !st) return st;
    if (info.type != FILE_TYPE_REGULAR) {
        return Status::failure(EXDEV, strprintf("\"%s\": cannot move a %s across file systems", source.view(),
                                                fileTypeName(info.type)));
    }
    if (Status st = copyInto(source, destination, COPY_SYNC | COPY_KEEP_TIMES | COPY_SOURCE_PERMISSIONS);
        !st) {
        return st;
    }
    return removeFile(source);
}

}  // namespace file_details

Status moveFile(StrSegment source, StrSegment destination) {
    const Str from(source), to(destination);
    Status st;
    if (::rename(from.c_str(), to.c_str()) != 0) {
        st = errno == EXDEV ? file_details::moveByCopy(source, destination)
                            : Status::fromErrno("rename", destination);
    }
    return st.within(operationBetween(movingOperationText(), source, destination));
}

}  // namespace basicutil
