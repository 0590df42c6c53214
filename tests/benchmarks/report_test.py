#!/usr/bin/env python3
"""Tests of what report.py makes of Google Benchmark's figures.

usage: report_test.py FOLDER    FOLDER holds report.py.
"""

import json
import pathlib
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, sys.argv.pop(1))
import report  # noqa: E402


def rows(**times):
    """The lines of a task: for each peer the nanoseconds of its repetitions."""
    runs = [{"run_type": "iteration", "run_name": f"task/one_cpu/{peer}/real_time",
             "family_index": 0, "real_time": time, "time_unit": "ns"}
            for peer, repetitions in times.items() for time in repetitions]
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder)
        (path / "some_benchmark.json").write_text(json.dumps({"benchmarks": runs}))
        return [report.compare(task, peers) for task, peers in report.read_rows(path).items()]


class ReportTest(unittest.TestCase):
    def test_a_row_of_three_repetitions_has_a_spread(self):
        line, = rows(ours=[90, 100, 110], limit=[50, 50, 50])
        self.assertEqual(report.cells(line),
                         ["task/one_cpu", "100 ns ±5%", "", "50 ns ±0%", "", "2.00"])

    def test_a_row_of_one_repetition_has_none(self):
        line, = rows(ours=[100], limit=[50])
        self.assertEqual(report.cells(line), ["task/one_cpu", "100 ns", "", "50 ns", "", "2.00"])

    def test_rows_without_a_spread_say_nothing_of_noise(self):
        line, = rows(ours=[100], libuv=[10, 50, 90])
        self.assertEqual(report.noise({}, [line]),
                         ["1 of 1 rows spread by more than 10% between their quartiles"])

    def test_plain_is_no_peer(self):
        line, = rows(ours=[100], plain=[10], libuv=[200])
        self.assertEqual(line["best_peer"], "libuv")


if __name__ == "__main__":
    unittest.main()
