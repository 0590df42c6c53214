"""What the tests of tevalon-trace share: the tool, and a made-up recording of a request."""

import os
import subprocess
import sys
import tempfile
import unittest

from made_recording import EVENT, MODULE, MadeRecording, halves, text, word

sys.dont_write_bytecode = True
TOOL = sys.argv.pop(1) if len(sys.argv) > 1 else "tevalon-trace"

MS = 10**6

CREATED, SENT, QUEUED, REFUSED, BEGUN, ENDED, REPLIED, AWAITED, IN_VAIN, UNANSWERED = range(1, 11)
TASK_POSTED, TASK_CANCELLED, TASK_BEGUN, TASK_ENDED = range(11, 15)
TIMER_STARTED, TIMER_STOPPED, TIMER_DUE, RUN_BEGUN, RUN_ENDED = range(15, 20)
WATCH_BEGUN, WATCH_OVERDUE, WATCH_ENDED = range(20, 23)
WAITED, MEMORY, MARK, SCOPE_BEGUN, SCOPE_ENDED, COUNTER = range(27, 33)

VIEWER, TUNER, SCREEN = 1, 7, 9
TUNE, SHOW = 100, 101


def run(*arguments, tool=TOOL):
    """(exit status, standard output, standard error)."""
    result = subprocess.run([tool, *arguments], capture_output=True, timeout=120, check=False)
    return (result.returncode, result.stdout.decode(errors="backslashreplace"),
            result.stderr.decode())


class Scratch(unittest.TestCase):
    """A test with a folder of its own."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.maxDiff = None

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, recording, name="recording"):
        path = self.path(name)
        recording.write(path)
        return path

    def show(self, *arguments):
        """The output, where there is nothing to complain of."""
        status, output, errors = run(*arguments)
        self.assertEqual((status, errors), (0, ""))
        return output


def modules():
    """A recording of a viewer, a tuner and a screen, that has no records yet."""
    recording = MadeRecording()
    recording.thread(1, 4000, "main")
    recording.thread(2, 4001, "Evt:7")
    recording.thread(3, 4002, "Evt:9")
    for number, name in ((VIEWER, "viewer"), (TUNER, "tuner"), (SCREEN, "screen")):
        recording.name(MODULE, number, name)
    recording.name(EVENT, TUNE, "tune")
    recording.name(EVENT, SHOW, "show")
    return recording


def ask(recording, ns, thread, source, event, event_type, target, patience_ms=800):
    """The sender's four records of a request that is waited for; 10 ns apart."""
    recording.event(ns, thread, CREATED, event, event_type, source)
    recording.event(ns + 10, thread, SENT, event, event_type, source, (target, 0))
    recording.event(ns + 20, thread, QUEUED, event, event_type, source, (target, 1))
    recording.event(ns + 30, thread, AWAITED, event, event_type, patience_ms)


def answered(recording=None):
    """The viewer asks the tuner, which looks up a frequency and replies 5, within 1 ms."""
    recording = recording or modules()
    ask(recording, 0, 1, VIEWER, 0x1f0, TUNE, TUNER)
    recording.event(100, 2, BEGUN, 0x1f0, TUNE, VIEWER, (TUNER, 0))
    recording.add(200, 2, SCOPE_BEGUN, text("look up"))
    recording.add(300, 2, MARK, word(498000) + text("found"))
    recording.add(400, 2, SCOPE_ENDED, text("look up"))
    recording.event(500, 2, REPLIED, 0x1f0, TUNE, 5)
    recording.event(MS, 2, ENDED, 0x1f0, TUNE, VIEWER, (TUNER, 0))
    recording.add(2 * MS, 1, COUNTER, word(25) + text("frames"))
    return recording


def overrun(recording, ns, thread=2):
    """The watch 17 is begun, and is overdue after 100 ms."""
    recording.add(ns, thread, WATCH_BEGUN, halves(17) + word(100 * MS))
    recording.add(ns + 100 * MS, 1, WATCH_OVERDUE, halves(17) + word(100 * MS))
    recording.add(ns + 150 * MS, thread, WATCH_ENDED, halves(17))


def circle(recording, ns):
    """Tuner and screen, each in a handler, ask each other: in vain."""
    recording.event(ns, 2, BEGUN, 0x300, TUNE, VIEWER, (TUNER, 0))
    recording.event(ns, 3, BEGUN, 0x310, TUNE, VIEWER, (SCREEN, 0))
    ask(recording, ns + 100, 2, TUNER, 0x320, SHOW, SCREEN)
    ask(recording, ns + 200, 3, SCREEN, 0x330, SHOW, TUNER)
    recording.event(ns + 800 * MS, 2, IN_VAIN, 0x320, SHOW, 800)
    recording.event(ns + 801 * MS, 2, ENDED, 0x300, TUNE, VIEWER, (TUNER, 0))
    recording.event(ns + 802 * MS, 3, IN_VAIN, 0x330, SHOW, 800)
    recording.event(ns + 803 * MS, 3, ENDED, 0x310, TUNE, VIEWER, (SCREEN, 0))
