// One file holding many zone files with an index, so that a deployment ships one file instead
// of a zone directory. TimeZone::load looks in the archive installed by useTimeZoneArchive
// before the zone directory.
//
// Layout: the magic "VESTRA TZ ARCHIVE 1\n"; the entry count and the index size, 32-bit
// big-endian; the index, one entry per zone in ascending byte order of names (name length in one
// byte, the name, then the data's offset from the end of the index and its length, 32-bit
// big-endian each); then the zone files, each stored once however many names share it.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "basicutil/text/Status.h"
#include "basicutil/text/Str.h"

namespace basicutil {

// An archive read into memory: immutable, shared between threads.
class TimeZoneArchive {
  public:
    // The archive in a file or in bytes; a failure (EINVAL) for anything that is not a whole,
    // consistent archive, with `out` left alone.
    static Status open(const char* path, std::shared_ptr<const TimeZoneArchive>& out);
    static Status fromBytes(Str bytes, std::shared_ptr<const TimeZoneArchive>& out);

    // The archive of the given zone files, by name (1 to 255 bytes each); a failure (EFBIG)
    // when they do not fit in one archive. Files with the same bytes are stored once.
    // TimeZonePack.h packs a zone directory through it.
    static Status build(const std::map<std::string, Str>& zones, Str& archive);

    // The zone file stored under the name; the view lives as long as the archive.
    [[nodiscard]] bool find(StrSegment name, StrSegment& tzif) const noexcept;
    std::size_t size() const noexcept { return _entries.size(); }                       // the number of names
    StrSegment nameAt(std::size_t i) const noexcept { return view(_entries[i].name); }  // in ascending order

    // Where a name and its zone file lie in the archive's bytes.
    struct Span {
        std::uint64_t offset;  // from the start of the bytes
        std::uint64_t length;  // in bytes
    };
    // One index entry.
    struct Entry {
        Span name;  // the zone's name
        Span data;  // the zone file
    };
    // Takes checked bytes and their index; open and fromBytes make archives.
    TimeZoneArchive(Str&& bytes, std::vector<Entry>&& entries) noexcept
        : _bytes(std::move(bytes)), _entries(std::move(entries)) {}

  private:
    StrSegment view(Span s) const noexcept { return {_bytes.data() + s.offset, s.length}; }

    Str _bytes;
    std::vector<Entry> _entries;
};

// The archive TimeZone::load consults first; null for none. Empties the zone cache.
void useTimeZoneArchive(std::shared_ptr<const TimeZoneArchive> archive);

}  // namespace basicutil
