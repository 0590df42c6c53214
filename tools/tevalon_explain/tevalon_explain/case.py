"""What is remembered of a log while it is read."""

import re

from .knowledge import CLIENT

# The prefix of that name; addresses are longer.
MODULE = re.compile(r"\[(0x[0-9a-f]{2,4})\] ")

# What begins here ends there; the key says which begin an end belongs to.
PAIRS = {
    "timer-stop-waits": ("timer-stop-waited", lambda values, thread: (values[0], thread)),
    "hub-ending-thread": ("hub-left", lambda values, thread: thread),
    "task-begun": ("task-finished", lambda values, thread: values[:2]),
    "watch-begun": ("watch-ended", lambda values, thread: values[0]),
}
ENDS = {end: (begin, key) for begin, (end, key) in PAIRS.items()}

COUNTED_EXPIRIES = ("timer-once-expired", "timer-again-expired")

# Of each message so many lines are kept, the rest is counted.
KEPT_LINES = 5


class Seen:
    """A line that matters: where it was, and what was in it."""

    __slots__ = ("line", "text", "time", "thread", "name", "values", "message")

    def __init__(self, line, text, place, values, message):
        self.line = line
        self.text = text
        self.time, self.thread, self.name = place[:3]
        self.values = values
        self.message = message


class Case:
    """Counts of all messages, the first lines of each failure, and what has begun and not ended."""

    def __init__(self, knowledge, prefix):
        self.knowledge = knowledge
        self.prefix = prefix
        self.counts = [0] * len(knowledge.messages)
        self.cut = 0
        self.modules = {}  # Number, as the prefix has it: lines.
        self.clients = 0
        self.others = 0
        self.lines = 0
        self.failures = {}  # Message id: the first lines.
        self.open = {}  # (begin's id, key): Seen.
        self.durations = {}  # Begin's id: the longest (seconds, begin).
        self.overruns = {}  # Watch id: [name, longest, first line, whether it has ended].
        self.expiries = {}  # Timer name: how often it has expired, before the first refused thread.
        self.registered = {}  # Module: whether its hub is registered.
        self.last_of_thread = {}  # Thread name: the last line.
        self.client_reports = {"E": [], "W": []}  # The first lines of other modules, by level.
        self.client_report_counts = {"E": 0, "W": 0}
        self.late_task = None  # (seconds, Seen) of the latest.
        self.errnos = {}  # Message id: errno: count.
        self.last_line = ""
        self.idle = 0.0  # Seconds since the last line came, where the log is followed.
        self.interesting = [self.is_interesting(m) for m in knowledge.messages]

    @staticmethod
    def is_interesting(message):
        return (bool(message.failure) or message.id in PAIRS or message.id in ENDS or
                message.id in COUNTED_EXPIRIES or
                message.id in ("hub-registering", "hub-unregistering", "task-times"))

    def add(self, found, line):
        """A line, and what Knowledge.look() has found in it."""
        self.lines += 1
        if "[0x" in line:
            module = MODULE.search(line)
            if module is not None:
                self.modules[module[1]] = self.modules.get(module[1], 0) + 1
        if found is None:
            if line:
                self.others += 1
            return
        if found is CLIENT:
            self.last_line = line
            self.clients += 1
            self.note_client(line)
            return
        self.last_line = line
        message = found.message
        self.counts[message.number] += 1
        if found.is_cut:
            self.cut += 1
        if message.id == "client-line":
            self.note_client(line)
        if self.interesting[message.number]:
            self.add_interesting(found, line)

    def note_client(self, line):
        """Of a client's line only the letter of its level tells what it is."""
        if "[E] " not in line and "[W] " not in line:
            return
        place = self.prefix.read(line)
        kept = self.client_reports.get(place[3])
        if kept is None:
            return
        self.client_report_counts[place[3]] += 1
        if len(kept) < KEPT_LINES:
            kept.append(Seen(self.lines, line, place, (), None))

    def add_interesting(self, found, line):
        place = self.prefix.read(line)
        message = found.message
        seen = Seen(self.lines, line, place, found.values, message)
        if message.failure:
            self.add_failure(seen)
        elif found.is_cut:
            pass
        elif message.id in PAIRS:
            _, key = PAIRS[message.id]
            self.open[message.id, key(seen.values, seen.thread)] = seen
        elif message.id in ENDS:
            self.end(seen)
        elif message.id in COUNTED_EXPIRIES:
            name = seen.values[0]
            if "timer-no-handler-thread" not in self.failures:
                self.expiries[name] = self.expiries.get(name, 0) + 1
        elif message.id == "task-times":
            late = float(seen.values[2]) - float(seen.values[1])
            if self.late_task is None or late > self.late_task[0]:
                self.late_task = (late, seen)
        else:
            self.registered[seen.values[1]] = message.id == "hub-registering"
        if seen.name:
            self.last_of_thread[seen.name] = seen

    def add_failure(self, seen):
        name = seen.message.id
        kept = self.failures.setdefault(name, [])
        if len(kept) < KEPT_LINES:
            kept.append(seen)
        if seen.values and "errno" in seen.message.text:
            numbers = self.errnos.setdefault(name, {})
            numbers[seen.values[0]] = numbers.get(seen.values[0], 0) + 1
        if name == "watch-overrun" and len(seen.values) == 3:
            number, watch, spent = seen.values
            known = self.overruns.setdefault(number, [watch, 0.0, seen, False])
            known[1] = max(known[1], float(spent))
            known[3] = False

    @property
    def last_time(self):
        return self.prefix.read(self.last_line)[0]

    def end(self, seen):
        begin, key = ENDS[seen.message.id]
        begun = self.open.pop((begin, key(seen.values, seen.thread)), None)
        if begin == "watch-begun" and seen.values[0] in self.overruns:
            self.overruns[seen.values[0]][3] = True
        if begun is None or begun.time is None or seen.time is None:
            return
        taken = seen.time - begun.time
        longest = self.durations.get(begin)
        if longest is None or taken > longest[0]:
            self.durations[begin] = (taken, begun)

    def count(self, name):
        return self.counts[self.knowledge.by_id[name].number]
