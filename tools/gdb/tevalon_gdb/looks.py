"""What can be seen of hubs, timers, threads and watches: as src/diagnostics/snapshot.h, from
memory that stands still.

No lock is taken, so a list may be in the middle of a change. What cannot be read is left out and
noted; no walk is longer than a limit, nor does it go anywhere twice.
"""

from types import SimpleNamespace

import gdb

from tevalon_gdb import memory
from tevalon_gdb.memory import READ_ERRORS, holder, number, object_at, unsigned

ANY_MODULE = -2**31
HUB_LOCKS = (('teardown', 'm_teardownMtx'), ('thread', 'm_threadMtx'), ('queue', 'm_queueMtx'),
             ('handlers', 'm_handlerMtx'))
MOST_ACTIVITIES = 100000
MOST_FAILURES = 10
SERVING = ('HubThread', 'TaskThread', 'WatchThread', 'TimerRun')


class Names:
    """What the process calls its modules, events and tasks."""

    KINDS = {1: 'module', 2: 'event', 3: 'task'}

    def __init__(self):
        self._names = {}

    def read(self):
        slots = memory.variable_if_linked('record::(anonymous namespace)::g_slots')
        given = memory.variable_if_linked('record::(anonymous namespace)::g_given')
        if slots is None or given is None:
            return
        slot_type = memory.type_of('record::(anonymous namespace)::Slot')
        count = min(unsigned(given), slots.type.sizeof // slot_type.sizeof)
        for i in range(count):
            self._add(memory.at(memory.address_of(slots) + i * slot_type.sizeof, slot_type))

    def _add(self, slot):
        if not unsigned(slot['isComplete']):
            return
        name = slot['name']
        kind = self.KINDS.get(int(name['kind']))
        text = memory.text_of(memory.read_bytes(memory.address_of(name['text']), 24))
        self._names.setdefault((kind, int(name['id'])), text)

    def find(self, kind, number_of_it):
        return self._names.get((kind, number_of_it))


class Snapshot:
    """All of the process. `notes` has what could not be read, as lines."""

    def __init__(self):
        self.notes = []
        self.hubs = []
        self.task_threads = []
        self.runs = []
        self.timers = []
        self.watch_dogs = []
        self.watches = []
        self.waits = []
        self.dispatcher_holder = 0
        self.scheduler_holder = 0
        # Finds out whether there is anything to look at before all else.
        activities = memory.list_of_activities()
        self.names = Names()
        self._reading('names of modules, events and tasks', self.names.read)
        self._reading('the list of hubs', self._take_registered)
        self._reading('the list of what threads do',
                      lambda: self._take_activities(activities))
        self._reading('the list of timers', self._take_timers)

    def _reading(self, what, take):
        """Runs a step; what it had taken in before it failed stays."""
        try:
            take()
        except READ_ERRORS as error:
            self.notes.append('%s: damaged, or not in memory, from here on: %s' % (what, error))

    def _each(self, what, entries, take):
        """Runs it with each entry. One that fails is noted; many are no list any more."""
        failures = 0
        for entry in entries:
            try:
                take(entry)
            except READ_ERRORS as error:
                failures += 1
                if failures > MOST_FAILURES:
                    raise memory.Damaged('%d entries are damaged' % failures)
                self.notes.append('%s: damaged, or not in memory: %s' % (what, error))

    # ---- hubs ----

    def _take_registered(self):
        first = memory.variable_if_linked('event_dispatcher::EventDispatcher::HubList::s_first')
        if first is None or memory.pointer(first) == 0:
            return
        hubs = object_at(memory.pointer(first), 'event_dispatcher::EventDispatcher::HubList')
        self.dispatcher_holder = holder(hubs['m_hubsMtx'])
        listed_type = memory.type_of('event_dispatcher::EventDispatcher::HubList::Listed')
        self._each('a registered hub', memory.vector(hubs['m_hubs'], listed_type),
                   self._take_registered_hub)

    def _take_registered_hub(self, listed):
        module = int(listed['moduleId'])
        hub = object_at(int(listed['p_hub']), 'event_dispatcher::EventHub')
        impl = memory.pointer(hub['m_impl'])
        look = hub_look(impl) if impl != 0 else _empty_hub(0, module)
        look.module = module
        look.is_registered = True
        self.hubs.append(look)

    # ---- threads ----

    def _take_activities(self, first):
        kinds = {field.enumval: field.name.rsplit('::', 1)[-1]
                 for field in memory.type_of('activity::Kind').fields()}
        lock = memory.variable_if_linked('activity::(anonymous namespace)::g_lock')
        if lock is not None and number(lock['count']) > 0:
            self.notes.append('the list of what threads do was locked: it may be in the middle of '
                              'a change')
        takers = {'HubThread': self._take_hub, 'TaskThread': self._take_task_thread,
                  'WatchThread': self._take_watch_dog, 'TimerRun': self._take_run}
        seen = set()
        address = int(first)
        while address != 0:
            if address in seen or len(seen) >= MOST_ACTIVITIES:
                raise memory.Damaged('it does not end')
            seen.add(address)
            activity = object_at(address, 'activity::Activity')
            kind = kinds.get(int(activity['m_kind']))
            if kind is None:
                raise memory.Damaged('an entry of no kind at 0x%x' % address)
            thread = SimpleNamespace(kind=kind, address=address,
                                     thread_id=int(activity['m_threadId']),
                                     object=int(activity['m_object']))
            address = int(activity['m_next'])
            if kind in SERVING and thread.object == 0:
                continue  # Of an object that is gone.
            self._each('what thread %d does' % thread.thread_id, [thread],
                       takers.get(kind, self._take_wait))

    def _take_hub(self, thread):
        look = hub_look(thread.object)
        add_hub_activity(look, thread)
        for i, listed in enumerate(self.hubs):
            if listed.hub == look.hub:
                look.is_registered = listed.is_registered
                self.hubs[i] = look
                return
        self.hubs.append(look)

    def _take_task_thread(self, thread):
        activity = object_at(thread.address, 'timer::TaskActivity')
        state = object_at(int(activity['m_state']), 'timer::TimerThread::State')
        look = task_queue_look(state)
        look.thread = thread.object
        look.thread_id = thread.thread_id
        look.is_busy = bool(unsigned(activity['m_isBusy']))
        look.task_id = number(activity['m_taskId'])
        look.session_id = number(activity['m_sessionId'])
        look.since = memory.atomic_double(activity['m_since'])
        self.task_threads.append(look)

    def _take_run(self, thread):
        run = object_at(thread.address, 'simple_timer::RunActivity')
        timer = object_at(thread.object, 'simple_timer::TimerImpl')
        self.runs.append(SimpleNamespace(
            timer=thread.object, name=timer_name(timer), thread_id=thread.thread_id,
            since_ms=int(run['m_sinceMs'])))

    def _take_watch_dog(self, thread):
        watch_dog = object_at(thread.object, 'timer::WatchDog')
        self.watch_dogs.append(SimpleNamespace(watch_dog=thread.object, thread_id=thread.thread_id,
                                               holder=holder(watch_dog['m_mutex'])))
        for watch_id in range(_count_of(watch_dog['m_beginTime'])):
            begin = float(watch_dog['m_beginTime'][watch_id])
            if begin == 0:
                continue  # Idle.
            self.watches.append(SimpleNamespace(
                id=watch_id, name=_watch_name(watch_id), begin=begin,
                allowed=float(watch_dog['m_timeout'][watch_id]),
                before=float(watch_dog['m_elapsed'][watch_id])))

    def _take_wait(self, thread):
        wait = SimpleNamespace(kind=thread.kind, thread_id=thread.thread_id, object=thread.object)
        if thread.kind == 'SyncSend':
            reply = object_at(thread.address, 'event_dispatcher::ReplyWait')
            since = reply['m_since']
            wait.type = int(reply['m_type'])
            wait.source = int(reply['m_source'])
            wait.target = int(reply['m_target'])
            wait.timeout_ms = int(reply['m_timeoutMs'])
            wait.since_ns = int(since['tv_sec']) * 10**9 + int(since['tv_nsec'])
            wait.handled_by = ANY_MODULE
            handled_by = int(reply['m_handledBy'])
            if handled_by != 0:
                wait.handled_by = int(memory.at(handled_by, gdb.lookup_type('int')))
        self.waits.append(wait)

    # ---- timers ----

    def _take_timers(self):
        mutex = memory.variable_if_linked('simple_timer::(anonymous namespace)::g_timerMutex')
        heap = memory.variable_if_linked('simple_timer::(anonymous namespace)::g_timerHeap')
        if mutex is None or heap is None:
            return
        self.scheduler_holder = holder(mutex)
        if int(heap) == 0:
            return
        entry_type = memory.type_of('simple_timer::TimerHeap::Entry')
        entries = object_at(int(heap), 'simple_timer::TimerHeap')['m_entries']
        self._each('a timer', memory.vector(entries, entry_type), self._take_timer)

    def _take_timer(self, entry):
        timer = object_at(int(entry['timer']), 'simple_timer::TimerImpl')
        look = timer_look(timer)
        look.expired_ns = time_of(entry['expired'])
        self.timers.append(look)


def _count_of(array):
    low, high = array.type.strip_typedefs().range()
    return high - low + 1


def _watch_name(watch_id):
    for field in memory.type_of('timer::WatchDog::WATCH_ID').fields():
        if field.enumval == watch_id:
            return field.name.rsplit('::', 1)[-1]
    return 'Unknown'


# ---- one object ----

def _empty_hub(hub, module):
    return SimpleNamespace(hub=hub, module=module, is_registered=False, thread_id=0, waiting=0,
                           is_busy=False, event=0, type=0, source=0, reading_ms=0,
                           begun_since_reading=0, holders=(0, 0, 0, 0))


def hub_look(address):
    """Of an EventHubImpl, without what its thread does."""
    impl = object_at(address, 'event_dispatcher::EventHubImpl')
    look = _empty_hub(address, int(impl['m_moduleId']))
    look.holders = tuple(holder(impl[member]) for _, member in HUB_LOCKS)
    look.waiting = int(impl['m_eventQueue']['m_pushed'])
    return look


def add_hub_activity(look, thread):
    readings_apart = 16  # Handlers between two readings of the clock; see HubActivity.
    activity = object_at(thread.address, 'event_dispatcher::HubActivity')
    taken = unsigned(activity['m_taken'])
    begun = unsigned(activity['m_begun'])
    handler = memory.pointer(activity['m_handler'])
    look.thread_id = thread.thread_id
    look.waiting += max(taken - begun, 0)
    look.is_busy = handler != 0
    look.event = memory.pointer(activity['m_event'])
    if handler != 0:
        look.type = int(object_at(handler, 'event_dispatcher::InnerHandler_t')['eventType'])
    look.source = number(activity['m_source'])
    look.reading_ms = unsigned(activity['m_readingMs'])
    look.begun_since_reading = (begun - 1) % 2**32 % readings_apart


def time_of(expired):
    """An ExpiredTime in nanoseconds."""
    return int(expired['sec']) * 10**9 + int(expired['nsec'])


def timer_name(timer):
    return memory.text_of(memory.std_string(timer['m_name'], 39))


def timer_look(timer):
    """Of a TimerImpl, but for when it is due."""
    timeout = memory.at(memory.address_of(timer['m_timeout']),
                        memory.type_of('simple_timer::Timeout'))
    return SimpleNamespace(
        timer=memory.address_of(timer), name=timer_name(timer),
        timeout_ns=int(timeout['sec']) * 10**9 + int(timeout['usec']) * 1000,
        is_periodic=number(timer['m_type']) == int(_enumerator('simple_timer::TimerType_e',
                                                               'CONTINUE')),
        runs=int(timer['m_runs']), holder=holder(timer['m_mutex']))


def _enumerator(type_name, name):
    for field in memory.type_of(type_name).fields():
        if field.name.rsplit('::', 1)[-1] == name:
            return field.enumval
    raise memory.Damaged('no %s in %s' % (name, type_name))


def task_queue_look(state):
    """Of a TimerThread::State, without what its thread does."""
    queue = state['m_taskQueue']
    queued = int(queue['m_size'])
    fire_time = 0.0
    if queued > 0:
        first = object_at(int(queue['m_first']), 'timer::TimerTaskBase')
        fire_time = memory.atomic_double(first['m_nextFireTime'])
    return SimpleNamespace(
        thread=0, name=memory.text_of(memory.read_bytes(memory.address_of(state['m_name']), 16)),
        thread_id=0, queued=queued, first_due=fire_time,
        is_first_cancelled=queued > 0 and fire_time == 0.0,
        is_busy=False, task_id=0, session_id=0, since=0.0, holder=holder(state['m_queueMutex']))
