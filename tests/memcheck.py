#!/usr/bin/python3
"""Runs the test programs of a build under valgrind's memcheck.

    memcheck.py [--only TEXT] [--jobs N] BUILD

Status 1 where one reports an error or a lost block, or where a test fails. What each printed is in
BUILD/memcheck/. Tests that measure what memcheck changes are left out, by name and with the reason.
"""

import argparse
import concurrent.futures
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
FORKING = {"fork_at_locks_test", "forked_child_test"}

# Under memcheck these say something about memcheck.
LEFT_OUT = {
}


def programs(build):
    """The programs of the suite that take filters for their tests."""
    listed = subprocess.run(["ctest", "--test-dir", build, "--show-only=json-v1"], check=True,
                            stdout=subprocess.PIPE).stdout
    tests = [test for test in json.loads(listed)["tests"]
             if test.get("command", [""])[0].startswith(build + os.sep)]
    return sorted({test["command"][0] for test in tests
                   if any(word.startswith("--gtest_filter=") for word in test.get("command", []))})


def check(program, folder):
    name = os.path.basename(program)
    begin = time.monotonic()
    path = os.path.join(folder, name + ".txt")
    options = ["--leak-check=no"] if name in FORKING else []
    with open(path, "w", encoding="utf-8") as output:
        status = subprocess.run([*VALGRIND, *options, program, "--gtest_filter=-" + ":".join(LEFT_OUT)],
                                stdout=output, stderr=subprocess.STDOUT, check=False,
                                cwd=os.path.dirname(program)).returncode
    what = {0: "clean", 99: "MEMCHECK HAS FOUND SOMETHING"}.get(status, f"STATUS {status}")
    print(f"memcheck: {name}: {what} ({time.monotonic() - begin:.0f} s)", flush=True)
    return status == 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n", maxsplit=1)[0])
    parser.add_argument("--only", default="", metavar="TEXT", help="programs with it in their name")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("build")
    options = parser.parse_args()
    folder = os.path.join(options.build, "memcheck")
    os.makedirs(folder, exist_ok=True)
    chosen = [program for program in programs(options.build)
              if options.only in os.path.basename(program)]
    pool = concurrent.futures.ThreadPoolExecutor(options.jobs)
    bad = list(pool.map(lambda program: check(program, folder), chosen)).count(False)
    print(f"memcheck: {len(chosen)} programs, {bad} not clean")
    sys.exit(1 if bad or not chosen else 0)


if __name__ == "__main__":
    main()
