// Renders one line through the installed library: its version, a time in a fixed format and a
// number through its printf.
#include <cstdio>

#include "basicutil/platform/Version.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/time/DateTime.h"
#include "basicutil/time/TimeZone.h"
#include "libzero/codepoint-width.h"

int main() {
    using namespace basicutil;
    Str line = strprintf("vestra %s: ", libraryVersion());
    TimeFormat::standard(0).render(Timeval{1700000000, 0}, *TimeZone::utc(), line);
    appendf(line, " |%6.2f| width %d\n", 3.14159, codepoint_width(0x4E2D));
    std::fputs(line.c_str(), stdout);
    return 0;
}
