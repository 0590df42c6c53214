"""Tests of what gdb shows of rare states and damaged memory, all in one gdb: gdb_test.py has that
source this file, with the busy process stopped where everything is in place. What a test changes in
the process's memory is as before when it has ended.
"""

import errno
import io
import math
import os
import struct
import sys
import time
import unittest
from types import SimpleNamespace

import gdb

sys.dont_write_bytecode = True
HERE = os.path.dirname(os.path.realpath(__file__))
sys.path.append(os.path.join(os.path.dirname(HERE), 'tevalon_trace'))

from made_recording import MadeRecording, text, word  # noqa: E402
from tevalon_gdb import clock, looks, memory, queues, recording  # noqa: E402

NS = 10**9
MS = 10**6
MARK = 29
PAGE = 4096


def state(options=''):
    return gdb.execute('tevalon state ' + options, to_string=True)


def printed(expression):
    return gdb.execute('output ' + expression, to_string=True)


def call(expression):
    """What the process returns; its other threads stay where they are."""
    return int(gdb.parse_and_eval(expression))


def entries_of(report, title):
    """Of a list in the report, the lines below its title."""
    lines = iter(report.splitlines())
    for line in lines:
        if line.startswith(title + ':'):
            break
    entries = []
    for line in lines:
        if not line.startswith('  '):
            break
        entries.append(line.strip())
    return entries


def activities(kind):
    """The entries of the list of what threads do that are of this kind, the youngest first."""
    kinds = {field.enumval: field.name.rsplit('::', 1)[-1]
             for field in memory.type_of('activity::Kind').fields()}
    address = int(memory.list_of_activities())
    while address != 0:
        entry = memory.object_at(address, 'activity::Activity')
        if kinds[int(entry['m_kind'])] == kind:
            yield entry
        address = int(entry['m_next'])


class InProcess(unittest.TestCase):
    maxDiff = None

    def write(self, address, data):
        inferior = gdb.selected_inferior()
        before = inferior.read_memory(address, len(data)).tobytes()
        self.addCleanup(inferior.write_memory, address, before)
        inferior.write_memory(address, data)

    def put(self, place, value):
        """A number, into a variable or a member."""
        data = (struct.pack('<d', value) if isinstance(value, float) else
                value.to_bytes(place.type.sizeof, 'little'))
        self.write(memory.address_of(place), data)

    def put_word(self, place, index, value):
        """Into one of the words of an object whose members gdb may not know."""
        width = memory.word_bytes()
        self.write(memory.address_of(place) + index * width, value.to_bytes(width, 'little'))

    def put_recording(self, made):
        """Where the process's own is, in memory that is larger."""
        place = memory.variable_if_linked('diagnostics::(anonymous namespace)::g_memory')
        data = made if isinstance(made, bytes) else made.bytes()
        self.assertLessEqual(len(data), int(place['bytes']))
        self.write(int(place['p_begin']), data)

    def watch_dog(self):
        return memory.object_at(int(next(activities('WatchThread'))['m_object']), 'timer::WatchDog')


# ---- what threads do ----

class StateTest(InProcess):
    def test_a_name_that_is_being_given_is_not_shown(self):
        slots = memory.variable_if_linked('record::(anonymous namespace)::g_slots')
        first = memory.at(memory.address_of(slots),
                          memory.type_of('record::(anonymous namespace)::Slot'))
        self.assertIn("module 1 'tuner': ", state())
        self.put(first['isComplete'], 0)
        report = state()
        self.assertIn('  module 1: ', report)
        self.assertIn("module 2 'caller': ", report)

    def test_what_serves_an_object_that_is_gone_is_left_out(self):
        before = state('-whole')
        self.assertEqual(len(entries_of(before, 'task threads')), 2)
        self.assertEqual(len(entries_of(before, 'watches')), 1)
        for kind in ('WatchThread', 'TaskThread', 'TimerRun', 'HubThread'):
            self.put(next(activities(kind))['m_object'], 0)
        report = state('-whole')
        self.assertEqual(len(entries_of(report, 'task threads')), 1)
        self.assertIn('\nwatches: none\n', report)
        self.assertIn('\ntimer runs: none\n', report)
        idle = [entry for entry in entries_of(report, 'hubs') if 'no thread' in entry]
        self.assertEqual(len(entries_of(report, 'hubs')), 13)  # Where it was not registered.
        self.assertEqual(len(idle), 8, idle)

    def test_a_wait_of_which_is_not_known_who_handles_it(self):
        self.assertIn('; handled by module 6 and not answered', state())
        for wait in activities('SyncSend'):
            reply = memory.object_at(memory.address_of(wait), 'event_dispatcher::ReplyWait')
            self.put(reply['m_handledBy'], 0)
        report = state()
        self.assertNotIn('; handled by', report)
        self.assertEqual(len(entries_of(report, 'waits')), 5)

    def test_a_thread_is_blocked_in_the_last_of_its_waits(self):
        stop, unregister = next(activities('Stop')), next(activities('Unregister'))
        self.assertEqual(len(entries_of(state(), 'who waits for whom')), 4)
        # As in a handler of a signal that arrived in the other wait.
        self.put(unregister['m_threadId'], int(stop['m_threadId']))
        report = state()
        self.assertEqual(len(entries_of(report, 'waits')), 5)
        ways = entries_of(report, 'who waits for whom')
        self.assertEqual(len(ways), 3)
        own, = [way for way in ways if way.startswith('thread %d ' % int(stop['m_threadId']))]
        self.assertTrue(own.endswith(" -> timer 'running'"), own)

    def test_watches_are_called_as_the_library_calls_them(self):
        for number in (0, 1, 12, 53, 1000):
            name = gdb.parse_and_eval('tevalon::base::timer::WatchDog::getWatchIdName('
                                      '(tevalon::base::timer::WatchDog::WATCH_ID) %d)' % number)
            self.assertEqual(looks._watch_name(number), name.string())

    def test_a_program_is_called_as_it_calls_itself(self):
        own = os.path.join(os.getcwd(), 'named')
        address = memory.address_of(gdb.parse_and_eval("*(char **) &'program_invocation_short_name'"))
        buffer = int(memory.variable_if_linked('diagnostics::(anonymous namespace)::g_memory')
                     ['p_begin'])
        self.write(buffer, b'x' * 100 + bytes(1))
        self.write(address, struct.pack('<Q', buffer))
        self.assertEqual(call('writeStateTo("%s", 0)' % own), 0)
        with open(own, encoding='utf-8') as file:
            self.assertEqual(state().splitlines()[0], file.readline().rstrip('\n'))

    def test_a_name_that_does_not_end_or_is_nowhere(self):
        first = state().splitlines()[0]
        self.assertIn(" 'gdb_busy_process', ", first)
        address = memory.address_of(gdb.parse_and_eval("*(char **) &'program_invocation_short_name'"))
        buffer = int(memory.variable_if_linked('diagnostics::(anonymous namespace)::g_memory')
                     ['p_begin'])
        self.write(buffer, b'x' * PAGE)
        self.write(address, struct.pack('<Q', buffer))
        self.assertIn(" '%s', " % ('x' * 256), state().splitlines()[0])
        self.write(address, struct.pack('<Q', 8))
        self.assertEqual(state().splitlines()[0], first)  # By its file.


# ---- damage ----

class DamageTest(InProcess):
    """Each is named, and the rest of the report is there."""

    def assert_noted(self, pattern):
        report = state()
        self.assertRegex(report, '(?m)^note: ' + pattern)
        for title in ('hubs', 'timers', 'watches', 'locks held'):
            self.assertRegex(report, '(?m)^%s: ' % title)
        self.assertLess(report.count('\nnote: '), 12)

    def nth_activity(self, index):
        entry = memory.object_at(int(memory.list_of_activities()), 'activity::Activity')
        for _ in range(index):
            entry = memory.object_at(int(entry['m_next']), 'activity::Activity')
        return entry

    def timers(self):
        heap = memory.variable_if_linked('simple_timer::(anonymous namespace)::g_timerHeap')
        return memory.object_at(int(heap), 'simple_timer::TimerHeap')['m_entries']

    def test_a_list_that_goes_round(self):
        self.put(self.nth_activity(2)['m_next'], int(memory.list_of_activities()))
        self.assert_noted('the list of what threads do: .*: it does not end')

    def test_a_list_that_leads_nowhere(self):
        self.put(self.nth_activity(0)['m_next'], 8)
        self.assert_noted('the list of what threads do: ')

    def test_an_entry_of_no_kind(self):
        self.put(self.nth_activity(1)['m_kind'], 77)
        self.assert_noted('the list of what threads do: .*no kind')

    def test_an_array_that_ends_before_it_begins(self):
        first = memory.variable_if_linked('event_dispatcher::EventDispatcher::HubList::s_first')
        hubs = memory.object_at(memory.pointer(first), 'event_dispatcher::EventDispatcher::HubList')
        self.put_word(hubs['m_hubs'], 1, 1)
        self.assert_noted('the list of hubs: .*an array from 0x')

    def test_an_array_that_reaches_to_the_end_of_memory(self):
        self.put_word(self.timers(), 1, 2**64 - 1)
        self.assert_noted('the list of timers: ')

    def test_many_entries_of_which_none_is_right(self):
        begin = memory.words(self.timers(), 1)[0]
        for index in (1, 2):
            self.put_word(self.timers(), index, begin + 16 * 5000)
        self.assert_noted('the list of timers: .*: 11 entries are damaged$')

    def test_an_entry_that_leads_nowhere(self):
        entries = memory.vector(self.timers(), memory.type_of('simple_timer::TimerHeap::Entry'))
        self.put(next(entries)['timer'], 24)
        self.assert_noted('a timer: ')

    def test_a_text_without_end(self):
        timer = memory.pointer(gdb.parse_and_eval('*g_timer')['m_impl'])
        name = memory.object_at(timer, 'simple_timer::TimerImpl')['m_name']
        self.put_word(name, 1, 1 << 40)
        self.assert_noted('a timer: .*a text of 1099511627776 bytes')

    def test_times_that_are_none(self):
        """Nor is one of them taken for the latest one."""
        begin = self.watch_dog()['m_beginTime'][12]
        task = memory.object_at(memory.address_of(next(activities('TaskThread'))),
                                'timer::TaskActivity')
        wait = memory.object_at(memory.address_of(next(activities('SyncSend'))),
                                'event_dispatcher::ReplyWait')
        for place in (begin, task['m_since']):
            for value in (math.inf, -math.inf, math.nan, 1e300, 1e12):
                with self.subTest(type=str(place.type), value=value):
                    self.put(place, value)
                    report = state()
                    self.assertNotIn('note: ', report)
                    self.assertIn('\nlocks held: ', report)
            self.put(place, 5.0)
        for seconds in (1 << 62, 1 << 63):
            with self.subTest(seconds=seconds):
                self.put(wait['m_since']['tv_sec'], seconds)
                self.assertNotIn('note: ', state())

    def test_sizes_that_cannot_be(self):
        for count in (-1, (1 << 31) + 1):
            with self.assertRaisesRegex(memory.Damaged, '^%d bytes at 0x1000$' % count):
                memory.read_bytes(0x1000, count)

    def test_what_another_library_has_not(self):
        with self.assertRaisesRegex(memory.Damaged, '^no NEVER in simple_timer::TimerType_e$'):
            looks._enumerator('simple_timer::TimerType_e', 'NEVER')
        with self.assertRaisesRegex(
                memory.Failure, '^the type tevalon::base::timer::Never is not in the debug '
                r'information: install the package libtevalon-base1-dbgsym .*\(build id [0-9a-f]+\)'):
            memory.type_of('timer::Never')


# ---- times ----

class ClockTest(InProcess):
    @staticmethod
    def latest(**lists):
        empty = dict.fromkeys(('waits', 'task_threads', 'watches', 'timers', 'hubs', 'runs'), ())
        return clock.latest(SimpleNamespace(**{**empty, **lists}), None)

    def test_what_has_not_begun_has_no_time(self):
        self.assertEqual(self.latest(), (0, 'nothing that has a time'))
        tasks = [SimpleNamespace(name='busy', since=5.0), SimpleNamespace(name='new', since=0.0)]
        self.assertEqual(self.latest(task_threads=tasks), (5 * NS, "task thread 'busy' began a task"))
        self.assertEqual(self.latest(task_threads=tasks[1:]), (0, 'nothing that has a time'))

    def test_a_watch_that_began_without_a_clock_has_no_time(self):
        watches = [SimpleNamespace(id=1, begin=7.5), SimpleNamespace(id=2, begin=1.0)]
        self.assertEqual(self.latest(watches=watches), (7500 * MS, 'watch 1 began'))
        self.assertEqual(self.latest(watches=watches[1:]), (0, 'nothing that has a time'))

    def test_a_timer_began_a_time_out_before_it_is_due(self):
        timers = [SimpleNamespace(name='beat', expired_ns=12 * NS, timeout_ns=4 * NS),
                  SimpleNamespace(name='at once', expired_ns=9 * NS, timeout_ns=0)]
        self.assertEqual(self.latest(timers=timers), (8 * NS, "timer 'beat' began to run"))
        # Its time-out was changed since: it would have begun when another one was due already.
        timers.append(SimpleNamespace(name='changed', expired_ns=100 * NS, timeout_ns=1 * NS))
        self.assertEqual(self.latest(timers=timers), (8 * NS, "timer 'beat' began to run"))

    def test_a_process_whose_clock_is_ahead_of_this_one(self):
        """As one of another machine: its time is the latest that is found in it."""
        ahead = int(time.monotonic()) + 100000
        self.put(self.watch_dog()['m_beginTime'][12], float(ahead))
        report = state()
        self.assertRegex(report, r'(?m)^at .* UTC, monotonic %d\.000000000$' % ahead)
        self.assertRegex(report, "(?m)^  12 'eWatchID_oom_notify': 3600.000 s left of 3600.000 s$")
        self.assertRegex(report, '(?m)^note: no clock can be read: the time is the latest one '
                         'found, when watch 12 began; ')


# ---- what is printed ----

class PrintersTest(InProcess):
    def setUp(self):
        gdb.execute('set print elements 200')

    def test_they_are_there_once(self):
        def ours():
            return [printer for printer in gdb.pretty_printers
                    if getattr(printer, 'name', '') == 'tevalon-base']
        before = ours()
        gdb.execute('source ' + os.path.join(os.path.dirname(os.path.dirname(clock.__file__)),
                                             'tevalon.py'))
        self.assertEqual(len(before), 1)
        self.assertIs(ours()[0], before[0])
        self.assertEqual(len(ours()), 1)

    def test_a_value_of_no_kind(self):
        self.put(gdb.parse_and_eval('g_int')['m_type'], 77)
        self.assertEqual(printed('g_int'), '<damaged: a value of no kind, 77>')

    def test_an_array_that_is_damaged(self):
        self.put_word(gdb.parse_and_eval('g_array')['m_array'], 1, 1)
        self.assertRegex(printed('g_array'), r'^<damaged: an array from 0x[0-9a-f]+ to 0x1> = '
                         r'{<damaged: an array from 0x[0-9a-f]+ to 0x1>}$')

    def test_objects_for_which_memory_was_missing(self):
        for name, said in (('g_timer', 'timer without memory'), ('g_hub', 'hub without memory')):
            self.put_word(gdb.parse_and_eval('*' + name)['m_impl'], 0, 0)
            self.assertEqual(printed('*' + name), said)

    def test_a_timer_that_runs(self):
        self.assertRegex(printed('*g_runningTimer'), "^timer 'running', once after 0.001 s, stopped"
                         ', 1 run going on$')

    def test_a_timer_without_a_name(self):
        timer = memory.pointer(gdb.parse_and_eval('*g_timer')['m_impl'])
        self.put_word(memory.object_at(timer, 'simple_timer::TimerImpl')['m_name'], 1, 0)
        self.assertRegex(printed('*g_timer'), "^timer '', every 7200.000 s, due at ")
        self.assertRegex(state('-whole'), "(?m)^  '' in .* s, every 7200.000 s$")

    def test_texts_with_a_zero_in_them(self):
        value = gdb.parse_and_eval('g_text')['m_string']
        self.write(memory.words(value, 1)[0] + 4, bytes(1))
        self.assertEqual(printed('g_text'), r'"tele\000text"')
        # A name ends there, as in the process's own report.
        timer = memory.pointer(gdb.parse_and_eval('*g_timer')['m_impl'])
        name = memory.object_at(timer, 'simple_timer::TimerImpl')['m_name']
        self.write(memory.words(name, 1)[0] + 5, bytes(1))
        self.assertRegex(printed('*g_timer'), "^timer 'timer', every 7200.000 s, due at ")
        self.assertRegex(state('-whole'), "(?m)^  'timer' in .* s, every 7200.000 s$")

    def test_hubs_without_a_thread(self):
        self.assertEqual(printed('*g_idleHub'), 'hub of module 26: no thread, 0 waiting')
        self.assertEqual(printed('*g_unknownHub'),
                         'hub of module 8: no thread, not registered, 0 waiting')

    def hub(self):
        return memory.object_at(memory.pointer(gdb.parse_and_eval('*g_hub')['m_impl']),
                                'event_dispatcher::EventHubImpl')

    def taken(self):
        of_thread = memory.pointer(self.hub()['m_ofThread'])
        return memory.object_at(of_thread, 'event_dispatcher::EventHubImpl::OfThread')['takenEvents']

    def test_a_queue_of_events_that_breaks_off(self):
        self.assertEqual(printed('*g_hub').count('event '), 26)  # And the one in hand.
        self.put(self.hub()['m_eventQueue']['m_first'], 0)
        self.assertEqual(printed('*g_hub').count('event '), 22)

    def test_a_queue_of_events_that_goes_round(self):
        most, queues.MOST_ENTRIES = queues.MOST_ENTRIES, 60
        self.addCleanup(setattr, queues, 'MOST_ENTRIES', most)
        chunk = int(self.taken()['m_first'])
        self.put(memory.at(chunk, memory.type_of('event_dispatcher::EventQueue::Chunk'))['p_next'],
                 chunk)
        text_of_hub = printed('*g_hub')
        self.assertEqual(text_of_hub.count('event '), 61)
        self.assertTrue(text_of_hub.endswith(', <damaged: the queue does not end>}'), text_of_hub)

    def queue(self, name='g_tasks'):
        thread = gdb.parse_and_eval('*' + name)
        return memory.object_at(memory.pointer(thread['m_state']),
                                'timer::TimerThread::State')['m_taskQueue']

    def assert_ends_damaged(self, tasks, why):
        text_of_thread = printed('*g_tasks')
        self.assertEqual(text_of_thread.count('task 1'), tasks)
        self.assertTrue(text_of_thread.endswith('<damaged: %s>}' % why), text_of_thread)

    def test_tasks_that_were_cancelled_one_after_the_other(self):
        self.assertRegex(printed('*g_cancelledTasks'),
                         "^timer thread 'TimerThread': thread [0-9]+, 3 queued, in a task = "
                         '{task 20 of [^,]*, cancelled, task 21 of [^,]*, cancelled, '
                         'task 22 of [^,]*, cancelled}$')

    def test_a_queue_of_tasks_of_which_a_block_is_missing(self):
        order = memory.vector(self.queue()['m_order'], memory.type_of('timer::TaskQueue::Sorted'))
        self.put(list(order)[-1]['block'], 99)
        self.assertRegex(printed('*g_tasks'), '.*, <damaged: no block 99>}$')

    def test_a_queue_of_tasks_that_is_longer_than_it_is(self):
        self.put(self.queue()['m_size'], 5)
        self.assert_ends_damaged(5, 'the queue does not end')

    def test_a_queue_of_tasks_of_which_one_is_missing(self):
        self.put(self.queue()['m_front'], 9999)
        self.assert_ends_damaged(0, 'no task 9999')


# ---- recordings ----

def made(block_bytes=256):
    made_one = MadeRecording(block_bytes=block_bytes)
    made_one.thread(1, 4000, 'main')
    made_one.thread(2, 4001, '')
    return made_one


def mark(made_one, ns, thread=1):
    made_one.add(ns, thread, MARK, word(1) + text('m'))


class RecordingTest(InProcess):
    BLOCK_OFFSET, BLOCK_COUNT, BLOCK_BYTES = 32, 36, 40  # Places in the head.

    def content(self, made_one):
        self.put_recording(made_one)
        found = recording.find()
        self.assertEqual(found.notes, [])
        return found.content

    def last_ns(self, made_one):
        """Since its start."""
        return self.content(made_one).last_ns - made_one.start_ns

    def test_the_last_record_is_in_the_newest_block(self):
        made_one = made()
        for number in range(20):
            mark(made_one, number * MS)
        self.assertEqual(len(made_one.blocks), 3)
        self.assertEqual(self.last_ns(made_one), 19 * MS)
        made_one.blocks.reverse()  # As where older ones were reused.
        self.assertEqual(self.last_ns(made_one), 19 * MS)

    def test_a_thread_without_a_name(self):
        made_one = made()
        mark(made_one, 1 * MS)
        mark(made_one, 2 * MS, thread=2)
        content = self.content(made_one)
        self.assertEqual(content.thread_names, {4000: 'main'})
        self.assertEqual(content.last_ns, made_one.start_ns + 2 * MS)

    def test_a_block_in_which_nothing_is_yet(self):
        made_one = made()
        made_one.blocks.append([1, 0, made_one.start_ns + 5 * MS, bytearray()])
        content = self.content(made_one)
        self.assertEqual(content.thread_names, {4000: 'main'})
        self.assertEqual(content.last_ns, made_one.start_ns)

    def test_records_of_no_length_or_longer_than_their_block(self):
        for words in (0, 200):
            made_one = made()
            mark(made_one, 1 * MS)
            made_one.blocks[0][3].extend(struct.pack('<Q', 9 * MS << 16 | words << 8 | MARK))
            mark(made_one, 2 * MS)
            self.assertEqual(self.last_ns(made_one), 1 * MS)

    def changed(self, place, value):
        """The notes on a recording of which a field of the head is this."""
        made_one = made()
        mark(made_one, 1 * MS)
        data = bytearray(made_one.bytes())
        struct.pack_into('<I', data, place, value)
        self.put_recording(bytes(data))
        return recording.find().notes

    def test_a_head_that_cannot_be(self):
        for place, value, said in ((self.BLOCK_COUNT, 512, '512 blocks of 256 bytes'),
                                   (self.BLOCK_BYTES, 255, '1 blocks of 255 bytes')):
            self.assertEqual(self.changed(place, value), [
                'no recording can be read: %s; %s' % (said, recording.NOT_IN_CORES)])
        self.assertIn('\nnote: no recording can be read: 1 blocks of 255 bytes; ', state())

    def test_blocks_that_are_nowhere(self):
        self.assertEqual(self.changed(self.BLOCK_OFFSET, 0xf0000000),
                         ["1 of the recording's blocks are not in memory"])

    def test_a_process_that_begins_to_record(self):
        self.put_recording(bytes(8))
        self.assertIn('\nnote: no recording can be read: ' + recording.UNFINISHED, state())
        with self.assertRaisesRegex(gdb.error, '^tevalon: no recording to save: %s.$'
                                    % recording.UNFINISHED):
            gdb.execute('tevalon record unfinished')
        self.assertFalse(os.path.exists('unfinished'))

    def test_a_size_that_cannot_be(self):
        place = memory.variable_if_linked('diagnostics::(anonymous namespace)::g_memory')
        said = 'the recording is damaged: 5 bytes at 0x%x' % int(place['p_begin'])
        self.put(place['bytes'], 5)
        report = state()
        self.assertIn('\nrecorder: nothing was recorded\n', report)
        self.assertIn('\nnote: %s\n' % said, report)
        with self.assertRaisesRegex(gdb.error, '^tevalon: no recording to save: %s.$' % said):
            gdb.execute('tevalon record damaged')

    def test_a_page_that_is_missing_in_a_block(self):
        """All else of the recording is there."""
        made_one = made(block_bytes=4 * PAGE)
        for number in range(600):
            mark(made_one, number * MS)
        mark(made_one, 3 * MS, thread=2)
        data = made_one.bytes()
        room = -(-len(data) // PAGE) * PAGE
        begin = call('((void *(*)(void *, unsigned long, int, int, int, long)) mmap)'
                     '(0, %d, 3, 0x22, -1, 0)' % room)
        gdb.selected_inferior().write_memory(begin, data)
        place = memory.variable_if_linked('diagnostics::(anonymous namespace)::g_memory')
        self.put(place['p_begin'], begin)
        self.put(place['bytes'], room)
        self.assertEqual(recording.find().content.last_ns, made_one.start_ns + 599 * MS)
        unmap(begin + 2 * PAGE)
        found = recording.find()
        self.assertEqual(found.notes, ["1 of the recording's blocks are not in memory"])
        self.assertEqual(found.content.last_ns, made_one.start_ns + 3 * MS)
        self.assertEqual(found.content.thread_names, {4000: 'main'})
        self.assertEqual(found.data(), data[:2 * PAGE] + bytes(PAGE) + data[3 * PAGE:]
                         + bytes(room - len(data)))

    def test_a_file_system_without_links(self):
        def refuse(*_):
            raise OSError(errno.EPERM, os.strerror(errno.EPERM))
        self.addCleanup(setattr, os, 'link', os.link)
        os.link = refuse
        before = set(os.listdir())
        self.assertRegex(gdb.execute('tevalon record unlinked', to_string=True),
                         r"^\d+ bytes saved as 'unlinked'\n$")
        with open('unlinked', 'rb') as saved, open('recording', 'rb') as own:
            self.assertEqual(saved.read(), own.read())
        # An earlier file is kept here too.
        with self.assertRaisesRegex(gdb.error, "^tevalon: cannot save 'unlinked': File exists.$"):
            gdb.execute('tevalon record unlinked')
        self.assertEqual(set(os.listdir()) - before, {'unlinked'})


def unmap(address):
    assert call('((int (*)(void *, unsigned long)) munmap)(%d, %d)' % (address, PAGE)) == 0


class MissingMemoryTest(unittest.TestCase):
    """The last one, for what it takes away does not come back."""

    def test_the_librarys_variables(self):
        slots = memory.address_of(
            memory.variable_if_linked('record::(anonymous namespace)::g_slots'))
        given = memory.variable_if_linked('record::(anonymous namespace)::g_given')
        gdb.selected_inferior().write_memory(memory.address_of(given), struct.pack('<I', 512))
        unmap((slots // PAGE + 1) * PAGE)
        self.assertRegex(state(), '(?m)^note: names of modules, events and tasks: damaged, or not '
                         'in memory, from here on: Cannot access memory at address 0x')
        # Those that can be read are there.
        self.assertIn("in event 5 'tune' of module 5 ", printed('*g_hub'))
        self.assertRegex(printed('*(tevalon::base::event_dispatcher::BrowserEvent*)'
                                 '((void**)&g_plainEvent)[0]'),
                         "^event 5 'tune' of module 1 'tuner', no reply asked for$")

        phase = memory.variable_if_linked('diagnostics::(anonymous namespace)::g_phase')
        unmap(memory.address_of(phase) // PAGE * PAGE)
        for command in ('tevalon state', 'tevalon record missing'):
            with self.assertRaisesRegex(gdb.error, r'^tevalon: Cannot access memory at address 0x'
                                        r'[0-9a-f]+\.$'):
                gdb.execute(command, to_string=True)


def run():
    gdb.execute('set scheduler-locking on')
    said = io.StringIO()
    load = unittest.defaultTestLoader.loadTestsFromTestCase
    unittest.TextTestRunner(stream=said).run(unittest.TestSuite(map(load, (
        StateTest, DamageTest, ClockTest, PrintersTest, RecordingTest, MissingMemoryTest))))
    gdb.write(said.getvalue())


run()
