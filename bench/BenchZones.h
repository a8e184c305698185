// A zone a benchmark needs: one that does not load stops the run with the reason.
#pragma once

#include <cstdio>
#include <cstdlib>

#include "basicutil/time/TimeZone.h"

inline basicutil::TimeZonePtr benchZone(const char* name) {
    basicutil::TimeZonePtr zone;
    if (const basicutil::Status st = basicutil::TimeZone::load(name, zone); !st) {
        std::fputs(st.text().c_str(), stderr);
        std::fputs("\n", stderr);
        std::abort();
    }
    return zone;
}
