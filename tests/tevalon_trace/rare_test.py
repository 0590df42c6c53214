#!/usr/bin/python3
"""Tests of tevalon-trace on what is seldom in a recording: damage, loose ends, strangers.

usage: rare_test.py TOOL
"""

import base64
import json
import os
import re
import signal
import struct
import subprocess
import unittest
import zlib

from made_recording import MadeRecording, halves, text, word
from trace_tool import (BEGUN, CREATED, ENDED, MARK, MEMORY, MS, QUEUED, REFUSED, REPLIED,
                        TASK_BEGUN, TASK_CANCELLED, TASK_ENDED, TASK_POSTED, TIMER_STOPPED, TOOL,
                        TUNE, TUNER, VIEWER, WAITED, AWAITED, COUNTER, IN_VAIN, SENT, Scratch, answered, ask,
                        modules, run)

HUB_STARTED = 25
HEAD_FIELD = {"byte order": 8, "version": 12, "block bytes": 40}


def interrupted(process):
    """How it ends; once more where it was between two things, and an interpreter may lose it."""
    while True:
        process.send_signal(signal.SIGINT)
        try:
            return process.wait(timeout=5)
        except subprocess.TimeoutExpired:
            pass


class RareTest(Scratch):
    def changed(self, recording, offset, value, layout="<I"):
        data = bytearray(recording.bytes())
        struct.pack_into(layout, data, offset, value)
        path = self.path("changed")
        with open(path, "wb") as file:
            file.write(data)
        return path

    def refused(self, path, *options):
        status, _, errors = run("--text", *options, path)
        self.assertEqual(status, 1)
        return errors

    def test_heads_that_are_not_understood(self):
        recording = answered()
        for field, value, layout, reason in (
                ("byte order", 0x04030201, "<I", "it is from a machine of another byte order"),
                ("version", 9, "<H", "it has version 9; this program reads 1"),
                ("block bytes", 56, "<I", "the size of its blocks makes no sense"),
                ("block bytes", 4095, "<I", "the size of its blocks makes no sense")):
            path = self.changed(recording, HEAD_FIELD[field], value, layout)
            self.assertEqual(self.refused(path), f"tevalon-trace: cannot read '{path}': {reason}\n"
                             .replace("\\\n", "\n"))

    def test_blocks_that_are_damaged(self):
        recording = answered()
        first = 256 + 32 * len(recording.names)
        # Its number, which its end does not have: it was being taken for another one's records.
        output = self.show("--text", self.changed(recording, first, 99))
        self.assertIn("Evt:7", output)
        self.assertNotIn("created", output)
        # How long it is.
        status, output, errors = run("--text", self.changed(recording, first + 4, 5000))
        self.assertEqual(status, 1)
        self.assertIn("cannot read all of", errors)
        self.assertIn("Evt:7", output)
        self.assertNotIn("created", output)

    def test_records_that_are_too_short_and_kinds_that_are_unknown(self):
        recording = answered()
        recording.add(3 * MS, 1, MARK)
        recording.add(4 * MS, 1, 77, word(1) + word(255))
        path = self.write(recording)
        lines = self.show("--text", path).splitlines()[-2:]
        self.assertTrue(lines[0].endswith("  mark '' 0"), lines)
        self.assertTrue(lines[1].endswith("  record of unknown kind 77: 0x1 0xff"), lines)
        self.assertIn("record of kind 77", self.show("--json", path))

    def test_memory_with_and_without_the_heap(self):
        recording = answered()
        recording.add(3 * MS, 1, MEMORY, word(2 << 20) + word(1 << 20) + word(0) + word(0))
        recording.add(4 * MS, 1, MEMORY, word(2 << 20) + word(1 << 20) + word(1 << 20) + word(0))
        lines = self.show("--text", self.write(recording)).splitlines()[-2:]
        self.assertTrue(lines[0].endswith("memory: resident 2.0 MiB, of it private 1.0 MiB, at "
                                          "1970-01-01 00:00:00.000 UTC"), lines)
        self.assertTrue(lines[1].endswith("heap in use 1.0 MiB, at 1970-01-01 00:00:00.000 UTC"), lines)

    def test_wrong_usage(self):
        path = self.write(answered())
        for arguments, reason in ((("--text", "--from", "-1", path), "invalid time value: '-1'"),
                                  (("--text", "--from", "1e10", path), "invalid time value: '1e10'"),
                                  (("--follow", "--log", path, path), "--follow takes no --log")):
            status, _, errors = run(*arguments)
            self.assertEqual(status, 2)
            self.assertIn(reason, errors)

    def test_what_cannot_be_followed_or_merged(self):
        no_recording = self.path("text")
        with open(no_recording, "w", encoding="utf-8") as file:
            file.write("no recording\n")
        missing = self.path("missing")
        for path, reason in ((missing, "No such file or directory"),
                             (no_recording, "it does not begin as a recording does")):
            self.assertEqual(run("--follow", path),
                             (1, "", f"tevalon-trace: cannot read '{path}': {reason}\n"))
        self.assertEqual(self.refused(self.write(answered()), "--log", missing),
                         f"tevalon-trace: cannot read '{missing}': No such file or directory\n")

    def test_a_reader_that_goes_away_while_it_follows(self):
        recording = modules()
        for value in range(20_000):
            recording.add(value, 1, MARK, word(value) + text("m"))
        recording.process_id = os.getpid()
        with subprocess.Popen([TOOL, "--follow", self.write(recording)], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE) as process:
            process.stdout.readline()
            process.stdout.close()
            self.assertEqual(process.wait(), 1)
            self.assertEqual(process.stderr.read(), b"tevalon-trace: cannot write: Broken pipe\n")

    def test_processes_of_others_and_of_nobody_are_followed_to_their_end(self):
        recording = answered()
        with subprocess.Popen(["true"]) as ended:
            ended.wait()
        recording.process_id = ended.pid
        self.assertIn(f"process {ended.pid} has ended", run("--follow", self.write(recording))[2])

    def test_an_interrupt_ends_it(self):
        fifo = self.path("fifo")
        os.mkfifo(fifo)
        with subprocess.Popen([TOOL, "--text", fifo], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE) as process:
            with open(fifo, "wb") as file:  # Once it is open the tool reads.
                file.write(b"TVRECORD")
                file.flush()
                self.assertEqual(interrupted(process), 128 + signal.SIGINT)
            self.assertEqual(process.stderr.read(), b"")

    def test_copies_of_one_recording_complete_each_other(self):
        early, late = modules(), modules()
        early.add(1 * MS, 1, MARK, word(1) + text("m"))
        late.add(1 * MS, 1, MARK, word(1) + text("m"))
        late.add(2 * MS, 1, MARK, word(2) + text("m"))
        late.stop_ns = late.start_ns + 3 * MS
        paths = [self.write(early, "early"), self.write(late, "late")]
        for order in (paths, paths[::-1]):
            output = self.show("--text", *order)
            self.assertEqual(output.count("mark 'm'"), 2)
            self.assertIn("stopped at", output)
        lost = modules()
        lost.records_lost = 3
        self.assertEqual(self.show("--text", paths[1], self.write(lost, "lost")).count("mark 'm'"), 2)

    def loose_ends(self):
        recording = modules()
        recording.add(0, 2, HUB_STARTED, word(0x500) + halves(TUNER))
        # A task posted by nobody's slice, cancelled, and one that was posted before the recording.
        recording.add(1 * MS, 1, TASK_POSTED, word(0x600) + halves(3) + word(0))
        recording.add(2 * MS, 1, TASK_CANCELLED, word(0x600) + halves(3))
        recording.add(3 * MS, 1, TASK_BEGUN, word(0x700) + halves(4))
        recording.add(4 * MS, 1, TASK_POSTED, word(0x800) + halves(5) + word(0))
        recording.add(5 * MS, 1, TASK_ENDED, word(0x700) + halves(4))
        recording.add(6 * MS, 3, TASK_BEGUN, word(0x800) + halves(5))
        recording.add(7 * MS, 3, TASK_ENDED, word(0x800) + halves(5))
        # A timer that was started before the recording.
        recording.add(8 * MS, 1, TIMER_STOPPED, word(0x900))
        # An event queued and replied by threads that are in nothing.
        recording.event(9 * MS, 1, QUEUED, 0xa00, TUNE, VIEWER, (TUNER, 1))
        recording.event(10 * MS, 1, AWAITED, 0xa10, TUNE, 0)
        recording.event(11 * MS, 3, REPLIED, 0xa10, TUNE, 5)
        # Asked only, without a wait.
        recording.event(12 * MS, 1, AWAITED, 0xa20, TUNE, 0)
        recording.event(13 * MS, 1, IN_VAIN, 0xa20, TUNE, 0)
        # A send that a wait for a lock interrupts, and one that is refused.
        recording.event(14 * MS, 1, SENT, 0xa30, TUNE, VIEWER, (TUNER, 0))
        recording.add(15 * MS, 1, WAITED, word(0xb00) + halves(0, 0) + word(MS // 2))
        recording.event(16 * MS, 1, REFUSED, 0xa30, TUNE, VIEWER, (TUNER, 1))
        recording.event(17 * MS, 1, CREATED, 0xa40, TUNE, VIEWER)
        return recording

    def test_loose_ends_are_shown_in_each_form(self):
        path = self.write(self.loose_ends())
        events = json.loads(self.show("--json", path))["traceEvents"]
        names = [event.get("name") for event in events]
        for name in ("task 3 posted", "task 3 cancelled", "task 4", "task 5", "timer stopped",
                     "hub of tuner thread started"):
            self.assertIn(name, names)
        # Of the task that was posted within another one.
        self.assertEqual(sum(event["ph"] == "s" for event in events), 1)
        self.assertIn("18 records", self.show("--text", path))
        self.show("--summary", path)

    def page(self, *arguments):
        """Nothing where this build has no page."""
        status, output, errors = run("--html", *arguments)
        if "script" in errors:
            self.skipTest(errors)
        self.assertEqual((status, errors), (0, ""))
        # The data stand in it compressed, the longest run of such letters that starts so.
        packed = max(re.findall(r"eJ[A-Za-z0-9+/=]+", output), key=len)
        return zlib.decompress(base64.b64decode(packed)).decode()

    def test_a_page_of_loose_ends(self):
        recording = self.loose_ends()
        # Of one name, at the same time.
        recording.thread(4, 4003, "Evt:9")
        recording.add(6 * MS, 4, MARK, word(1) + text("beside"))
        output = self.page(self.write(recording))
        self.assertIn("hub of tuner thread started", output)
        self.assertIn("beside", output)

    def test_a_page_that_begins_later(self):
        log = self.path("log")
        with open(log, "w", encoding="utf-8") as file:
            file.write("[ 1000.000500] [4000 main] early line\n"
                       "[ 1000.015500] [4000 main] late line\n")
        recording = self.loose_ends()
        recording.add(18 * MS, 1, MARK, word(1) + text("late mark"))
        recording.add(1 * MS, 2, COUNTER, word(25) + text("frames"))
        output = self.page("--from", "1000.010", "--log", log, self.write(recording))
        self.assertIn("late line", output)
        self.assertNotIn("early line", output)
        self.assertNotIn("frames", output)

    def test_a_damaged_recording_is_followed_up_to_the_damage(self):
        recording = answered()
        with subprocess.Popen(["true"]) as ended:
            ended.wait()
        recording.process_id = ended.pid
        data = recording.bytes()
        first = 256 + 32 * len(recording.names)
        used, = struct.unpack_from("<I", data, first + 4)
        whole = run("--follow", self.changed(recording, first + 4, used))[1]
        self.assertIn("created", whole)
        damaged = run("--follow", self.changed(recording, first + 4, used + 16))[1]
        remark = "1 of 2 blocks damaged: read as far as they make sense\n"
        self.assertIn(remark, damaged)
        self.assertEqual(damaged.replace(remark, ""), whole)

    def test_a_summary_beside_a_log(self):
        log = self.path("log")
        with open(log, "w", encoding="utf-8") as file:
            file.write("[ 1000.000500] [4000 main] a line\n")
        output = self.show("--summary", "--log", log, self.write(answered()))
        self.assertTrue(output.endswith(f"log '{log}': 1 lines, shown by --text, --json and --html\n"))

    def test_a_circle_of_threads_without_a_hub(self):
        recording = MadeRecording()
        recording.thread(1, 4000, "one")
        recording.thread(2, 4001, "two")
        for thread, event, target in ((1, 0x100, 2), (2, 0x200, 1)):
            recording.event(thread, thread, BEGUN, event, TUNE, VIEWER, (thread, 0))
        ask(recording, 100, 1, 1, 0x300, TUNE, 2)
        ask(recording, 200, 2, 2, 0x400, TUNE, 1)
        recording.event(800 * MS, 1, IN_VAIN, 0x300, TUNE, 800)
        recording.event(900 * MS, 1, ENDED, 0x100, TUNE, VIEWER, (1, 0))
        self.assertIn("circles", self.show("--summary", self.write(recording)))


if __name__ == "__main__":
    unittest.main()
