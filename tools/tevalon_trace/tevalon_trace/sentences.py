"""What a record tells, in words."""

import datetime

from .layout import ANY_MODULE, Kind, NameKind

_CONTROL = {code: f"\\x{code:02x}" for code in (*range(0x20), 0x7F)}

REFUSALS = {0: "no hub of that module", 1: "no handler takes it",
            2: "no event, or it could not be armed", 3: "its queue is full"}
WAITS = {0: "for the lock of", 1: "inside a stop of", 2: "inside the destructor of",
         3: "inside an unregister of"}


def printable(text):
    """Without what would move a terminal's cursor."""
    return text.translate(_CONTROL)


def seconds(ns):
    whole, rest = divmod(ns, 10**9)
    return f"{whole}.{rest:09}"


def milliseconds(ns):
    return f"{ns / 1e6:.3f} ms"


def mebibytes(count):
    return f"{count / 2**20:.1f} MiB"


def date(realtime_ns):
    whole, rest = divmod(realtime_ns, 10**9)
    try:
        moment = datetime.datetime.fromtimestamp(whole, datetime.timezone.utc)
    except (OverflowError, ValueError, OSError):
        return "an unknown date"
    return f"{moment:%Y-%m-%d %H:%M:%S}.{rest // 10**6:03} UTC"


class Sentences:
    """Of the records of one recording, whose names are looked up once each."""

    def __init__(self, names):
        self._names = names
        self._modules = {ANY_MODULE: "any"}
        self._events = {}
        self._tasks = {}
        self._of = {
            Kind.EVENT_CREATED: lambda f: f"{self._event_from(f)} created",
            Kind.EVENT_SENT: lambda f: f"{self._event_from(f)} sent to {self.module(f[3])}",
            Kind.EVENT_QUEUED: lambda f: (f"{self._event_from(f)} queued for {self.module(f[3])}, "
                                          f"queue length {f[4]}"),
            Kind.EVENT_REFUSED: lambda f: (f"{self._event_from(f)} refused by "
                                           f"{self.module(f[3])}: {refusal(f[4])}"),
            Kind.HANDLER_BEGUN: lambda f: (f"{self._event_from(f)} handler of "
                                           f"{self.module(f[3])} begun"),
            Kind.HANDLER_ENDED: lambda f: (f"{self._event_from(f)} handler of "
                                           f"{self.module(f[3])} ended"),
            Kind.EVENT_REPLIED: lambda f: f"{self._event(f)} replied {f[2]}",
            Kind.EVENT_AWAITED: lambda f: (f"{self._event(f)} waited for" +
                                           ("" if f[2] == -1 else f", at most {f[2]} ms")),
            Kind.EVENT_AWAITED_IN_VAIN: lambda f: (f"{self._event(f)} waited for in vain, "
                                                   f"{f[2]} ms"),
            Kind.EVENT_UNANSWERED: lambda f: (f"{self._event_from(f)} ended without a reply "
                                              "though one waits"),
            Kind.TASK_POSTED: lambda f: f"{self._task(f)} posted, due in {milliseconds(f[3])}",
            Kind.TASK_CANCELLED: lambda f: f"{self._task(f)} cancelled",
            Kind.TASK_BEGUN: lambda f: f"{self._task(f)} begun",
            Kind.TASK_ENDED: lambda f: f"{self._task(f)} ended",
            Kind.TIMER_STARTED: lambda f: (f"timer 0x{f[0]:x} '{printable(f[2])}' started, "
                                           f"due in {milliseconds(f[1])}"),
            Kind.TIMER_STOPPED: lambda f: f"timer 0x{f[0]:x} stopped",
            Kind.TIMER_DUE: lambda f: f"timer 0x{f[0]:x} due",
            Kind.TIMER_RUN_BEGUN: lambda f: f"timer 0x{f[0]:x} '{printable(f[1])}' run begun",
            Kind.TIMER_RUN_ENDED: lambda f: f"timer 0x{f[0]:x} run ended",
            Kind.WATCH_BEGUN: lambda f: f"watch {f[0]} begun, allowed {milliseconds(f[2])}",
            Kind.WATCH_OVERDUE: lambda f: f"watch {f[0]} overdue after {milliseconds(f[2])}",
            Kind.WATCH_ENDED: lambda f: f"watch {f[0]} ended",
            Kind.HUB_REGISTERED: lambda f: f"{self._hub(f)} registered",
            Kind.HUB_UNREGISTERED: lambda f: f"{self._hub(f)} unregistered",
            Kind.HUB_THREAD_STARTED: lambda f: f"{self._hub(f)} thread started",
            Kind.HUB_THREAD_ENDED: lambda f: f"{self._hub(f)} thread ended",
            Kind.WAITED: waited,
            Kind.MEMORY: memory,
            Kind.MARK: lambda f: f"mark '{printable(f[1])}' {f[0]}",
            Kind.SCOPE_BEGUN: lambda f: f"scope '{printable(f[0])}' begun",
            Kind.SCOPE_ENDED: lambda f: f"scope '{printable(f[0])}' ended",
            Kind.COUNTER: lambda f: f"counter '{printable(f[1])}' {f[0]}",
        }

    def of(self, kind, fields):
        """"event 0x1f0 type 100 (tune) from 1 sent to 7 (tuner)"."""
        words = self._of.get(kind)
        return words(fields) if words is not None else unknown(kind, fields)

    def module(self, number):
        """"7 (tuner)"."""
        return self._modules.get(number) or self._named(self._modules, NameKind.MODULE, number)

    def event_type(self, number):
        return self._events.get(number) or self._named(self._events, NameKind.EVENT, number)

    def task_id(self, number):
        return self._tasks.get(number) or self._named(self._tasks, NameKind.TASK, number)

    def _named(self, known, kind, number):
        name = self._names.get((kind, number))
        text = str(number) if name is None else f"{number} ({printable(name)})"
        known[number] = text
        return text

    def _event(self, f):
        return f"event 0x{f[0]:x} type {self._events.get(f[1]) or self.event_type(f[1])}"

    def _event_from(self, f):
        return (f"event 0x{f[0]:x} type {self._events.get(f[1]) or self.event_type(f[1])} "
                f"from {self._modules.get(f[2]) or self.module(f[2])}")

    def _task(self, f):
        return f"task 0x{f[0]:x} id {self.task_id(f[1])} session {f[2]}"

    def _hub(self, f):
        return f"hub 0x{f[0]:x} of {self.module(f[1])}"


def refusal(reason):
    return REFUSALS.get(reason) or f"reason {reason}"


def waited(f):
    address, place, other, ns = f
    text = f"waited {milliseconds(ns)} {WAITS.get(place, 'for')} 0x{address:x}"
    return text + (f" for thread {other}" if other != 0 else "")


def memory(f):
    resident, private, heap, realtime_ns = f
    text = f"memory: resident {mebibytes(resident)}, of it private {mebibytes(private)}"
    if heap != 0:
        text += f", heap in use {mebibytes(heap)}"
    return f"{text}, at {date(realtime_ns)}"


def unknown(kind, words):
    return f"record of unknown kind {kind}:" + "".join(f" 0x{word:x}" for word in words)
