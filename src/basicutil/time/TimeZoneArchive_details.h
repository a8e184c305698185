// Machinery the zone loaders and the archive share: reading a zone file, or an archive, whole.
#pragma once

#include <cstdint>

#include "basicutil/text/Status.h"
#include "basicutil/text/Str.h"

namespace basicutil {

// The largest zone file taken (the largest installed ones are under 10 KiB).
inline constexpr std::uint64_t kMaxZoneFileBytes = std::uint64_t{1} << 20;

// The whole file, refused when larger than maxBytes; errors name the path and errno's text.
Status readTimeZoneFile(const char* path, std::uint64_t maxBytes, Str& out);

}  // namespace basicutil
