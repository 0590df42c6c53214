"""What may stand before a line's message: what the substitute debug library puts there, or a device."""

import re
from datetime import datetime

# In this order, each of them or none.
OWN = re.compile(
    r"(?:\[(?P<wall>\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}(?:[+-]\d\d:\d\d|Z))\] )?"
    r"(?:\[ *(?P<time>\d+\.\d{6})\] )?"
    r"(?:\[(?P<level>[AEWID-])\] )?"
    r"(?:\[(?P<module>0x[0-9a-f]+)\] )?"
    r"(?:\[(?P<id>\d+) (?P<name>[^\]]*)\] )?")


class Prefix:
    """Reads the time and the thread of a line."""

    def __init__(self, device=None):
        self.device = device

    def read(self, line):
        """Seconds from any beginning, or None; the thread, or None; its name, or None; level letter,
        or None; module, or None."""
        time = thread = name = None
        if self.device is not None:
            match = self.device.match(line)
            if match is not None:
                line = line[match.end():]
                groups = match.groupdict()
                time = seconds(groups.get("time"))
                thread = groups.get("thread")
        match = OWN.match(line)
        if match["time"]:
            time = float(match["time"])
        elif match["wall"]:
            time = seconds(match["wall"])
        if match["id"]:
            thread, name = match["id"], match["name"]
        return time, thread, name, match["level"], match["module"]

    def strip(self, line):
        if self.device is None:
            return line
        match = self.device.match(line)
        return line if match is None else line[match.end():]


def seconds(text):
    """Of what a device writes: seconds, or a date and time."""
    if not text:
        return None
    try:
        return float(text)
    except ValueError:
        pass
    try:
        return datetime.fromisoformat(text).timestamp()
    except (ValueError, OverflowError):  # A damaged line, as with month 13, or with year 0.
        return None
