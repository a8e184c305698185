// Operations on files by name: permissions, directories, temporary files, copying, linking,
// moving, replacing a file whole, and facts about the file system.
//
//   if (Status st = replaceFileContents("/etc/app.conf", text); !st) log(st.text());
//   if (Status st = copyFile("big.dat", "/backup/big.dat"); !st) ...
//
// Failures come back as Status (errno and a text). Compound operations put their name in
// front of the text: "copying source to destination: \"a\" -> \"b\": open \"a\": No such file
// or directory".
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "basicutil/files/File.h"

namespace basicutil {

// --- Permissions ---

// A file's 07777 bits, read or set (following symbolic links).
Status filePermissions(StrSegment path, mode_t& permissions);
Status setFilePermissions(StrSegment path, mode_t permissions);

// What checkAccess asks about: a bitwise or of these, or ACCESS_EXISTS alone.
enum FileAccess : unsigned {
    ACCESS_EXISTS = 0,
    ACCESS_READ = 4,
    ACCESS_WRITE = 2,
    ACCESS_EXECUTE = 1,
};
// Whether this process, by its effective ids, may use the file so (EACCES when not, ENOENT when
// missing). An answer, not a guarantee: the file may change before it is used.
Status checkAccess(StrSegment path, unsigned access);

// --- Facts ---

// The size of a file system, and its room.
struct FileSystemSpace {
    std::uint64_t total = 0;      // bytes in the file system
    std::uint64_t available = 0;  // bytes this process may still use
    std::uint64_t free = 0;       // bytes free, those kept for the superuser included
};
// statvfs(3) of the file system that holds `path`.
Status fileSystemSpace(StrSegment path, FileSystemSpace& out);

// Both names lead to one file (after symbolic links); both must exist.
Status sameFile(StrSegment a, StrSegment b, bool& same);
// Both names are on one file system, so a rename between them can work.
Status sameDevice(StrSegment a, StrSegment b, bool& same);
bool fileExists(StrSegment path);  // anything at all, a dangling link included

// --- Directories and removal ---

// With `parents`, missing directories above are made too and an existing directory is no
// error.
Status makeDirectory(StrSegment path, mode_t mode = 0777, bool parents = false);
Status removeFile(StrSegment path);       // unlink: not a directory
Status removeDirectory(StrSegment path);  // rmdir: an empty directory
// The path and everything under it; symbolic links are removed, never followed. A missing path
// is no error.
Status removeTree(StrSegment path);

// --- Temporary files ---

// $TMPDIR when it is set to an absolute path, "/tmp" otherwise.
Str temporaryDirectory();
// A new file "<dir>/<prefix>XXXXXXXXXXXX" (mode 0600, close-on-exec, created exclusively) in
// temporaryDirectory(), or in `directory` when one is given. The twelve characters (letters and
// digits, 60 bits) come from the kernel's random bytes (secureRandomBytes): nobody can guess the
// name ahead and place a file or a link there.
Status makeTemporaryFile(FileDescriptor& fd, Str& path, StrSegment prefix = "vestra.",
                         StrSegment directory = "");
// A new directory "<dir>/<prefix>XXXXXXXXXXXX" (mode 0700), named the same way.
Status makeTemporaryDirectory(Str& path, StrSegment prefix = "vestra.", StrSegment directory = "");

// A temporary directory removed with everything in it when the object goes.
class TemporaryDirectory {
  public:
    TemporaryDirectory() = default;
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    // Makes the directory, as makeTemporaryDirectory does; one that exists is removed first.
    Status create(StrSegment prefix = "vestra.", StrSegment directory = "");
    // Removes it with everything in it now, reporting how that went.
    Status remove();
    const Str& path() const noexcept { return _path; }  // empty when there is none
    Str operator/(StrSegment name) const;               // a path inside it

  private:
    Str _path;
};

// --- Replacing a file whole ---

// Writes a new version of a file so that, whenever the process or the machine stops, the
// target holds either its old contents or all of the new ones:
//
//   FileReplacement r;
//   Status st = r.begin(target);
//   if (st) st = r.write(part1);
//   if (st) st = r.write(part2);
//   if (st) st = r.commit();          // on failure the target is untouched
//
// The new contents go to a temporary file beside the target (same directory, so the rename
// cannot cross file systems); commit syncs it, renames it over the target and syncs the
// directory, so that the rename itself survives a power cut. Abandoned (destroyed without a
// commit, or after a failure) the temporary file is removed. A crash can leave one behind, named
// ".<target name>.XXXXXXXXXXXX".
//
// The new file takes the old one's permissions, or `mode` when there is no old one. A symbolic
// link at the target is replaced, not followed.
class FileReplacement {
  public:
    FileReplacement() = default;
    ~FileReplacement();
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;

    // Opens the temporary file beside `target`; what was begun before is abandoned.
    Status begin(StrSegment target, mode_t mode = 0644);
    // Appends data to the new contents.
    Status write(StrSegment data);
    // The temporary file, for writers that want the descriptor itself.
    FileDescriptor& descriptor() noexcept { return _fd; }
    const Str& temporaryPath() const noexcept { return _temporary; }  // its path
    // With `sync` false the data and the rename are not waited for: the target is still old or
    // new whole after a crash of the process, but not necessarily after one of the machine.
    Status commit(bool sync = true);
    void abandon() noexcept;  // removes the temporary file; the target stays as it was

  private:
    FileDescriptor _fd;
    Str _target;
    Str _temporary;
};

// A FileReplacement in one call: the target holds `contents`, or is untouched on failure.
Status replaceFileContents(StrSegment target, StrSegment contents, mode_t mode = 0644);

// --- Copy, link, move ---

// How copyFile copies: a bitwise or of these.
enum CopyOptions : unsigned {
    COPY_DEFAULT = 0,
    COPY_SYNC = 1u << 0,                // sync the copy and its directory before it is in place
    COPY_KEEP_TIMES = 1u << 1,          // the copy gets the source's modification time
    COPY_NO_OVERWRITE = 1u << 2,        // an existing destination is an error (EEXIST)
    COPY_SOURCE_PERMISSIONS = 1u << 3,  // even over an existing destination
};

// Copies a regular file. The copy is made beside the destination and renamed into place, so the
// destination is never seen half-written. It takes the old destination's permissions, or the
// source's when there is none (or with COPY_SOURCE_PERMISSIONS). The data moves inside the
// kernel where the platform can (copy_file_range), in large blocks otherwise.
Status copyFile(StrSegment source, StrSegment destination, unsigned options = COPY_DEFAULT);
// A second name for the file (link(2)); the destination must not exist.
Status hardLink(StrSegment source, StrSegment destination);
// Renames; across file systems a regular file is copied (with its permissions and modification
// time, synced) and the source removed. Other kinds of file cannot cross (EXDEV).
Status moveFile(StrSegment source, StrSegment destination);

}  // namespace basicutil
