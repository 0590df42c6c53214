"""The state report's text: line by line as src/diagnostics/state_report.cpp and state_lists.cpp
have it, so that one description explains both."""

import datetime

from tevalon_gdb import clock, looks, recording, threads
from tevalon_gdb.memory import linked
from tevalon_gdb.waits import WaitGraph, is_known

FEW = 10
ALL = 2**63
NS = clock.NS


def _nanoseconds(ns):
    return '%d.%09d' % (ns // NS, ns % NS)


def _seconds(ns):
    return '%.3f s' % (ns / NS)


def write_state(is_whole=False):
    """The report's lines."""
    snapshot = looks.Snapshot()
    process = threads.Threads()
    memory = recording.find()
    now = clock.now(snapshot, memory.content)
    _name_threads(process, snapshot, memory.content)
    lines = _head(process, now, memory)
    lines += Lists(snapshot, process, now, ALL if is_whole else FEW).lines()
    return lines + _notes(snapshot, process, now, memory)


def hub_line(impl):
    """The line of one hub, by the address of its EventHubImpl."""
    snapshot = looks.Snapshot()
    process = threads.Threads()
    _name_threads(process, snapshot, None)
    lists = Lists(snapshot, process, clock.now(snapshot, None), ALL)
    for hub in snapshot.hubs:
        if hub.hub == impl:
            return lists.hub(hub)
    return lists.hub(looks.hub_look(impl))  # Neither registered nor with a thread.


def _name_threads(process, snapshot, content):
    """Where gdb knows no names: those that the library has given, and those that are recorded."""
    for hub in snapshot.hubs:
        process.give_name(hub.thread_id, 'Evt:%d' % hub.module)
    for tasks in snapshot.task_threads:
        process.give_name(tasks.thread_id, tasks.name)
    for run in snapshot.runs:
        process.give_name(run.thread_id, ('T:' + run.name)[:15])
    for watch_dog in snapshot.watch_dogs:
        process.give_name(watch_dog.thread_id, 'WatchDog')
    if content is not None:
        for thread_id, name in content.thread_names.items():
            process.give_name(thread_id, name)


def _head(process, now, memory):
    boot_id = linked('_ZZN7tevalon4base6bootIDEvE8s_bootId', 'unsigned int')
    lines = ["process %d '%s', boot id %d" % (process.process_id, process.program_name(), boot_id),
             'build id of the program %s, of the library %s'
             % (threads.program_build_id(), threads.library_build_id())]
    date = ''
    if now.realtime_ns is not None:
        utc = datetime.datetime.fromtimestamp(now.realtime_ns // NS, datetime.timezone.utc)
        date = '%s.%03d UTC, ' % (utc.strftime('%Y-%m-%d %H:%M:%S'),
                                  now.realtime_ns % NS // 10**6)
    lines.append('at %smonotonic %s' % (date, _nanoseconds(now.monotonic_ns)))
    lines.append(memory.summary())
    return lines


def _notes(snapshot, process, now, memory):
    notes = []
    if now.source is not None:
        notes.append('no clock can be read: the time is the latest one found, when %s; it was then '
                     'or later, and what goes on does so for that much longer' % now.source)
    used = {look.thread_id for looks_of in (snapshot.hubs, snapshot.task_threads, snapshot.runs,
                                            snapshot.watch_dogs, snapshot.waits)
            for look in looks_of} - {0}
    missing = sorted(used - process.ids_with_stack())
    if missing:
        notes.append('gdb has no registers, and no backtrace, of %d of these threads (%s). A core '
                     'may lack threads; an emulated process shows all through its stub, '
                     'qemu-arm -g PORT' % (len(missing), ', '.join(map(str, missing[:FEW]))))
    if not process.has_names():
        notes.append('gdb has no names of threads here: these are what the library calls its own, '
                     'and what was recorded')
    return ['note: ' + note for note in snapshot.notes + memory.notes + notes]


class Lists:
    """The lists behind the head of the report."""

    def __init__(self, snapshot, process, now, most):
        self._now = snapshot
        self._process = process
        self._clock = now
        self._most = most
        self._graph = WaitGraph(snapshot)
        self._lines = []

    def lines(self):
        self._add_hubs()
        self._add_waits()
        self._add_ways()
        self._add_timers()
        self._add_runs()
        self._add_task_threads()
        self._add_watches()
        self._add_locks()
        return self._lines

    # ---- names ----

    def _named(self, kind, number):
        name = self._now.names.find(kind, number)
        return "%d '%s'" % (number, name) if name is not None else '%d' % number

    def _module(self, number):
        return 'module ' + self._named('module', number) if is_known(number) else 'any module'

    def _event(self, event_type, source):
        return 'event %s of %s' % (self._named('event', event_type), self._module(source))

    def _thread(self, thread_id):
        name = self._process.name(thread_id)
        return "thread %d '%s'" % (thread_id, name) if name else 'thread %d' % thread_id

    @staticmethod
    def _find(looks_of, thread_id):
        return next((look for look in looks_of if look.thread_id == thread_id), None)

    def _served(self, thread_id):
        hub = self._find(self._now.hubs, thread_id)
        if hub is not None:
            return self._module(hub.module)
        tasks = self._find(self._now.task_threads, thread_id)
        if tasks is not None:
            return "task thread '%s'" % tasks.name
        run = self._find(self._now.runs, thread_id)
        if run is not None:
            return "timer '%s'" % run.name
        if self._find(self._now.watch_dogs, thread_id) is not None:
            return 'watchdog'
        return self._thread(thread_id)

    # ---- lists ----

    def _add_list(self, title, entries, text_of):
        if not entries:
            self._lines.append(title + ': none')
            return
        self._lines.append('%s: %d' % (title, len(entries)))
        for entry in entries[:self._most]:
            self._lines.append('  ' + text_of(entry))
        if len(entries) > self._most:
            self._lines.append('  and %d more' % (len(entries) - self._most))

    # Where not all are shown, those first that have something to do.
    def _add_hubs(self):
        hubs = list(self._now.hubs)
        if len(hubs) > self._most:
            hubs.sort(key=lambda hub: not (hub.is_busy or hub.waiting > 0))
        self._add_list('hubs', hubs, self.hub)

    def hub(self, hub):
        text = '%s: %s' % (self._module(hub.module),
                           self._thread(hub.thread_id) if hub.thread_id != 0 else 'no thread')
        if not hub.is_registered:
            text += ', not registered'
        text += ', %d waiting' % hub.waiting
        return text if hub.thread_id == 0 else text + ', ' + self._handler(hub)

    # Nothing moves: what is in hand stays there.
    def _handler(self, hub):
        if not hub.is_busy:
            return 'about to handle' if hub.waiting > 0 else 'idle'
        at_most = '' if hub.begun_since_reading == 0 else 'at most '
        return 'in %s for %s%s' % (self._event(hub.type, hub.source), at_most,
                                   self._since_ms(hub.reading_ms))

    def _since_ms(self, milliseconds):
        elapsed = (self._clock.monotonic_ns // 10**6 - milliseconds) % 2**32
        return '%.3f s' % (elapsed / 1000.0)

    def _add_waits(self):
        self._add_list('waits', self._now.waits, self._wait)

    def _wait(self, wait):
        text = self._thread(wait.thread_id)
        hub = self._find(self._now.hubs, wait.thread_id)
        if hub is not None:
            text += ' of ' + self._module(hub.module)
        if wait.kind == 'SyncSend':
            return text + self._reply_wait(wait)
        text += {'Destructor': ', in a destructor',
                 'Unregister': ', in an unregister'}.get(wait.kind, ', in a stop')
        awaited = self._graph.thread_awaited_by(wait)
        if awaited == 0:
            return text
        return text + ', for %s of %s' % (self._thread(awaited), self._served(awaited))

    def _reply_wait(self, wait):
        elapsed = self._clock.monotonic_ns - wait.since_ns
        text = ', for the reply of %s to %s, since %s, ' % (
            self._module(wait.target), self._event(wait.type, wait.source), _seconds(elapsed))
        if wait.timeout_ms < 0:
            text += 'without limit'
        else:
            text += 'until in ' + _seconds(wait.timeout_ms * 10**6 - elapsed)
        if not is_known(wait.handled_by) or self._is_in_hand(wait.object):
            return text
        return text + '; handled by %s and not answered' % self._module(wait.handled_by)

    def _is_in_hand(self, event):
        return any(hub.is_busy and hub.event == event for hub in self._now.hubs)

    # ---- who waits for whom ----

    # Circles first; then the ways from those that nobody waits for.
    def _add_ways(self):
        if not self._now.waits:
            return
        self._lines.append('who waits for whom:')
        left = self._most
        for are_circles in (True, False):
            for wait in self._now.waits:
                if left == 0:
                    return
                if wait is not self._graph.wait_of(wait.thread_id):
                    continue
                is_first = (self._graph.is_first_of_circle(wait.thread_id) if are_circles
                            else not self._graph.is_awaited(wait.thread_id))
                if not is_first:
                    continue
                left -= 1
                self._lines.append(('  circle: ' if are_circles else '  ')
                                   + self._way(wait.thread_id))

    def _way(self, first):
        text = self._served(first)
        is_circle = bool(self._graph.circle_of(first))
        thread = first
        while True:
            wait = self._graph.wait_of(thread)
            if wait is None:
                return text + self._doing(thread)
            thread = self._graph.thread_awaited_by(wait)
            text += ' -> '
            if thread == 0:
                return text + self._nobody(wait)
            text += self._served(thread)
            if thread == first:
                return text
            if not is_circle and self._graph.circle_of(thread):
                return text + ', in a circle'

    def _nobody(self, wait):
        if wait.kind != 'SyncSend':
            return 'a thread that is about to end'
        if not is_known(wait.target):
            return 'whoever replies'
        return self._module(wait.target) + ', which has no thread'

    def _doing(self, thread_id):
        hub = self._find(self._now.hubs, thread_id)
        if hub is not None:
            return ', ' + self._handler(hub)
        tasks = self._find(self._now.task_threads, thread_id)
        return ', ' + self._task_in_hand(tasks) if tasks is not None else ''

    # ---- timers ----

    def _add_timers(self):
        timers = sorted(self._now.timers, key=lambda timer: timer.expired_ns)
        self._add_list('timers', timers, self._timer)

    def _timer(self, timer):
        text = "'%s' in %s" % (timer.name, _seconds(timer.expired_ns - self._clock.monotonic_ns))
        if timer.is_periodic:
            text += ', every ' + _seconds(timer.timeout_ns)
        if timer.runs > 0:
            text += ', %d run%s going on' % (timer.runs, '' if timer.runs == 1 else 's')
        return text

    def _add_runs(self):
        self._add_list('timer runs', self._now.runs, lambda run: "'%s': %s, for %s" % (
            run.name, self._thread(run.thread_id), self._since_ms(run.since_ms)))

    # ---- tasks ----

    def _add_task_threads(self):
        self._add_list('task threads', self._now.task_threads, self._task_thread)

    def _task_thread(self, tasks):
        text = "'%s': %s, %d queued" % (tasks.name, self._thread(tasks.thread_id), tasks.queued)
        if tasks.queued > 0 and tasks.is_first_cancelled:
            text += ', first cancelled'
        elif tasks.queued > 0:
            text += ', first in %.3f s' % (tasks.first_due - self._clock.monotonic_ns / NS)
        return text + ', ' + self._task_in_hand(tasks)

    def _task_in_hand(self, tasks):
        if not tasks.is_busy:
            return 'idle'
        return 'in task %s of session %d for %.3f s' % (
            self._named('task', tasks.task_id), tasks.session_id,
            self._clock.monotonic_ns / NS - tasks.since)

    # ---- watches ----

    def _add_watches(self):
        self._add_list('watches', self._now.watches, self._watch)

    def _watch(self, watch):
        left = watch.allowed - (self._clock.monotonic_ns / NS - watch.begin + watch.before)
        return "%d '%s': " % (watch.id, watch.name) + (
            '%.3f s left of %.3f s' % (left, watch.allowed) if left > 0
            else 'overdue by %.3f s of %.3f s' % (-left, watch.allowed))

    # ---- locks ----

    def _add_locks(self):
        held = [('list of hubs', self._now.dispatcher_holder),
                ('list of timers', self._now.scheduler_holder)]
        for hub in self._now.hubs:
            held += [('%s of %s' % (name, self._module(hub.module)), holder)
                     for (name, _), holder in zip(looks.HUB_LOCKS, hub.holders)]
        held += [("queue of task thread '%s'" % tasks.name, tasks.holder)
                 for tasks in self._now.task_threads]
        held += [("runs of timer '%s'" % timer.name, timer.holder) for timer in self._now.timers]
        held += [('watches', watch_dog.holder) for watch_dog in self._now.watch_dogs]
        self._add_list('locks held', [lock for lock in held if lock[1] != 0],
                       lambda lock: '%s by %s' % (lock[0], self._thread(lock[1])))
