#include "basicutil/time/TimeZoneWindows.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "basicutil/time/TimeZoneWindows_details.h"

namespace basicutil {

const char* windowsZoneToIana(StrSegment windowsName, StrSegment territory) noexcept {
    const auto* end = kWindowsZones + kWindowsZoneCount;
    const auto* row = std::lower_bound(kWindowsZones, end, std::pair(windowsName.view(), territory.view()),
                                       [](const WindowsZoneRow& r, const auto& key) {
                                           return std::pair<std::string_view, std::string_view>(
                                                      r.windowsName, r.territory) < key;
                                       });
    if (row == end || windowsName.view() != row->windowsName || territory.view() != row->territory)
        return nullptr;
    return row->ianaName;
}

const char* ianaZoneToWindows(StrSegment ianaName) noexcept {
    const auto* end = kIanaToWindows + kIanaToWindowsCount;
    const auto* row = std::lower_bound(
        kIanaToWindows, end, ianaName.view(),
        [](const IanaWindowsRow& r, std::string_view key) { return std::string_view(r.ianaName) < key; });
    return row != end && ianaName.view() == row->ianaName ? row->windowsName : nullptr;
}

}  // namespace basicutil
