#!/usr/bin/python3
"""Runs the fuzzer's targets, some side by side.

    fuzz.py BUILD [--seconds=N | --long | --merge] [--jobs=N] [TARGET...]

Each target starts from its corpus in fuzz/corpus/, and from what earlier runs found, which is kept in
BUILD/fuzz/corpora/ with the logs beside it. An input that a target does not stand is kept in
BUILD/fuzz/found/.

--seconds=N  for so long each; 60 if nothing is said.
--long       until twenty minutes bring no new coverage, or 10^8 executions, whichever is first; goes on
             where it was broken off, with the targets that were not finished.
--merge      writes to fuzz/corpus/ what covers as much as all that was found, in as few and short
             inputs as the fuzzer can.
"""

import argparse
import concurrent.futures
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests"))

from kept import Kept, digest  # noqa: E402

CORPUS = ROOT / "fuzz/corpus"
LONGEST_INPUT = 4096
# Of one block; and in all, of which the sanitizer keeps some for each thread that there ever was: half a
# KiB an input of timers.
MOST_OF_A_BLOCK_MB = 1024
MOST_MEMORY_MB = 4096
SECONDS_AN_INPUT = 25
QUIET_SECONDS = 20 * 60
MOST_EXECUTIONS = 10 ** 8
MERGED_BYTES = 8192

PROGRESS = re.compile(r"^#(\d+)\s+\S+\s+cov: (\d+)")
EXECUTIONS = re.compile(r"^stat::number_of_executed_units:\s+(\d+)")


class Limits:
    def __init__(self, arguments):
        self.is_long = arguments.long
        self.seconds = arguments.seconds

    def options(self):
        if self.is_long:
            return [f"-runs={MOST_EXECUTIONS}"]
        return [f"-max_total_time={self.seconds}"]


class Run:
    """One run of a target, and what the fuzzer says of it."""

    def __init__(self, target, build, limits):
        self.target = target
        self.folder = build / "fuzz"
        self.limits = limits
        self.corpus = self.folder / "corpora" / target
        self.log = self.folder / "logs" / f"{target}.log"
        self.found = self.folder / "found"
        self.executions = self.coverage = 0
        self.why = f"{limits.seconds} s"
        self.has_been_quiet = False
        self.result = None

    def key(self):
        """By which programs it is run: with others it begins anew."""
        libraries = "libtevalon-base.so", "platform/zor_debug/libzor-debug.so"
        return digest(self.command()[0], *(self.folder.parent / name for name in libraries))

    def command(self, *options):
        return [self.folder / f"fuzz_{self.target}", f"-max_len={LONGEST_INPUT}",
                f"-malloc_limit_mb={MOST_OF_A_BLOCK_MB}", f"-rss_limit_mb={MOST_MEMORY_MB}",
                f"-timeout={SECONDS_AN_INPUT}", *options]

    def follow(self, process, log):
        """Reads the fuzzer's lines; ends it when it has learnt nothing for too long."""
        last_news = [time.monotonic()]
        ended = threading.Event()

        def watch():
            while not ended.wait(1):
                if time.monotonic() - last_news[0] > QUIET_SECONDS:
                    self.why = f"{QUIET_SECONDS // 60} minutes without new coverage"
                    self.has_been_quiet = True
                    process.send_signal(signal.SIGINT)
                    return
        watcher = threading.Thread(target=watch)
        if self.limits.is_long:
            self.why = f"{MOST_EXECUTIONS:.0e} executions"
            watcher.start()
        for line in process.stdout:
            log.write(line)
            progress = PROGRESS.match(line)
            if not progress:
                # At the end, also of one that finds something.
                total = EXECUTIONS.match(line)
                self.executions = int(total[1]) if total else self.executions
                continue
            self.executions = int(progress[1])
            if int(progress[2]) > self.coverage:
                self.coverage = int(progress[2])
                last_news[0] = time.monotonic()
        ended.set()

    def run(self):
        for folder in (self.corpus, self.found, self.log.parent):
            folder.mkdir(parents=True, exist_ok=True)
        seeds = CORPUS / self.target
        command = self.command("-print_final_stats=1", "-reload=0",
                               f"-artifact_prefix={self.found}/{self.target}-",
                               *self.limits.options(), self.corpus,
                               *([seeds] if seeds.is_dir() else []))
        begin = time.monotonic()
        with open(self.log, "w", encoding="utf-8") as log, subprocess.Popen(
                command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                errors="replace", env=environment()) as process:
            self.follow(process, log)
        self.result = process.wait()
        self.seconds = time.monotonic() - begin
        return self

    def is_good(self):
        # Others may interrupt it, too: then it has not been run.
        return self.result == 0 or (self.has_been_quiet and self.result in (72, -signal.SIGINT))

    def __str__(self):
        text = (f"{self.target:16} {self.executions:>11,} executions {self.coverage:>6} points "
                f"covered {self.seconds:>5.0f} s")
        return text + (f"  until {self.why}" if self.limits.is_long and self.is_good() else "")

    def complain(self):
        text = self.log.read_text(encoding="utf-8", errors="replace")
        lines = [line for line in text.splitlines() if not PROGRESS.match(line)]
        print("\n".join(lines[-60:]))
        for artifact in re.findall(r"Test unit written to (\S+)", text):
            print(f"fuzz: to run it again: {self.command()[0]} {artifact}", flush=True)


def environment():
    """The log off, where a target does not look at it, and the sanitizers told what they need."""
    # What is freed is held back for a while, by which its use is noticed; inputs are small.
    address = "quarantine_size_mb=16:allocator_may_return_null=1:detect_stack_use_after_return=1"
    others = {name: value for name, value in os.environ.items()
              if not name.startswith("ZOR_DEBUG")}
    return {**others, "ZOR_DEBUG": "off", "ASAN_OPTIONS": address,
            "UBSAN_OPTIONS": "print_stacktrace=1"}


def merge(run):
    """Replaces the target's corpus in the tree by the smallest that covers as much, as far as it
    stays small."""
    merged = run.folder / "merged" / run.target
    shutil.rmtree(merged, ignore_errors=True)
    merged.mkdir(parents=True)
    seeds = CORPUS / run.target
    seeds.mkdir(parents=True, exist_ok=True)
    # By what is reached, not how often: a tenth as many inputs.
    subprocess.run(run.command("-merge=1", "-use_counters=0", merged, seeds, run.corpus),
                   env=environment(), check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)
    for old in seeds.iterdir():
        old.unlink()
    size = 0
    for path in sorted(merged.iterdir(), key=lambda path: (path.stat().st_size, path.name)):
        size += path.stat().st_size
        if size > MERGED_BYTES:
            break
        shutil.copy(path, seeds / path.name[:12])
    print(f"{run.target:16} {len(list(seeds.iterdir()))} inputs of "
          f"{len(list(merged.iterdir()))}, {min(size, MERGED_BYTES)} bytes", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("targets", nargs="*")
    kinds = parser.add_mutually_exclusive_group()
    kinds.add_argument("--seconds", type=int, default=60)
    kinds.add_argument("--long", action="store_true")
    kinds.add_argument("--merge", action="store_true")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    arguments = parser.parse_intermixed_args()
    known = sorted(path.stem for path in (ROOT / "fuzz").glob("*.cpp"))
    for target in arguments.targets:
        if target not in known:
            sys.exit(f"fuzz: no target {target}; there are {' '.join(known)}")
    build = arguments.build.resolve()
    kept = Kept(build / "fuzz/long.json" if arguments.long else None)
    runs = []
    for run in (Run(target, build, Limits(arguments)) for target in arguments.targets or known):
        said = kept.said(run.target, run.key())
        if said is None:
            runs.append(run)
        else:
            print(f"{said}  (before)", flush=True)
    if arguments.merge:
        for run in runs:
            merge(run)
        return
    failed = []
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        for future in concurrent.futures.as_completed([pool.submit(run.run) for run in runs]):
            run = future.result()
            print(run, flush=True)
            if run.is_good():
                kept.add(run.target, run.key(), str(run))
            else:
                run.complain()
                failed.append(run.target)
    if failed:
        sys.exit(f"fuzz: failed: {' '.join(failed)}")


if __name__ == "__main__":
    main()
