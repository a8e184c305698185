// The vector paths behind StrSearch.h, reachable one by one so that tests can hold them against
// each other.
#pragma once

#include "basicutil/text/Str.h"

namespace basicutil::search_details {

// findLineEnd with SSE2 (every x86-64 processor has it) or byte by byte elsewhere.
size_type findLineEndSse2(StrSegment s, size_type pos) noexcept;
// The same, 128 bytes per test with AVX2; only where platform::cpuHasAvx2().
size_type findLineEndAvx2(StrSegment s, size_type pos) noexcept;

}  // namespace basicutil::search_details
