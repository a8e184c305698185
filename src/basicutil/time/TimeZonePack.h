// Packing a zone directory into one archive file, which TimeZoneArchive.h reads: what a
// deployment runs once to ship one file instead of a directory.
//
//   std::vector<Str> rejected;
//   if (Status st = packTimeZoneArchive("/usr/share/zoneinfo", "zones.archive", &rejected); !st) ...
#pragma once

#include <vector>

#include "basicutil/text/Status.h"
#include "basicutil/text/Str.h"

namespace basicutil {

// Every zone file under the directory (followed links included) under its relative name. Only
// files that load whole are packed: a file that starts as a zone file ("TZif") but does not load
// is left out and, with `rejected`, listed there as "name: reason". A failure when the directory
// cannot be walked or holds no zone file (ENOENT).
Status packTimeZoneDirectory(const char* directory, Str& archive, std::vector<Str>* rejected = nullptr);
// The same, written to a file (replaced whole: readers see the old archive or the new one).
Status packTimeZoneArchive(const char* directory, const char* archivePath,
                           std::vector<Str>* rejected = nullptr);

}  // namespace basicutil
