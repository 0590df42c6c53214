#!/usr/bin/python3
"""Makes small mistakes in the library, one at a time, and says which of them no test finds.

    mutants.py [FILE...] [--group=locks|rest|all] [--count=N] [--seed=S] [--build=FOLDER] [--list]
               [--quick] [--note] [--jobs=N]

All mutants are in one build, and a process runs the one whose number is in its environment; see
edits.py. Without arguments: all of the locks, of ends and of time, and 400 of the rest at random. With
files: those in them; --count: so many of them, at random by --seed.

A mutant is tried by the tests that reach it, the most specific and the shortest first, until one
fails, and once more when it is run alone; where locks, ends and time are concerned also by the scenarios
of the schedule explorer; of locks, signals and flags under the thread sanitizer; and what survives
under the address sanitizer. What hangs for longer than ten seconds and five times its time is found,
too. Those that no test could find stand in equivalent.txt, with the reason.

What was found is kept in FOLDER/results.jsonl, so that a run goes on where another was broken off, and
with --note in found.txt, so that only files that have changed since are begun anew; survivors are tried
again once a test has changed. Status 1 where less than all of the locks, or than 95 % of the rest, is
found.
"""

import argparse
import concurrent.futures
import os
import pathlib
import random
import signal
import sys
import time

from mutated_build import Build
from results import Equivalent, Found, Results
from suite import Suite, end_all
from tree import HERE, ROOT, fail, say
from trial import SANITIZERS, Trial

REST_COUNT = 400
LEAST_SHARE = {"locks": 100.0, "rest": 95.0}


def chosen(arguments, entries):
    rng = random.Random(arguments.seed)
    if arguments.files:
        unknown = [name for name in arguments.files
                   if not any(entry.file.startswith(name) for entry in entries)]
        if unknown:
            fail(f"no mutants in {' '.join(unknown)}")
        entries = [entry for entry in entries
                   if any(entry.file.startswith(name) for name in arguments.files)]
    if arguments.group != "all":
        entries = [entry for entry in entries if entry.group() == arguments.group]
    elif not arguments.files and arguments.count is None:
        rest = [entry for entry in entries if entry.group() == "rest"]
        rest = rng.sample(rest, min(REST_COUNT, len(rest)))
        return [entry for entry in entries if entry.group() == "locks"] + rest
    if arguments.count is not None:
        entries = rng.sample(entries, min(arguments.count, len(entries)))
    return entries


def report(entries, results, equivalent):
    """The sum; whether it is good enough."""
    is_good = True
    for group in ("locks", "rest"):
        mine = [entry for entry in entries if entry.group() == group]
        if not mine:
            continue
        same = [entry for entry in mine if equivalent.reason(entry)]
        counted = [entry for entry in mine if not equivalent.reason(entry)]
        survivors = [entry for entry in counted if not results.is_found(entry)]
        for entry in survivors:
            print(f"survived: {entry}")
        share = 100.0 * (len(counted) - len(survivors)) / len(counted) if counted else 100.0
        say(f"{group}: {len(mine)} mutants, {len(same)} of them equivalent; "
            f"{len(counted) - len(survivors)} of {len(counted)} found, {share:.1f} %")
        is_good = is_good and share >= LEAST_SHARE[group]
    return is_good


def parsed_arguments():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("files", nargs="*")
    parser.add_argument("--group", choices=("locks", "rest", "all"), default="all")
    parser.add_argument("--count", type=int)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--build", default=str(ROOT / "build" / "mutants"))
    parser.add_argument("--list", action="store_true", help="only say which there are")
    parser.add_argument("--quick", action="store_true",
                        help="by the short tests alone, without explorer and sanitizers")
    parser.add_argument("--note", action="store_true", help="write what was found into found.txt")
    parser.add_argument("--jobs", type=int, default=2 * os.cpu_count(), metavar="N",
                        help="mutants at a time; what a mutant hangs costs no processor")
    return parser.parse_args()


def main():
    arguments = parsed_arguments()
    for number in signal.SIGINT, signal.SIGTERM, signal.SIGHUP:
        signal.signal(number, end_all)
    build = Build(pathlib.Path(arguments.build).resolve())
    build.folder.mkdir(parents=True, exist_ok=True)
    build.find()
    equivalent = Equivalent(HERE / "equivalent.txt")
    stale = equivalent.unknown(build.entries)
    if stale:
        fail("equivalent.txt has what fits no mutant, or several:\n" +
             "\n".join(str(fields) for fields in stale))
    if arguments.list:
        for entry in chosen(arguments, build.entries):
            print(f"{entry.number} {entry.group()} {entry.kind} {entry}")
        return
    build.write()
    plain = build.configure("build")
    build.build(plain, "tevalon-base")
    build.build(plain)
    if not arguments.quick:
        build.build(plain, "scenarios")
    entries = chosen(arguments, [entry for entry in build.entries
                                 if entry.number not in build.dropped])
    sanitized = {}
    for name, (sanitizer, _, _) in SANITIZERS.items():
        if not arguments.quick:
            sanitized[name] = build.configure(name, f"-DTEVALON_BASE_SANITIZE={sanitizer}")
            build.build(sanitized[name])
    suite = Suite(build, plain, not arguments.quick)
    suite.measure()
    means = [] if arguments.quick else ["explorer", *sanitized]
    results = Results(build.folder, build.tests_digest, means, Found(HERE / "found.txt"))
    todo = [entry for entry in entries
            if not results.is_tried(entry) and not equivalent.reason(entry)]
    say(f"{len(build.entries) - len(build.dropped)} mutants, {len(build.dropped)} more cannot be made; "
        f"{len(entries)} chosen, {len(todo)} to try")
    done = 0

    def work(entry):
        nonlocal done
        begin = time.monotonic()
        found = Trial(suite, sanitized, entry).outcome()
        results.put(entry, found, time.monotonic() - begin)
        done += 1
        how = f"found by {found}" if found else \
            "SURVIVED" if suite.by_mutant.get(entry.number) else "SURVIVED, not reached"
        print(f"{done}/{len(todo)} {time.monotonic() - begin:.0f} s: {entry}: {how}", flush=True)

    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        for _ in pool.map(work, todo):
            pass
    if arguments.note:
        results.note(build.entries)
    if not report(entries, results, equivalent):
        sys.exit(1)


if __name__ == "__main__":
    main()
