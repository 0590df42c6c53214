#!/usr/bin/python3
"""Lets the library work for hours, and says what it took at the beginning and at the end.

    soak.py [--hours N] [--state FILE] [--only STEP] BUILDS

BUILDS is the folder with the builds dev, asan and tsan. Steps:

    stress-dev, stress-asan, stress-tsan   the stress program: everything that has a thread, from all
                                           sides; half an hour each
    starts       a thousand starts and stops a second, of a timer thread, a hub and a timer; half an
                 hour
    timers       ten thousand timers
    hubs         a thousand hubs that send to each other
    queue        a million events that wait, then are served, over and over
    unserved     a hub that is never served, with a limit
    suite-1 ...  the suite, thirty times, while all processors are busy with something else

The times are for --hours 4 and follow it. With --state what was done is kept in FILE, for these very
programs; a run that is broken off goes on from there. Status 1 at the first step that fails.
"""

import argparse
import contextlib
import json
import os
import pathlib
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))

from kept import Kept, digest  # noqa: E402

FULL_HOURS = 4
SUITES = 30
HALF_HOUR = 1800
TEN_MINUTES = 600

# Name: (program below a build, build, seconds of four hours, arguments).
STRESS = "tests/stress/stress"
ENDURANCE = "tests/soak/endurance"
STEPS = {
    "stress-dev": (STRESS, "dev", HALF_HOUR, []),
    "stress-asan": (STRESS, "asan", HALF_HOUR, []),
    "stress-tsan": (STRESS, "tsan", HALF_HOUR, []),
    "starts": (ENDURANCE, "dev", HALF_HOUR, ["starts"]),
    "timers": (ENDURANCE, "dev", TEN_MINUTES, ["timers", "--size=10000"]),
    "hubs": (ENDURANCE, "dev", TEN_MINUTES, ["hubs", "--size=1000"]),
    "queue": (ENDURANCE, "dev", TEN_MINUTES, ["queue", "--size=1000000"]),
    "unserved": (ENDURANCE, "dev", TEN_MINUTES, ["unserved", "--size=100000"]),
}
LEAST_SECONDS = 2
LAST_LINES = 40


@contextlib.contextmanager
def busy_machine():
    """As many processes as processors do nothing but count."""
    others = [subprocess.Popen([sys.executable, "-c", "while True: pass"])
              for _ in range(os.cpu_count())]
    try:
        yield
    finally:
        for other in others:
            other.kill()
            other.wait()


def comparison(output):
    """Of the two looks of the endurance program."""
    looks = {}
    for line in output.splitlines():
        if line.startswith('{"when"'):
            look = json.loads(line)
            looks[look.pop("when")] = look
    if set(looks) != {"begin", "end"}:
        return ""
    return ", ".join(f"{what} {before} -> {looks['end'][what]}"
                     for what, before in looks["begin"].items())


def run(command, **variables):
    """(whether it went well, its output)."""
    # The tests look at the log as it is without settings.
    others = {name: value for name, value in os.environ.items()
              if not name.startswith("ZOR_DEBUG")}
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                            errors="replace", check=False, env={**others, **variables})
    return result.returncode == 0, result.stdout


def do_program(name, builds, hours):
    program, build, seconds, arguments = STEPS[name]
    seconds = max(LEAST_SECONDS, round(seconds * hours / FULL_HOURS))
    is_good, output = run([builds / build / program, *arguments, f"--seconds={seconds}"],
                          ZOR_DEBUG="off")
    looks = comparison(output) or ("the counts add up" if is_good else "nothing to compare")
    return is_good, output, f"{seconds} s, {looks}"


def do_suite(builds):
    # What measures another machine's load is none of a busy one's; the stress program is a step.
    with busy_machine():
        is_good, output = run(["ctest", "--test-dir", builds / "dev", "--output-on-failure",
                               "--timeout", "600", "-j", str(2 * os.cpu_count())])
    last = [line for line in output.splitlines() if "tests passed" in line]
    return is_good, output, last[-1] if last else "no test"


def key_of(name, builds, hours):
    """By which programs a step is done: another library, and it is done again."""
    library = builds / "dev/libtevalon-base.so"
    if name in STEPS:
        program, build, _, _ = STEPS[name]
        return f"{digest(builds / build / program, builds / build / library.name)} {hours}"
    return digest(library)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--hours", type=float, default=FULL_HOURS)
    parser.add_argument("--state", type=pathlib.Path)
    parser.add_argument("--only", help="this step alone")
    parser.add_argument("builds", type=pathlib.Path)
    arguments = parser.parse_args()
    names = [*STEPS, *(f"suite-{number}" for number in range(1, SUITES + 1))]
    if arguments.only is not None:
        names = [name for name in names if name == arguments.only]
        if not names:
            sys.exit(f"soak: no step {arguments.only}")
    state = Kept(arguments.state)
    for name in names:
        key = key_of(name, arguments.builds, arguments.hours)
        said = state.said(name, key)
        if said is not None:
            print(f"{name:12} {said}  (before)", flush=True)
            continue
        begin = time.monotonic()
        if name in STEPS:
            is_good, output, said = do_program(name, arguments.builds, arguments.hours)
        else:
            is_good, output, said = do_suite(arguments.builds)
        print(f"{name:12} {said}  ({time.monotonic() - begin:.0f} s)", flush=True)
        if not is_good:
            log = arguments.builds / "soak.log"
            log.write_text(output, encoding="utf-8")
            print("\n".join(output.splitlines()[-LAST_LINES:]))
            sys.exit(f"soak: {name} failed; all that it said is in {log}")
        state.add(name, key, said)


if __name__ == "__main__":
    main()
