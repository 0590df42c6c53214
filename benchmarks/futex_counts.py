#!/usr/bin/env python3
"""Counts what each synchronous call asks the kernel for: wake-ups, wakes of nobody, and sleeps.

usage: futex_counts.py PROGRAM RESULTS

PROGRAM is sync_events_benchmark; it runs under strace, which tells every call of futex(2) and its
outcome, and slows it down: that is why the times come from elsewhere. Two runs of different
length give the figures, by their difference. Written into RESULTS/futex_counts.json as
{task: {peer: {counter: per call}}}. Peers that wake by a descriptor show less than they do.
"""

import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

PEERS = ("ours", "limit", "plain", "Boost.Asio", "POCO", "libuv")
TASKS = ("sync_events/tight/one_cpu", "sync_events/paced/one_cpu")
CALLS = (100, 300)

def trace(program, row, calls):
    """The lines that strace wrote; a call that was interrupted by another has two."""
    with tempfile.TemporaryDirectory() as folder:
        log = pathlib.Path(folder, "log")
        command = ["strace", "-f", "-qq", "-e", "trace=futex", "-e", "signal=none", "-o", log,
                   program, f"--benchmark_filter=^{re.escape(row)}/"]
        subprocess.run(command, env=dict(os.environ, BENCH_CALLS=str(calls)), check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return log.read_text().splitlines()


def count(lines):
    wakes = idle_wakes = sleeps = 0
    for line in lines:
        if "FUTEX_WAKE" in line:
            # One that does not return at once is cut in two, its outcome in the second part.
            if line.endswith("= 0"):
                idle_wakes += 1
            else:
                wakes += 1
        elif "FUTEX_WAIT" in line and "EAGAIN" not in line:
            sleeps += 1
    return {"wakes": wakes, "idle_wakes": idle_wakes, "sleeps_by_futex": sleeps}


def per_call(program, row):
    few, many = (count(trace(program, row, calls)) for calls in CALLS)
    return {name: round((many[name] - few[name]) / (CALLS[1] - CALLS[0]), 2) for name in few}


def main():
    program, results = map(pathlib.Path, sys.argv[1:3])
    counts = {task: {peer: per_call(program, f"{task}/{peer}") for peer in PEERS}
              for task in TASKS}
    (results / "futex_counts.json").write_text(json.dumps(counts, indent=1) + "\n")


if __name__ == "__main__":
    main()
