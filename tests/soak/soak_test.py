#!/usr/bin/python3
"""What soak.py makes of programs that end at once: what it says, keeps, and when it fails."""
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

SOAK = pathlib.Path(__file__).resolve().parent / "soak.py"

WORKS = """#!/bin/sh
echo '{"when": "begin", "resident KiB": 100, "threads": 1}'
echo "$@" >>"$0.called"
echo '{"when": "end", "resident KiB": 200, "threads": 1}'
"""
COUNTS = """#!/bin/sh
echo "all is served"
"""
FAILS = """#!/bin/sh
for line in $(seq 60); do echo "line $line"; done
exit 1
"""
# Passes while the log is as it is without settings, whatever they were here.
SUITE = 'add_test(suite sh -c "test -z \\"$ZOR_DEBUG\\"")\n'
FAILING_SUITE = 'add_test(bad_one false)\n'


class SoakTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.builds = pathlib.Path(folder.name)
        self.state = self.builds / "state.json"
        for build in "dev", "asan", "tsan":
            self.write(f"{build}/libtevalon-base.so", "a library")
            self.write(f"{build}/tests/stress/stress", COUNTS)
        self.endurance = self.write("dev/tests/soak/endurance", WORKS)
        self.write("dev/CTestTestfile.cmake", SUITE)

    def write(self, name, text):
        path = self.builds / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
        path.chmod(0o755)
        return path

    def soak(self, *arguments):
        return subprocess.run([sys.executable, "-B", SOAK, "--state", self.state, *arguments,
                               self.builds], text=True, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, check=False,
                              env={**os.environ, "ZOR_DEBUG": "off"})

    def calls(self):
        called = self.endurance.with_name("endurance.called")
        return called.read_text(encoding="utf-8").splitlines() if called.exists() else []

    def test_a_step_takes_its_part_of_the_hours(self):
        self.assertEqual(0, self.soak("--only=timers").returncode)
        self.assertEqual(0, self.soak("--only=timers", "--hours=1").returncode)
        self.assertEqual(0, self.soak("--only=queue", "--hours=0.001").returncode)
        self.assertEqual(["timers --size=10000 --seconds=600", "timers --size=10000 --seconds=150",
                          "queue --size=1000000 --seconds=2"], self.calls())

    def test_the_beginning_and_the_end_are_compared(self):
        self.assertRegex(
            self.soak("--only=starts").stdout,
            r"^starts       1800 s, resident KiB 100 -> 200, threads 1 -> 1  \(\d+ s\)\n$")

    def test_what_has_no_looks_says_so(self):
        self.assertIn("stress-asan  1800 s, the counts add up",
                      self.soak("--only=stress-asan").stdout)

    def test_what_is_done_is_not_done_again(self):
        self.soak("--only=hubs")
        self.assertEqual("hubs         600 s, resident KiB 100 -> 200, threads 1 -> 1  (before)\n",
                         self.soak("--only=hubs").stdout)
        self.assertEqual(1, len(self.calls()))

    def test_another_library_is_soaked_anew(self):
        for step in "hubs", "suite-1":
            self.soak(f"--only={step}")
            self.write("dev/libtevalon-base.so", f"another one after {step}")
            self.assertNotIn("(before)", self.soak(f"--only={step}").stdout)

    def test_a_failure_ends_the_run_and_is_kept_whole(self):
        self.write("asan/tests/stress/stress", FAILS)
        result = self.soak()
        self.assertEqual(1, result.returncode)
        log = self.builds / "soak.log"
        self.assertEqual(f"soak: stress-asan failed; all that it said is in {log}\n", result.stderr)
        first, second, *shown = result.stdout.splitlines()
        self.assertIn("stress-dev   1800 s, the counts add up", first)
        self.assertIn("stress-asan  1800 s, nothing to compare", second)
        self.assertEqual([f"line {line}" for line in range(21, 61)], shown)
        self.assertEqual(60, len(log.read_text(encoding="utf-8").splitlines()))
        self.assertEqual(["stress-dev"], list(json.loads(self.state.read_text(encoding="utf-8"))))

    def test_the_suite_runs_thirty_times_after_the_steps(self):
        lines = self.soak().stdout.splitlines()
        self.assertEqual(38, len(lines))
        self.assertRegex(lines[8], r"^suite-1      100% tests passed, 0 tests failed out of 1  \(")
        self.assertRegex(lines[37], r"^suite-30     100% tests passed, 0 tests failed out of 1  \(")

    def test_a_failing_suite_fails(self):
        self.write("dev/CTestTestfile.cmake", SUITE + FAILING_SUITE)
        result = self.soak("--only=suite-3")
        self.assertEqual(1, result.returncode)
        self.assertIn("suite-3      50% tests passed, 1 tests failed out of 2", result.stdout)

    def test_a_step_that_is_none_is_refused(self):
        result = self.soak("--only=sleep")
        self.assertEqual((1, "soak: no step sleep\n"), (result.returncode, result.stderr))


if __name__ == "__main__":
    unittest.main()
