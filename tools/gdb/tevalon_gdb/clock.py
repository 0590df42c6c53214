"""What time it was when the process stopped."""

import time
from types import SimpleNamespace

from tevalon_gdb import threads

NS = 10**9
LAST_NS = 2**63  # Later than any clock shows: what is in memory is no time.


def nanoseconds(seconds):
    return int(round(seconds * NS))


def _times(snapshot):
    """The moments that are in memory, as (nanoseconds, what happened then)."""
    for wait in snapshot.waits:
        if wait.kind == 'SyncSend':
            yield wait.since_ns, 'thread %d began to wait for a reply' % wait.thread_id
    for tasks in snapshot.task_threads:
        if 0 < tasks.since < LAST_NS / NS:
            yield nanoseconds(tasks.since), "task thread '%s' began a task" % tasks.name
    for watch in snapshot.watches:
        if 1 < watch.begin < LAST_NS / NS:
            yield nanoseconds(watch.begin), 'watch %d began' % watch.id
    # Not where that is in the future: a time-out that was changed since tells nothing.
    first_due = min((timer.expired_ns for timer in snapshot.timers), default=0)
    for timer in snapshot.timers:
        begun = timer.expired_ns - timer.timeout_ns
        if timer.timeout_ns > 0 and begun <= first_due:
            yield begun, "timer '%s' began to run" % timer.name


def _short_times(snapshot):
    """The same of the moments whose time is kept in milliseconds modulo 2^32."""
    for hub in snapshot.hubs:
        if hub.reading_ms != 0:
            yield hub.reading_ms, 'a handler of module %d began' % hub.module
    for run in snapshot.runs:
        yield run.since_ms, "a run of timer '%s' began" % run.name


def latest(snapshot, recording):
    """The latest moment that is in memory; the process stopped then or later. Of `recording`, the
    last record; None where there is none."""
    known = [moment for moment in _times(snapshot) if moment[0] < LAST_NS]
    if recording is not None and recording.last_ns > 0:
        known.append((recording.last_ns, 'the last record was written'))
    reference = max(known, default=(0, ''))[0]
    for short, what in _short_times(snapshot):
        ms = reference // 10**6
        difference = (short - ms) % 2**32
        if difference >= 2**31:
            difference -= 2**32
        known.append((max(ms + difference, 0) * 10**6, what))
    return max(known, default=(0, 'nothing that has a time'))


def now(snapshot, recording):
    """`monotonic_ns`; `realtime_ns`, None where it is not known; and `source`, where that is not
    the clock. The clock is this machine's, so a process of another machine is like a core."""
    latest_ns, what = latest(snapshot, recording)
    if threads.connection_type() == 'native':
        monotonic = time.clock_gettime_ns(time.CLOCK_MONOTONIC)
        if monotonic >= latest_ns:
            return SimpleNamespace(monotonic_ns=monotonic, realtime_ns=time.time_ns(), source=None)
    realtime = None
    if recording is not None and recording.realtime is not None:
        at_ns, realtime_ns = recording.realtime
        realtime = realtime_ns + latest_ns - at_ns
    return SimpleNamespace(monotonic_ns=latest_ns, realtime_ns=realtime, source=what)
