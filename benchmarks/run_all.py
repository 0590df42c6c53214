#!/usr/bin/env python3
"""Runs every benchmark program in a folder, and writes what each measured into another.

usage: run_all.py [--quick] [PATTERN] PROGRAMS RESULTS

With PATTERN only the rows whose names match this regular expression are run.
"""

import argparse
import json
import os
import pathlib
import platform
import shutil
import subprocess
import sys
import time


def read_steal():
    """Seconds that the hypervisor gave to others, and seconds in all, of all processors."""
    line = pathlib.Path("/proc/stat").read_text().splitlines()[0]
    fields = [int(field) for field in line.split()[1:9]]
    return fields[7], sum(fields)


def processor_name():
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            return line.partition(":")[2].strip()
    return platform.machine()


def commit():
    command = ["git", "-C", pathlib.Path(__file__).parent, "describe", "--always", "--dirty=+",
               "--abbrev=12"]
    answer = subprocess.run(command, capture_output=True, text=True, check=False)
    return answer.stdout.strip() or "unknown"


def run(program, results, quick, pattern):
    repetitions, min_time = (3, 0.02) if quick else (7, 0.1)
    command = [program, f"--benchmark_repetitions={repetitions}",
               f"--benchmark_min_time={min_time}", "--benchmark_enable_random_interleaving=true",
               f"--benchmark_out={results / program.name}.json", "--benchmark_out_format=json"]
    if pattern:
        command.append(f"--benchmark_filter={pattern}")
    environment = dict(os.environ, **({"BENCH_QUICK": "1"} if quick else {}))
    with open(results / f"{program.name}.log", "w") as log:
        return subprocess.run(command, env=environment, stdout=log, stderr=log).returncode


def count_futex_calls(programs, results):
    program = programs / "sync_events_benchmark"
    if program.exists() and shutil.which("strace"):
        script = pathlib.Path(__file__).with_name("futex_counts.py")
        subprocess.run([sys.executable, script, program, results], check=False)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("pattern", nargs="?")
    parser.add_argument("programs", type=pathlib.Path)
    parser.add_argument("results", type=pathlib.Path)
    arguments = parser.parse_args()

    arguments.results.mkdir(parents=True, exist_ok=True)
    for old in [*arguments.results.glob("*_benchmark.*"),
                *arguments.results.glob("futex_counts.json")]:
        old.unlink()
    machine = {"processor": processor_name(), "processors": len(os.sched_getaffinity(0)),
               "system": platform.platform(), "quick": arguments.quick,
               "commit": commit(),
               "load_before": os.getloadavg()[0]}
    steal, total = read_steal()
    begin = time.monotonic()
    failed = []
    for program in sorted(arguments.programs.glob("*_benchmark")):
        print(f"run_all: {program.name}", file=sys.stderr)
        if run(program, arguments.results, arguments.quick, arguments.pattern) != 0:
            failed.append(program.name)
    if not arguments.pattern:
        count_futex_calls(arguments.programs, arguments.results)
    later_steal, later_total = read_steal()
    machine["steal"] = (later_steal - steal) / max(1, later_total - total)
    machine["seconds"] = round(time.monotonic() - begin)
    (arguments.results / "machine.json").write_text(json.dumps(machine, indent=1) + "\n")
    if failed:
        sys.exit(f"run_all: failed, see the logs in '{arguments.results}': {', '.join(failed)}")


if __name__ == "__main__":
    main()
