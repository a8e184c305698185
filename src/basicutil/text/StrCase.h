// Upper and lower case of UTF-8 byte strings.
#pragma once

#include "basicutil/text/Str.h"

namespace basicutil {

// Upper or lower case, in place or as a copy. ASCII goes in 16-byte blocks; text with non-ASCII
// bytes goes through the Unicode case mapper.
void toUpperInPlace(Str& s);
void toLowerInPlace(Str& s);
Str toUpperCopy(StrSegment s);
Str toLowerCopy(StrSegment s);

}  // namespace basicutil
