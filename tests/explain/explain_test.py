"""tevalon-explain, tried on logs that the library really wrote.

usage: explain_test.py TEVALON-EXPLAIN [TEST...]
"""

import contextlib
import io
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from unittest import mock

sys.dont_write_bytecode = True
HERE = Path(__file__).parent
ROOT = HERE.parents[1]
sys.path[:0] = [str(ROOT / "tools/tevalon_explain"), str(ROOT / "tools/catalogue")]

import catalogue  # noqa: E402
from tevalon_explain import main as tool  # noqa: E402
from tevalon_explain.knowledge import CLIENT, CONVERSION, Knowledge  # noqa: E402

PROGRAM = sys.argv.pop(1) if len(sys.argv) > 1 else ""
LOGS = HERE / "logs"

# Each fault, and what has to be said of it first.
FAULTS = {
    "no-receiver": "a module asks one that is not there, or does not listen",
    "unregister-hangs": "a module's event handler does not return, and its unregister waits",
    "timer-stop-hangs": "the handler of timer 'epg_poll' does not return, and its stop waits",
    "task-hangs": "task 77 does not return, and its thread is blocked",
    "watch-overrun": "the watched operation eWatchID_app_show takes too long",
    "threads-exhausted": "the process can start no more threads",
    "descriptors-exhausted": "the process has too many files open",
    "pipe-closed": "some code closes descriptors that are not its own",
    "mutex-misused": "a mutex is used wrongly",
    "zero-period": "a periodic timer has no period",
    "no-workers": "the worker limit is 0; the task will not run",
    "handler-twice": "registerHandler() returned 1; the new handler is not called",
    "folder-not-empty": "rmdir() failed; rmDir() returned -3",
}

# As GCC and Clang name them in __func__; the first one is a lambda's.
FUNCTIONS = ("operator()", "~Recorder", "operator==", "operator<<=", "operator->", "operator,",
             "operator[]", "operator new []", "operator delete", 'operator""_ms', "operator int",
             "operator const char *", "operator std::map<int, const char*>", "operator void (*)()",
             "operator {anonymous}::Name", "operators", "f")

OWN_PREFIX = re.compile(r"^(\[[^\]]*\d{6}[^\]]*\] )?(\[[AEWID]\] )?(\[0x[0-9a-f]+\] )?"
                        r"(\[\d+ [^\]]*\] )?")


def explain(*arguments, text=None, status=0):
    result = subprocess.run([PROGRAM, *map(str, arguments)], input=text, capture_output=True,
                            check=False)
    output = result.stdout.decode("utf-8", "surrogateescape")
    errors = result.stderr.decode("utf-8", "surrogateescape")
    if result.returncode != status:
        raise AssertionError(f"{arguments} gave {result.returncode}: {output[-500:]}{errors}")
    return output, errors


def first(output):
    return output.splitlines()[0].removeprefix("Most likely wrong: ")


def log(name):
    return (LOGS / f"{name}.log").read_bytes()


def without_prefix(text):
    return "".join(OWN_PREFIX.sub("", line) for line in text.decode().splitlines(keepends=True))


def counts(output):
    """Of the messages, from the summary."""
    return dict((name, int(count)) for count, name in
                re.findall(r"^ *(\d+)  \w+ +([a-z]+(?:-[a-z]+)+)  ", output, re.M))


class FaultsTest(unittest.TestCase):
    def test_each_fault_is_named_first(self):
        self.assertGreaterEqual(len(FAULTS), 10)
        for name, title in FAULTS.items():
            output, _ = explain("--summary", LOGS / f"{name}.log")
            self.assertEqual(first(output), title, name)

    def test_it_says_why_and_where(self):
        output, _ = explain("--summary", LOGS / "threads-exhausted.log")
        self.assertRegex(output, r"    Timer 'teletext' had expired \d+ times before: ")
        self.assertRegex(output, r"    line \d+: .*Fail to create handler thread of timer:'teletext'")
        self.assertIn("    look at: The number of its threads", output)

    def test_what_follows_from_a_cause_comes_behind_it(self):
        output, _ = explain("--summary", LOGS / "descriptors-exhausted.log")
        self.assertIn("\"Fail to wrtie data\", 2 times, follows from it.", output)
        self.assertNotIn("closes descriptors", output)
        self.assertIn("2. Also: a module asks one that is not there", output)

    def test_a_healthy_evening_has_nothing_wrong(self):
        output, _ = explain("--summary", LOGS / "evening.log")
        self.assertEqual(first(output), "nothing")
        self.assertEqual(counts(output)["task-begun"], counts(output)["task-finished"])

    def test_the_trouble_session_is_explained(self):
        output, _ = explain("--summary", LOGS / "trouble.log")
        self.assertEqual(first(output), "other modules report warnings")
        self.assertRegex(output, r"    3 of their lines are of that level\.\n"
                         r"    line \d+: .*'hbbtv_controller' got no answer from 'browser_engine' .*\n"
                         r"    line \d+: .*'viewer' got no answer from 'hbbtv_controller' within 800 ms\.")

    def test_an_end_in_the_middle_of_something_is_a_remark(self):
        text = log("evening")
        begin = text.index(b"Begin fire task")
        output, _ = explain("--summary", text=text[:text.index(b"\n", begin) + 1])
        self.assertEqual(first(output), "nothing")
        self.assertIn("the log ends before the end of what this line begins: task-begun", output)

    def test_without_times_the_lines_tell_what_is_stuck(self):
        text = without_prefix(log("timer-stop-hangs"))
        begin = text.index("Before wait timer:'epg_poll'")
        for more, title in (("", "nothing"),
                            ("[X] x.cpp:1:f(): y\n" * 60, FAULTS["timer-stop-hangs"])):
            output, _ = explain("--summary",
                                text=(text[:text.index("\n", begin) + 1] + more).encode())
            self.assertEqual(first(output), title)


class LinesTest(unittest.TestCase):
    def setUp(self):
        self.knowledge = Knowledge(catalogue.CATALOGUE)

    def written(self, entry):
        """Lines as the statement writes them, with values in place of its conversions."""
        values = {"d": "7", "u": "7", "lu": "7", "p": "0x7f00", "f": "1.500000", "c": "x", "s": "it's",
                  "X": "1A"}
        text = CONVERSION.sub(lambda m: values[m.group(1)], entry["text"]).rstrip("\n")
        numbers = entry.get("fixed_lines") or [entry.get("line_offset", 0) + 321]
        for file in entry["files"]:
            for function in entry["functions"]:
                for number in numbers:
                    yield f"[{entry['tag']}] {file}:{number}:{function}(): {text}"

    def test_every_message_is_recognised_wherever_it_is_written(self):
        tried = 0
        for entry in catalogue.load():
            if catalogue.layout_of(entry) != "statement":
                continue
            for line in self.written(entry):
                tried += 1
                for prefix in ("", "[ 12.345678] [E] [0x5f] [7 a b] ", "tv kernel[3]: "):
                    found = self.knowledge.look(prefix + line)
                    self.assertNotIn(found, (None, CLIENT), line)
                    self.assertEqual((found.message.id, found.is_cut), (entry["id"], False), line)
        self.assertGreater(tried, 150)

    def test_other_layouts_are_recognised(self):
        for line, name in (
                ("[TRACE -> stop(IN)] timer.cpp:51:stop() ", "trace-scope-in"),
                ("[TRACE <- stop(OUT)] timer.cpp:51:stop() ", "trace-scope-out"),
                ("[TRACE] timer_thread.cpp:62:a::B::B()", "trace-point"),
                ("TRACE -> [main(IN)] :src/main.cpp:12 ", "trace-function-in"),
                ("TRACE <- [main(OUT)] :src/main.cpp:12 ", "trace-function-out"),
                ("[]:0::DUMPMEM(0012ABCDd):, title", "dump-title"),
                ("[]:0::DUMPMEM(0012ABCDd):, 00 FF ", "dump-line"),
                ("[Hbbtv]app.cpp:12:launch:x=5", "client-line"),
                ("{7-1.500000}[B-LOG] debug_memory.cpp:79:showFileContents(): ==Mem==", "memory-report"),
                ("zor-debug: ZOR_DEBUG: cannot use 'x'; accepted are y", "zor-debug-setting")):
            found = self.knowledge.look(line)
            self.assertEqual(found.message.id, name)

    def test_a_line_whose_end_is_missing_is_recognised(self):
        found = self.knowledge.look("[B-LOG] timer.cpp:1151:HandleTimeout(): Fail to create han")
        self.assertEqual((found.message.id, found.is_cut), ("timer-no-handler-thread", True))
        self.assertIs(self.knowledge.look("[B-LOG] timer.cpp:1151:HandleTimeout(): "), CLIENT)

    def test_a_line_whose_beginning_is_missing_is_recognised(self):
        for line in ("out(): Fail to create handler thread of timer:'x', error:'y'.",
                     "eate handler thread of timer:'x', error:'y'.",
                     "Fail to create handler thread of timer:'x'"):
            found = self.knowledge.look(line)
            expected = None if line.startswith("eate") else "timer-no-handler-thread"
            self.assertEqual(found and found.message.id, expected, line)

    def test_the_same_text_of_two_statements_is_told_apart_by_the_line_number(self):
        for number, name in ((27, "timer-not-started"), (2105, "timer-expiry-unknown")):
            found = self.knowledge.look(f"[B-LOG] timer.cpp:{number}:start(): Fail to start timer:'a'.")
            self.assertEqual(found.message.id, name)

    def test_the_true_place_is_told(self):
        found = self.knowledge.look("[B-LOG] timer.cpp:1093:SendCmd(): Fail to wrtie data, errno(9):'x'.")
        self.assertEqual(found.message.place(found.number), "src/timer/scheduler.cpp:93")

    def test_lines_of_others_are_nobodys(self):
        for line in ("", "-- MARK --", "usb 1-1: new device", "[12.5] (): ", "kernel: ]: [", "\0\xff"):
            self.assertIsNone(self.knowledge.look(line), line)
        self.assertIs(self.knowledge.look("[TvBrowser] module.cpp:89:ask(): no answer"), CLIENT)
        # Of a client's source of the same name.
        self.assertIs(self.knowledge.look("[Mine] utils.cpp:3:rmDir(): something else"), CLIENT)

    def test_a_function_may_have_any_name_that_a_compiler_gives_it(self):
        for function in FUNCTIONS:
            for line, name in ((f"[Recorder] recorder.cpp:69:{function}(): saved", CLIENT),
                               (f"[TRACE -> {function}(IN)] recorder.cpp:69:{function}() ",
                                "trace-scope-in"),
                               (f"[TRACE <- {function}(OUT)] recorder.cpp:69:{function}() ",
                                "trace-scope-out"),
                               (f"[Recorder]recorder.cpp:69:{function}:saved", "client-line")):
                found = self.knowledge.look("[I] [0x60] [7 a b] " + line)
                self.assertEqual(getattr(getattr(found, "message", None), "id", found), name, line)
        output, _ = explain("--summary", text="".join(
            f"[Recorder] recorder.cpp:69:{function}(): saved\n" for function in FUNCTIONS).encode())
        count = len(FUNCTIONS)
        self.assertIn(f"{count} lines: 0 of tevalon-base, {count} of other modules, 0 of others\n",
                      output)

    def test_a_damaged_date_is_no_time(self):
        line = "[{}T00:00:00.000000+00:00] [B-LOG] timer.cpp:51:start(): Fail to start timer:'x'.\n"
        for date in ("2026-13-01", "2026-02-30", "0000-01-01"):
            output, _ = explain("--summary", text=line.format(date).encode())
            self.assertEqual(counts(output), {"timer-not-started": 1}, date)


class LogsTest(unittest.TestCase):
    def setUp(self):
        self.folder = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)

    def test_prefixes_make_no_difference_to_the_counts(self):
        text = log("evening")
        plain, _ = explain("--summary", text=without_prefix(text).encode())
        whole, _ = explain("--summary", text=text)
        self.assertEqual(counts(plain), counts(whole))
        self.assertGreater(len(counts(plain)), 40)

    def test_colours_make_no_difference(self):
        text = log("timer-stop-hangs").decode()
        coloured = "".join(f"\033[31m{line}\033[0m\n" for line in text.splitlines())
        output, _ = explain("--summary", text=coloured.encode())
        self.assertEqual(first(output), FAULTS["timer-stop-hangs"])
        self.assertEqual(counts(output), counts(explain("--summary", text=text.encode())[0]))

    def test_a_devices_own_prefix_is_read_by_the_stated_pattern(self):
        lines = without_prefix(log("timer-stop-hangs")).splitlines()
        text = "".join(f"<3>{100 + number * 0.2:.1f}|tv|{line}\n" for number, line in enumerate(lines))
        output, _ = explain("--summary", "--device-prefix", r"<\d>(?P<time>[\d.]+)\|tv\|",
                            text=text.encode())
        self.assertEqual(first(output), FAULTS["timer-stop-hangs"])
        self.assertRegex(output, r"It began \d+\.\d s before the log's end")
        dated = "".join(f"2026-11-22T20:15:{number % 60:02}+01:00 {line}\n"
                        for number, line in enumerate(lines[:60]))
        output, _ = explain("--summary", "--device-prefix", r"(?P<time>\S+) ", text=dated.encode())
        self.assertEqual(first(output), FAULTS["timer-stop-hangs"])

    def test_lines_of_others_may_stand_between(self):
        lines = log("zero-period").decode().splitlines(keepends=True)
        text = "".join(line + "kernel: [12.5] something\n" for line in lines)
        output, _ = explain("--summary", text=text.encode())
        self.assertEqual(first(output), FAULTS["zero-period"])
        self.assertIn(f"; ".join([f"{len(lines)} of others"]), output)

    def test_half_lines_are_counted(self):
        output, _ = explain("--summary", text=b"SendCmd(): Fail to wrtie data, errno(9):'x'.\n"
                            b"[B-LOG] timer_thread.cpp:121:postTask(): Invalid Em")
        self.assertIn("2 lines: 2 of tevalon-base, 0 of other modules, 0 of others; 2 cut\n", output)

    def test_the_log_is_shown_with_the_meaning_below_each_first_line(self):
        line = "[B-LOG] timer_thread.cpp:121:postTask(): Invalid Empty task\n"
        output, _ = explain(text=(line + "other\n" + line).encode())
        self.assertTrue(output.endswith(
            "\n" + line + "    ^ task-empty: A null task was posted.\n"
            "      failed: null argument; nothing was queued\n"
            "      look at: Who posts: was the task moved away, or its creation refused?\n"
            "      in src/timer_thread.cpp:121\nother\n" + line + "    ^ task-empty\n"), output)

    def test_the_log_itself_comes_out_as_it_was(self):
        for text in (log("evening"), b"\xff\xfe\0 x\r\n[B-LOG] a\n\n", b"no end"):
            output, _ = explain(text=text)
            shown = output[output.index("\n", output.index(" of others")):]
            lines = text.decode("utf-8", "surrogateescape").split("\n")
            place = 0
            for line in lines:
                place = shown.index(line, place)
        output, _ = explain("--summary", text=b"\xff\xfe\n")
        self.assertIn("1 lines: ", output)

    def test_errors_alone(self):
        output, _ = explain("--errors", LOGS / "zero-period.log")
        shown = [line for line in output.splitlines() if line.startswith("[20")]
        self.assertEqual(shown, log("zero-period").decode().splitlines())
        output, _ = explain("--errors", LOGS / "trouble.log")
        shown = [line for line in output.splitlines() if line.startswith("[")]
        self.assertEqual(len(shown), 3)
        self.assertIn("'viewer' got no answer from 'hbbtv_controller' within 800 ms.", shown[1])

    def test_no_line_of_ours_is_said(self):
        for text in (b"", b"something else\n"):
            output, _ = explain(text=text)
            self.assertIn("No line of tevalon-base is in it.", output)

    def test_what_cannot_be_read_is_named_with_the_reason(self):
        for name, reason in ((self.folder / "missing", "No such file or directory"),
                             (self.folder, "Is a directory")):
            for options in ((), ("--follow",)):
                output, errors = explain(*options, name, status=1)
                self.assertEqual(output, "")
                self.assertEqual(errors, f"tevalon-explain: cannot read '{name}': {reason}\n")

    def test_what_cannot_be_written_is_said(self):
        with open("/dev/full", "w") as full:
            result = subprocess.run([PROGRAM, LOGS / "evening.log"], stdout=full,
                                    stderr=subprocess.PIPE, check=False)
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stderr, b"tevalon-explain: cannot write: No space left on device\n")

    def test_wrong_usage(self):
        for arguments in (["--nonsense"], ["a", "b"], ["--device-prefix", "("], ["--sum", "x"],
                          ["--device-prefix"]):
            output, errors = explain(*arguments, status=2)
            self.assertEqual(output, "")
            self.assertIn("usage: tevalon-explain ", errors)
        self.assertIn("'(' is no regular expression: ", explain("--device-prefix", "(", status=2)[1])

    def test_help(self):
        output, _ = explain("--help")
        for option in ("--summary", "--errors", "--follow", "--device-prefix PATTERN", "FILE"):
            self.assertIn(option, output)

    def test_a_reader_that_goes_away_ends_it_quietly(self):
        with subprocess.Popen([PROGRAM, LOGS / "evening.log"], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE) as process:
            process.stdout.readline()
            process.stdout.close()
            self.assertEqual(process.stderr.read(), b"")

    def test_a_long_log_takes_no_longer_than_its_lines(self):
        path = self.folder / "long.log"
        text = log("evening") + log("trouble")
        with open(path, "wb") as file:
            for _ in range(10_000_000 // len(text)):
                file.write(text)
        output, _ = explain("--summary", path)
        self.assertEqual(first(output), "other modules report warnings")

    def test_ten_modules_are_told_apart(self):
        text = "".join(f"[E] [0x{0x60 + number:02x}] [Tag] a.cpp:1:f(): fails\n" for number in range(10))
        output, _ = explain("--summary", text=text.encode())
        for number in range(10):
            self.assertRegex(output, rf"(?m)^ +1  module 0x{0x60 + number:02x}$")


class RareTest(unittest.TestCase):
    """Causes that no kept log has, and lines that are damaged."""

    def line(self, name, *values, prefix="", cut=None):
        """As the statement writes it."""
        entry = next(entry for entry in catalogue.load() if entry["id"] == name)
        given = iter(values)
        text = CONVERSION.sub(lambda match: str(next(given)), entry["text"]).rstrip("\n")
        number = (entry.get("fixed_lines") or [entry.get("line_offset", 0) + 321])[0]
        return (f"{prefix}[{entry['tag']}] {entry['files'][0]}:{number}:"
                f"{entry['functions'][0]}(): {text[:cut]}\n")

    def summary(self, *lines):
        return explain("--summary", text="".join(lines).encode())[0]

    def test_threads_that_are_refused_without_a_timer_that_has_many(self):
        refused = self.line("hub-no-thread")
        expired = self.line("timer-once-expired", "ticker", 1)
        for lines in ((refused,), (expired, expired, refused)):
            output = self.summary(*lines)
            self.assertEqual(first(output), FAULTS["threads-exhausted"])
            self.assertNotIn("had expired", output)

    def test_a_scheduler_that_has_no_pipe_for_another_reason(self):
        output = self.summary(self.line("timer-no-pipe", 12, "Cannot allocate memory"))
        self.assertEqual(first(output), "the simple timers' scheduler could not be made")
        self.assertNotIn("follows from it", output)

    def test_a_pipe_that_fails_by_another_error_was_not_closed_by_others(self):
        output = self.summary(self.line("timer-command-lost", 5, "Input/output error"))
        self.assertEqual(first(output), FAULTS["pipe-closed"])
        self.assertNotIn("another part of the process", output)

    def test_memory_and_the_clock(self):
        self.assertEqual(first(self.summary(self.line("hub-no-impl"))), "memory ran out")
        self.assertEqual(first(self.summary(self.line("timer-clock-unread", 22, "no"))),
                         "the monotonic clock cannot be read")

    def test_null_events(self):
        output = self.summary(self.line("dispatcher-null-event"), self.line("event-not-sent"))
        self.assertEqual(first(output), "a module sends null events")
        self.assertIn("    Once; the send then fails.\n", output)

    def test_watches_that_overrun(self):
        cut = self.line("watch-overrun", 1, "x", 5, cut=12)
        self.assertEqual(first(self.summary(cut)), "a watched operation takes too long")
        output = self.summary(self.line("watch-overrun", 1, "eOne", "5.5"),
                              self.line("watch-overrun", 2, "eTwo", "9.5"))
        self.assertEqual(first(output), "the watched operation eTwo takes too long")
        self.assertIn("    Also: eOne.\n", output)

    def test_what_the_handlers_thread_wrote_last(self):
        output = self.summary(
            self.line("timer-once-expired", "clock", 1, prefix="[ 1.000000] [7 T:clock] "),
            self.line("timer-stop-waits", "clock", prefix="[ 2.000000] [8 main] "),
            "[ 9.000000] [X] a.cpp:1:f(): y\n")
        self.assertEqual(first(output), "the handler of timer 'clock' does not return, and its stop waits")
        self.assertIn("    The handler's thread wrote line 1 last.\n", output)

    def test_tasks_that_run_late(self):
        output = self.summary(self.line("task-times", "0x1", "2.000000", "4.500000"))
        self.assertEqual(first(output), "tasks run up to 2.5 s late")

    def test_a_task_that_goes_round_and_round(self):
        once = self.line("task-put-back", "0x1", "0x2", 7, "2.000000", "1.000000")
        other = self.line("task-empty")
        self.assertEqual(first(self.summary(once, other)), "null argument; nothing was queued")
        self.assertEqual(first(self.summary(*[once] * 101, other)),
                         "the task is not due; it is queued again")

    def test_more_than_five_causes(self):
        output = self.summary(
            self.line("timer-no-pipe", 24, "x"), self.line("hub-no-thread"), self.line("hub-no-impl"),
            self.line("timer-clock-unread", 22, "no"), self.line("timer-zero-period"),
            self.line("folder-null"), self.line("task-empty"))
        self.assertRegex(output, r"\nAnd 2 more:\n    line \d: .*\n    line \d: ")

    def test_lines_that_the_library_does_not_write(self):
        for text in ("TRACE of something", "zor-debug: of another version", "x ]:0::DUMPMEM(z x",
                     "rmDir(): something else", "stop(): "):
            self.assertIn("1 lines: 0 of tevalon-base, 0 of other modules, 1 of others",
                          self.summary(text + "\n"), text)

    def test_a_clients_line_of_the_old_form_has_a_level_too(self):
        output = self.summary("[E] [Hbbtv]app.cpp:12:launch:x=5\n",
                              "[I] [Hbbtv]app.cpp:12:launch:[E] x=5\n")
        self.assertIn("    1 of their lines is of that level.\n", output)

    def test_what_is_cut_begins_and_ends_nothing(self):
        output = self.summary(self.line("timer-stop-waits", "clock", cut=14))
        self.assertEqual(first(output), "nothing")

    def test_lost_lines_are_counted(self):
        output = self.summary("zor-debug: lines that could not be written: 7, for: No space left\n")
        self.assertRegex(output, r"(?m)^ +1  - +zor-debug-lost ")

    def test_each_beginning_of_a_text_is_a_cut_line_of_a_message_that_begins_so(self):
        knowledge = Knowledge(catalogue.CATALOGUE)
        for entry in catalogue.load():
            if catalogue.layout_of(entry) != "statement":
                continue
            number = (entry.get("fixed_lines") or [entry.get("line_offset", 0) + 321])[0]
            begin = re.split("[%\n]", entry["text"])[0].rstrip()
            for length in range(1, len(begin)):
                cut = begin[:length].rstrip()
                found = knowledge.look(f"[{entry['tag']}] {entry['files'][0]}:{number}:"
                                       f"{entry['functions'][0]}(): {cut}")
                self.assertTrue(found.message.begin.startswith(cut) or not found.is_cut, cut)

    def test_a_last_line_without_an_end(self):
        output, _ = explain(text=self.line("folder-null").rstrip("\n").encode())
        self.assertIn("dirPath is NULL.\n    ^ folder-null: ", output)

    def test_what_fails_while_it_is_read_is_named_with_the_reason(self):
        _, errors = explain("/proc/self/mem", status=1)
        self.assertEqual(errors, "tevalon-explain: cannot read '/proc/self/mem': Input/output error\n")

    def test_a_copy_of_standard_input_that_cannot_be_kept_is_said(self):
        with open(LOGS / "evening.log", "rb") as file:
            text = file.read() * 20
        command = f"ulimit -S -f 16; exec '{PROGRAM}'"
        result = subprocess.run(["bash", "-c", command], input=text, capture_output=True, check=False)
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stderr.decode(),
                         "tevalon-explain: cannot keep a copy of standard input: File too large\n")

    def test_an_interrupt_while_it_reads_ends_it(self):
        with subprocess.Popen([PROGRAM], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE) as process:
            # More than a pipe takes, and what is read at once: by then it does read.
            process.stdin.write(b"[X] a.cpp:1:f(): y\n" * 20_000)
            process.stdin.flush()
            process.send_signal(signal.SIGINT)
            self.assertEqual(process.wait(), 128 + signal.SIGINT)
            self.assertEqual(process.stderr.read(), b"")

    def ended_by(self, error):
        """What the tool's main function returns where that happens in the middle, and complains of."""
        self.addCleanup(signal.signal, signal.SIGPIPE, signal.getsignal(signal.SIGPIPE))
        complaint = io.StringIO()
        with (mock.patch.object(tool, "explain", side_effect=error),
              mock.patch.object(tool.os, "_exit") as ended, contextlib.redirect_stderr(complaint)):
            status = tool.main(catalogue.CATALOGUE, [])
        return status, complaint.getvalue(), ended.call_args_list

    def test_what_ends_it(self):
        self.assertEqual(self.ended_by(None), (0, "", []))
        self.assertEqual(self.ended_by(tool.CannotRead("cannot read 'x': why")),
                         (1, "tevalon-explain: cannot read 'x': why\n", []))
        self.assertEqual(self.ended_by(KeyboardInterrupt()), (128 + signal.SIGINT, "", []))
        # At once: what is left to be written would be complained of once more.
        self.assertEqual(self.ended_by(OSError(28, "No space left on device"))[1:],
                         ("tevalon-explain: cannot write: No space left on device\n",
                          [mock.call(1)]))

    def test_a_file_that_is_gone_again_when_it_is_opened_is_waited_for(self):
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder) / "log"
            path.write_text("one\n")
            growing = tool.Growing(path)
            self.addCleanup(lambda: growing.file.close())
            self.assertEqual(list(growing.lines()), ["one\n"])
            path.unlink()
            path.write_text("the next one\n")
            with mock.patch.object(tool, "open_log", side_effect=tool.CannotRead("gone")):
                self.assertEqual(list(growing.lines()), [])
            self.assertEqual(list(growing.lines()), ["the next one\n"])

    def test_a_devices_prefix_may_be_missing(self):
        output, _ = explain("--summary", "--device-prefix", r"<\d>(?P<time>[\d.]*)\|",
                            text=("<1>|" + self.line("folder-null") + self.line("folder-null")).encode())
        self.assertEqual(counts(output), {"folder-null": 2})


class FollowTest(unittest.TestCase):
    def setUp(self):
        self.folder = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)
        self.path = self.folder / "log"
        self.path.write_text("")
        self.process = subprocess.Popen([PROGRAM, "--follow", self.path], stdout=subprocess.PIPE,
                                        text=True, bufsize=1)
        self.addCleanup(self.end)

    def end(self):
        """As a user does; where that is not heeded the test hangs."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGINT)
        self.process.stdout.read()
        self.process.wait()
        self.process.stdout.close()

    def write(self, text):
        with open(self.path, "a") as file:
            file.write(text)

    def sleeps(self):
        status = Path(f"/proc/{self.process.pid}/status").read_text()
        return int(re.search(r"(?m)^voluntary_ctxt_switches:\s*(\d+)", status).group(1))

    def expect(self, part):
        """The next line with it; a line that never comes is a test that never ends."""
        for line in self.process.stdout:
            if part in line:
                return line
        raise AssertionError(f"ended without '{part}'")

    def test_lines_are_explained_as_they_come(self):
        self.write("[B-LOG] timer_thread.cpp:121:postTask(): Invalid ")
        self.write("Empty task\n")
        self.expect("^ task-empty: A null task was posted.")
        self.expect("!!! null argument; nothing was queued")

    def test_a_file_that_is_replaced_or_cut_is_followed(self):
        self.write("[B-LOG] watchdog.cpp:152:setTimeoutCallback(): Callback already set.\n")
        self.expect("^ watch-callback-set: ")
        self.path.rename(self.folder / "log.1")
        self.write("[B-LOG] utils.cpp:177:rmDir(): dirPath is NULL.\n")
        self.expect("^ folder-null: ")
        os.truncate(self.path, 0)
        self.write("[B-LOG] a.cpp:1:f(): b\n")
        self.expect("a.cpp:1:f(): b")

    def test_what_was_written_before_a_file_is_replaced_is_not_lost(self):
        self.write("[B-LOG] utils.cpp:177:rmDir(): dirPath is NULL.\n")
        self.expect("^ folder-null: ")
        for number in range(20):
            self.write(f"[X] a.cpp:1:f(): last of {number}\n")
            self.path.rename(self.folder / "log.1")
            self.write(f"[X] a.cpp:1:f(): first behind {number}\n")
            self.expect(f"last of {number}")
            self.expect(f"first behind {number}")

    def test_what_is_stuck_is_said_while_nothing_comes(self):
        for prefix in ("", "[ 12.345678] "):
            self.write(f"{prefix}[B-LOG] timer_thread.cpp:267:run(): "
                       f"[0x7f00]:Begin fire task:(0x7f{len(prefix):02} - id:{len(prefix)}).\n")
            self.expect(f"!!! task {len(prefix)} does not return, and its thread is blocked")

    def test_an_interrupt_ends_it_with_the_summary(self):
        self.write("[B-LOG] utils.cpp:177:rmDir(): dirPath is NULL.\n")
        self.expect("!!! ")
        self.process.send_signal(signal.SIGINT)
        self.expect("Most likely wrong: null argument; rmDir() returned -1")
        self.assertEqual(self.process.wait(), 0)

    def test_a_line_that_is_unfinished_when_the_file_is_replaced_is_one_all_the_same(self):
        self.write("[X] a.cpp:1:f(): begun\n[X] a.cpp:1:f(): without an end")
        self.expect("begun")
        self.path.rename(self.folder / "log.1")
        self.write("[X] a.cpp:1:f(): of the next\n")
        self.expect("without an end")

    def test_a_file_that_is_gone_for_a_while_is_waited_for(self):
        self.write("[X] a.cpp:1:f(): before\n")
        self.expect("before")
        os.unlink(self.path)
        # It looks, and sleeps: until it has done so some times more.
        enough = self.sleeps() + 4
        while self.sleeps() < enough:
            pass
        self.write("[X] a.cpp:1:f(): behind\n")
        self.expect("behind")

    def test_the_summary_of_what_grows_shows_no_lines(self):
        with subprocess.Popen([PROGRAM, "--follow", "--summary", "-"], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, text=True) as process:
            output, _ = process.communicate("[B-LOG] utils.cpp:177:rmDir(): dirPath is NULL.\n"
                                            "[X] a.cpp:1:f(): nothing\n")
        self.assertTrue(output.startswith("!!! null argument; rmDir() returned -1\n"), output)
        self.assertNotIn("a.cpp", output)

    def test_standard_input_is_followed_to_its_end(self):
        output, _ = explain("--follow", text=log("zero-period"))
        self.assertIn("!!! a periodic timer has no period\n", output)
        self.assertIn("Most likely wrong: a periodic timer has no period\n", output)


if __name__ == "__main__":
    unittest.main()
