// Getting zones: fixed ones, files, the zone directory with its cache, the local zone.
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>

#include "basicutil/platform/Assert.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/time/TimeZone.h"
#include "basicutil/time/TimeZoneArchive.h"
#include "basicutil/time/TimeZoneArchive_details.h"
#include "basicutil/time/TimeZone_details.h"

namespace basicutil {

namespace {

// Zone files are a few KiB; anything near this is not one.

TimeZonePtr build(TimeZone::Data&& data) {
    return std::make_shared<const TimeZone>(std::move(data));
}

// Names stay inside the zone directory: letters, digits, "_+-." and "/" between components
// that are neither "." nor "..".
bool safeZoneName(StrSegment name) noexcept {
    if (name.empty() || name.size() > 255 || name[0] == '/') return false;
    std::size_t componentStart = 0;
    for (std::size_t i = 0; i <= name.size(); ++i) {
        if (i == name.size() || name[i] == '/') {
            const std::string_view component = name.view().substr(componentStart, i - componentStart);
            if (component.empty() || component == "." || component == "..") return false;
            componentStart = i + 1;
            continue;
        }
        const char c = name[i];
        const bool allowed = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                             c == '_' || c == '+' || c == '-' || c == '.';
        if (!allowed) return false;
    }
    return true;
}

struct ZoneCache {
    std::mutex mutex;
    std::map<std::string, TimeZonePtr, std::less<>> zones;
    std::shared_ptr<const TimeZoneArchive> archive;
    TimeZonePtr local;
    std::vector<TimeZonePtr> formerLocals;  // kept: references handed out stay valid
    std::atomic<const TimeZone*> localRaw{nullptr};
};

// Never destroyed: lines rendered while the process tears down (the counts of suppressed
// messages, written at exit) still read the local zone.
ZoneCache& cache() {
    static ZoneCache& instance = *new ZoneCache;
    return instance;
}

// "+05", "+0530", "-000521": the numeric abbreviation of a fixed offset.
Str numericAbbreviation(std::int32_t offset) {
    const char sign = offset < 0 ? '-' : '+';
    const std::uint32_t magnitude =
        offset < 0 ? 0u - static_cast<std::uint32_t>(offset) : static_cast<std::uint32_t>(offset);
    const std::uint32_t h = magnitude / 3600, m = magnitude / 60 % 60, s = magnitude % 60;
    if (s != 0) return strprintf("%c%02u%02u%02u", sign, h, m, s);
    if (m != 0) return strprintf("%c%02u%02u", sign, h, m);
    return strprintf("%c%02u", sign, h);
}

TimeZonePtr loadLocal() {
    const char* tz = std::getenv("TZ");
    TimeZonePtr zone;
    const Status st =
        tz == nullptr ? TimeZone::fromFile(kLocalTimeZoneFile, zone) : TimeZone::fromTzValue(tz, zone);
    return st.ok() ? zone : TimeZone::utc();
}

// A loader's reason without the path it names: "open(/x/y): text" is "open: text", "/x/y: text"
// is "text".
Str withoutPath(StrSegment reason, std::string_view path) {
    std::string_view r = reason.view();
    Str out;
    const std::string_view prefix = r.substr(0, path.size());
    if (prefix == path && r.substr(path.size(), 2) == ": ") return Str(r.substr(path.size() + 2));
    const std::size_t at = r.find(path);
    if (at != std::string_view::npos && at > 0 && r[at - 1] == '(' && r.substr(at + path.size(), 1) == ")") {
        out.append(r.substr(0, at - 1));
        out.append(r.substr(at + path.size() + 1));
        return out;
    }
    return Str(reason);
}

}  // namespace

TimeZonePtr TimeZone::utc() {
    static const TimeZonePtr zone = [] {
        TimeZonePtr utc;
        const Status st = fixed(0, "UTC", utc);
        VESTRA_ASSERT(st.ok());
        return utc;
    }();
    return zone;
}

Status TimeZone::fixed(std::int32_t utcOffset, StrSegment abbreviation, TimeZonePtr& out) {
    if (utcOffset <= -25 * 3600 || utcOffset >= 25 * 3600)
        return Status::invalid("a fixed offset of 25 hours or more");
    Data data;
    data.abbreviations = abbreviation.empty() ? numericAbbreviation(utcOffset) : Str(abbreviation);
    data.name = data.abbreviations;
    data.abbreviations.push_back('\0');
    data.types.push_back({utcOffset, false, 0});
    if (std::memchr(abbreviation.data(), '\0', abbreviation.size()) != nullptr ||
        !checkTimeZoneData(data).ok())
        return Status::invalid("a fixed zone's abbreviation with a blank, control or NUL byte");
    out = build(std::move(data));
    return {};
}

Status TimeZone::fromTzif(StrSegment name, StrSegment bytes, TimeZonePtr& out) {
    Data data;
    data.name = Str(name);
    if (Status st = parseTzif(bytes, data); !st) return st;
    out = build(std::move(data));
    return {};
}

Status TimeZone::fromFile(const char* path, TimeZonePtr& out) {
    Str bytes;
    if (Status st = readTimeZoneFile(path, kMaxZoneFileBytes, bytes); !st) return st;
    // A link into the zone directory names the zone ("/etc/localtime" -> ".../zoneinfo/Europe/Paris").
    Str name(path);
    char target[4096];
    const ssize_t n = ::readlink(path, target, sizeof target - 1);
    if (n > 0) {
        const std::string_view link(target, static_cast<std::size_t>(n));
        const std::size_t at = link.rfind("/zoneinfo/");
        if (at != std::string_view::npos) name = Str(link.substr(at + 10));
    }
    return fromTzif(name, bytes, out);
}

Status TimeZone::fromPosixRule(StrSegment rule, TimeZonePtr& out) {
    PosixTimeZoneRule parsed;
    if (Status st = PosixTimeZoneRule::parse(rule, parsed); !st) return st;
    Data data;
    data.name = Str(rule);
    data.rule = Str(rule);
    data.abbreviations = parsed.stdAbbreviation;
    data.abbreviations.push_back('\0');
    data.types.push_back({parsed.stdOffset, false, 0});
    if (Status st = checkTimeZoneData(data); !st) return st;
    out = build(std::move(data));
    return {};
}

Status TimeZone::fromSerialized(StrSegment text, TimeZonePtr& out) {
    Data data;
    if (Status st = parseSerializedTimeZone(text, data); !st) return st;
    out = build(std::move(data));
    return {};
}

Str TimeZone::directory() {
    const char* tzdir = std::getenv("TZDIR");
    if (tzdir != nullptr && tzdir[0] != '\0') return Str(tzdir);
    return strprintf("/usr/share/%s", kTimeZoneDirectoryName);
}

Status TimeZone::load(StrSegment name, TimeZonePtr& out) {
    if (!safeZoneName(name)) return Status::invalid(strprintf("not a zone name: \"%s\"", name.view()));
    ZoneCache& zones = cache();
    std::shared_ptr<const TimeZoneArchive> archive;
    {
        std::lock_guard<std::mutex> lock(zones.mutex);
        const auto found = zones.zones.find(name.view());
        if (found != zones.zones.end()) {
            out = found->second;
            return {};
        }
        archive = zones.archive;
    }
    // Read outside the lock; a zone loaded twice by racing threads is the same zone.
    TimeZonePtr zone;
    StrSegment bytes;
    if (archive != nullptr && archive->find(name, bytes)) {
        if (Status st = fromTzif(name, bytes, zone); !st) return st;
    } else {
        const Str path = strprintf("%s/%s", directory().view(), name.view());
        Str fileBytes;
        if (Status st = readTimeZoneFile(path.c_str(), kMaxZoneFileBytes, fileBytes); !st) return st;
        if (Status st = fromTzif(name, fileBytes, zone); !st) return st;
    }
    std::lock_guard<std::mutex> lock(zones.mutex);
    out = zones.zones.try_emplace(std::string(name.view()), zone).first->second;
    return {};
}

Status TimeZone::fromTzValue(StrSegment value, TimeZonePtr& out) {
    const StrSegment v =
        !value.empty() && value[0] == ':' ? StrSegment(value.data() + 1, value.size() - 1) : value;
    if (v.empty()) return Status::invalid("an empty zone name");
    if (v[0] == '/') {
        Status st = fromFile(Str(v).c_str(), out);
        if (!st) return Status::failure(st.error(), withoutPath(st.text(), v.view()));
        return st;
    }
    const bool name = safeZoneName(v);
    Status loading;
    if (name) {
        loading = load(v, out);
        if (loading) return loading;
    }
    const Status ruling = fromPosixRule(v, out);
    if (ruling) return ruling;
    const Str rule = withoutPath(ruling.text(), strprintf("bad time-zone rule \"%s\"", v.view()).view());
    if (!name)
        return Status::invalid(strprintf("not a zone name, and not a POSIX TZ rule (%s)", rule.view()));
    if (loading.error() == ENOENT) {
        return Status::failure(ENOENT, strprintf("no such zone in %s, and not a POSIX TZ rule (%s)",
                                                 directory().view(), rule.view()));
    }
    const Str path = strprintf("%s/%s", directory().view(), v.view());
    return Status::failure(loading.error(),
                           strprintf("%s, and not a POSIX TZ rule (%s)",
                                     withoutPath(loading.text(), path.view()).view(), rule.view()));
}

void useTimeZoneArchive(std::shared_ptr<const TimeZoneArchive> archive) {
    ZoneCache& zones = cache();
    std::lock_guard<std::mutex> lock(zones.mutex);
    zones.archive = std::move(archive);
    zones.zones.clear();
}

TimeZonePtr TimeZone::local() {
    ZoneCache& zones = cache();
    {
        std::lock_guard<std::mutex> lock(zones.mutex);
        if (zones.local != nullptr) return zones.local;
    }
    return reloadLocal();
}

TimeZonePtr TimeZone::reloadLocal() {
    TimeZonePtr zone = loadLocal();
    ZoneCache& zones = cache();
    std::lock_guard<std::mutex> lock(zones.mutex);
    if (zones.local != nullptr) zones.formerLocals.push_back(zones.local);
    zones.local = zone;
    zones.localRaw.store(zone.get(), std::memory_order_release);
    return zone;
}

const TimeZone& TimeZone::localZone() {
    if (const TimeZone* zone = cache().localRaw.load(std::memory_order_acquire)) return *zone;
    return *local();
}

}  // namespace basicutil
