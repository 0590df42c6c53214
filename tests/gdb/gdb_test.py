#!/usr/bin/env python3
"""What gdb shows of a process, compared with what the process says of itself.

usage: gdb_test.py CASE --program PROGRAM --small-program PROGRAM --bare-program PROGRAM
                   --no-list-program PROGRAM --library LIBRARY --zor-debug LIBRARY --script SCRIPT
                   [--emulator COMMAND] [--lock LOCK]
"""

import argparse
import glob
import os
import re
import resource
import shutil
import socket
import struct
import subprocess
import sys
import tempfile

SKIPPED = 77
PATIENCE = 110  # Seconds; it only turns a hang into a failure.
SECONDS = re.compile(r'(-?\d+\.\d{3})(?= s\b)')
MONOTONIC = re.compile(r'^at (?:.* UTC, )?monotonic (\d+\.\d{9})$')
# What follows is the same, or grows, or shrinks while time goes by.
GROWS = re.compile(r'(?:for|at most|since|overdue by) $')
SHRINKS = re.compile(r'(?:until in|first in|\' in|: ) ?$')
ROUNDING = 0.0025  # Some times are in whole milliseconds.


class Setup:
    """What is tested, and a folder for it."""

    def __init__(self, options, folder):
        self.program = os.path.realpath(options.program)
        self.small_program = os.path.realpath(options.small_program)
        self.bare_program = os.path.realpath(options.bare_program)
        self.no_list_program = os.path.realpath(options.no_list_program)
        self.library = os.path.realpath(options.library)
        self.zor_debug = os.path.realpath(options.zor_debug)
        self.script = os.path.realpath(options.script)
        self.lock = options.lock
        self.emulator = [word for word in options.emulator.split(';') if word]
        self.folder = folder
        self.environment = dict(os.environ, ZOR_DEBUG='off')
        self.gdb_program = 'gdb-multiarch' if self.emulator else 'gdb'

    def path(self, name):
        return os.path.join(self.folder, name)

    def read(self, name):
        with open(self.path(name), encoding='utf-8') as file:
            return file.read().splitlines()

    def gdb(self, *commands, loads_script=True):
        """What gdb prints for these commands."""
        words = [shutil.which(self.gdb_program), '-nx', '-q', '-batch']
        settings = ['set debuginfod enabled off', 'set confirm off', 'set pagination off',
                    'set width 0', 'set breakpoint pending on', 'set print thread-events off',
                    'set startup-with-shell off', 'set print inferior-events off']
        if self.emulator:
            settings += ['set sysroot ' + self.emulator[self.emulator.index('-L') + 1],
                         'set solib-search-path %s:%s' % (os.path.dirname(self.library),
                                                          os.path.dirname(self.zor_debug))]
        for setting in settings:
            words += ['-iex', setting]
        if loads_script:
            words += ['-ex', 'source ' + self.script]
        for command in commands:
            words += ['-ex', command]
        result = subprocess.run(words, cwd=self.folder, env=self.environment, check=False,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, timeout=PATIENCE)
        output = result.stdout.decode('utf-8', 'replace')
        if 'ptrace: Operation not permitted' in output:
            skip('processes may not be traced here')
        return output

    def stop_when_ready(self, *options):
        """The commands that bring a process to where all is in place."""
        return ('file ' + self.program, 'break stateIsReady',
                'run %s %s' % (self.folder, ' '.join(options)))

    def at_ready(self, *commands, options=()):
        return self.gdb(*self.stop_when_ready(*options), *commands)

    def make_core(self, *options):
        """The path of a core of a process that has everything in place."""
        if self.emulator:
            return self._make_emulated_core(*options)
        self.at_ready('gcore ' + self.path('core'), 'kill', options=options)
        return self.path('core')

    def _make_emulated_core(self, *options):
        _, most = resource.getrlimit(resource.RLIMIT_CORE)
        if most == 0:
            skip('the limit of cores is 0')
        subprocess.run(self.emulator + [self.program, self.folder, 'crash', *options],
                       cwd=self.folder, env=self.environment, check=False, timeout=PATIENCE,
                       preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CORE, (most, most)))
        cores = glob.glob(self.path('qemu_*.core'))
        assert len(cores) == 1, os.listdir(self.folder)
        return cores[0]

    def with_core(self, core, *commands):
        return self.gdb('file ' + self.program, 'core-file ' + core, *commands)


def skip(why):
    print('skipped: ' + why)
    sys.exit(SKIPPED)


def report_in(output):
    """The lines of the last report, and of its notes."""
    lines = output.splitlines()
    starts = [i for i, line in enumerate(lines) if re.match(r"process \d+ '", line)]
    assert starts, output
    lines = lines[starts[-1]:]
    ends = [i for i, line in enumerate(lines) if line.startswith('locks held: ')]
    assert ends, output
    end = ends[0] + 1
    while end < len(lines) and lines[end].startswith('  '):
        end += 1
    notes = []
    while end + len(notes) < len(lines) and lines[end + len(notes)].startswith('note: '):
        notes.append(lines[end + len(notes)])
    return lines[:end], notes


def monotonic_of(report):
    found = [MONOTONIC.match(line) for line in report]
    return next(float(match.group(1)) for match in found if match)


def compare(own, seen, is_later=True):
    """Field by field: all that is no time is the same. Between the two reports times have gone on,
    by no more than what lies between the moments that the reports give; those of the process's own
    are a little later than its moment. `is_later`: the process's own came first."""
    assert len(own) == len(seen), '\n'.join(own + ['-- seen:'] + seen)
    assert len(own) > 20, own
    between = monotonic_of(seen) - monotonic_of(own)
    assert (between >= 0) == is_later, between
    times = 0
    for own_line, seen_line in zip(own, seen):
        if MONOTONIC.match(own_line) and MONOTONIC.match(seen_line):
            continue
        assert SECONDS.sub('T', own_line) == SECONDS.sub('T', seen_line), (own_line, seen_line)
        for own_time, seen_time in zip(SECONDS.finditer(own_line), SECONDS.finditer(seen_line)):
            times += 1
            before = own_line[:own_time.start()]
            difference = float(seen_time.group()) - float(own_time.group())
            if SHRINKS.search(before):
                difference = -difference
            elif not GROWS.search(before):
                assert abs(difference) < ROUNDING, (own_line, seen_line)
                continue
            assert difference <= between + ROUNDING, (between, own_line, seen_line)
            assert difference >= -ROUNDING or not is_later, (between, own_line, seen_line)
    assert times > 10, times


def expect(output, *patterns):
    for pattern in patterns:
        assert re.search(pattern, output, re.MULTILINE), pattern + '\nnot in:\n' + output


# ---- agreement ----

def agreeing(setup, *options):
    """The short report of a stopped process, and the whole one."""
    output = setup.at_ready('tevalon state', 'echo --\\n', 'tevalon state -whole', options=options)
    few, whole = output.split('--\n')
    for name, text in (('few', few), ('whole', whole)):
        seen, notes = report_in(text)
        compare(setup.read(name), seen)
        assert notes == [], notes
    return few, whole


def a_stopped_process_agrees_with_its_own_report(setup):
    few, _ = agreeing(setup)
    expect(few, r'^  circle: module 2 \'caller\' -> module 3 \'called\' -> module 2 \'caller\'$',
           r'^  and 1 more$', r'^hubs: 14$', r'^  and 4 more$', r"^timers: 11$",
           r", 25 waiting, in event 5 'tune' of module 5 for at most ",
           r"not answered$", r"100 queued, first in ", r'3 queued, first cancelled',
           r'in an unregister, for thread \d+ ', r'in a stop, for thread \d+ ')


def all_waits_agree(setup):
    few, whole = agreeing(setup, 'waiting')
    waiter = r"^  thread \d+ 'gdb_busy_proces' -> "
    expect(whole, waiter + "module 2 'caller', in a circle$",
           waiter + 'module 9, which has no thread$', waiter + 'whoever replies$',
           waiter + r"task thread 'TimerThread', in task 14 of session \d+ for ",
           waiter + 'watchdog$', r", in a stop, for thread \d+ 'TimerThread' of task thread ",
           r", in a destructor, for thread \d+ 'WatchDog' of watchdog$", ', 0 queued, idle$')
    ways = [report.split('who waits for whom:\n')[1].split('\ntimers: ')[0].count('\n') + 1
            for report in (few, whole)]
    assert ways == [10, 12], ways


def a_report_that_gdb_asks_for_agrees(setup):
    """The process writes one in the middle of the session, with all other threads held."""
    path = setup.path('asked')
    output = setup.at_ready('set scheduler-locking on', 'print writeStateTo("%s", 1)' % path,
                            'tevalon state -whole')
    expect(output, r'^\$1 = 0$')
    compare(setup.read('asked'), report_in(output)[0])


def a_watch_is_overdue(setup):
    output = setup.at_ready('tevalon state', options=['overdue'])
    expect(output, r"^watches: 2$",
           r"^  1 'eWatchID_StartUp': overdue by \d+\.\d{3} s of 0\.001 s$",
           r"^  12 'eWatchID_oom_notify': 35\d\d\.\d{3} s left of 3600\.000 s$")


def a_core_tells_what_the_process_did(setup):
    """A core has neither a clock nor names of threads; what was recorded has both."""
    output = setup.with_core(setup.make_core(), 'tevalon state -whole')
    seen, notes = report_in(output)
    compare(setup.read('whole'), seen)
    assert len(notes) == 2, notes
    expect('\n'.join(notes), r'no clock can be read: .*when the last record was written',
           r'gdb has no names of threads here')


def a_core_without_a_recording(setup):
    """Then the time is the latest one that is found, and the client's threads have no names."""
    output = setup.with_core(setup.make_core('unrecorded'), 'tevalon state -whole',
                             'tevalon record saved')
    seen, notes = report_in(output)
    own = [re.sub(r" '(?:gdb_busy_proces|qemu-arm)'", '', line) for line in setup.read('whole')]
    compare(own, seen, is_later=False)
    assert 'recorder: nothing was recorded' in seen, seen
    expect('\n'.join(notes), r'^note: no clock can be read: the time is the latest one found, when '
           r'watch 12 began; ')
    expect(output, r'^tevalon: the process has not recorded anything\.$')
    assert not os.path.exists(setup.path('saved'))


def a_core_may_lack_threads(setup):
    """All of the report is there, and that there are no registers but the first thread's."""
    core = setup.make_core()
    forget_other_threads(core)
    output = setup.with_core(core, 'tevalon state -whole')
    seen, notes = report_in(output)
    compare(setup.read('whole'), seen)
    expect('\n'.join(notes), r'^note: gdb has no registers, and no backtrace, of 13 of these '
           r'threads \(\d+, \d+, .*\)\. .*qemu-arm -g PORT$')


NOTES = 4  # The type of a core's segment of notes, and of some notes.
STATUS, PROCESS, AUXILIARY_VECTOR = 1, 3, 6
NOBODYS = 0x7777


def notes_of(file):
    """Of each note of a core: what it is, where that stands, and where its content begins and ends."""
    file.seek(0)
    head = file.read(64)
    is_wide = head[4] == 2
    offset, = struct.unpack_from('<Q' if is_wide else '<I', head, 32 if is_wide else 28)
    size, count = struct.unpack_from('<HH', head, 54 if is_wide else 42)
    for i in range(count):
        file.seek(offset + i * size)
        segment = file.read(size)
        if struct.unpack_from('<I', segment)[0] != NOTES:
            continue
        at, = struct.unpack_from('<Q' if is_wide else '<I', segment, 8 if is_wide else 4)
        length, = struct.unpack_from('<Q' if is_wide else '<I', segment, 32 if is_wide else 16)
        end = at + length
        while at < end:
            file.seek(at)
            name_bytes, content_bytes, kind = struct.unpack('<III', file.read(12))
            content = at + 12 + (name_bytes + 3 & ~3)
            content_end = content + (content_bytes + 3 & ~3)
            yield kind, at + 8, content, content_end
            at = content_end


def change(file, place, number):
    file.seek(place)
    file.write(struct.pack('<I', number))


def forget_other_threads(core):
    """Makes the notes of their registers ones that nobody knows."""
    with open(core, 'r+b') as file:
        threads = [place for kind, place, _, _ in notes_of(file) if kind == STATUS]
        assert len(threads) > 5, threads
        for place in threads[1:]:
            change(file, place, NOBODYS)


def a_core_of_another_kind(setup):
    """One whose process has another number than its threads, of a program that gdb does not know;
    one that lacks the program's headers, as the emulator writes them; and one that is cut off."""
    core, headless, cut_off = map(setup.path, ('core', 'headless', 'cut-off'))
    setup.at_ready(
        'gcore ' + core, 'python import re',
        'python headers = re.search("AT_PHDR .* (0x[0-9a-f]+)", '
        'gdb.execute("info auxv", to_string=True)).group(1)',
        'python gdb.selected_inferior().write_memory(int(headers, 16) // 4096 * 4096, bytes(4096))',
        'gcore ' + headless, 'kill')
    whole = setup.read('whole')

    with open(core, 'rb') as file, open(cut_off, 'w+b') as cut:
        notes = list(notes_of(file))
        file.seek(0)
        cut.write(file.read(max(end for _, _, _, end in notes)))
        change(cut, next(place for kind, place, _, _ in notes if kind == AUXILIARY_VECTOR), NOBODYS)
    output = setup.gdb('core-file ' + cut_off, 'tevalon state')
    expect(output, r'^tevalon: there is no program: name it with `file PROGRAM`, or start gdb with it')
    expect(setup.with_core(cut_off, 'tevalon state'),
           r'^tevalon: no libtevalon-base\.so is loaded: for a core, .*; one that is cut off has lost')

    report, notes = report_in(setup.with_core(headless, 'tevalon state -whole'))
    compare(whole, report)
    expect('\n'.join(notes), 'no clock can be read')

    with open(core, 'r+b') as file:
        process = next(content for kind, _, content, _ in notes_of(file) if kind == PROCESS)
        change(file, process + 24, 1)
    report, _ = report_in(setup.gdb('exec-file ' + setup.program, 'core-file ' + core,
                                    'tevalon state -whole'))
    whole[1] = re.sub('program [0-9a-f]{40}', 'program ' + '0' * 40, whole[1])
    compare(whole, report)


def an_emulated_process_is_read_through_its_stub(setup):
    with socket.socket() as probe:
        probe.bind(('127.0.0.1', 0))
        port = probe.getsockname()[1]
    emulated = subprocess.Popen(
        setup.emulator[:1] + ['-g', str(port)] + setup.emulator[1:] + [setup.program, setup.folder],
        env=setup.environment, cwd=setup.folder)
    try:
        output = setup.gdb('file ' + setup.program, 'set tcp auto-retry on',
                              'target remote 127.0.0.1:%d' % port, 'break stateIsReady', 'continue',
                              'tevalon state -whole', 'tevalon record saved', 'kill')
    finally:
        emulated.kill()
        emulated.wait()
    seen, notes = report_in(output)
    compare(setup.read('whole'), seen)
    expect('\n'.join(notes), 'no clock can be read')
    assert same_bytes(setup.path('saved'), setup.path('recording'))


# ---- locks ----

# Functions that the library calls with a lock held, and what the report calls that lock.
EVENTS = 'tevalon::base::event_dispatcher::'
TIMERS = 'tevalon::base::simple_timer::'
TASKS = 'tevalon::base::timer::'
LOCKS = {
    'hubs': (EVENTS + 'EventDispatcher::HubList::find', r'^  list of hubs by thread \d+ '),
    'handlers': (EVENTS + 'HandlerTable::add', r"^  handlers of module 1 'tuner' by thread \d+ "),
    'thread': (EVENTS + 'EventHubImpl::staysForNewHandler',
               r"^  thread of module 1 'tuner' by thread \d+ "),
    'queue': (EVENTS + 'EventQueue::swap', r'^  queue of module \d.* by thread \d+ '),
    'queue_and_hubs': (EVENTS + 'EventHubImpl::recordQueued',
                       r"^  list of hubs by thread \d+ '.*\n"
                       r"  queue of module 1 'tuner' by thread "),
    'teardown': (EVENTS + 'EventHubImpl::claimJoin', r'^  teardown of module 7 by thread \d+ '),
    'reply': (EVENTS + 'BrowserEvent::waitUntil', r"^  thread \d+ 'Evt:2' of module 2 'caller', "),
    'timers': (TIMERS + 'TimerHeap::insert', r'^  list of timers by thread \d+ '),
    'runs': (TIMERS + 'SharedHandler::share', r"^  runs of timer 'beat' by thread \d+ "),
    'tasks': (TASKS + 'TaskQueue::insert', r"^  queue of task thread 'TimerThread' by thread \d+ "),
    'watches': ('tevalon::base::monotonicSeconds if $_caller_matches(".*takeOverrun")',
                r'^  watches by thread \d+ '),
    'activities': ('tevalon::base::activity::Change::link',
                   r'^note: the list of what threads do was locked'),
    'activities_ended': ('tevalon::base::activity::Change::unlink',
                         r'^note: the list of what threads do was locked'),
    'recorder': ("'tevalon::base::diagnostics::(anonymous namespace)::writeHead'",
                 r'^recorder: nothing was recorded$'),
}


def no_lock_is_needed(setup):
    """Nor does it matter that one is held: the report is the process's own, which a thread that
    holds the lock writes then, but for what that cannot see."""
    function, text = LOCKS[setup.lock]
    seen, notes = stop_in(setup, function, text)
    expect('\n'.join(seen + notes), text)


def stop_in(setup, function, text):
    """The report and the notes, where a thread stands there. The first times may be before the
    object is listed: goes on until it is."""
    search = setup.path('search.py')
    with open(search, 'w', encoding='utf-8') as file:
        file.write('import re, gdb\n'
                   'while not re.search(%r, gdb.execute("tevalon state -whole", to_string=True),'
                   ' re.MULTILINE):\n'
                   '    gdb.execute("continue", to_string=True)\n' % text)
    output = setup.gdb('file ' + setup.program, 'break ' + function, 'run %s beat' % setup.folder,
                          'source ' + search, 'set scheduler-locking on',
                          'print writeStateTo("asked", 1)', 'tevalon state -whole')
    expect(output, r'^\$1 = 0$')
    seen, notes = report_in(output)
    compare_beside_locks(setup.read('asked'), seen)
    return seen, notes


def lists_of(report):
    """The lines of each list, by its title, and those before the lists."""
    lists = {'': []}
    title = ''
    for line in report:
        found = re.match(r'([a-z][a-z ]+): (?:\d+|none|locked.*)$', line)
        if found:
            title = found.group(1)
            lists[title] = []
        lists[title].append(SECONDS.sub('T', re.sub(r'monotonic .*', '', line)))
    return lists


def compare_beside_locks(own, seen):
    """Two reports of a process that stands still; times are left out."""
    own, seen = lists_of(own), lists_of(seen)
    threads_are_locked = 'what threads do is locked: waits are missing' in own['locks held']
    hubs_are_locked = 'registered hubs' in own
    for title, lines in seen.items():
        mine = own.get(title, [])
        if title == '':
            assert [line for line in mine if not line.startswith('at ')] == [
                line for line in lines if not line.startswith('at ')], (mine, lines)
        elif mine and 'locked' in mine[0]:
            continue
        elif title == 'timers':
            assert len(mine) == len(lines), (mine, lines)
            for line in mine[1:]:
                assert line.split(', locked by ')[0] in ' '.join(lines), (line, lines)
        elif threads_are_locked:
            continue  # Only what is registered or started is seen without the list of threads.
        elif title in ('hubs', 'who waits for whom', 'waits', 'task threads'):
            assert len(mine) == len(lines) or hubs_are_locked, (mine, lines)
            for line in mine[1:]:
                assert is_among(line, lines), (line, lines)
        elif title == 'locks held' and (hubs_are_locked or 'locked' in own['timers'][0]):
            assert set(mine[1:]) <= set(lines), (mine, lines)
        elif title == 'watches' and 'a watchdog' in own:
            continue
        else:
            assert mine == lines, (title, mine, lines)


def is_among(line, lines):
    """Whether it is there; what a lock hid may be anything."""
    pattern = re.escape(line.replace(', not registered', '')).replace(
        re.escape(', queue locked'), r', (?:\d+ waiting|\d+ queued(?:, first [^,]*)?)')
    return any(re.fullmatch(pattern, other.replace(', not registered', '')) for other in lines)


# ---- what is printed ----

def values_are_printed(setup):
    """Of a process, or where that is emulated of its core."""
    commands = (
        *('print ' + value for value in (
            'g_undefined', 'g_null', 'g_int', 'g_unsignedShort', 'g_bool', 'g_double', 'g_text',
            'g_point', 'g_array', 'g_openDigest', 'g_digest', '*g_timer', '*g_stoppedTimer',
            '*(tevalon::base::event_dispatcher::BrowserEvent*)'
            '((void**)&g_plainEvent)[0]',
            '*(tevalon::base::event_dispatcher::BrowserEvent*)'
            '((void**)&g_answeredEvent)[0]')),
        'set print elements 4', 'print *g_tasks', 'print *g_hub',
        'set print elements 200', 'print *g_tasks', 'print *g_hub')
    # In such a core the commands find the libraries, and where the program lies, for gdb.
    output = (setup.with_core(setup.make_core(), 'tevalon state', *commands) if setup.emulator
              else setup.at_ready(*commands))
    values = dict(re.findall(r'^\$(\d+) = (.*)$', output, re.MULTILINE))
    expected = {
        1: 'undefined', 2: 'null', 3: 'int -7', 4: 'unsigned short 65535', 5: 'bool true',
        6: 'double 1.5', 7: '"tele"text"', 8: 'point (3,-4)',
        9: 'array of 3 = {int 1, "two", array of 1 = {double 3.5}}',
        10: 'not finalized, 3 bytes so far', 11: '900150983cd24fb0d6963f7d28e17f72'}
    for number, text in expected.items():
        assert values[str(number)] == text, (number, values)
    patterns = {
        12: r"timer 'timer 2', every 7200\.000 s, due at monotonic \d+\.\d{9}",
        13: r"timer 'timer 12', once after 43200\.000 s, stopped",
        14: r"event 5 'tune' of module 1 'tuner', no reply asked for",
        15: r"event 99 of module 4, payload at 0x[0-9a-f]+, replied 42",
        16: r"timer thread 'TimerThread': thread \d+, 100 queued, in a task = \{.*\.\.\.\}",
        17: r"hub of module 1 'tuner': thread \d+ 'Evt:1', 25 waiting, in event 5 'tune' of module "
            r"5 for at most \d+\.\d{3} s = \{.*\.\.\.\}"}
    for number, pattern in patterns.items():
        assert re.fullmatch(pattern, values[str(number)]), (number, values)
    tasks = re.findall(r'task (\d+) of session (\d+) at 0x[0-9a-f]+, (cancelled|due at)',
                       values['18'])
    # From front to back: what is posted last is due first; a third of them is cancelled.
    assert len(tasks) == 100, values['18']
    assert [int(task[0]) for task in tasks if task[2] == 'due at'] == [
        10 + i % 3 for i in range(99, -1, -1) if i % 3 != 1], tasks
    assert sum(task[2] == 'cancelled' for task in tasks) == 33, tasks
    events = re.findall(r'event (-?\d+) of module (-?\d+)(, payload at)?',
                        values['19'].split(' = {')[1])
    many, own = ('8', '5', ''), ('10', '5', '')
    assert events == ([many] * 2 + [own] * 3 + [many] * 16 + [many] * 2
                      + [('10', '5', ', payload at'), many]), values['19']


# ---- what is wrong ----

def the_modules_read_what_is_damaged_and_rare(setup):
    tests = os.path.join(os.path.dirname(os.path.realpath(__file__)), 'in_gdb.py')
    output = setup.at_ready('source ' + tests)
    expect(output, r'^Ran \d\d tests in ', r'^OK$')


def debug_information_may_lie_apart(setup):
    """As in a library that is stripped, and its package of debug information."""
    stripped = setup.path('stripped')
    os.mkdir(stripped)
    library = os.path.join(stripped, 'libtevalon-base.so.1')
    notes = subprocess.run(['readelf', '-n', setup.library], check=True, stdout=subprocess.PIPE,
                           text=True).stdout
    build_id = re.search('Build ID: ([0-9a-f]+)', notes).group(1)
    apart = os.path.join(setup.folder, 'debug/.build-id', build_id[:2])
    os.makedirs(apart)
    subprocess.run(['objcopy', '--only-keep-debug', setup.library,
                    os.path.join(apart, build_id[2:] + '.debug')], check=True)
    subprocess.run(['strip', '--strip-unneeded', '-o', library, setup.library], check=True)
    shutil.copy(setup.zor_debug, stripped)
    setup.environment['LD_LIBRARY_PATH'] = stripped

    output = setup.at_ready('tevalon state', 'tevalon record saved')
    expect(output, r'^tevalon: no debug information for .*/stripped/libtevalon-base\.so\.1: '
           r'install the package libtevalon-base1-dbgsym of the same version as the library '
           r'\(build id %s\), or name its folder with `set debug-file-directory`; one that you build '
           r'yourself needs -g, as CMAKE_BUILD_TYPE=RelWithDebInfo gives it\.?$' % build_id)
    assert "process " not in output and not os.path.exists(setup.path('saved')), output

    os.unlink(setup.path('recording'))
    output = setup.gdb('set debug-file-directory ' + setup.path('debug'),
                       *setup.stop_when_ready(), 'tevalon state')
    compare(setup.read('few'), report_in(output)[0])


def a_program_may_have_little_of_the_library(setup):
    output = setup.gdb('file ' + setup.small_program, 'break stateIsReady', 'run',
                       'tevalon state', 'tevalon record saved')
    seen, notes = report_in(output)
    assert notes == [], notes
    wait = "thread %s 'gdb_small_proce'" % re.match(r'process (\d+) ', seen[0]).group(1)
    assert seen[3:] == [
        'recorder: nothing was recorded', 'hubs: none', 'waits: 1', '  %s, in a stop' % wait,
        'who waits for whom:', '  %s -> a thread that is about to end' % wait, 'timers: none',
        'timer runs: none', 'task threads: none', 'watches: none', 'locks held: none'], seen
    expect(output, r'^tevalon: the process has not recorded anything\.$')

    nowhere = "memory.variable_if_linked('kNowhere')"
    output = setup.gdb(
        'file ' + setup.bare_program, 'starti', 'tevalon state',
        'python from tevalon_gdb import memory',
        'python print([s.name for s in memory._symbols("tevalon::base::kNowhere")], %s)' % nowhere)
    seen, _ = report_in(output)
    assert re.fullmatch(r"process \d+ 'gdb_bare_process', boot id 0", seen[0]), seen
    assert seen[1] == 'build id of the program %s, of the library %s' % ('0' * 40, '0' * 40), seen
    assert 'waits: none' in seen, seen
    # A variable that optimisation has left without an address is none.
    expect(output, r"^\['tevalon::base::kNowhere'\] None$")


def what_is_missing_is_said(setup):
    output = setup.gdb('tevalon state')
    expect(output, r'^There is no process and no core\.')
    output = setup.gdb('file /bin/true', 'starti', 'tevalon state')
    expect(output, r'^tevalon: no libtevalon-base\.so is loaded: ')
    output = setup.gdb('file ' + setup.no_list_program, 'starti', 'tevalon state')
    expect(output, r'^tevalon: the library was built without recorder and state report '
           r'\(TEVALON_BASE_DIAGNOSTICS=OFF\): it keeps no list of what its threads do\.$')
    output = setup.gdb('tevalon state -all', 'tevalon record', 'tevalon record a b')
    expect(output, r'^Usage: tevalon state \[-whole\]$', r'^Usage: tevalon record FILE$')


# ---- recordings ----

def same_bytes(left, right):
    with open(left, 'rb') as left_file, open(right, 'rb') as right_file:
        return left_file.read() == right_file.read()


def a_core_holds_its_recording(setup):
    core = setup.make_core()
    output = setup.with_core(core, 'tevalon record saved')
    expect(output, r"^\d+ bytes saved as 'saved'$")
    assert same_bytes(setup.path('saved'), setup.path('recording'))
    assert os.stat(setup.path('saved')).st_mode & 0o777 == 0o600


def recordings_are_saved_whole_or_not_at_all(setup):
    with open(setup.path('there'), 'w', encoding='utf-8') as file:
        file.write('earlier')
    os.symlink('nowhere', setup.path('link'))
    os.mkdir(setup.path('small'))
    output = setup.at_ready('tevalon record there', 'tevalon record link',
                            'tevalon record missing/saved', 'tevalon record saved')
    expect(output, r"^tevalon: cannot save 'there': File exists\.$",
           r"^tevalon: cannot save 'link': File exists\.$",
           r"^tevalon: cannot save 'missing/saved': No such file or directory\.$",
           r"^65\d+ bytes saved as 'saved'$")
    assert open(setup.path('there'), encoding='utf-8').read() == 'earlier'
    assert not os.path.exists(setup.path('nowhere'))
    assert same_bytes(setup.path('saved'), setup.path('recording'))

    # A file's pages are not in a core, and gdb finds them in the file where that is still there.
    os.unlink(setup.path('recording'))
    core = setup.make_core('file')
    half = 32768
    os.truncate(setup.path('live'), half)
    output = setup.with_core(core, 'tevalon record cut-off')
    missing = os.stat(setup.path('recording')).st_size - half
    expect(output, r"^note: %d of the recording's bytes are not in memory, and zeros in the file$"
           % missing)
    with open(setup.path('cut-off'), 'rb') as cut, open(setup.path('recording'), 'rb') as whole:
        assert cut.read() == whole.read(half) + bytes(missing)
    os.rename(setup.path('live'), setup.path('elsewhere'))
    output = setup.with_core(core, 'tevalon record of-file', 'tevalon state')
    expect(output, r'^tevalon: no recording to save: its 65\d+ bytes at 0x[0-9a-f]+ are not in '
           r'memory; cores do not have what was recorded into a file: that file has it\.$',
           r'^note: no recording can be read: ')
    left = sorted(name for name in os.listdir(setup.folder) if 'record' in name or 'of-' in name)
    assert left == ['recording'], left


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('case')
    for option in ('program', 'small-program', 'bare-program', 'no-list-program', 'library',
                   'zor-debug', 'script'):
        parser.add_argument('--' + option, required=True)
    parser.add_argument('--emulator', default='')
    parser.add_argument('--lock', choices=LOCKS)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        setup = Setup(options, os.path.realpath(folder))
        if shutil.which(setup.gdb_program) is None:
            skip(setup.gdb_program + ' is not installed')
        globals()[options.case](setup)


if __name__ == '__main__':
    main()
