#!/usr/bin/env python3
"""Ends the stress program in every way, at random moments of its work, again and again.

usage: process_ends.py [--times N] [--state FILE] [--jobs N] [--seed N] [--way WAY]... STRESS

Each time the process has to end by what was asked, the status or the signal, within a minute, and
without a word. With --state the number of good ends by way is kept in FILE, for this very program
and its libraries; a run that is broken off goes on from there. Prints a table; status 1 at the
first end that is wrong.
"""

import argparse
import collections
import concurrent.futures
import hashlib
import json
import os
import pathlib
import random
import shutil
import signal
import subprocess
import sys

STATUS = 7  # As in tests/stress/ending.h.
WAYS = {
    "return": STATUS,
    "exit": STATUS,
    "exit-at-once": STATUS,
    "quick-exit": STATUS,
    "leave-main": STATUS,
    "exit-in-thread": STATUS,
    "exit-in-handler": STATUS,
    "exit-in-task": STATUS,
    "abort": -signal.SIGABRT,
    "segv": -signal.SIGSEGV,
    "bus": -signal.SIGBUS,
    "fpe": -signal.SIGFPE,
    "ill": -signal.SIGILL,
    "term": -signal.SIGTERM,
    "kill": -signal.SIGKILL,
}
LONGEST_S = 60
LONGEST_WORK_US = 30000  # Most of what begins has begun by then.

# What a fault ends with is asked here, not a sanitizer's report of it. The thread sanitizer takes
# threads that nobody joins for leaks.
NO_HANDLERS = "handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:handle_abort=0"


def environment():
    variables = dict(os.environ, ZOR_DEBUG="off")
    for name, more in (("ASAN_OPTIONS", ""), ("UBSAN_OPTIONS", ""),
                       ("TSAN_OPTIONS", ":report_thread_leaks=0:atexit_sleep_ms=0")):
        variables[name] = variables.get(name, "") + ":" + NO_HANDLERS + more
    return variables


def stacks_of(pid):
    if not shutil.which("gdb"):
        return "(gdb would show where)"
    return subprocess.run(["gdb", "-p", str(pid), "-batch", "-ex", "thread apply all bt 14"],
                          stdin=subprocess.DEVNULL, capture_output=True, text=True).stdout


def end_once(program, way, after_us):
    """What was wrong, or None."""
    command = [program, f"--end={way}", f"--after={after_us}"]
    with subprocess.Popen(command, env=environment(), stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as process:
        try:
            output, errors = process.communicate(timeout=LONGEST_S)
        except subprocess.TimeoutExpired:
            where = stacks_of(process.pid)
            process.kill()
            return f"hangs: {' '.join(command)}\n{where}"
    if process.returncode != WAYS[way]:
        return f"status {process.returncode}, not {WAYS[way]}: {' '.join(command)}\n{errors}"
    if output or errors:
        return f"not silent: {' '.join(command)}\n{output}{errors}"
    return None


def identity(program):
    """Of the program and what it loads: it is the library that is tested."""
    loaded = subprocess.run(["ldd", program], capture_output=True, text=True, check=False).stdout
    files = [program] + sorted(word for word in loaded.split() if word.startswith("/"))
    whole = hashlib.sha256()
    for file in files:
        whole.update(hashlib.sha256(pathlib.Path(file).read_bytes()).digest())
    return whole.hexdigest()


class State:
    """Good ends by way, of one program, in a file."""

    def __init__(self, path, program):
        self.path = path
        self.program = identity(program)
        self.counts = collections.Counter()
        if path and path.exists():
            kept = json.loads(path.read_text())
            if kept["program"] == self.program:
                self.counts.update(kept["counts"])

    def add(self, way):
        self.counts[way] += 1

    def write(self):
        if not self.path:
            return
        new = self.path.with_suffix(".new")
        new.write_text(json.dumps({"program": self.program, "counts": self.counts}, indent=1))
        new.replace(self.path)


def run_way(pool, program, way, state, times, randomness):
    """What was wrong, or None."""
    left = max(0, times - state.counts[way])
    moments = [randomness.randrange(LONGEST_WORK_US) for _ in range(left)]
    for wrong in pool.map(lambda after_us: end_once(program, way, after_us), moments):
        if wrong:
            return wrong
        state.add(way)
        if state.counts[way] % 50 == 0:
            state.write()
    state.write()
    return None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--times", type=int, default=1000)
    parser.add_argument("--state", type=pathlib.Path)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--seed", type=int, default=random.randrange(1 << 32))
    parser.add_argument("--way", action="append", choices=list(WAYS))
    parser.add_argument("program")
    arguments = parser.parse_args()

    state = State(arguments.state, arguments.program)
    print(f"seed {arguments.seed}", flush=True)
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        for way in arguments.way or WAYS:
            randomness = random.Random(f"{arguments.seed} {way} {state.counts[way]}")
            wrong = run_way(pool, arguments.program, way, state, arguments.times, randomness)
            if wrong:
                pool.shutdown(cancel_futures=True)
                state.write()
                sys.exit(f"process_ends: {wrong}")
            print(f"{way:16} {state.counts[way]:6} times as asked", flush=True)


if __name__ == "__main__":
    main()
