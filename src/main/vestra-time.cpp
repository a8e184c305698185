// vestra date, strptime, tz, elapsed and sortable.
#include <algorithm>
#include <string>
#include <vector>

#include "basicutil/files/File.h"
#include "basicutil/files/Pathname.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/time/DateTime.h"
#include "basicutil/time/TimeZone.h"
#include "basicutil/time/TimeZoneArchive.h"
#include "basicutil/time/TimeZonePack.h"
#include "basicutil/timevalue/Timeval.h"
#include "basicutil/timevalue/TimevalElapsed.h"
#include "main/vestra_details.h"

namespace vestra::tool {

using namespace basicutil;

namespace {

constexpr const char* kDefaultDateFormat = "%a %b %e %H:%M:%S %Z %Y";

// The zone as -z or an argument gives it, read as TZ is (a name, ":NAME", an absolute file or a
// POSIX rule); the local one when none was given. Null (diagnosed) when it names no zone.
TimeZonePtr zoneNamed(const std::string& name, bool given = true) {
    if (!given) return TimeZone::local();
    TimeZonePtr zone;
    if (const Status st = TimeZone::fromTzValue(StrSegment(name), zone); !st)
        diagnose("zone '" + name + "': " + std::string(st.text().view()));
    return zone;
}

// A time as the commands take it: "@" and decimal seconds, "now", or a text in one of the
// standard formats ("%FT%T%:z" and the others), "%F %T" or "%F" read in `zone`.
bool parseTime(const std::string& text, const TimeZone& zone, Timeval& out) {
    if (text == "now") {
        out = Timeval::now();
        return true;
    }
    if (!text.empty() && text[0] == '@') return out.mem_parse_into(text.data() + 1, text.size() - 1);
    std::vector<const TimeFormat*> formats;
    for (std::size_t i = 0; i < 6; ++i) formats.push_back(&TimeFormat::standard(i));
    static const TimeFormat dateAndClock("%F %T"), dateOnly("%F"), dateAndClockT("%FT%T");
    formats.insert(formats.end(), {&dateAndClock, &dateAndClockT, &dateOnly});
    for (const TimeFormat* format : formats) {
        TimeFormatRawParseResult parsed;
        Timeval tv;
        if (format->rawParse(StrSegment(text), parsed) && tv._set(parsed, zone, Timeval::now())) {
            out = tv;
            return true;
        }
    }
    return false;
}

bool parseTimeOrSay(const std::string& text, const TimeZone& zone, Timeval& out) {
    if (parseTime(text, zone, out)) return true;
    diagnose("'" + text + "': not a time (give @SECONDS, now, or a text like 2024-03-01T12:00:00+01:00)");
    return false;
}

int dateCommand(const std::string& zoneName, bool zoneGiven, const std::string& when,
                const std::string& format) {
    const TimeZonePtr zone = zoneNamed(zoneName, zoneGiven);
    if (zone == nullptr) return kNegative;
    Timeval tv = Timeval::now();
    if (!when.empty() && !parseTimeOrSay(when, *zone, tv)) return kNegative;
    std::string text = kDefaultDateFormat;
    if (!format.empty()) {
        if (format[0] != '+') {
            diagnose("a format starts with '+' (see: vestra date --help)");
            return kUsage;
        }
        text = format.substr(1);
    }
    const TimeFormat compiled{StrSegment(text)};
    if (!compiled.valid()) {
        diagnose("'" + text + "': not a time format");
        return kUsage;
    }
    Str out;
    compiled.render(tv, *zone, out, TimeFormat::SentinelText::CALENDAR);
    out.push_back('\n');
    tool::out().write(out);
    return kOk;
}

int strptimeCommand(const std::string& format, const std::string& text, const std::string& zoneName,
                    bool zoneGiven) {
    const TimeZonePtr zone = zoneNamed(zoneName, zoneGiven);
    if (zone == nullptr) return kNegative;
    const TimeFormat compiled{StrSegment(format)};
    if (!compiled.valid()) {
        diagnose("'" + format + "': not a time format");
        return kUsage;
    }
    TimeFormatRawParseResult parsed;
    if (!compiled.rawParse(StrSegment(text), parsed)) {
        diagnose("'" + text + "' does not match '" + format + "'");
        return kNegative;
    }
    static const char* const kHave[] = {"year",   "month",      "day",      "hour",   "minute",
                                        "second", "subseconds", "yday",     "week",   "weekday",
                                        "epoch",  "zone",       "meridian", "century"};
    std::string have;
    for (std::size_t bit = 0; bit < std::size(kHave); ++bit) {
        if ((parsed.have & (1u << bit)) != 0) have += (have.empty() ? "" : " ") + std::string(kHave[bit]);
    }
    Timeval tv;
    if (!tv._set(parsed, *zone, Timeval::now())) {
        diagnose("'" + text + "' names no time that exists (a date out of range or an unknown abbreviation)");
        return kNegative;
    }
    Str rendered;
    TimeFormat::standard(1).render(tv, *zone, rendered, TimeFormat::SentinelText::CALENDAR);
    out().write("time: " + std::string(rendered.view()) + "\nhave: " + have + "\nepoch: " + tv.toDecimal(6) +
                "\n");
    return kOk;
}

// Zone names under the zone directory: regular files that start with "TZif".
void listZones(const Str& directory, const Str& prefix, std::vector<std::string>& names) {
    std::vector<Str> entries;
    if (!listDirectory(pathJoin(directory, prefix), entries).ok()) return;
    for (const Str& entry : entries) {
        const Str relative = prefix.empty() ? entry : pathJoin(prefix, entry);
        const Str full = pathJoin(directory, relative);
        FileInfo info;
        if (!fileInfo(full, info).ok()) continue;
        if (info.type == FILE_TYPE_DIRECTORY) {
            listZones(directory, relative, names);
        } else if (info.type == FILE_TYPE_REGULAR) {
            FileDescriptor fd;
            char magic[4];
            std::size_t got = 0;
            if (fd.open(full, O_RDONLY).ok() && fd.read(magic, 4, got).ok() && got == 4 &&
                std::string_view(magic, 4) == "TZif") {
                names.emplace_back(relative.view());
            }
        }
    }
}

int tzCommand(const std::string& action, const std::vector<std::string>& args) {
    const auto need = [&](std::size_t n, const char* usage) {
        if (args.size() == n) return true;
        diagnose(std::string("usage: vestra tz ") + usage);
        return false;
    };
    if (action == "list") {
        if (!need(0, "list")) return kUsage;
        std::vector<std::string> names;
        listZones(TimeZone::directory(), Str(), names);
        std::sort(names.begin(), names.end());
        for (const std::string& name : names) out().write(name + "\n");
        return names.empty() ? kNegative : kOk;
    }
    if (action == "pack") {
        if (!need(2, "pack DIRECTORY ARCHIVE")) return kUsage;
        std::vector<Str> rejected;
        if (const Status st = packTimeZoneArchive(args[0].c_str(), args[1].c_str(), &rejected); !st) {
            diagnose(st.text().view());
            return kNegative;
        }
        for (const Str& why : rejected) diagnose("left out " + std::string(why.view()));
        std::shared_ptr<const TimeZoneArchive> archive;
        if (const Status st = TimeZoneArchive::open(args[1].c_str(), archive); !st) {
            diagnose(st.text().view());
            return kNegative;
        }
        out().write(
            strprintf("%zu zones from %s into %s\n", archive->size(), args[0].c_str(), args[1].c_str()));
        return rejected.empty() ? kOk : kNegative;
    }
    if (action == "info" || action == "serialize") {
        if (!need(1, (action + " ZONE").c_str())) return kUsage;
        const TimeZonePtr zone = zoneNamed(args[0]);
        if (zone == nullptr) return kNegative;
        if (action == "serialize") {
            out().write(zone->serialize());
            return kOk;
        }
        const TimeZoneLookup now = zone->lookup(Timeval::now().tv_sec);
        std::int32_t fixed = 0;
        out().write(strprintf(
            "name: %s\nrule: %s\ntransitions: %zu\nleap seconds: %zu\nfixed: %s\nnow: %s, %+d s%s\n",
            zone->name().c_str(), zone->posixRule().empty() ? "(none)" : zone->posixRule().c_str(),
            zone->transitions().size(), zone->leapSeconds().size(), zone->fixedOffset(fixed) ? "yes" : "no",
            now.abbreviation, now.utcOffset, now.isDst ? ", daylight" : ""));
        return kOk;
    }
    // at ZONE TIME
    if (!need(2, "at ZONE TIME")) return kUsage;
    const TimeZonePtr zone = zoneNamed(args[0]);
    if (zone == nullptr) return kNegative;
    Timeval tv;
    if (!parseTimeOrSay(args[1], *zone, tv)) return kNegative;
    static const TimeFormat format("%FT%T%:z %Z");
    Str text;
    format.render(tv, *zone, text, TimeFormat::SentinelText::CALENDAR);
    text.push_back('\n');
    out().write(text);
    return kOk;
}

int elapsedCommand(const std::string& from, const std::string& to) {
    const TimeZonePtr zone = TimeZone::local();
    Timeval a, b;
    if (!parseTimeOrSay(from, *zone, a) || !parseTimeOrSay(to, *zone, b)) return kNegative;
    out().write(ElapsedDescription::between(a, b).toString() + "\n");
    return kOk;
}

int sortableCommand(const std::string& when) {
    Timeval tv;
    if (when.size() == Timeval::kSortableCodeLength && tv.decodeSortable(when.data(), when.size())) {
        out().write(tv.toDecimal(6) + "\n");  // a code given: the time it stands for
        return kOk;
    }
    if (!parseTimeOrSay(when, *TimeZone::local(), tv)) return kNegative;
    out().write(tv.sortableCode() + "\n");
    return kOk;
}

// vestra date [-z ZONE] [-d TIME] [+FORMAT]
class DateCommand final : public Command {
  public:
    CLI::App* define(CLI::App& parent) override {
        CLI::App* date =
            parent.add_subcommand("date",
                                  "Render a time through the library's time formats.\n"
                                  "Example: vestra date -z Asia/Tokyo -d @1700000000.5 +%FT%T.%3Q%:z");
        _zoneOption = date->add_option(
            "-z,--zone", _zone, "the zone: a name, :NAME, a file or a POSIX rule (default: the local one)");
        date->add_option("-d,--date", _when,
                         "the time: @SECONDS[.FRACTION], now, or 2024-03-01T12:00:00+01:00");
        date->add_option("FORMAT", _format, "+FORMAT (default: +\"%a %b %e %H:%M:%S %Z %Y\")");
        return date;
    }
    int run() override { return dateCommand(_zone, _zoneOption->count() > 0, _when, _format); }

  private:
    std::string _zone, _when, _format;
    CLI::Option* _zoneOption = nullptr;
};

// vestra strptime FORMAT TEXT [-z ZONE]
class StrptimeCommand final : public Command {
  public:
    CLI::App* define(CLI::App& parent) override {
        CLI::App* strptime = parent.add_subcommand(
            "strptime",
            "Parse a time and show its fields, the `have` set and the epoch.\n"
            "Example: vestra strptime '%d/%b/%Y:%H:%M:%S %z' '10/Oct/2000:13:55:36 -0700'");
        strptime->add_option("FORMAT", _format, "the format")->required();
        strptime->add_option("TEXT", _text, "the text")->required();
        _zoneOption = strptime->add_option("-z,--zone", _zone,
                                           "the zone to read it in when it names none (default: local)");
        return strptime;
    }
    int run() override { return strptimeCommand(_format, _text, _zone, _zoneOption->count() > 0); }

  private:
    std::string _format, _text, _zone;
    CLI::Option* _zoneOption = nullptr;
};

// vestra tz ACTION [ARGS...]
class TzCommand final : public Command {
  public:
    CLI::App* define(CLI::App& parent) override {
        CLI::App* tz = parent.add_subcommand(
            "tz",
            "Time zones: list | info ZONE | at ZONE TIME | pack DIR ARCHIVE | serialize ZONE.\n"
            "Example: vestra tz at America/New_York 2024-03-10T07:30:00+00:00");
        tz->add_option("ACTION", _action, "list, info, at, pack or serialize")
            ->required()
            ->check(CLI::IsMember({"list", "info", "at", "pack", "serialize"}));
        tz->add_option("ARGS", _args, "the action's arguments");
        return tz;
    }
    int run() override { return tzCommand(_action, _args); }

  private:
    std::string _action;
    std::vector<std::string> _args;
};

// vestra elapsed T1 T2
class ElapsedCommand final : public Command {
  public:
    CLI::App* define(CLI::App& parent) override {
        CLI::App* elapsed = parent.add_subcommand("elapsed",
                                                  "Describe the time from T1 to T2 as the logs do.\n"
                                                  "Example: vestra elapsed @0 @2.5");
        elapsed->add_option("T1", _from, "the start")->required();
        elapsed->add_option("T2", _to, "the end")->required();
        return elapsed;
    }
    int run() override { return elapsedCommand(_from, _to); }

  private:
    std::string _from, _to;
};

// vestra sortable TIME
class SortableCommand final : public Command {
  public:
    CLI::App* define(CLI::App& parent) override {
        CLI::App* sortable = parent.add_subcommand(
            "sortable",
            "The 14-character code that sorts as text in time order, or the time of a code.\n"
            "Example: vestra sortable @1700000000");
        sortable->add_option("TIME", _when, "a time, or a 14-character code")->required();
        return sortable;
    }
    int run() override { return sortableCommand(_when); }

  private:
    std::string _when;
};

}  // namespace

void addTimeCommands(CLI::App& app, Context& context) {
    context.add<DateCommand>(app);
    context.add<StrptimeCommand>(app);
    context.add<TzCommand>(app);
    context.add<ElapsedCommand>(app);
    context.add<SortableCommand>(app);
}

}  // namespace vestra::tool
