// Path strings: join, split, normalise, make relative or absolute. Everything here is lexical
// (no file is looked at, no symbolic link followed) except pathAbsolute, which reads the working
// directory.
//
//   pathJoin("/var/log", "app/x.log")   "/var/log/app/x.log"
//   pathNormalize("a//b/./../c/")       "a/c"
//   pathRelative("/a/b/c", "/a/d", out) out = "../b/c"
//
// Lexical ".." removal is right unless a removed component is a symbolic link to a directory;
// callers that must honour links resolve them first (realpath).
#pragma once

#include "basicutil/text/Str.h"
#include "basicutil/text/StrVector.h"

namespace basicutil {

class Status;

// The unit's constant texts: "/", ".", "..", "/dev/null".
const Str& pathRoot() noexcept;
const Str& pathDot() noexcept;
const Str& pathDotDot() noexcept;
const Str& pathDevNull() noexcept;

// Whether the path starts with "/".
inline bool pathIsAbsolute(StrSegment path) noexcept {
    return !path.empty() && path[0] == '/';
}

// `tail` after `head` with exactly one "/" between them. An absolute tail replaces the head; an
// empty side gives the other one unchanged.
Str pathJoin(StrSegment head, StrSegment tail);

// The directory and last component, as POSIX dirname and basename give them: "/usr/lib/" ->
// "/usr" and "lib"; "lib" -> "." and "lib"; "/" -> "/" and "/"; "" -> "." and ".". The views
// point into `path` or at this unit's constants.
void pathSplit(StrSegment path, StrSegment& directory, StrSegment& base) noexcept;
StrSegment pathDirname(StrSegment path) noexcept;
StrSegment pathBasename(StrSegment path) noexcept;

// The non-empty components in order: "/a//b/" -> "a", "b". The root is not a component.
void pathComponents(StrSegment path, StrVector& out);

// The shortest lexically equal path: repeated slashes become one, "." components go, "x/.."
// pairs cancel, a ".." just under the root goes, and a trailing slash goes (the root keeps its
// one). Leading ".." of a relative path stay. The empty path and anything that cancels to
// nothing give ".".
Str pathNormalize(StrSegment path);

// The normalised path joined to the working directory. Fails only when the working directory
// cannot be read (removed, or not searchable).
[[nodiscard]] Status pathAbsolute(StrSegment path, Str& out);

// A relative path that leads from directory `base` to `target`, both normalised first; "." when
// they are the same. False (out untouched) when one is absolute and the other not, or when
// `base` climbs above its start with ".." further than `target` does, since the names it would
// need are unknown.
[[nodiscard]] bool pathRelative(StrSegment target, StrSegment base, Str& out);

}  // namespace basicutil
