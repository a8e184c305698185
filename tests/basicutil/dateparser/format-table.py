#!/usr/bin/env python3
"""The expected instants of DateParserTest's format table, worked out by Python's datetime and
zoneinfo, independently of the parser. Prints the table's rows; paste them into the test when a
case is added.

Each case: the line, the zone of lines without one, the timestamp's text as it appears in the
line, the format's name, and the local fields with the offset they are read at (None: the zone's
offset at that local time, the earlier one where a transition repeats it)."""
from datetime import datetime, timedelta, timezone
from zoneinfo import ZoneInfo

CASES = [
    # line, zone, timestamp text, format, (y, m, d, H, M, S, us), offset minutes or None
    ("2024-01-02T03:04:05.678Z GET /", "UTC", "2024-01-02T03:04:05.678Z", "ISO8601", (2024, 1, 2, 3, 4, 5, 678000), 0),
    ("2024-01-02T03:04:05.678+01:00 x", "UTC", "2024-01-02T03:04:05.678+01:00", "ISO8601", (2024, 1, 2, 3, 4, 5, 678000), 60),
    ("at 2024-01-02T03:04:05-0700 y", "UTC", "2024-01-02T03:04:05-0700", "ISO8601", (2024, 1, 2, 3, 4, 5, 0), -420),
    ("2024-01-02T03:04:05+05", "UTC", "2024-01-02T03:04:05+05", "ISO8601", (2024, 1, 2, 3, 4, 5, 0), 300),
    ("2024-01-02T03:04:05.1234567Z", "UTC", "2024-01-02T03:04:05.1234567Z", "ISO8601", (2024, 1, 2, 3, 4, 5, 123456), 0),
    ("2024-01-02T03:04:05,5 comma", "UTC", "2024-01-02T03:04:05,5", "ISO8601", (2024, 1, 2, 3, 4, 5, 500000), 0),
    ("2024-01-02T03:04Z minutes only", "UTC", "2024-01-02T03:04Z", "ISO8601", (2024, 1, 2, 3, 4, 0, 0), 0),
    ("2024-07-02T03:04:05 no zone", "Europe/Paris", "2024-07-02T03:04:05", "ISO8601", (2024, 7, 2, 3, 4, 5, 0), None),
    ("2024-01-02 03:04:05,678 INFO main", "Europe/Paris", "2024-01-02 03:04:05,678", "ISO8601_SPACE", (2024, 1, 2, 3, 4, 5, 678000), None),
    ("2024-01-02 03:04:05.123 UTC [42] LOG", "Europe/Paris", "2024-01-02 03:04:05.123 UTC", "ISO8601_SPACE", (2024, 1, 2, 3, 4, 5, 123000), 0),
    ("2024-01-02 03:04:05 CET x", "UTC", "2024-01-02 03:04:05 CET", "ISO8601_SPACE", (2024, 1, 2, 3, 4, 5, 0), 60),
    ("2024-01-02 03:04:05 +0100 x", "UTC", "2024-01-02 03:04:05 +0100", "ISO8601_SPACE", (2024, 1, 2, 3, 4, 5, 0), 60),
    ("Start-Date: 2025-06-24  14:36:25", "Europe/Paris", "2025-06-24  14:36:25", "ISO8601_SPACE", (2025, 6, 24, 14, 36, 25, 0), None),
    ("20240102T030405Z basic", "UTC", "20240102T030405Z", "ISO8601_BASIC", (2024, 1, 2, 3, 4, 5, 0), 0),
    ("20240102T030405.25+0130", "UTC", "20240102T030405.25+0130", "ISO8601_BASIC", (2024, 1, 2, 3, 4, 5, 250000), 90),
    ("2024/01/02 03:04:05 [error] 7#7: open()", "America/New_York", "2024/01/02 03:04:05", "YMD_SLASHED", (2024, 1, 2, 3, 4, 5, 0), None),
    ("Tue, 02 Jan 2024 03:04:05 +0000", "Europe/Paris", "Tue, 02 Jan 2024 03:04:05 +0000", "RFC2822", (2024, 1, 2, 3, 4, 5, 0), 0),
    ("Date: Tue, 2 Jan 2024 03:04:05 GMT", "Europe/Paris", "Tue, 2 Jan 2024 03:04:05 GMT", "RFC2822", (2024, 1, 2, 3, 4, 5, 0), 0),
    ("02 Jan 2024 03:04:05 -0500 msg", "UTC", "02 Jan 2024 03:04:05 -0500", "RFC2822", (2024, 1, 2, 3, 4, 5, 0), -300),
    ("Jan  2 03:04:05 host sshd[1]: ok", "UTC", "Jan  2 03:04:05", "SYSLOG", (2024, 1, 2, 3, 4, 5, 0), 0),
    ("<13>Mar 10 14:15:16 host app: x", "UTC", "Mar 10 14:15:16", "SYSLOG", (2024, 3, 10, 14, 15, 16, 0), 0),
    ("Jan  2 03:04:05 2023 host", "UTC", "Jan  2 03:04:05 2023", "SYSLOG", (2023, 1, 2, 3, 4, 5, 0), 0),
    ('10.0.0.1 - - [02/Jan/2024:03:04:05 -0700] "GET / HTTP/1.1" 200', "UTC", "02/Jan/2024:03:04:05 -0700", "CLF", (2024, 1, 2, 3, 4, 5, 0), -420),
    ("Tue Jan  2 03:04:05 2024", "Asia/Tokyo", "Tue Jan  2 03:04:05 2024", "ASCTIME", (2024, 1, 2, 3, 4, 5, 0), None),
    ("Tue Jan  2 03:04:05 UTC 2024", "Asia/Tokyo", "Tue Jan  2 03:04:05 UTC 2024", "ASCTIME", (2024, 1, 2, 3, 4, 5, 0), 0),
    ("01/02/2024 03:04:05 PM x", "UTC", "01/02/2024 03:04:05 PM", "NUMERIC_SLASHED", (2024, 1, 2, 15, 4, 5, 0), 0),
    ("1/2/2024, 12:04:05 AM", "UTC", "1/2/2024, 12:04:05 AM", "NUMERIC_SLASHED", (2024, 1, 2, 0, 4, 5, 0), 0),
    ("25/12/2024 03:04:05 day first", "UTC", "25/12/2024 03:04:05", "NUMERIC_SLASHED", (2024, 12, 25, 3, 4, 5, 0), 0),
    ("02.01.2024 03:04:05 dotted", "UTC", "02.01.2024 03:04:05", "NUMERIC_DOTTED", (2024, 1, 2, 3, 4, 5, 0), 0),
    ("240102  3:04:05 mysqld", "UTC", "240102  3:04:05", "MYSQL", (2024, 1, 2, 3, 4, 5, 0), 0),
    ("240102 13:04:05 mysqld", "UTC", "240102 13:04:05", "MYSQL", (2024, 1, 2, 13, 4, 5, 0), 0),
    ("1704164645 event", "Europe/Paris", "1704164645", "EPOCH_SECONDS", (2024, 1, 2, 3, 4, 5, 0), 0),
    ("1704164645.5 event", "Europe/Paris", "1704164645.5", "EPOCH_SECONDS", (2024, 1, 2, 3, 4, 5, 500000), 0),
    ("level=info ts=1704164645123 msg=x", "UTC", "1704164645123", "EPOCH_MILLIS", (2024, 1, 2, 3, 4, 5, 123000), 0),
    ('{"level":"info","ts":1704164645.123456,"msg":"x"}', "UTC", "1704164645.123456", "EPOCH_SECONDS", (2024, 1, 2, 3, 4, 5, 123456), 0),
    ('{"time": 1704164645123456, "m": 1}', "UTC", "1704164645123456", "EPOCH_MICROS", (2024, 1, 2, 3, 4, 5, 123456), 0),
    ("1704164645123456789 nanos", "UTC", "1704164645123456789", "EPOCH_NANOS", (2024, 1, 2, 3, 4, 5, 123456), 0),
    ('{"@timestamp":"2024-01-02T03:04:05.000Z"}', "UTC", "2024-01-02T03:04:05.000Z", "ISO8601", (2024, 1, 2, 3, 4, 5, 0), 0),
    ("<34>1 2024-01-02T03:04:05.003Z host app 1 ID47 - msg", "UTC", "2024-01-02T03:04:05.003Z", "ISO8601", (2024, 1, 2, 3, 4, 5, 3000), 0),
]


def expected(fields, zone, offset):
    y, mo, d, h, mi, s, us = fields
    if offset is None:
        local = datetime(y, mo, d, h, mi, s, us, tzinfo=ZoneInfo(zone), fold=0)
    else:
        local = datetime(y, mo, d, h, mi, s, us, tzinfo=timezone(timedelta(minutes=offset)))
    return local.astimezone(timezone.utc).strftime("%Y-%m-%dT%H:%M:%S.%fZ")


def quote(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


for line, zone, found, fmt, fields, offset in CASES:
    print("        {%s, %s, %s, %s, %s}," % (quote(line), quote(zone), quote(found), quote(fmt),
                                           quote(expected(fields, zone, offset))))
