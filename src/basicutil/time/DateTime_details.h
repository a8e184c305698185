// Machinery shared by the time-format files; callers use DateTime.h.
#pragma once

#include "basicutil/time/DateTime.h"

namespace basicutil::date_time_details {

// A composite's expansion ("%H:%M:%S" for 'T'), compiled once: what a COMPOSITE atom renders and
// parses. `letter` is a composite's.
const TimeFormat& compositeFormat(char letter);

}  // namespace basicutil::date_time_details
