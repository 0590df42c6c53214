"""A log whose lines have times: the library's own, a kernel's, or one with dates.

    [38577.559890] [23612 tv_browser] text          seconds on the monotonic clock
    [2026-11-22T20:15:00.123456+01:00] [E] text     a date; without an offset it is UTC
    2026-11-22 08:30:10.013 text                    also with a T between, and a Z or an offset behind

Level, module and thread may follow as ZOR_DEBUG_PREFIX puts them. A line without a time belongs to
the one before it.
"""

import collections
import datetime
import re

Line = collections.namedtuple("Line", "time_ns kernel_id thread_name text")

_COLOUR = re.compile(r"\x1b\[[0-9;]*m")
# No more digits than a time has: Python refuses to read thousands of them.
_DATE = (r"(?P<day>\d{4}-\d\d-\d\d)[ T](?P<clock>\d\d:\d\d:\d\d)(?:[.,](?P<fraction>\d{1,9}))?"
         r"(?:Z|(?P<hours>[+-]\d\d):?(?P<minutes>\d\d))?(?: UTC)?")
_PLAIN_DATE = re.compile(_DATE + ":? *")
# What the debug library puts before a line, in this order, each of them or none.
_PREFIX = re.compile(
    rf"(?:\[{_DATE}\] ?)?"
    r"(?:\[ *(?P<seconds>\d{1,18})\.(?P<digits>\d{1,9})\] ?)?"
    r"(?P<kept>(?:\[[AEWID-]\] )?(?:\[0x[0-9a-f]+\] )?)"
    r"(?:\[(?P<kernel_id>\d{1,18}) (?P<name>[^\]]*)\] ?)?")


def nanoseconds(digits):
    return int(digits.ljust(9, "0")) if digits else 0


class RealtimeMap:
    """Turns the time of day into the monotonic clock, by the moments at which a process read both.

    The time of day is set while a set runs: each time the nearest of those moments counts.
    """

    def __init__(self, pairs):
        self._pairs = sorted(pairs)

    def monotonic_ns(self, realtime_ns):
        realtime, monotonic = min(self._pairs, key=lambda pair: abs(pair[0] - realtime_ns))
        return monotonic + realtime_ns - realtime


def realtime_of(found):
    """In ns, of a match of a date; None where there is no such moment."""
    zone = f"{found['hours']}:{found['minutes']}" if found["hours"] else "+00:00"
    try:
        moment = datetime.datetime.fromisoformat(f"{found['day']}T{found['clock']}{zone}")
    except ValueError:
        return None
    return int(moment.timestamp()) * 10**9 + nanoseconds(found["fraction"])


def time_of(line, realtime_map):
    """(time, kernel id, thread name, rest); the time is None where the line has none.

    The monotonic time counts where both are there. Level and module stay in the rest.
    """
    found = _PREFIX.match(line)
    if found["seconds"] is None and found["day"] is None:
        found = _PLAIN_DATE.match(line)
        if not found:
            return None, 0, "", line
    parts = found.groupdict()
    if parts.get("seconds"):
        time_ns = int(parts["seconds"]) * 10**9 + nanoseconds(parts["digits"])
    else:
        realtime = realtime_of(found)
        if realtime is None:
            return None, 0, "", line
        time_ns = realtime_map.monotonic_ns(realtime)
    rest = line[found.end():]
    return (time_ns, int(parts.get("kernel_id") or 0), parts.get("name") or "",
            parts.get("kept", "") + rest if rest else "")


def read_log(path, realtime_map):
    """(lines in order of time, how many had to be left out for want of a time).

    Raises OSError.
    """
    lines = []
    left_out = 0
    with open(path, encoding="utf-8", errors="surrogateescape") as file:
        for raw in file:
            time_ns, kernel_id, name, text = time_of(_COLOUR.sub("", raw.rstrip("\n")),
                                                     realtime_map)
            if not text:
                continue
            if time_ns is not None:
                lines.append(Line(time_ns, kernel_id, name, text))
            elif lines:
                before = lines[-1]
                lines.append(before._replace(text=text))
            else:
                left_out += 1
    lines.sort(key=lambda line: line.time_ns)
    return lines, left_out
