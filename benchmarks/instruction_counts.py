#!/usr/bin/env python3
"""Compares the instructions that each hot path takes with the recorded ones.

usage: instruction_counts.py [--renew REASON] [--list] PROGRAM

PROGRAM is the hot_paths of a build. One for this machine runs under callgrind. One for 32-bit ARM
runs under qemu-arm, which logs every instruction, without the paths that take long. What differs
by more than 3 % is said, and beyond 15 % it fails; so does a path that is not recorded, or is
recorded and gone. --renew writes the new figures into instruction_counts.json, with the reason and
the commit they were made on.
"""

import argparse
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

RECORDED = pathlib.Path(__file__).with_name("instruction_counts.json")
SAID = 0.03
FAILING = 0.15

ELF_MACHINES = {62: "x86_64", 40: "armhf"}
ARM_LIBRARIES = "/usr/arm-linux-gnueabihf"


def architecture(program):
    header = program.read_bytes()[:20]
    if header[:4] != b"\x7fELF":
        sys.exit(f"instruction_counts: '{program}' is no program")
    machine = int.from_bytes(header[18:20], "little")
    if machine not in ELF_MACHINES:
        sys.exit(f"instruction_counts: '{program}' is for a machine that is not known here")
    return ELF_MACHINES[machine]


def start(command):
    # Off: a log line at the start would depend on who calls.
    environment = dict(os.environ, ZOR_DEBUG="off", LC_ALL="C")
    return subprocess.Popen(command, env=environment, stdout=subprocess.PIPE, text=True)


def finish(process):
    """[(process id, count, name)], as the program tells."""
    lines = process.communicate()[0].splitlines()
    if process.returncode != 0:
        sys.exit(f"instruction_counts: failed with status {process.returncode}: "
                 f"{' '.join(map(str, process.args))}")
    paths = [line.split(" ", 2) for line in lines]
    return [(int(pid), int(count), name) for pid, count, name in paths]


def per_time(spans, count):
    """Spans: the warm-up, so many times, twice as many."""
    _, once, twice = spans
    return (twice - once) / count


def count_on_host(program):
    """Callgrind writes a file at each mark; what counts is in every other one."""
    with tempfile.TemporaryDirectory() as folder:
        process = start(["valgrind", "-q", "--tool=callgrind", "--dump-before=hotPathMark",
                         f"--callgrind-out-file={folder}/%p", program])
        paths = finish(process)

        def total(pid, number):
            text = pathlib.Path(folder, f"{pid}.{number}").read_text()
            return int(re.search(r"^totals: (\d+)$", text, re.MULTILINE)[1])

        return {name: per_time([total(pid, number) for number in (2, 4, 6)], count)
                for pid, count, name in paths}


def spans_between_marks(log):
    """{process id: lines between its marks} of a log with a line for each instruction."""
    marks = {}
    lines = 0
    rest = b""
    while block := log.read(1 << 20):
        block = rest + block
        end = block.rfind(b"\n") + 1
        block, rest = block[:end], block[end:]
        position = 0
        for mark in re.finditer(rb"^(\d+) getpgid\(0\)", block, re.MULTILINE):
            lines += block.count(b"Trace ", position, mark.start())
            position = mark.start()
            marks.setdefault(int(mark[1]), []).append(lines)
        lines += block.count(b"Trace ", position)
    return {pid: [after - before for before, after in zip(places[::2], places[1::2])]
            for pid, places in marks.items()}


def count_on_arm(program):
    """One child runs at a time, so whatever stands between two of its marks is its own."""
    with tempfile.TemporaryDirectory() as folder:
        log = pathlib.Path(folder, "log")
        os.mkfifo(log)
        process = start(["qemu-arm", "-L", ARM_LIBRARIES, "-singlestep",
                         "-d", "exec,nochain,strace", "-D", log, program, "--short"])
        with open(log, "rb") as instructions:
            spans = spans_between_marks(instructions)
        return {name: per_time(spans[pid], count) for pid, count, name in finish(process)}


def commit():
    command = ["git", "-C", RECORDED.parent, "describe", "--always", "--dirty=+", "--abbrev=12"]
    answer = subprocess.run(command, capture_output=True, text=True, check=False)
    return answer.stdout.strip() or "unknown"


def read_recorded():
    return json.loads(RECORDED.read_text()) if RECORDED.exists() else {}


def renew(machine, counts, reason):
    recorded = read_recorded()
    recorded[machine] = {"reason": reason, "commit": commit(), "counts": counts}
    RECORDED.write_text(json.dumps(recorded, indent=4, sort_keys=True) + "\n")
    print(f"instruction_counts: {machine} recorded in {RECORDED.name}")


def compare(machine, counts, recorded):
    """Says what differs; returns whether that is too much."""
    failing = False
    for name in list(recorded) + [name for name in counts if name not in recorded]:
        if name not in counts or name not in recorded:
            print(f"{machine} {name}: {'not recorded' if name in counts else 'gone'}")
            failing = True
            continue
        was, now = recorded[name], counts[name]
        change = now / was - 1 if was else float(now != was)
        if abs(change) > SAID:
            print(f"{machine} {name}: {was:g} -> {now:g} instructions, {change:+.1%}")
        failing = failing or abs(change) > FAILING
    return failing


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--renew", metavar="REASON")
    parser.add_argument("--list", action="store_true", help="print every count")
    parser.add_argument("program", type=pathlib.Path)
    arguments = parser.parse_args()

    machine = architecture(arguments.program)
    count = count_on_arm if machine == "armhf" else count_on_host
    counts = {name: round(value, 1) for name, value in count(arguments.program).items()}
    if arguments.list:
        for name, value in counts.items():
            print(f"{machine} {name}: {value:g}")
    if arguments.renew is not None:
        if not arguments.renew.strip():
            sys.exit("instruction_counts: to renew takes a reason")
        renew(machine, counts, arguments.renew)
    elif compare(machine, counts, read_recorded().get(machine, {}).get("counts", {})):
        sys.exit(f"instruction_counts: what {machine} takes has changed by more than "
                 f"{FAILING:.0%}; if it has to be, ./run renew-counts REASON")
    else:
        print(f"instruction_counts: {len(counts)} paths on {machine} are within {FAILING:.0%}")


if __name__ == "__main__":
    main()
