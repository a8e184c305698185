// Files: an owning descriptor, a FILE stream, directory iteration, and the status every file
// operation returns.
//
//   FileDescriptor fd;
//   if (Status st = fd.open("/etc/hosts", O_RDONLY); !st) return report(st.text());
//   Str text;
//   if (Status st = fd.readAll(text); !st) ...      // "read \"/etc/hosts\": I/O error"
//
// Descriptors are opened close-on-exec. Calls interrupted by a signal (EINTR) are retried, and
// short reads and writes are continued until the whole request is done or the file ends. A
// failure never throws: it comes back as a Status holding errno and a text that names the call
// and the path (`<call> "<path>": <strerror>`), with the operation in front when a compound
// operation failed ("moving source to destination: \"a\" -> \"b\": ...").
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <vector>

#include "basicutil/text/Status.h"
#include "basicutil/text/Str.h"

namespace basicutil {

// What kind of file a path names (without following a last symbolic link where the call says).
enum FileType : unsigned char {
    FILE_TYPE_NONE,  // missing
    FILE_TYPE_REGULAR,
    FILE_TYPE_DIRECTORY,
    FILE_TYPE_SYMLINK,
    FILE_TYPE_FIFO,
    FILE_TYPE_SOCKET,
    FILE_TYPE_CHARACTER_DEVICE,
    FILE_TYPE_BLOCK_DEVICE,
    FILE_TYPE_OTHER,
};
// "regular file", "directory", ... for messages.
const char* fileTypeName(FileType type) noexcept;

// What stat(2) says about a file, in portable types.
struct FileInfo {
    FileType type = FILE_TYPE_NONE;        // FILE_TYPE_NONE: missing
    std::uint64_t size = 0;                // bytes
    mode_t permissions = 0;                // the 07777 bits
    dev_t device = 0;                      // the file system's device
    ino_t inode = 0;                       // the file's number on it
    std::uint64_t links = 0;               // hard links
    uid_t owner = 0;                       // user id
    gid_t group = 0;                       // group id
    std::int64_t modifiedSeconds = 0;      // last data change, seconds since the epoch
    std::int64_t modifiedNanoseconds = 0;  // ... and nanoseconds within that second

    // The same file: same device and inode.
    bool sameFileAs(const FileInfo& other) const noexcept {
        return device == other.device && inode == other.inode;
    }
};

// An owning file descriptor: closed on destruction (a close failure there cannot be reported;
// call close() to see it). It remembers the path it was opened with, for error texts.
class FileDescriptor {
  public:
    FileDescriptor() noexcept = default;  // none open
    // Adopts fd; `path` is only for error texts.
    explicit FileDescriptor(int fd, StrSegment path = "") noexcept;

    // Closes what is open. Moving hands the descriptor over and leaves the source with none.
    ~FileDescriptor();
    FileDescriptor(FileDescriptor&& other) noexcept;
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    // open(2) with O_CLOEXEC added. What was open before is closed first, and how that went is
    // not reported (call close() first to see it). O_NOFOLLOW refusing a symbolic link is ELOOP
    // on every platform (FreeBSD's own EMLINK is translated).
    Status open(StrSegment path, int flags, mode_t mode = 0666);
    // openat(2): `name` relative to the open directory `directory` (a descriptor).
    Status openAt(int directory, StrSegment name, int flags, mode_t mode = 0666);
    Status close();  // close(2), reported; nothing is open afterwards either way
    // Gives up ownership: returns the descriptor (-1 if none) and forgets it.
    int release() noexcept;

    // Whether a descriptor is open, the descriptor (-1 if none), and the path it was opened
    // with.
    bool isOpen() const noexcept { return _fd >= 0; }
    int get() const noexcept { return _fd; }
    const Str& path() const noexcept { return _path; }

    // Reads until `size` bytes or the end of the file; `got` says how many came.
    Status read(void* buffer, std::size_t size, std::size_t& got);
    // One read(2), retried only on EINTR: what a pipe or terminal has now.
    Status readSome(void* buffer, std::size_t size, std::size_t& got);
    // Like read, at `offset`, leaving the file position alone.
    Status readAt(void* buffer, std::size_t size, std::uint64_t offset, std::size_t& got);
    // Appends the rest of the file to `out`. More than `limit` bytes is an error (EFBIG), with
    // the first `limit` bytes appended.
    Status readAll(Str& out, std::uint64_t limit = std::uint64_t{1} << 40);
    // Writes all of it, or fails (a full disk, RLIMIT_FSIZE).
    Status write(const void* data, std::size_t size);
    Status write(StrSegment text) { return write(text.data(), static_cast<std::size_t>(text.size())); }
    // Like write, at `offset`, leaving the file position alone.
    Status writeAt(const void* data, std::size_t size, std::uint64_t offset);

    // lseek(2); the new position in `position` when asked.
    Status seek(std::int64_t offset, int whence, std::uint64_t* position = nullptr);
    // ftruncate(2): cuts or extends (with zeros) to `size` bytes.
    Status truncate(std::uint64_t size);
    Status sync();      // fsync: data and metadata are on the disk
    Status syncData();  // fdatasync: data, and the metadata needed to read it back
    // fstat(2) of the open file.
    Status info(FileInfo& out) const;
    // fchmod(2): the 07777 bits.
    Status setPermissions(mode_t mode);

  private:
    int _fd = -1;
    Str _path;
};

// A FILE stream, closed on destruction. Opened close-on-exec; reads and writes go on after a
// signal interrupts them.
class FileStream {
  public:
    FileStream() noexcept = default;  // none open

    // Closes what is open. Moving hands the stream over and leaves the source with none.
    ~FileStream();
    FileStream(FileStream&& other) noexcept;
    FileStream& operator=(FileStream&& other) noexcept;
    FileStream(const FileStream&) = delete;
    FileStream& operator=(const FileStream&) = delete;

    // `mode` as for fopen ("r", "w", "a", with "+" or "b"); "e" (close-on-exec) is added.
    Status open(StrSegment path, const char* mode);
    // Takes over an open descriptor (released from `fd` only on success).
    Status adopt(FileDescriptor& fd, const char* mode);
    Status close();  // fclose: buffered data is written, and its failure reported

    // Whether a stream is open, the stream (null if none), and the path it was opened with.
    bool isOpen() const noexcept { return _file != nullptr; }
    std::FILE* get() const noexcept { return _file; }
    const Str& path() const noexcept { return _path; }

    // Up to `size` bytes; fewer only at the end of the file.
    Status read(void* buffer, std::size_t size, std::size_t& got);
    // The next line with its "\n" (none on a last line without one) in place of `line`; at the
    // end of the file `line` is empty.
    Status readLine(Str& line);
    // Writes all of it into the stream's buffer (and the file as the buffer fills), or fails.
    Status write(const void* data, std::size_t size);
    Status write(StrSegment text) { return write(text.data(), static_cast<std::size_t>(text.size())); }
    // fflush: the buffer goes to the file.
    Status flush();
    // flush, then fsync of the descriptor underneath.
    Status sync();

  private:
    std::FILE* _file = nullptr;
    Str _path;
};

// One entry of a directory.
struct DirectoryEntry {
    Str name;                        // the name within the directory
    FileType type = FILE_TYPE_NONE;  // from the directory itself, or lstat where it does not say
};

// The entries of one directory, "." and ".." left out, in the order the file system gives.
//
//   Directory dir;
//   if (!dir.open(path)) ...
//   DirectoryEntry entry;
//   while (dir.next(entry, st)) use(entry.name);
//   if (!st) ...                                     // a read error ended the walk
class Directory {
  public:
    Directory() noexcept = default;  // none open

    // Closes what is open. Moving hands the directory over and leaves the source with none.
    ~Directory();
    Directory(Directory&& other) noexcept;
    Directory& operator=(Directory&& other) noexcept;
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    // opendir(3) with the descriptor close-on-exec; what was open before is closed first.
    Status open(StrSegment path);
    // The subdirectory `name` of an open directory, found from it rather than by path (so a
    // rename above cannot redirect a walk); a symbolic link there is refused with ELOOP.
    Status openAt(const Directory& parent, StrSegment name);
    Status close();                                           // closedir(3), reported
    bool isOpen() const noexcept { return _dir != nullptr; }  // whether a directory is open
    // The descriptor, for openat and friends relative to this directory.
    int descriptor() const noexcept;

    // The next entry: true with `entry` filled, or false at the end or on an error (`status`
    // says which).
    bool next(DirectoryEntry& entry, Status& status);

  private:
    Status adopt(FileDescriptor& fd);

    DIR* _dir = nullptr;
    Str _path;
};

// Every name in the directory, sorted bytewise.
Status listDirectory(StrSegment path, std::vector<Str>& names);

// Facts about a path; a missing one is FILE_TYPE_NONE with ENOENT (or ENOTDIR).
Status fileInfo(StrSegment path, FileInfo& out);
// The same, without following a final symbolic link.
Status linkInfo(StrSegment path, FileInfo& out);

}  // namespace basicutil
