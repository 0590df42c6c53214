"""Records paired to slices, arrows, counters and instants.

A Timeline is fed the records of one recording in order of time, and calls a sink:

    begun(slice)                        what it lies in is on its thread's stack
    ended(slice)                        it has its end; is_whole tells whether both ends are real
    arrow(tail, tail_ns, head, head_ns) from one slice to another
    instant(instant)
    counter(ns, name, values)
    circle(ns, threads, is_cut)         none of these threads goes on before a time-out; is_cut as
                                        a slice has it
    kept_events(type, created, kept)    at the end: events that seem never to be freed
"""

from .layout import ANY_MODULE, Kind, NameKind
from .recording import GAP, event_name, module_name, name_of
from .sentences import milliseconds, refusal

HANDLER, SEND, REPLY_WAIT, LONG_WAIT = "handler", "send", "reply wait", "wait"
TASK, TIMER, SCOPE = "task", "timer", "scope"

# The categories of instants. The first group is what is worth a look.
TIME_OUT, OVERRUN, REFUSED, UNANSWERED, FOREIGN_STOP = (
    "time-out", "overrun", "refused", "unanswered", "stopped elsewhere")
MARK, OTHER = "mark", "other"

MIN_KEPT = 20  # Fewer events that are not freed are no finding: their addresses may just rest.


class Slice:
    """What a thread did from begin_ns to end_ns. The records at its ends are (kind, fields)."""

    __slots__ = ("thread", "category", "name", "key", "begin_ns", "end_ns", "depth", "record",
                 "end_record", "is_whole", "is_cut", "number", "waited_ns")

    def __init__(self, thread, category, name, key, begin_ns, record):
        self.thread = thread
        self.category = category
        self.name = name
        self.key = key
        self.begin_ns = begin_ns
        self.end_ns = begin_ns
        self.depth = len(thread.stack)
        self.record = record
        self.end_record = None
        self.is_whole = False
        self.is_cut = False  # It went on when the recording ended, nobody knows for how long.
        self.waited_ns = 0  # Of it, in waits.

    def duration_ns(self):
        return self.end_ns - self.begin_ns


class Instant:
    """What happened at one moment."""

    __slots__ = ("thread", "category", "name", "ns", "record", "number")

    def __init__(self, thread, category, name, ns, record):
        self.thread = thread
        self.category = category
        self.name = name
        self.ns = ns
        self.record = record


class ThreadState:
    """What a thread is in the middle of."""

    __slots__ = ("number", "timeline", "stack", "send", "send_end_ns", "first_ns", "previous_ns",
                 "last_ns", "busy_ns", "module")

    def __init__(self, number, timeline, ns):
        self.number = number
        self.timeline = timeline
        self.stack = []
        self.send = None  # A slice on the stack that ends with the last record about it.
        self.send_end_ns = 0
        self.first_ns = ns
        self.previous_ns = ns
        self.last_ns = ns
        self.busy_ns = 0
        self.module = None  # Whose events it handles.


class Life:
    """An event from its creation until its address is used again."""

    __slots__ = ("type", "target", "tails", "is_replied", "handling", "is_handled", "waits")

    def __init__(self, event_type):
        self.type = event_type
        self.target = None
        self.tails = {}  # Module: where the arrow to its handler begins.
        self.is_replied = False
        self.handling = None  # The thread whose handler is in the middle of it.
        self.is_handled = False
        self.waits = []  # Slices.


class TimerLife:
    __slots__ = ("name", "starter", "is_started", "tail")

    def __init__(self, name, starter):
        self.name = name
        self.starter = starter
        self.is_started = True
        self.tail = None


class Timeline:
    def __init__(self, recording, sink):
        self.recording = recording
        self.threads = {}
        self.unpaired = 0  # Ends whose beginning is not there.
        self._names = recording.names
        self._sink = sink
        self._lives = {}
        self._created = {}  # Event type: how many.
        self._tasks = {}
        self._timers = {}
        self._watches = {}  # Id: by whom it was begun.
        self._handler_threads = {}  # Module: thread.
        self._queues = {}
        self._queue_names = {}
        self._event_names = {}
        self._last_ns = 0
        self._circles = set()
        self._cuts = False
        self._on = {
            Kind.EVENT_CREATED: self._event_created,
            Kind.EVENT_SENT: self._event_sent,
            Kind.EVENT_QUEUED: self._event_queued,
            Kind.EVENT_REFUSED: self._event_refused,
            Kind.HANDLER_BEGUN: self._handler_begun,
            Kind.HANDLER_ENDED: self._handler_ended,
            Kind.EVENT_REPLIED: self._event_replied,
            Kind.EVENT_AWAITED: self._event_awaited,
            Kind.EVENT_AWAITED_IN_VAIN: self._event_awaited_in_vain,
            Kind.EVENT_UNANSWERED: self._event_unanswered,
            Kind.TASK_POSTED: self._task_posted,
            Kind.TASK_CANCELLED: self._task_cancelled,
            Kind.TASK_BEGUN: self._task_begun,
            Kind.TASK_ENDED: self._task_ended,
            Kind.TIMER_STARTED: self._timer_started,
            Kind.TIMER_STOPPED: self._timer_stopped,
            Kind.TIMER_DUE: self._timer_due,
            Kind.TIMER_RUN_BEGUN: self._timer_run_begun,
            Kind.TIMER_RUN_ENDED: self._timer_run_ended,
            Kind.WATCH_BEGUN: self._watch_begun,
            Kind.WATCH_OVERDUE: self._watch_overdue,
            Kind.WATCH_ENDED: self._watch_ended,
            Kind.HUB_REGISTERED: self._hub("registered"),
            Kind.HUB_UNREGISTERED: self._hub("unregistered"),
            Kind.HUB_THREAD_STARTED: self._hub_thread_started,
            Kind.HUB_THREAD_ENDED: self._hub("thread ended"),
            Kind.WAITED: self._waited,
            Kind.MEMORY: self._memory,
            Kind.MARK: self._mark,
            Kind.SCOPE_BEGUN: self._scope_begun,
            Kind.SCOPE_ENDED: self._scope_ended,
            Kind.COUNTER: self._counter,
        }

    def feed(self, record):
        ns, number, kind, fields = record
        thread = self.threads.get(number)
        if thread is None:
            thread = self.threads[number] = ThreadState(number, self, ns)
        if kind == GAP:
            self._end_all(thread, thread.last_ns)
            return
        if thread.send is not None and not self._belongs_to_send(thread, kind, ns, fields):
            self._end_send(thread)
        # Only a thread that has gone on records anything else.
        if (thread.stack and thread.stack[-1].category == REPLY_WAIT and
                kind != Kind.EVENT_AWAITED_IN_VAIN):
            self._end_top(thread, ns, None)
        thread.previous_ns = thread.last_ns
        thread.last_ns = ns
        self._last_ns = ns
        handle = self._on.get(kind)
        if handle is None:
            self._instant(thread, OTHER, f"record of kind {kind}", ns, (kind, fields))
        else:
            handle(thread, ns, fields)

    def finish(self, end_ns):
        """What goes on still ends here, as far as can be told.

        Of a copy, or where the process was killed, only the last record's time is known.
        """
        end_ns = max(end_ns, self._last_ns)
        self._cuts = self.recording.head.stop_ns == 0 or end_ns < self.recording.last_ns()
        for thread in self.threads.values():
            if thread.stack and thread.stack[-1].category == REPLY_WAIT:
                self._look_for_circle(thread, end_ns)
        for thread in self.threads.values():
            self._end_all(thread, end_ns)
        kept = {}
        for life in self._lives.values():
            if life.is_handled and life.handling is None:
                kept[life.type] = kept.get(life.type, 0) + 1
        for event_type, count in sorted(kept.items()):
            created = self._created.get(event_type, 0)
            if count >= MIN_KEPT and 2 * count >= created:
                self._sink.kept_events(event_type, created, count)

    def event_name(self, number):
        name = self._event_names.get(number)
        if name is None:
            is_named = (NameKind.EVENT, number) in self._names
            name = event_name(self._names, number) if is_named else f"event {number}"
            self._event_names[number] = name
        return name

    # ---- slices ----

    def _begin(self, thread, category, name, key, ns, record):
        new = Slice(thread, category, name, key, ns, record)
        thread.stack.append(new)
        self._sink.begun(new)
        return new

    def _end_top(self, thread, ns, record, is_whole=True):
        top = thread.stack.pop()
        top.end_ns = max(ns, top.begin_ns)
        top.end_record = record
        top.is_whole = is_whole
        top.is_cut = self._cuts and not is_whole
        duration = top.end_ns - top.begin_ns
        if top.category == REPLY_WAIT or top.category == LONG_WAIT:
            top.waited_ns = duration
        if thread.stack:
            thread.stack[-1].waited_ns += top.waited_ns
        else:
            thread.busy_ns += duration - min(duration, top.waited_ns)
        self._sink.ended(top)

    def _end(self, thread, category, key, ns, record):
        """Ends the slice of this key, and what is open within it."""
        for index in range(len(thread.stack) - 1, -1, -1):
            found = thread.stack[index]
            if found.category == category and found.key == key:
                while len(thread.stack) > index + 1:
                    self._end_top(thread, ns, None, is_whole=False)
                self._end_top(thread, ns, record)
                return
        self.unpaired += 1

    @staticmethod
    def _belongs_to_send(thread, kind, ns, fields):
        """The queueing that follows, and a wait for a lock on the way there."""
        if kind == Kind.EVENT_QUEUED or kind == Kind.EVENT_REFUSED:
            return fields[0] == thread.send.key
        return kind == Kind.WAITED and thread.send_end_ns == thread.send.begin_ns

    def _end_send(self, thread):
        thread.send = None
        self._end_top(thread, thread.send_end_ns, None)  # What began within it has ended.

    def _instant(self, thread, category, name, ns, record):
        self._sink.instant(Instant(thread, category, name, ns, record))

    @staticmethod
    def _tail(thread, ns):
        """Where an arrow begins: the slice that the thread is in, if any, and when."""
        return (thread.stack[-1], ns) if thread.stack else None

    def _end_all(self, thread, ns):
        if thread.send is not None:
            self._end_send(thread)
        while thread.stack:
            self._end_top(thread, ns, None, is_whole=False)

    # ---- events ----

    def _life(self, fields):
        life = self._lives.get(fields[0])
        if life is None or life.type != fields[1]:
            life = self._lives[fields[0]] = Life(fields[1])
        return life

    def _event_created(self, thread, ns, fields):
        self._lives[fields[0]] = Life(fields[1])
        self._created[fields[1]] = self._created.get(fields[1], 0) + 1

    def _event_sent(self, thread, ns, fields):
        life = self._life(fields)
        life.is_replied = False
        life.target = fields[3]
        thread.send = self._begin(thread, SEND, f"send {self.event_name(fields[1])}", fields[0], ns,
                                  (Kind.EVENT_SENT, fields))
        thread.send_end_ns = ns

    def _event_queued(self, thread, ns, fields):
        thread.send_end_ns = ns
        life = self._life(fields)
        module = fields[3]
        if life.target is None or life.target == ANY_MODULE:
            life.target = module
        # From the send's beginning: it may end with this very record.
        tail = self._tail(thread, ns if thread.send is None else thread.send.begin_ns)
        if tail is not None:
            life.tails[module] = tail
        self._count_queue(ns, module, fields[4])

    def _count_queue(self, ns, module, length):
        self._queues[module] = length
        name = self._queue_names.get(module)
        if name is None:
            name = self._queue_names[module] = f"queue of {module_name(self._names, module)}"
        self._sink.counter(ns, name, {"events": length})

    def _event_refused(self, thread, ns, fields):
        thread.send_end_ns = ns
        # A send to everybody asks all hubs, and each that has no handler for it says so.
        is_for_one = (thread.send is None or thread.send.record[1][3] != ANY_MODULE)
        self._instant(thread, REFUSED if is_for_one else OTHER,
                      f"{self.event_name(fields[1])} refused: {refusal(fields[4])}",
                      ns, (Kind.EVENT_REFUSED, fields))

    def _handler_begun(self, thread, ns, fields):
        life = self._life(fields)
        module = fields[3]
        life.handling = thread
        thread.module = module
        self._handler_threads[module] = thread
        new = self._begin(thread, HANDLER, self.event_name(fields[1]), fields[0], ns,
                          (Kind.HANDLER_BEGUN, fields))
        tail = life.tails.pop(module, None)
        if tail is not None:
            self._sink.arrow(*tail, new, ns)
        length = self._queues.get(module, 0)
        if length > 0:
            self._count_queue(ns, module, length - 1)

    def _handler_ended(self, thread, ns, fields):
        life = self._lives.get(fields[0])
        # The handler may have freed it, and another one may have its address already.
        if life is not None and life.handling is thread:
            life.handling = None
            life.is_handled = True
        self._end(thread, HANDLER, fields[0], ns, (Kind.HANDLER_ENDED, fields))

    def _event_replied(self, thread, ns, fields):
        life = self._life(fields)
        life.is_replied = True
        tail = self._tail(thread, ns)
        for wait in life.waits:
            if wait.thread.stack and wait.thread.stack[-1] is wait:
                if tail is not None:
                    self._sink.arrow(*tail, wait, ns)
                self._end_top(wait.thread, ns, (Kind.EVENT_REPLIED, fields))
        life.waits.clear()

    def _event_awaited(self, thread, ns, fields):
        life = self._life(fields)
        if not life.is_replied:
            life.waits.append(self._begin(
                thread, REPLY_WAIT, f"wait for {self.event_name(fields[1])}", fields[0], ns,
                (Kind.EVENT_AWAITED, fields)))

    def _event_awaited_in_vain(self, thread, ns, fields):
        record = (Kind.EVENT_AWAITED_IN_VAIN, fields)
        if fields[2] != 0:  # Zero only asks.
            self._look_for_circle(thread, ns)
            self._instant(thread, TIME_OUT,
                          f"{self.event_name(fields[1])} not answered within {fields[2]} ms", ns,
                          record)
        self._end(thread, REPLY_WAIT, fields[0], ns, record)

    def _event_unanswered(self, thread, ns, fields):
        self._instant(thread, UNANSWERED, f"{self.event_name(fields[1])} ended without a reply", ns,
                      (Kind.EVENT_UNANSWERED, fields))

    def _look_for_circle(self, thread, ns):
        """Whether this thread, which waits for a reply, waits in the end for itself."""
        way = []
        at = thread
        while at is not None and at not in way:
            way.append(at)
            at = self._waits_for(at)
        if at is None:
            return
        way = way[way.index(at):]
        # The same circle is met from each of its threads.
        key = frozenset((each.number, each.stack[-1].begin_ns) for each in way)
        if key not in self._circles:
            self._circles.add(key)
            self._sink.circle(ns, way, self._cuts)

    def _waits_for(self, thread):
        """The thread that would have to reply; None where it waits for no reply."""
        if not thread.stack or thread.stack[-1].category != REPLY_WAIT:
            return None
        life = self._lives[thread.stack[-1].key]  # Noted when the wait began.
        if life.handling is not None:
            return life.handling
        return None if life.is_handled else self._handler_threads.get(life.target)

    # ---- tasks ----

    def _task_name(self, fields):
        return f"task {name_of(self._names, NameKind.TASK, fields[1])}"

    def _task_posted(self, thread, ns, fields):
        tail = self._tail(thread, ns)
        if tail is not None:
            self._tasks[fields[0]] = tail
        self._instant(thread, OTHER, f"{self._task_name(fields)} posted", ns,
                      (Kind.TASK_POSTED, fields))

    def _task_cancelled(self, thread, ns, fields):
        self._tasks.pop(fields[0], None)
        self._instant(thread, OTHER, f"{self._task_name(fields)} cancelled", ns,
                      (Kind.TASK_CANCELLED, fields))

    def _task_begun(self, thread, ns, fields):
        new = self._begin(thread, TASK, self._task_name(fields), fields[0], ns,
                          (Kind.TASK_BEGUN, fields))
        tail = self._tasks.pop(fields[0], None)
        if tail is not None:
            self._sink.arrow(*tail, new, ns)

    def _task_ended(self, thread, ns, fields):
        self._end(thread, TASK, fields[0], ns, (Kind.TASK_ENDED, fields))

    # ---- timers and watches ----

    def _timer_started(self, thread, ns, fields):
        timer = self._timers[fields[0]] = TimerLife(fields[2], thread)
        timer.tail = self._tail(thread, ns)
        self._instant(thread, OTHER, f"timer '{fields[2]}' started", ns,
                      (Kind.TIMER_STARTED, fields))

    def _timer_stopped(self, thread, ns, fields):
        timer = self._timers.get(fields[0])
        if timer is None:
            self._instant(thread, OTHER, "timer stopped", ns, (Kind.TIMER_STOPPED, fields))
            return
        is_foreign = timer.is_started and timer.starter is not thread
        timer.is_started = False
        self._instant(thread, FOREIGN_STOP if is_foreign else OTHER,
                      f"timer '{timer.name}' stopped" +
                      (f", which {self.thread_name(timer.starter)} started" if is_foreign else ""),
                      ns, (Kind.TIMER_STOPPED, fields))

    def _timer_due(self, thread, ns, fields):
        timer = self._timers.get(fields[0])
        self._instant(thread, OTHER, f"timer '{timer.name}' due" if timer else "timer due", ns,
                      (Kind.TIMER_DUE, fields))

    def _timer_run_begun(self, thread, ns, fields):
        new = self._begin(thread, TIMER, f"timer {fields[1]}", fields[0], ns,
                          (Kind.TIMER_RUN_BEGUN, fields))
        timer = self._timers.get(fields[0])
        if timer is not None and timer.tail is not None:
            self._sink.arrow(*timer.tail, new, ns)
            timer.tail = None

    def _timer_run_ended(self, thread, ns, fields):
        self._end(thread, TIMER, fields[0], ns, (Kind.TIMER_RUN_ENDED, fields))

    def _watch_begun(self, thread, ns, fields):
        within = f" in {thread.stack[-1].name}" if thread.stack else ""
        self._watches[fields[0]] = f", begun by {self.thread_name(thread)}{within}"
        self._instant(thread, OTHER, f"watch {fields[0]} begun", ns, (Kind.WATCH_BEGUN, fields))

    def _watch_overdue(self, thread, ns, fields):
        self._instant(thread, OVERRUN,
                      f"watch {fields[0]} overdue after {milliseconds(fields[2])}"
                      f"{self._watches.get(fields[0], '')}", ns, (Kind.WATCH_OVERDUE, fields))

    def _watch_ended(self, thread, ns, fields):
        self._instant(thread, OTHER, f"watch {fields[0]} ended", ns, (Kind.WATCH_ENDED, fields))

    # ---- the rest ----

    def _hub(self, what):
        kind = {"registered": Kind.HUB_REGISTERED, "unregistered": Kind.HUB_UNREGISTERED,
                "thread ended": Kind.HUB_THREAD_ENDED}[what]

        def handle(thread, ns, fields):
            self._instant(thread, OTHER, f"hub of {module_name(self._names, fields[1])} {what}",
                          ns, (kind, fields))
        return handle

    def _hub_thread_started(self, thread, ns, fields):
        thread.module = fields[1]
        self._handler_threads[fields[1]] = thread
        self._instant(thread, OTHER,
                      f"hub of {module_name(self._names, fields[1])} thread started", ns,
                      (Kind.HUB_THREAD_STARTED, fields))

    def _waited(self, thread, ns, fields):
        """Recorded behind the wait; nothing else was meanwhile."""
        places = {0: "lock", 1: "stop", 2: "destructor", 3: "unregister"}
        begin_ns = max(ns - max(0, fields[3]), thread.previous_ns)
        if thread.send is not None:
            thread.send_end_ns = ns
        self._begin(thread, LONG_WAIT, f"wait: {places.get(fields[1], 'other')}", fields[0],
                    begin_ns, (Kind.WAITED, fields))
        self._end_top(thread, ns, None)

    def _memory(self, thread, ns, fields):
        values = {"resident MiB": fields[0] / 2**20, "private MiB": fields[1] / 2**20}
        if fields[2]:
            values["heap MiB"] = fields[2] / 2**20
        self._sink.counter(ns, "memory", values)

    def _mark(self, thread, ns, fields):
        self._instant(thread, MARK, fields[1], ns, (Kind.MARK, fields))

    def _scope_begun(self, thread, ns, fields):
        self._begin(thread, SCOPE, fields[0], fields[0], ns, (Kind.SCOPE_BEGUN, fields))

    def _scope_ended(self, thread, ns, fields):
        self._end(thread, SCOPE, fields[0], ns, (Kind.SCOPE_ENDED, fields))

    def _counter(self, thread, ns, fields):
        self._sink.counter(ns, fields[1], {"value": fields[0]})

    def thread_name(self, thread):
        return self.recording.threads[thread.number].name
