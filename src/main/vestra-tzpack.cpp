// Packs a zone directory into one archive file that TimeZone::load can read (useTimeZoneArchive):
//   vestra-tzpack DIRECTORY ARCHIVE
// Exits 0 with a one-line summary, or 1 with the reason on standard error.
#include <cstdio>

#include "basicutil/PrintfFormat.h"
#include "basicutil/TimeZoneArchive.h"

int main(int argc, char** argv) {
    using namespace basicutil;
    if (argc != 3) {
        std::fputs("usage: vestra-tzpack DIRECTORY ARCHIVE\n", stderr);
        return 2;
    }
    Str error;
    if (!TimeZoneArchive::pack(argv[1], argv[2], &error)) {
        std::fprintf(stderr, "vestra-tzpack: %s\n", error.c_str());
        return 1;
    }
    const auto archive = TimeZoneArchive::open(argv[2], &error);
    if (archive == nullptr) {
        std::fprintf(stderr, "vestra-tzpack: %s\n", error.c_str());
        return 1;
    }
    std::fputs(strprintf("%zu zones from %s into %s\n", archive->size(), argv[1], argv[2]).c_str(), stdout);
    return 0;
}
