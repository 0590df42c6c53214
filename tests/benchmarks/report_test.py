#!/usr/bin/env python3
"""Tests of what report.py makes of Google Benchmark's figures.

usage: report_test.py FOLDER    FOLDER holds report.py.
"""

import contextlib
import io
import json
import pathlib
import sys
import tempfile
import unittest
import unittest.mock

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
                         ["task/one_cpu", "100 ns ±5%", "", "50 ns ±0%", "", "2.00", ""])

    def test_a_row_of_one_repetition_has_none(self):
        line, = rows(ours=[100], limit=[50])
        self.assertEqual(report.cells(line), ["task/one_cpu", "100 ns", "", "50 ns", "", "2.00", ""])

    def test_rows_without_a_spread_say_nothing_of_noise(self):
        line, = rows(ours=[100], libuv=[10, 50, 90])
        self.assertEqual(report.noise({}, [line]),
                         ["1 of 1 rows spread by more than 10% between their quartiles"])

    def test_plain_is_no_peer(self):
        line, = rows(ours=[100], plain=[10], libuv=[200])
        self.assertEqual(line["best_peer"], "libuv")


def run(task, peer, time, **counters):
    """What Google Benchmark writes of one repetition, and what it always writes beside the time."""
    name = f"{task}/{peer}/iterations:9/real_time"
    return {"name": name, "run_name": name, "run_type": "iteration", "family_index": 0,
            "per_family_instance_index": 0, "repetitions": 1, "repetition_index": 0, "threads": 1,
            "iterations": 9, "real_time": time, "cpu_time": time / 2, "time_unit": "ns",
            "items_per_second": 1.0, **counters}


RUNS = [
    run("events/one_sender/busy", "ours", 300.0, p99_9=9000.0, allocations=2.0),
    run("events/one_sender/busy", "libuv", 600.0, p99_9=7000.0),
    run("sync_events/paced/deep_sleep", "ours", 210.0),
    run("sync_events/paced/deep_sleep", "POCO", 200.0),
    run("sync_events/paced/deep_sleep", "limit", 100.0),
    run("logging/dump_4_KiB_on", "ours", 80000.0),
    run("logging/dump_4_KiB_on", "spdlog", 20000.0),
    run("logging/dump_4_KiB_on", "limit", 50000.0),
    run("crc32/64_B", "ours", 100.4),
    run("crc32/64_B", "ISA-L", 100.0),
    run("weights/hub", "ours", 1e9, bytes=1900.0),
    run("weights/hub", "limit", 1e9, bytes=500.0),
]

REASON = "a system call for each of 257 lines, of three outputs each"

PRINTED = f"""\
task                          ours    best peer     limit   ours/peer  ours/limit  bounded by
----------------------------  ------  ------------  ------  ---------  ----------  {"-" * len(REASON)}
events/one_sender/busy        300 ns  libuv 600 ns          0.50
sync_events/paced/deep_sleep  210 ns  POCO 200 ns   100 ns  1.05       2.10
logging/dump_4_KiB_on         80 us   spdlog 20 us  50 us   4.00       1.60        {REASON}
crc32/64_B                    100 ns  ISA-L 100 ns          1.00
weights/hub                   1900 B                500 B              3.80

A peer is ahead in 2 of the 4 rows that have one:
task                          ours    best peer     ours/peer  bounded by
----------------------------  ------  ------------  ---------  {"-" * len(REASON)}
logging/dump_4_KiB_on         80 us   spdlog 20 us  4.00       {REASON}
sync_events/paced/deep_sleep  210 ns  POCO 200 ns   1.05
"""

PAGE = f"""\
before
{report.BEGIN_MARK}

On commit abc, with 2 processors (a processor), a system.

A peer is ahead in 2 of the 4 rows that have one:

| task | ours | best peer | ours/peer | bounded by |
| --- | --- | --- | --- | --- |
| logging/dump_4_KiB_on | 80 us | spdlog 20 us | 4.00 | {REASON} |
| sync_events/paced/deep_sleep | 210 ns | POCO 200 ns | 1.05 |  |

All rows:

| task | ours | best peer | limit | ours/peer | ours/limit | bounded by |
| --- | --- | --- | --- | --- | --- | --- |
| events/one_sender/busy | 300 ns | libuv 600 ns |  | 0.50 |  |  |
| sync_events/paced/deep_sleep | 210 ns | POCO 200 ns | 100 ns | 1.05 | 2.10 |  |
| logging/dump_4_KiB_on | 80 us | spdlog 20 us | 50 us | 4.00 | 1.60 | {REASON} |
| crc32/64_B | 100 ns | ISA-L 100 ns |  | 1.00 |  |  |
| weights/hub | 1900 B |  | 500 B |  | 3.80 |  |

![Ours beside the best peer and the limit](page.svg)

Counted beside the time, for each iteration:

| task | who | allocations | p99_9 |
| --- | --- | --- | --- |
| events/one_sender/busy | ours | 2 | 9e+03 |
| events/one_sender/busy | libuv |  | 7e+03 |

{report.END_MARK}
after
"""


class WholeReportTest(unittest.TestCase):
    """All that is written, of figures that are made up."""

    def report(self, runs):
        """(what is printed, the page, table.json)."""
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder)
            (path / "some_benchmark.json").write_text(json.dumps({"benchmarks": runs}))
            (path / "machine.json").write_text(json.dumps(
                {"commit": "abc", "processors": 2, "processor": "a processor",
                 "system": "a system"}))
            (path / "plot.svg").write_text("")
            page = path / "page.md"
            page.write_text(f"before\n{report.BEGIN_MARK}\n{report.END_MARK}\nafter\n")
            printed = io.StringIO()
            arguments = ["report.py", folder, "--markdown", str(page)]
            with unittest.mock.patch.object(sys, "argv", arguments), \
                    unittest.mock.patch.object(report, "plot"), \
                    contextlib.redirect_stdout(printed):
                report.main()
            return (printed.getvalue(), page.read_text(),
                    json.loads((path / "table.json").read_text()))

    def test_a_run_with_rows_behind(self):
        printed, page, table = self.report(RUNS)
        self.maxDiff = None
        self.assertEqual(printed, PRINTED)
        self.assertEqual(page, PAGE)
        self.assertEqual(table["behind"],
                         ["logging/dump_4_KiB_on", "sync_events/paced/deep_sleep"])
        self.assertEqual(table["tasks"][0]["counters"],
                         {"ours": {"p99_9": 9000.0, "allocations": 2.0}, "libuv": {"p99_9": 7000.0}})
        self.assertEqual(table["tasks"][2]["bound"], REASON)

    def test_a_run_with_none_behind(self):
        printed, page, table = self.report(RUNS[:2])
        summary = "A peer is ahead in 0 of the 1 rows that have one."
        self.assertEqual(printed.splitlines()[-1], summary)
        self.assertIn(f"{summary}\n\nAll rows:\n", page)
        self.assertEqual(table["behind"], [])


if __name__ == "__main__":
    unittest.main()
