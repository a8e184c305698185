// Windows time-zone names and the IANA zones they stand for.
#pragma once

#include "basicutil/text/Str.h"

namespace basicutil {

// Windows zone names, from the Unicode CLDR's windowsZones table. "Pacific Standard Time" with
// territory "001" (the default) gives its representative zone "America/Los_Angeles"; another
// territory ("CA") gives that territory's first zone. Null when unknown.
const char* windowsZoneToIana(StrSegment windowsName, StrSegment territory = "001") noexcept;
// Any zone the table lists ("America/Vancouver") gives its Windows name; null when unlisted.
const char* ianaZoneToWindows(StrSegment ianaName) noexcept;

}  // namespace basicutil
