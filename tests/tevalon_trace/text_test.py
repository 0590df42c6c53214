#!/usr/bin/python3
"""Tests of tevalon-trace --text and --follow, and of what holds for all it writes.

usage: text_test.py TOOL
"""

import os
import signal
import struct
import subprocess
import unittest

from made_recording import NANOSECONDS, MadeRecording, text, word
from trace_tool import MARK, MEMORY, MS, TOOL, Scratch, answered, modules, run

HEAD = """\
process 4000 'made', boot id 7, on x86_64 with 64-bit pointers
build id of the program 0102030405060708090a0b0c0d0e0f1011121314, of the library unknown
started at 2023-11-14 22:13:20.000 UTC, monotonic 1000.000000000, not stopped
"""
EVENT = "event 0x1f0 type 100 (tune)"
FROM_VIEWER = f"{EVENT} from 1 (viewer)"
MAIN = "main              4000  "
TUNER = "Evt:7             4001  "
LINES = f"""\
1000.000000000  {MAIN}{FROM_VIEWER} created
1000.000000010  {MAIN}{FROM_VIEWER} sent to 7 (tuner)
1000.000000020  {MAIN}{FROM_VIEWER} queued for 7 (tuner), queue length 1
1000.000000030  {MAIN}{EVENT} waited for, at most 800 ms
1000.000000100  {TUNER}{FROM_VIEWER} handler of 7 (tuner) begun
1000.000000200  {TUNER}scope 'look up' begun
1000.000000300  {TUNER}mark 'found' 498000
1000.000000400  {TUNER}scope 'look up' ended
1000.000000500  {TUNER}{EVENT} replied 5
1000.001000000  {TUNER}{FROM_VIEWER} handler of 7 (tuner) ended
1000.002000000  {MAIN}counter 'frames' 25
"""


def marks(count, **settings):
    recording = MadeRecording(block_bytes=256, **settings)
    recording.thread(1, 4000, "main")
    for value in range(count):
        recording.add(value * MS, 1, MARK, word(value) + text("m"))
    return recording


def values(output):
    return [int(line.rsplit(" ", 1)[1]) for line in output.splitlines() if "  mark 'm' " in line]


class TextTest(Scratch):
    def test_a_line_tells_each_record(self):
        self.assertEqual(self.show("--text", self.write(answered())),
                         f"{HEAD}11 records of 2 threads\n{LINES}")

    def test_the_last_records_alone(self):
        self.assertEqual(self.show("--text", "--last", "2", self.write(answered())),
                         f"{HEAD}11 records of 2 threads\n" +
                         "".join(LINES.splitlines(True)[-2:]))

    def test_a_choice_of_time(self):
        self.assertEqual(self.show("--text", "--from", "1000.0000002", "--to", "1000.0000004",
                                   self.write(answered())),
                         f"{HEAD}11 records of 2 threads\n" +
                         "".join(LINES.splitlines(True)[5:8]))

    def test_recordings_of_32_bit_machines(self):
        recording = answered(modules())
        recording.pointer_bytes = 4
        output = self.show("--text", self.write(recording))
        self.assertIn("with 32-bit pointers\n", output)
        self.assertTrue(output.endswith(LINES))

    def test_a_file_that_is_cut_off(self):
        recording = marks(100)
        whole = recording.bytes()
        path = self.path("cut")
        blocks = len(recording.blocks)
        for cut in (1, 255, 256, 257, 1000):
            with open(path, "wb") as file:
                file.write(whole[:-cut])
            missing = -(-cut // 256)
            status, output, errors = run("--text", path)
            self.assertEqual(status, 1)
            self.assertEqual(errors, f"tevalon-trace: cannot read all of '{path}': it is cut off: "
                                     f"{missing} of {blocks} blocks are missing\n")
            self.assertIn(f"{missing} of {blocks} blocks unreadable\n", output)
            self.assertEqual(values(output), list(range(8 * (blocks - missing)))[:100])

    def test_a_damaged_block_is_read_as_far_as_it_makes_sense(self):
        recording = marks(16)
        raw = bytearray(recording.bytes())
        # The length of the fourth record of the first block.
        raw[256 + 48 + 3 * 24 + 1] = 0
        path = self.path("damaged")
        with open(path, "wb") as file:
            file.write(raw)
        status, output, errors = run("--text", path)
        self.assertEqual(status, 1)
        self.assertEqual(errors, f"tevalon-trace: cannot read all of '{path}': it is damaged: 1 of "
                                 "2 blocks could not be read, or not whole\n")
        self.assertEqual(values(output), [0, 1, 2, *range(8, 16)])

    def test_whatever_stands_in_a_file_is_survived(self):
        raw = answered().bytes()
        path = self.path("damaged")
        for position in range(16, len(raw), 31 * 8):
            damaged = bytearray(raw)
            damaged[position:position + 8] = b"\xf3" * 8
            with open(path, "wb") as file:
                file.write(damaged)
            for mode in ("--text", "--json", "--summary"):
                status, _, errors = run(mode, path)
                self.assertIn(status, (0, 1))
                self.assertNotIn("Traceback", errors)

    def test_what_can_be_read_is_given(self):
        whole = self.write(answered())
        none = self.path("none")
        status, output, errors = run("--text", none, whole)
        self.assertEqual(status, 1)
        self.assertEqual(errors,
                         f"tevalon-trace: cannot read '{none}': No such file or directory\n")
        self.assertEqual(output, f"{HEAD}11 records of 2 threads\n{LINES}")

    def test_copies_of_one_recording_are_one(self):
        early, late = marks(10), marks(100)
        late.blocks = late.blocks[1:]  # Its first block has been overwritten.
        output = self.show("--text", self.write(early, "early"), self.write(late, "late"))
        self.assertEqual(values(output), list(range(100)))

    def test_processes_are_shown_by_their_time(self):
        one = marks(3)
        other = marks(3, process_id=5000, name="other", start_ns=1000 * NANOSECONDS + MS // 2)
        output = self.show("--text", self.write(one, "one"), self.write(other, "other"))
        self.assertEqual(values(output), [0, 0, 1, 1, 2, 2])
        self.assertIn("1000.000500000  other[5000] main              4000  mark 'm' 0\n", output)

    def test_another_boot_is_placed_by_the_time_of_day(self):
        one = marks(1)
        other = marks(1, process_id=5000, boot_id=8, start_ns=3 * NANOSECONDS,
                      start_realtime_ns=1_700_000_002 * NANOSECONDS)
        output = self.show("--text", self.write(one, "one"), self.write(other, "other"))
        self.assertIn("1002.000000000  made[5000] main", output)


class LogTest(Scratch):
    def log(self, content):
        path = self.path("log")
        with open(path, "w", encoding="utf-8") as file:
            file.write(content)
        return path

    def lines(self, log):
        recording = answered()
        output = self.show("--text", "--log", self.log(log), self.write(recording))
        return output.splitlines()[4:]

    def test_lines_stand_where_their_time_is(self):
        lines = self.lines("[ 1000.000000] [4001 Evt:7] tuning\n"
                           "[ 1000.001500] [4001 Evt:7] tuned\nand more of it\n")
        self.assertEqual(lines[1], "1000.000000000  Evt:7             4001  log: tuning")
        self.assertEqual(lines[-3:], ["1000.001500000  Evt:7             4001  log: tuned",
                                      "1000.001500000  Evt:7             4001  log: and more of it",
                                      f"1000.002000000  {MAIN}counter 'frames' 25"])

    def test_what_has_too_many_digits_is_no_time(self):
        odd = "[" + "9" * 5000 + ".000000] odd"
        lines = self.lines(f"[ 1000.000000] [4001 Evt:7] tuning\n{odd}\n")
        self.assertEqual(lines[1:3],
                         ["1000.000000000  Evt:7             4001  log: tuning",
                          f"1000.000000000  Evt:7             4001  log: {odd}"])

    def test_dates_are_placed_by_the_time_of_day(self):
        lines = self.lines("2023-11-14 22:13:20.001500 tuned\n")
        self.assertEqual(lines[-2], "1000.001500000                          log: tuned")

    def test_the_prefix_wall_is_a_time(self):
        lines = self.lines("[2023-11-14T23:13:20.001500+01:00] [E] [0x5f] [4001 Evt:7] "
                           "[B-LOG] a.cpp:1:f(): tuned\n")
        self.assertEqual(lines[-2], "1000.001500000  Evt:7             4001  "
                                    "log: [E] [0x5f] [B-LOG] a.cpp:1:f(): tuned")

    def test_a_date_may_have_an_offset_from_utc(self):
        for form in ("[{}] ", "{} ", "{}: "):
            for date in ("2023-11-14T22:13:20.001500+00:00", "2023-11-14 22:13:20.001500Z",
                         "2023-11-14T23:13:20.001500+01:00", "2023-11-14 19:43:20.001500-02:30",
                         "2023-11-15T03:43:20,001500+0530", "2023-11-14 22:13:20.001500"):
                lines = self.lines(form.format(date) + "tuned\n")
                self.assertEqual(lines[-2], "1000.001500000                          log: tuned",
                                 form.format(date))

    def test_the_monotonic_time_counts_where_both_are_there(self):
        lines = self.lines("[2023-11-14T22:13:29.000000+00:00] [ 1000.001500] [I] tuned\n")
        self.assertEqual(lines[-2], "1000.001500000                          log: [I] tuned")

    def test_a_damaged_date_is_no_time(self):
        for date in ("2023-13-14T22:13:20.000000+00:00", "2023-11-14T22:13:20.000000+99:00"):
            lines = self.lines(f"[ 1000.001500] tuned\n[{date}] more\n")
            self.assertEqual(lines[-2],
                             f"1000.001500000                          log: [{date}] more")

    def test_a_log_that_the_library_wrote_is_placed_whole(self):
        log = os.path.join(os.path.dirname(__file__), "../explain/logs/evening.log")
        expected = []
        with open(log, encoding="utf-8") as file:
            for line in file:
                _, level, module, thread, rest = line.rstrip("\n").split("] ", 4)
                kernel_id, name = thread[1:].split(" ", 1)
                if rest:
                    expected.append(f"{name:<15} {kernel_id:>6}  log: {level}] {module}] {rest}")
        output = self.show("--text", "--log", log, self.write(answered()))
        shown = [line.split("  ", 1)[1] for line in output.splitlines() if "  log: " in line]
        self.assertGreater(len(shown), 500)
        self.assertEqual(sorted(shown), sorted(expected))

    def test_a_clock_that_was_set_meanwhile(self):
        recording = answered()
        # At 10 s it is an hour later than it was.
        recording.add(10 * NANOSECONDS, 1, MEMORY,
                      word(0) + word(0) + word(0) + word(1_700_003_610 * NANOSECONDS))
        output = self.show("--text", "--log", self.log("2023-11-14T23:13:31Z later\n"),
                           self.write(recording))
        self.assertEqual(output.splitlines()[-1],
                         "1011.000000000                          log: later")

    def test_lines_without_any_time_are_counted(self):
        log = self.log("no time\n[ 1000.000000] tuned\n")
        status, output, errors = run("--text", "--log", log, self.write(answered()))
        self.assertEqual(status, 1)
        self.assertEqual(errors, f"tevalon-trace: cannot place all of '{log}': 1 lines before the "
                                 "first one that begins with a time\n")
        self.assertIn("log: tuned\n", output)


class OutputTest(Scratch):
    def test_a_file_is_there_whole(self):
        path = self.path("out")
        self.assertEqual(self.show("--text", "-o", path, self.write(answered())), "")
        with open(path, encoding="utf-8") as file:
            self.assertEqual(file.read(), f"{HEAD}11 records of 2 threads\n{LINES}")

    def test_nothing_is_left_of_one_that_cannot_be_written(self):
        recording = self.write(answered())
        for mode in ("--text", "--json", "--summary"):
            status, _, errors = run(mode, "-o", self.path("no/out"), recording)
            self.assertEqual(status, 1)
            self.assertEqual(errors, f"tevalon-trace: cannot write '{self.path('no/out')}': No "
                                     "such file or directory\n")
        # A limit on the size of files: as a disk that is full.
        large = self.write(marks(20000), "large")
        path = self.path("out")
        limited = f"ulimit -S -f 64; exec '{TOOL}' --text -o '{path}' '{large}'"
        result = subprocess.run(["bash", "-c", limited], capture_output=True, check=False)
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stderr.decode(),
                         f"tevalon-trace: cannot write '{path}': File too large\n")
        self.assertEqual(sorted(os.listdir(self.folder)), ["large", "recording"])

    def test_nothing_is_left_by_one_that_is_ended(self):
        path = self.path("out")
        with subprocess.Popen([TOOL, "--follow", "-o", path, self.growing()],
                              stderr=subprocess.DEVNULL) as child:
            while not any(name.startswith("out.") for name in os.listdir(self.folder)):
                self.assertIsNone(child.poll())
            child.terminate()
            self.assertEqual(child.wait(), 128 + signal.SIGTERM)
        self.assertEqual(sorted(os.listdir(self.folder)), ["growing"])

    def growing(self):
        """A recording of this very process, which therefore goes on."""
        recording = marks(3)
        recording.process_id = os.getpid()
        return self.write(recording, "growing")

    def test_standard_output_that_is_closed(self):
        read_end, write_end = os.pipe()
        os.close(read_end)
        recording = self.write(marks(20000))
        result = subprocess.run([TOOL, "--text", recording], stdout=write_end,
                                stderr=subprocess.PIPE, check=False)
        os.close(write_end)
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stderr.decode(), "tevalon-trace: cannot write: Broken pipe\n")


class FollowTest(Scratch):
    def setUp(self):
        super().setUp()
        self.recording = marks(3)
        self.recording.process_id = os.getpid()
        # Room for what comes later.
        for _ in range(8):
            self.recording.blocks.append([1, 99, 0, bytearray()])
        self.file_path = self.write(self.recording)
        self.set_blocks(self.recording.blocks[:1])

    def set_blocks(self, blocks):
        """Rewrites the file in place, as a process does through its mapping."""
        total = 9
        made = list(blocks)
        raw = bytearray(self.recording.bytes()[:256])
        recording = self.recording
        keep = recording.blocks
        recording.blocks = made
        raw[256:] = recording.bytes()[256:]
        recording.blocks = keep
        raw.extend(bytes(256 * (total - len(made))))
        raw[36:40] = struct.pack("<I", total)
        raw[72:80] = struct.pack("<Q", recording.stop_ns)
        with open(self.file_path, "r+b") as file:
            file.write(raw)

    def block(self, number, values_of):
        records = b"".join(
            struct.pack("<Q", value * MS << 16 | 3 << 8 | MARK) + word(value) + text("m")
            for value in values_of)
        return [1, number, self.recording.start_ns, bytearray(records)]

    def read_values(self, child, last):
        found = []
        for raw in child.stdout:
            if "  mark 'm' " in raw:
                found.append(int(raw.rsplit(" ", 1)[1]))
                if found[-1] == last:
                    return found
        self.fail(f"it ended after {found}")
        return found

    def test_shows_what_comes_until_it_is_stopped(self):
        with subprocess.Popen([TOOL, "--follow", self.file_path], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True) as child:
            self.assertEqual(self.read_values(child, 2), [0, 1, 2])
            self.set_blocks([self.block(0, range(5))])
            self.assertEqual(self.read_values(child, 4), [3, 4])
            self.set_blocks([self.block(0, range(8)), self.block(1, range(8, 10))])
            self.assertEqual(self.read_values(child, 9), [5, 6, 7, 8, 9])
            self.recording.stop_ns = 1
            self.set_blocks([self.block(0, range(8)), self.block(1, range(8, 10)),
                             self.block(4, range(32, 34))])
            self.assertEqual(self.read_values(child, 33), [32, 33])
            errors = child.stderr.read()
            self.assertEqual(child.wait(), 0)
        self.assertEqual(errors,
                         f"tevalon-trace: '{self.file_path}': 2 blocks were overwritten before "
                         f"they were read\ntevalon-trace: '{self.file_path}': the recording was "
                         "stopped\n")

    def test_ends_with_the_process(self):
        with subprocess.Popen(["true"]) as ended:
            pass
        self.recording.process_id = ended.pid
        self.set_blocks(self.recording.blocks[:1])
        status, output, errors = run("--follow", "--last", "1", self.file_path)
        self.assertEqual(status, 0)
        self.assertEqual(values(output), [2])
        self.assertEqual(errors,
                         f"tevalon-trace: '{self.file_path}': process {ended.pid} has ended\n")

    def test_is_ended_by_the_keyboard(self):
        with subprocess.Popen([TOOL, "--follow", self.file_path], stdout=subprocess.PIPE,
                              text=True) as child:
            self.read_values(child, 2)
            child.send_signal(signal.SIGINT)
            self.assertEqual(child.wait(), 0)


if __name__ == "__main__":
    unittest.main()
