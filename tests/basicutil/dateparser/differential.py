#!/usr/bin/env python3
"""vestra timestamps against Python's datetime and zoneinfo over generated lines.

Random instants in several zones are written in each format, inside lines of other text; the
expected instant is worked out by Python from the text as written (a local time the zone repeats
is its earlier instant, as the parser documents), never from the parser. Every line's instant,
format, offset and length must agree. Usage: differential.py VESTRA [SEED] [LINES_PER_ZONE]."""
import json
import random
import subprocess
import sys
import tempfile
from datetime import datetime, timedelta, timezone
from zoneinfo import ZoneInfo

ZONES = ["UTC", "Europe/Paris", "America/New_York", "Australia/Lord_Howe", "Asia/Kolkata",
         "America/St_Johns", "Pacific/Chatham", "Asia/Tokyo"]
PREFIXES = ["", "[INFO] ", "host app: ", "level=warn msg=\"x\" at ", "-- "]
SUFFIXES = ["", " message", " GET /index.html", " (pid=4242)", " done."]
MONTHS = ["Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"]
DAYS = ["Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"]
REFERENCE = datetime(2031, 1, 1, tzinfo=timezone.utc)


def utc_text(dt):
    return dt.astimezone(timezone.utc).strftime("%Y-%m-%dT%H:%M:%S.%fZ")


def local_back(zone, y, mo, d, h, mi, s, us):
    """What local fields mean in the zone: the earlier instant where they repeat."""
    return datetime(y, mo, d, h, mi, s, us, tzinfo=ZoneInfo(zone), fold=0)


def offset_text(seconds, colon=True):
    sign = "-" if seconds < 0 else "+"
    seconds = abs(seconds)
    return "%s%02d%s%02d" % (sign, seconds // 3600, ":" if colon else "", seconds // 60 % 60)


def fraction(rng):
    digits = "".join(rng.choice("0123456789") for _ in range(rng.randint(1, 9)))
    return digits, int((digits + "000000")[:6])


def render(rng, zone, instant):
    """One timestamp for `instant`: (text, format, expected UTC text)."""
    local = instant.astimezone(ZoneInfo(zone))
    offset = int(local.utcoffset().total_seconds())
    y, mo, d, h, mi, s = local.year, local.month, local.day, local.hour, local.minute, local.second
    kind = rng.randrange(14)
    if kind <= 3:  # ISO 8601 extended, T or space, with each kind of zone
        sep = "T" if kind % 2 == 0 else " "
        digits, us = fraction(rng)
        mark = "." if sep == "T" or rng.random() < 0.5 else ","
        zone_kind = rng.randrange(5)
        if zone_kind == 0:
            z, back = "", local_back(zone, y, mo, d, h, mi, s, us)
        elif zone_kind == 1:
            u = instant.astimezone(timezone.utc)
            y, mo, d, h, mi, s = u.year, u.month, u.day, u.hour, u.minute, u.second
            z, back = "Z", datetime(y, mo, d, h, mi, s, us, tzinfo=timezone.utc)
        else:
            z = offset_text(offset, zone_kind == 2)
            if zone_kind == 4:
                z = z if offset % 3600 else z[:3]  # "+05" only for whole hours
            back = datetime(y, mo, d, h, mi, s, us, tzinfo=timezone(timedelta(seconds=offset)))
        text = "%04d-%02d-%02d%s%02d:%02d:%02d%s%s%s" % (y, mo, d, sep, h, mi, s, mark, digits, z)
        return text, "ISO8601" if sep == "T" else "ISO8601_SPACE", utc_text(back)
    if kind == 4:
        text = "%04d%02d%02dT%02d%02d%02d%s" % (y, mo, d, h, mi, s, offset_text(offset, False))
        return text, "ISO8601_BASIC", utc_text(datetime(y, mo, d, h, mi, s, tzinfo=timezone(timedelta(seconds=offset))))
    if kind == 5:
        text = "%04d/%02d/%02d %02d:%02d:%02d" % (y, mo, d, h, mi, s)
        return text, "YMD_SLASHED", utc_text(local_back(zone, y, mo, d, h, mi, s, 0))
    if kind == 6:
        text = "%s, %02d %s %04d %02d:%02d:%02d %s" % (DAYS[local.weekday()], d, MONTHS[mo - 1], y, h, mi, s,
                                                      offset_text(offset, False))
        return text, "RFC2822", utc_text(datetime(y, mo, d, h, mi, s, tzinfo=timezone(timedelta(seconds=offset))))
    if kind == 7:
        text = "%02d/%s/%04d:%02d:%02d:%02d %s" % (d, MONTHS[mo - 1], y, h, mi, s, offset_text(offset, False))
        return text, "CLF", utc_text(datetime(y, mo, d, h, mi, s, tzinfo=timezone(timedelta(seconds=offset))))
    if kind == 8:
        text = "%s %s %2d %02d:%02d:%02d %04d" % (DAYS[local.weekday()], MONTHS[mo - 1], d, h, mi, s, y)
        return text, "ASCTIME", utc_text(local_back(zone, y, mo, d, h, mi, s, 0))
    if kind == 9:
        hour12 = h % 12 or 12
        text = "%02d/%02d/%04d %d:%02d:%02d %s" % (mo, d, y, hour12, mi, s, "AM" if h < 12 else "PM")
        return text, "NUMERIC_SLASHED", utc_text(local_back(zone, y, mo, d, h, mi, s, 0))
    if kind == 10:
        text = "%02d.%02d.%04d %02d:%02d:%02d" % (d, mo, y, h, mi, s)
        return text, "NUMERIC_DOTTED", utc_text(local_back(zone, y, mo, d, h, mi, s, 0))
    if kind == 11 and 2000 <= y <= 2099:
        text = "%02d%02d%02d %2d:%02d:%02d" % (y % 100, mo, d, h, mi, s)
        return text, "MYSQL", utc_text(local_back(zone, y, mo, d, h, mi, s, 0))
    # Epoch numbers.
    seconds = int(instant.timestamp())
    unit = rng.randrange(4)
    us = instant.microsecond
    if unit == 0:
        text, name, exact = "%d" % seconds, "EPOCH_SECONDS", instant.replace(microsecond=0)
    elif unit == 1:
        text, name = "%d%03d" % (seconds, us // 1000), "EPOCH_MILLIS"
        exact = instant.replace(microsecond=us // 1000 * 1000)
    elif unit == 2:
        text, name, exact = "%d%06d" % (seconds, us), "EPOCH_MICROS", instant
    else:
        text, name, exact = "%d%06d%03d" % (seconds, us, rng.randrange(1000)), "EPOCH_NANOS", instant
    return text, name, utc_text(exact)


def random_instant(rng):
    start = datetime(2001, 9, 10, tzinfo=timezone.utc).timestamp()
    end = datetime(2030, 12, 31, tzinfo=timezone.utc).timestamp()
    return datetime.fromtimestamp(rng.uniform(start, end), timezone.utc).replace(
        microsecond=rng.randrange(1000000))


def transitions(zone, year):
    """The instants of `year` at which the zone's offset changes, to the minute."""
    tz = ZoneInfo(zone)
    found = []
    t = datetime(year, 1, 1, tzinfo=timezone.utc)
    before = t.astimezone(tz).utcoffset()
    while t.year == year:
        after = (t + timedelta(hours=1)).astimezone(tz).utcoffset()
        if after != before:
            lo = t
            while (lo + timedelta(minutes=1)).astimezone(tz).utcoffset() == before:
                lo += timedelta(minutes=1)
            found.append(lo + timedelta(minutes=1))
            before = after
        t += timedelta(hours=1)
    return found


def run(vestra, zone, lines):
    with tempfile.NamedTemporaryFile("w", suffix=".log", delete=False) as f:
        f.write("".join(line + "\n" for line in lines))
        path = f.name
    result = subprocess.run([vestra, "timestamps", "--json", "--zone", zone, "--now", "@%d" % REFERENCE.timestamp(),
                             path], capture_output=True, text=True, check=False)
    if result.returncode != 0:
        sys.exit("vestra timestamps failed: %s" % result.stderr)
    return [json.loads(line) for line in result.stdout.splitlines()]


def main():
    vestra = sys.argv[1]
    seed = int(sys.argv[2]) if len(sys.argv) > 2 else 20261126
    per_zone = int(sys.argv[3]) if len(sys.argv) > 3 else 600
    rng = random.Random(seed)
    failures = checked = 0
    for zone in ZONES:
        lines, expected = [], []
        for _ in range(per_zone):
            instant = random_instant(rng)
            text, name, utc = render(rng, zone, instant)
            prefix, suffix = rng.choice(PREFIXES), rng.choice(SUFFIXES)
            if name.startswith("EPOCH") and rng.random() < 0.5:
                prefix = ""  # at the line's start
            elif name.startswith("EPOCH"):
                prefix = rng.choice(["ts=", "level=info time=", '{"ts":', '{"timestamp": '])
            lines.append(prefix + text + suffix)
            expected.append((len(prefix.encode()), len(text.encode()), name, utc))
        got = run(vestra, zone, lines)
        # A stream of its own without years: syslog, ascending from within the year before the
        # reference time (so that the first line's year is the reference's or the one before) across
        # New Year, each year then taken from the previous line.
        syslog, syslog_expected = [], []
        instant = REFERENCE - timedelta(days=rng.randrange(1, 300))
        for _ in range(per_zone // 4):
            instant += timedelta(seconds=rng.randrange(1, 40000))
            local = instant.astimezone(ZoneInfo(zone))
            text = "%s %2d %02d:%02d:%02d" % (MONTHS[local.month - 1], local.day, local.hour, local.minute, local.second)
            back = local_back(zone, local.year, local.month, local.day, local.hour, local.minute, local.second, 0)
            syslog.append(text + " host sshd[1]: ok")
            syslog_expected.append((0, len(text), "SYSLOG", utc_text(back)))
        got += run(vestra, zone, syslog)
        lines += syslog
        expected += syslog_expected
        # A stream of one layout without a zone, seconds to minutes apart, around the dates where
        # zones change their clocks: lines that repeat the date and hour of the one before, and
        # hours a transition repeats or skips.
        steady, steady_expected = [], []
        changes = transitions(zone, rng.randint(2005, 2029))
        instant = (rng.choice(changes) if changes else random_instant(rng)) - timedelta(hours=2)
        for _ in range(per_zone // 2):
            instant += timedelta(seconds=rng.choice([rng.randrange(0, 3), rng.randrange(1, 120)]),
                                 microseconds=rng.randrange(1000000))
            local = instant.astimezone(ZoneInfo(zone))
            text = "%04d-%02d-%02d %02d:%02d:%02d,%03d" % (local.year, local.month, local.day, local.hour,
                                                          local.minute, local.second, local.microsecond // 1000)
            back = local_back(zone, local.year, local.month, local.day, local.hour, local.minute, local.second,
                              local.microsecond // 1000 * 1000)
            steady.append(text + " INFO [main] tick")
            steady_expected.append((0, len(text), "ISO8601_SPACE", utc_text(back)))
        got += run(vestra, zone, steady)
        lines += steady
        expected += steady_expected
        if len(got) != len(lines):
            sys.exit("%s: %d lines in, %d out" % (zone, len(lines), len(got)))
        for line, want, have in zip(lines, expected, got):
            checked += 1
            offset, length, name, utc = want
            seen = (have.get("offset"), have.get("length"), have.get("format"), have.get("utc"))
            if seen != (offset, length, name, utc):
                failures += 1
                if failures <= 20:
                    print("%s: %r\n  expected %s\n  got      %s" % (zone, line, (offset, length, name, utc), seen))
    print("%d lines checked, %d differ (seed %d)" % (checked, failures, seed))
    sys.exit(1 if failures else 0)


main()
