"""Several recordings and logs in one order of time."""

import collections
import heapq
import operator

from .device_log import RealtimeMap, read_log
from .layout import Kind
from .recording import NotReadable, read_file

# What happened: source is a Recording or a Log, what one of its records or lines.
Entry = collections.namedtuple("Entry", "time_ns source what")

BEGINNING = 0
END = 2**63


class Log:
    """The lines of a file."""

    def __init__(self, path, lines):
        self.path = path
        self.lines = lines

    def entries(self):
        return (Entry(line.time_ns, self, line) for line in self.lines)


class Collection:
    """What was read of all files, with what was not."""

    def __init__(self):
        self.recordings = []
        self.logs = []
        self.complaints = []
        self.from_ns = BEGINNING
        self.to_ns = END

    def add_recording(self, path):
        try:
            recording = read_file(path)
        except OSError as error:
            self.complaints.append(f"cannot read '{path}': {error.strerror}")
            return
        except NotReadable as error:
            self.complaints.append(f"cannot read '{path}': {error}")
            return
        damage = recording.damage.describe(recording.head)
        if damage:
            self.complaints.append(f"cannot read all of '{path}': {damage}")
        for other in self.recordings:
            if other.identity() == recording.identity():
                other.add_copy(recording)
                return
        if self.recordings:
            recording.shift_ns = shift_between(self.recordings[0].head, recording.head)
        self.recordings.append(recording)

    def add_log(self, path):
        pairs = [pair for recording in self.recordings for pair in clock_pairs(recording)]
        try:
            lines, left_out = read_log(path, RealtimeMap(pairs or [(0, 0)]))
        except OSError as error:
            self.complaints.append(f"cannot read '{path}': {error.strerror}")
            return
        if left_out:
            self.complaints.append(f"cannot place all of '{path}': {left_out} lines before the "
                                   "first one that begins with a time")
        self.logs.append(Log(path, lines))

    def is_empty(self):
        return not self.recordings

    def first_ns(self):
        return max(self.from_ns, min(each.first_ns() for each in self.recordings))

    def last_ns(self):
        return min(self.to_ns, max(each.last_ns() for each in self.recordings))

    def entries(self, with_gaps=False, from_the_beginning=False):
        """All within the chosen time, in order; gaps as Recording.records() has them.

        From the beginning: what was before the chosen time too, for whoever pairs records.
        """
        sources = [entries_of(recording, with_gaps) for recording in self.recordings]
        sources += [log.entries() for log in self.logs]
        if len(sources) == 1:
            merged = sources[0]
        else:
            merged = heapq.merge(*sources, key=operator.itemgetter(0))
        from_ns = BEGINNING if from_the_beginning else self.from_ns
        if from_ns == BEGINNING and self.to_ns == END:
            return merged
        return (entry for entry in merged if from_ns <= entry.time_ns <= self.to_ns)


def entries_of(recording, with_gaps):
    return (Entry(record.time_ns, recording, record) for record in recording.records(with_gaps))


def shift_between(first, other):
    """What to add to the times of a recording to have them on the clock of the first one."""
    if first.boot_id == other.boot_id:
        return 0
    return (other.start_realtime_ns - other.start_ns) - (first.start_realtime_ns - first.start_ns)


def clock_pairs(recording):
    """The moments at which both clocks were read: (realtime, monotonic)."""
    yield recording.head.start_realtime_ns, recording.head.start_ns + recording.shift_ns
    for record in recording.records():
        if record.kind == Kind.MEMORY:
            yield record.fields[3], record.time_ns
