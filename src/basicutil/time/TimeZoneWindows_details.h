// The Windows zone-name tables, as tools/gen-windows-zones.py writes them.
#pragma once

#include <cstddef>

namespace basicutil {

// The generated Windows zone-name tables (TimeZoneWindowsTables.cpp), each sorted by its first
// column in byte order.
struct WindowsZoneRow {
    const char* windowsName;
    const char* territory;
    const char* ianaName;
};
struct IanaWindowsRow {
    const char* ianaName;
    const char* windowsName;
};
extern const WindowsZoneRow kWindowsZones[];
extern const std::size_t kWindowsZoneCount;
extern const IanaWindowsRow kIanaToWindows[];
extern const std::size_t kIanaToWindowsCount;

}  // namespace basicutil
