// The vector and scalar paths behind StrUtf8.h, reachable one by one so that tests can hold them
// against each other.
#pragma once

#include "basicutil/text/Str.h"

namespace basicutil::utf8_details {

// isValidUtf8 byte by byte (16-byte ASCII blocks skipped).
bool isValidUtf8Scalar(StrSegment s) noexcept;
// The bytes of whole valid sequences at the start, by isValidUtf8's rules.
size_type validLengthScalar(StrSegment s) noexcept;
// The same rules, 32 bytes at a time with AVX2 lookup tables; only where platform::cpuHasAvx2().
bool isValidUtf8Avx2(StrSegment s) noexcept;

// utf8_character_count_truncate by stepping from lead byte to lead byte.
void truncateScalar(StrSegment& view, size_type n) noexcept;
// The same answer: whole blocks of well-formed text are counted by their lead bytes first.
void truncateBlocks(StrSegment& view, size_type n) noexcept;

}  // namespace basicutil::utf8_details
