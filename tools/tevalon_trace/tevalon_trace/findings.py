"""What is worth a look in a recording, each with its time and thread."""

import collections
import heapq
import itertools

from .recording import event_name, module_name
from .sentences import mebibytes, milliseconds, printable
from .timeline import (FOREIGN_STOP, HANDLER, LONG_WAIT, OVERRUN, REFUSED, REPLY_WAIT, SCOPE, TASK,
                       TIME_OUT, TIMER, UNANSWERED)

MOST = 10  # Of each sort.
MIN_GROWTH = 4 * 2**20  # Of the private memory, to be worth a line.

# place is a Slice, an Instant or None; with is_least it took that long or longer.
Finding = collections.namedtuple("Finding", "ns duration_ns thread text place is_least",
                                 defaults=(False,))

SLOW = {HANDLER: "slowest handlers", TASK: "slowest tasks", TIMER: "slowest timer runs",
        SCOPE: "longest scopes", LONG_WAIT: "longest waits for locks and threads"}
INSTANTS = {TIME_OUT: "time-outs", OVERRUN: "overruns", UNANSWERED: "unanswered requests",
            REFUSED: "sends to nobody", FOREIGN_STOP: "timers stopped by another thread"}

# In the order in which one wants to know.
ORDER = ("circles", INSTANTS[TIME_OUT], INSTANTS[OVERRUN], INSTANTS[UNANSWERED], "still waiting",
         INSTANTS[REFUSED], INSTANTS[FOREIGN_STOP], "events that may never be freed",
         "growing memory", SLOW[HANDLER], SLOW[TASK], SLOW[TIMER], SLOW[SCOPE], SLOW[LONG_WAIT],
         "longest queues", "busiest threads")
# Of these it is normal that there are some.
USUAL = frozenset({*SLOW.values(), "longest queues", "busiest threads"})


def longest_first(slices):
    return sorted(slices, key=lambda each: -each.duration_ns())


class Findings:
    """A sink of a Timeline; set timeline before it is fed."""

    def __init__(self, recording):
        self.recording = recording
        self.timeline = None
        self._order = itertools.count()
        self._slowest = {category: [] for category in SLOW}
        self._cut = {category: [] for category in SLOW}
        self._longest_queues = {}
        self._instants = collections.defaultdict(list)
        self._counts = collections.Counter()
        self._circles = []
        self._waiting = []
        self._kept = []
        self._memory = []

    # ---- the timeline's sink ----

    def begun(self, new):
        pass

    def ended(self, old):
        if old.category == REPLY_WAIT and not old.is_whole:
            self._waiting.append(old)
        slowest = self._slowest.get(old.category)
        if slowest is None:
            return
        if old.is_cut:  # At most one of them for each level of each thread.
            self._cut[old.category].append(old)
            return
        entry = (old.end_ns - old.begin_ns, -next(self._order), old)
        if len(slowest) < MOST:
            heapq.heappush(slowest, entry)
        elif entry > slowest[0]:
            heapq.heapreplace(slowest, entry)

    def arrow(self, tail, tail_ns, head, head_ns):
        pass

    def instant(self, instant):
        if instant.category in INSTANTS:
            self._counts[instant.category] += 1
            if self._counts[instant.category] <= MOST:
                self._instants[instant.category].append(instant)

    def counter(self, ns, name, values):
        if "events" in values:
            length = values["events"]
            longest = self._longest_queues.get(name)
            if longest is None or length > longest[0]:
                self._longest_queues[name] = (length, ns)
        elif name == "memory":
            self._memory.append((ns, values["private MiB"] * 2**20))

    def circle(self, ns, way, is_cut):
        names = [self._member(thread) for thread in way]
        waits = [thread.stack[-1] for thread in way]
        text = " -> ".join(names + names[:1])
        self._circles.append(Finding(ns, ns - max(wait.begin_ns for wait in waits), way[0],
                                     text, waits[0], is_cut))

    def kept_events(self, event_type, created, kept):
        self._kept.append((kept, created, event_type))

    # ---- what came of it ----

    def all(self, end_ns):
        """[(heading, count, [Finding])], the count of all that there were, in ORDER."""
        found = {"circles": (len(self._circles), self._circles),
                 "still waiting": self._still_waiting(),
                 "events that may never be freed": self._kept_events(end_ns),
                 "growing memory": self._growing_memory(),
                 "longest queues": self._queues(),
                 "busiest threads": self._busiest(end_ns)}
        for category, heading in INSTANTS.items():
            found[heading] = (self._counts[category],
                              [self._of_instant(each) for each in self._instants[category]])
        for category, heading in SLOW.items():
            # What hangs is the slowest of all, however little of it is in the recording.
            cut = longest_first(self._cut[category])
            slowest = [each for _, _, each in sorted(self._slowest[category], reverse=True)]
            found[heading] = (len(cut) + len(slowest),
                              [self._of_slice(each) for each in cut[:MOST] + slowest])
        return [(heading, *found[heading]) for heading in ORDER]

    def _member(self, thread):
        """Of a circle, where all threads handle events."""
        name = printable(self.timeline.thread_name(thread))
        return f"{module_name(self.recording.names, thread.module)} ({name})"

    def _of_slice(self, each):
        name = each.name
        if each.category == HANDLER:
            name += f" in {module_name(self.recording.names, each.record[1][3])}"
        if not each.is_whole:
            name += ", not ended"
        if each.category != LONG_WAIT and each.waited_ns:
            name += f", of it waiting {milliseconds(each.waited_ns)}"
        return Finding(each.begin_ns, each.duration_ns(), each.thread, printable(name), each,
                       each.is_cut)

    def _of_instant(self, each):
        name = each.name
        if each.category == REFUSED:
            name += f", {module_name(self.recording.names, each.record[1][3])}"
        return Finding(each.ns, None, each.thread, printable(name), each)

    def _still_waiting(self):
        waiting = [Finding(each.begin_ns, each.duration_ns(), each.thread, printable(each.name),
                           each, each.is_cut) for each in longest_first(self._waiting)]
        return len(waiting), waiting[:MOST]

    def _kept_events(self, end_ns):
        found = []
        for kept, created, event_type in sorted(self._kept, reverse=True):
            name = event_name(self.recording.names, event_type)
            found.append(Finding(end_ns, None, None, printable(
                f"event {name}: {kept} of {created} were handled, and nothing came to their "
                "addresses again"), None))
        return len(found), found[:MOST]

    def _growing_memory(self):
        if len(self._memory) < 2:
            return 0, []
        (first_ns, first), (last_ns, last) = self._memory[0], self._memory[-1]
        # The first sample is of a process that begins; the growth after it has settled counts.
        settled_ns, settled = self._memory[1] if len(self._memory) > 2 else (first_ns, first)
        if last - settled < MIN_GROWTH:
            return 0, []
        text = (f"private memory grew from {mebibytes(settled)} to {mebibytes(last)} in "
                f"{(last_ns - settled_ns) / 1e9:.1f} s")
        return 1, [Finding(settled_ns, last_ns - settled_ns, None, text, None)]

    def _queues(self):
        longest = sorted(self._longest_queues.items(), key=lambda item: -item[1][0])
        return len(longest), [Finding(ns, None, None, printable(f"{name}: {length}"), None)
                              for name, (length, ns) in longest[:MOST]]

    def _busiest(self, end_ns):
        span = max(1, end_ns - self.recording.first_ns())
        threads = [thread for thread in self.timeline.threads.values() if thread.busy_ns > 0]
        threads.sort(key=lambda thread: -thread.busy_ns)
        return len(threads), [
            Finding(None, thread.busy_ns, thread,
                    f"{100 * thread.busy_ns / span:.1f} % of the time", None)
            for thread in threads[:MOST]]
