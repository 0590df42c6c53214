#!/usr/bin/python3
"""Runs the test programs of a build under valgrind's memcheck.

    memcheck.py [--only TEXT] [--jobs N] BUILD

Status 1 where one reports an error or a lost block, or where a test fails. What each printed is in
BUILD/memcheck/. Tests that mean nothing there are left out, by name and with the reason.
What was clean is not run again while it and the library are the same.
"""

import argparse
import collections
import concurrent.futures
import fnmatch
import hashlib
import json
import os
import subprocess
import sys
import time

VALGRIND = ["valgrind", "--quiet", "--error-exitcode=99", "--leak-check=full",
            "--errors-for-leak-kinds=definite", "--show-leak-kinds=definite",
            "--fair-sched=try", "--child-silent-after-fork=yes",
            # The tests' own operator new, which can be made to fail.
            "--soname-synonyms=somalloc=nouserintercepts"]

# Their children have what only threads of the parent refer to, and are looked at for all but leaks.
FORKING = ["Forked*", "ForkAtLocksTest.*", "NamedWatchThreadTest.*Forked*",
           "ManualTimeThreadsTest.AForkedChild*", "RecordingFileTest.*Fork*",
           "CaptureTest.*CanFork"]

LEFT_OUT = [
    # Starts when one that writes all the time happens not to: hours where threads change seldom.
    "RecorderTest.StartsAndStopsUnderThreadsThatRecordNameAndWrite",
    # Memcheck's own heap calls no malloc(), and tells nothing of its size.
    "FaultInjectionTest.MakesMallocFailAlsoBeneathNew",
    "RecorderTest.TheHeapStandsInTheMemoryRecordsOnceItWasAskedFor",
]


def programs(build):
    """The programs of the suite that take filters for their tests, with those."""
    listed = subprocess.run(["ctest", "--test-dir", build, "--show-only=json-v1"], check=True,
                            stdout=subprocess.PIPE).stdout
    found = collections.defaultdict(list)
    for test in json.loads(listed)["tests"]:
        program, *arguments = test.get("command", [""])
        for argument in arguments:
            if program.startswith(build + os.sep) and argument.startswith("--gtest_filter="):
                found[program].append(argument.partition("=")[2])
    return found


def filters(tests):
    """What to run with the options for it: the tests that fork apart."""
    forking = [pattern for pattern in FORKING
               if any(fnmatch.fnmatchcase(test, pattern) for test in tests)]
    left_out = [test for test in LEFT_OUT if test in tests]
    not_these = ":".join([*forking, *left_out])
    if forking:
        yield ["--leak-check=no"], ":".join(forking) + ":-" + ":".join(left_out)
    if not all(any(fnmatch.fnmatchcase(test, pattern) for pattern in forking) for test in tests):
        yield [], "-" + not_these


class Clean:
    """What was clean, by what was run, and the contents of program and library."""

    def __init__(self, build, folder):
        self.library = os.path.join(build, "libtevalon-base.so")
        self.path = os.path.join(folder, "clean.txt")

    def key(self, program, tests):
        digest = hashlib.sha256(repr((VALGRIND, list(filters(tests)))).encode())
        for path in self.library, program:
            with open(path, "rb") as file:
                digest.update(hashlib.sha256(file.read()).digest())
        return digest.hexdigest()

    def has(self, program, tests):
        if not os.path.exists(self.path):
            return False
        with open(self.path, encoding="ascii") as file:
            return self.key(program, tests) in file.read().split()

    def add(self, program, tests):
        with open(self.path, "a", encoding="ascii") as file:
            file.write(self.key(program, tests) + "\n")


def check(program, tests, folder, clean):
    name = os.path.basename(program)
    if clean.has(program, tests):
        print(f"memcheck: {name}: was clean", flush=True)
        return True
    begin = time.monotonic()
    path = os.path.join(folder, name + ".txt")
    with open(path, "w", encoding="utf-8") as output:
        for options, chosen in filters(tests):
            status = subprocess.run([*VALGRIND, *options, program, "--gtest_filter=" + chosen],
                                    stdout=output, stderr=subprocess.STDOUT, check=False,
                                    cwd=os.path.dirname(program)).returncode
            if status != 0:
                break
    what = {0: "clean", 99: "MEMCHECK HAS FOUND SOMETHING"}.get(status, f"STATUS {status}")
    print(f"memcheck: {name}: {what} ({time.monotonic() - begin:.0f} s)", flush=True)
    if status == 0:
        clean.add(program, tests)
    return status == 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n", maxsplit=1)[0])
    parser.add_argument("--only", default="", metavar="TEXT", help="programs with it in their name")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("build", type=os.path.abspath)
    options = parser.parse_args()
    folder = os.path.join(options.build, "memcheck")
    os.makedirs(folder, exist_ok=True)
    chosen = [(program, tests) for program, tests in sorted(programs(options.build).items())
              if options.only in os.path.basename(program)]
    clean = Clean(options.build, folder)
    pool = concurrent.futures.ThreadPoolExecutor(options.jobs)
    bad = list(pool.map(lambda item: check(*item, folder, clean), chosen)).count(False)
    print(f"memcheck: {len(chosen)} programs, {bad} not clean")
    sys.exit(1 if bad or not chosen else 0)


if __name__ == "__main__":
    main()
