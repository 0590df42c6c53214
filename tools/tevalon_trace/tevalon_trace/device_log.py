"""A log whose lines have times: the library's own, a kernel's, or one with dates.

    [38577.559890] [23612 tv_browser] text      seconds on the monotonic clock; the thread may lack
    2026-11-22 08:30:10.013 text                UTC; also with a T between, and a Z behind

A line without a time belongs to the one before it.
"""

import collections
import datetime
import re

Line = collections.namedtuple("Line", "time_ns kernel_id thread_name text")

_COLOUR = re.compile(r"\x1b\[[0-9;]*m")
# No more digits than a time has: Python refuses to read thousands of them.
_MONOTONIC = re.compile(r"\[ *(\d{1,18})\.(\d{1,9})\] ?(?:\[(\d{1,18}) ([^\]]*)\] ?)?")
_DATE = re.compile(r"(\d{4}-\d\d-\d\d)[ T](\d\d:\d\d:\d\d)(?:[.,](\d{1,9}))?Z?(?: UTC)?:? *")


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


def time_of(line, realtime_map):
    """(time, kernel id, thread name, rest); the time is None where the line has none."""
    found = _MONOTONIC.match(line)
    if found:
        whole, digits, kernel_id, name = found.groups()
        return (int(whole) * 10**9 + nanoseconds(digits), int(kernel_id or 0), name or "",
                line[found.end():])
    found = _DATE.match(line)
    if found:
        day, clock, digits = found.groups()
        try:
            moment = datetime.datetime.fromisoformat(f"{day}T{clock}+00:00")
        except ValueError:
            return None, 0, "", line
        realtime = int(moment.timestamp()) * 10**9 + nanoseconds(digits)
        return realtime_map.monotonic_ns(realtime), 0, "", line[found.end():]
    return None, 0, "", line


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
