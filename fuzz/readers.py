#!/usr/bin/python3
"""Feeds tevalon-trace and tevalon-explain with real files that are damaged at random.

    readers.py [--count N | --seconds N] [--seed S] [--only N] [RECORDING...]

Each of N mutations of each kind of file (recordings, logs) follows from the seed and its number alone.
A reader may complain of what it is given, but not end with a traceback, take more than some seconds,
or more memory than a multiple of what it takes for the whole file. --only runs that one number and
keeps the file. RECORDINGs are tried beside the one in the tree.
"""

import argparse
import contextlib
import io
import os
import pathlib
import random
import re
import resource
import signal
import sys
import tempfile
import time
import traceback

sys.dont_write_bytecode = True
ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path[:0] = [str(ROOT / "tools/tevalon_trace"), str(ROOT / "tools/tevalon_explain")]

from tevalon_explain import main as explain  # noqa: E402
from tevalon_trace import main as trace  # noqa: E402

RECORDINGS = [ROOT / "tests/tevalon_trace/killed_on_arm.recording"]
LOGS = sorted((ROOT / "tests/explain/logs").glob("*.log"))
CATALOGUE = ROOT / "tools/catalogue/messages.toml"
MOST_LOG_BYTES = 16384
MOST_SECONDS = 30
MOST_MEMORY = 1 << 30
BATCH = 40  # By one process, which ends then.
INTERESTING = (b"\0", b"\xff" * 4, b"\xff" * 8, b"\0" * 8, b"\x7f\xff\xff\xff", b"\n", b"%s", b"[",
               b"\x80\0\0\0", b"9" * 25, b"-1", b"\xed\xa0\x80", b"\x1b[0m", b"1e999", b"=")


class TooSlow(BaseException):
    """No Exception: nobody but us catches it."""


def mutate(data, chance):
    """Some changes of a copy: most of single places, some of whole pieces."""
    data = bytearray(data)
    for _ in range(chance.choice((1, 1, 2, 3, 5, 8, 20))):
        if not data:
            break
        at = chance.randrange(len(data))
        # The heads are short and matter most.
        if chance.random() < 0.3:
            at = min(at, chance.randrange(256))
        length = chance.choice((1, 2, 4, 8, 16, 64, 512))
        kind = chance.randrange(9)
        if kind == 0:
            data[at] ^= 1 << chance.randrange(8)
        elif kind == 1:
            data[at] = chance.randrange(256)
        elif kind == 2:
            piece = chance.choice(INTERESTING)
            data[at:at + len(piece)] = piece
        elif kind == 3:
            data[at:at] = chance.choice(INTERESTING)
        elif kind == 4:
            del data[at:at + length]
        elif kind == 5:
            other = chance.randrange(len(data))
            data[at:at + length] = data[other:other + length]
        elif kind == 6:
            data[at:at] = data[at:at + length] * chance.randrange(1, 4)
        elif kind == 7 and chance.random() < 0.2:
            del data[at:]
        else:
            word = at & ~7
            value = int.from_bytes(data[word:word + 8], "little")
            change = chance.choice((1, -1, 1 << 31, 1 << 63, chance.randrange(1 << 16)))
            data[word:word + 8] = ((value + change) % (1 << 64)).to_bytes(8, "little")
    return bytes(data)


def piece_of(path, chance):
    """A log's lines from somewhere on: the files are long, and alike all along."""
    data = path.read_bytes()
    if len(data) <= MOST_LOG_BYTES:
        return data
    begin = data.find(b"\n", chance.randrange(len(data) - MOST_LOG_BYTES)) + 1
    return data[begin:begin + MOST_LOG_BYTES]


def attempt(number, seed, folder, recordings):
    """(What to call, with which arguments)."""
    chance = random.Random(f"{seed}:{number}")
    path = os.path.join(folder, f"mutation-{number}")
    if number % 2 == 0:
        pathlib.Path(path).write_bytes(mutate(chance.choice(recordings).read_bytes(), chance))
        mode = chance.choice(("--text", "--json", "--summary", "--html"))
        return lambda: trace.main(page_folder=folder), ["tevalon-trace", mode, path]
    pathlib.Path(path).write_bytes(mutate(piece_of(chance.choice(LOGS), chance), chance))
    if chance.random() < 0.2:
        return trace.main, ["tevalon-trace", "--text", "--log", path, str(recordings[0])]
    mode = chance.choice(([], ["--summary"], ["--errors"]))
    return lambda: explain.main(CATALOGUE), ["tevalon-explain", *mode, path]


def on_alarm(_signal, _frame):
    raise TooSlow


@contextlib.contextmanager
def swallowed():
    """What is written goes nowhere, but through the same conversions."""
    with open(os.devnull, "wb", buffering=0) as nothing:
        before = sys.stdout, sys.stderr, sys.argv
        try:
            sys.stdout = io.TextIOWrapper(io.BufferedWriter(nothing), encoding="utf-8")
            sys.stderr = io.StringIO()
            yield
        finally:
            sys.stdout, sys.stderr, sys.argv = before


def fault_of(number, seed, folder, recordings):
    """None, or what was wrong."""
    call, arguments = attempt(number, seed, folder, recordings)
    signal.setitimer(signal.ITIMER_REAL, MOST_SECONDS)
    status = fault = None
    try:
        with swallowed():
            sys.argv = arguments
            status = call()
    except SystemExit as end:
        status = end.code
    except TooSlow:
        fault = f"takes longer than {MOST_SECONDS} s"
    except MemoryError:
        fault = f"takes more than {MOST_MEMORY >> 20} MiB\n{traceback.format_exc(limit=-4)}"
    except BaseException:  # Whatever it is, it would be a traceback.
        fault = traceback.format_exc()
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
    if fault is None and status not in (0, 1):
        fault = f"ends with status {status}"
    return f"{' '.join(arguments)}: {fault}" if fault else None


def run_batch(numbers, seed, recordings, out):
    """Writes the faults of some mutations. In a process of its own, which is ended by whatever takes
    all memory, or cannot be interrupted."""
    signal.signal(signal.SIGALRM, on_alarm)
    resource.setrlimit(resource.RLIMIT_AS, (MOST_MEMORY, MOST_MEMORY))
    resource.setrlimit(resource.RLIMIT_CPU, (MOST_SECONDS * 4, MOST_SECONDS * 4))
    with tempfile.TemporaryDirectory() as folder:
        pathlib.Path(folder, "page.js").write_text("// No script.\n", encoding="utf-8")
        for number in numbers:
            fault = fault_of(number, seed, folder, recordings)
            os.unlink(os.path.join(folder, f"mutation-{number}"))
            if fault is not None:
                out.write(f"mutation {number}: {fault}\n")
    out.flush()


class Batch:
    """One that runs."""

    def __init__(self, numbers, seed, recordings):
        self.numbers = numbers
        self.told = tempfile.TemporaryFile("w+", encoding="utf-8", errors="replace")
        self.process = os.fork()
        if self.process == 0:
            status = 1
            try:
                run_batch(numbers, seed, recordings, self.told)
                status = 0
            except BaseException:
                traceback.print_exc()
            finally:
                os._exit(status)

    def faults(self, status):
        self.told.seek(0)
        text = self.told.read()
        self.told.close()
        if status != 0:
            text += (f"mutations {self.numbers[0]} to {self.numbers[-1]}: end with wait status "
                     f"{status}\n")
        return text


def keep(number, seed, recordings):
    folder = tempfile.mkdtemp(prefix="mutation-")
    pathlib.Path(folder, "page.js").write_text("// No script.\n", encoding="utf-8")
    signal.signal(signal.SIGALRM, on_alarm)
    print(fault_of(number, seed, folder, recordings) or f"in {folder}: nothing wrong")


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=10 ** 5)
    parser.add_argument("--seconds", type=float, default=float("inf"))
    parser.add_argument("--seed", default="1")
    parser.add_argument("--only", type=int)
    parser.add_argument("recordings", nargs="*", type=pathlib.Path)
    arguments = parser.parse_args()
    recordings = RECORDINGS + arguments.recordings
    if arguments.only is not None:
        keep(arguments.only, arguments.seed, recordings)
        return
    end = time.monotonic() + arguments.seconds
    total = 2 * arguments.count  # Recordings are even, logs odd.
    first = done = faulty = 0
    running = {}
    while running or (first < total and time.monotonic() < end):
        if len(running) < os.cpu_count() and first < total and time.monotonic() < end:
            batch = Batch(range(first, min(first + BATCH, total)), arguments.seed, recordings)
            running[batch.process] = batch
            first += BATCH
            continue
        process, status = os.wait()
        batch = running.pop(process)
        text = batch.faults(status)
        done += len(batch.numbers)
        faulty += text != ""
        print(text, end="", flush=True)
    print(f"readers: {done:,} mutations with the seed {arguments.seed}, {faulty} batches with "
          f"a fault")
    if faulty or done == 0:
        sys.exit(1)


if __name__ == "__main__":
    main()
