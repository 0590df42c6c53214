#!/usr/bin/env python3
"""What the explorer's options promise, tried with its own scenarios.

usage: explorer_test.py CASE FAILURES ORDERS    with the two programs of scenarios
"""

import re
import subprocess
import sys

ROW = re.compile(r"^(\w+) +(\d+) threads +\d+ steps +\d+ points +(\d+) schedules +(\d+) ends, (.*?),",
                 re.M)
FAILURE = re.compile(r"^(\w+): (.*?): .*\n  after (\d+) schedules; again with --replay (\S+) \1$",
                     re.M)


def run(program, *arguments, status=0):
    result = subprocess.run([program, *arguments], stdout=subprocess.PIPE, text=True, check=False)
    if result.returncode != status:
        sys.exit(f"{program} {' '.join(arguments)} gave {result.returncode}:\n{result.stdout}")
    return result.stdout


def ends(text):
    return {name: count for name, _, _, count, _ in ROW.findall(text)}


def reductions_lose_no_end(_, orders):
    """Neither pruning nor the choice of scheduling points may lose an end that there is."""
    reduced = ends(run(orders, "--bound", "2"))
    whole = ends(run(orders, "--bound", "2", "--all-points", "--no-pruning"))
    assert reduced and reduced == whole, (reduced, whole)
    assert ends(run(orders, "--bound", "6", "Counting"))["Counting"] == "20"


def traces_replay(failures, _):
    """What is printed of a failure brings it about again."""
    found = FAILURE.findall(run(failures, "--no-story"))
    assert len(found) >= 15, found
    for name, kind, _, trace in found:
        told = run(failures, "--replay", trace, name, status=1)
        assert told.startswith(f"{name}: {kind}: "), told


def random_schedules_fail_too(failures, _):
    for strategy in "--uniform", "--pct":
        arguments = ["--bound", "-1", strategy, "300", "--seed", "3", "--no-story"]
        first = run(failures, *arguments)
        assert first.count("; again with") >= 15, first
        # From the same seed the same schedules.
        assert FAILURE.findall(first) == FAILURE.findall(run(failures, *arguments))


def stories_name_threads_and_lines(failures, _):
    story = run(failures, "Deadlock")
    for part in ("waits for the mutex #", "of thread 1 (thread 1)", "of scenario (thread 0)",
                 "failures_scenarios.cpp:", "locks #1", "creates thread 1"):
        assert part in story, (part, story)


def replays_tell_the_story_unless_told_not_to(failures, _):
    (name, kind, _, trace), = FAILURE.findall(run(failures, "--no-story", "Deadlock"))
    told = run(failures, "--replay", trace, name, status=1).splitlines()
    brief = run(failures, "--no-story", "--replay", trace, name, status=1).splitlines()
    assert told[0].startswith(f"{name}: {kind}: ") and "  in the end" in told, told
    assert brief == told[:1], brief


def searches_resume(_, orders):
    """In small pieces a search runs as many schedules as in one."""
    import tempfile
    whole = ROW.findall(run(orders, "--no-pruning", "--bound", "2", "Counting"))[0]
    with tempfile.TemporaryDirectory() as folder:
        for _ in range(100):
            row = ROW.findall(run(orders, "--no-pruning", "--bound", "2", "--schedules", "9",
                                  "--resume", folder, "Counting"))[0]
            if row[4] == "exhausted at 2":
                break
        assert row[4] == "exhausted at 2" and row[2] == whole[2], (row, whole)


def main():
    case = sys.argv[1]
    globals()[case](*sys.argv[2:])


main()
