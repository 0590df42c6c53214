#!/usr/bin/python3
"""Says which lines and branches nothing has passed, and fails where no reason is listed for it.

    account.py BUILD_FOLDER [LIST]

The account of all programs of a build with TEVALON_BASE_COVERAGE, which have counted into
BUILD_FOLDER/profiles, and of the Python tools, which have into BUILD_FOLDER/python: of the libraries
and tools, and of the headers as far as anything uses them. A template is passed where one of its
instances is. Branches are those of conditions; what only an exception takes is none. What was not
passed is written to LIST; without one, printed.

Fails where something was not passed that exceptions.txt does not list, and where it lists what was
passed or is not there.

The counts of a condition's being false and of a loop's end are differences: a thread that waits in
a condition, or for ever in a loop, when its process ends counts as if it had got out of it.
"""
import collections
import concurrent.futures
import glob
import json
import os
import subprocess
import sys
import tempfile

FOLDER = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(FOLDER))
SOURCES = ("src/", "pubinc/", "platform/", "tools/")

# What was not passed: of a condition its being true or false, of a line in Python the way to another
# one, or lines, of which the text is the first one's. Each by its text, for lines move.
Missed = collections.namedtuple("Missed", "file line kind text")


class Account:
    """By file and line how often it was passed, by condition how often it was true and false."""

    def __init__(self):
        self.lines = collections.defaultdict(dict)
        self.branches = collections.defaultdict(dict)
        self.jumps_passed = 0  # In Python, between lines.

    def add_line(self, file, line, count):
        lines = self.lines[file]
        lines[line] = max(lines.get(line, 0), count)

    def add_branch(self, file, place, true, false):
        sums = self.branches[file].get(place, (0, 0))
        self.branches[file][place] = (sums[0] + true, sums[1] + false)


# ---- C and C++ ----


def line_counts(segments):
    """As llvm-cov counts: of a line the most that a region which begins in it has, or the one that
    it is within. Not of a gap, though: what stands between two statements has no count of its own,
    and may be given none at all."""
    starts = collections.defaultdict(list)
    for segment in segments:
        starts[segment[0]].append(segment)
    last = segments[-1][0] if segments else 0
    before = None
    for line in range(segments[0][0] if segments else 1, last + 1):
        here = starts.get(line, [])
        counts = [s[2] for s in here if s[3] and s[4] and not s[5]]
        begins_left_out = bool(here) and not here[0][3] and here[0][4]
        if before and before[3] and not before[5]:
            counts.append(before[2])
        if counts and not begins_left_out:
            yield line, max(counts)
        if here:
            before = here[-1]


def add_export(account, export, relative):
    """What llvm-cov has exported of some programs; relative: of a path to the tree's root."""
    for data in export["data"]:
        for file in data["files"]:
            name = relative(file["filename"])
            if not name.startswith(SOURCES):
                continue
            for line, count in line_counts(file["segments"]):
                account.add_line(name, line, count)
            for branch in file["branches"]:
                account.add_branch(name, tuple(branch[:4]), branch[4], branch[5])
            # Of macros, in the file that defines them.
            for expansion in file.get("expansions", ()):
                for branch in expansion.get("branches", ()):
                    account.add_branch(relative(expansion["filenames"][branch[6]]),
                                       tuple(branch[:4]), branch[4], branch[5])


def is_elf(path):
    if os.path.islink(path) or not os.path.isfile(path):
        return False
    with open(path, "rb") as file:
        return file.read(18)[:4] == b"\x7fELF"


def programs(build):
    """Libraries and programs, the libraries first."""
    found = []
    for folder, folders, names in os.walk(build):
        folders[:] = [name for name in folders if name not in ("CMakeFiles", "profiles", "python")]
        found += [os.path.join(folder, name) for name in names
                  if not name.endswith((".o", ".a")) and is_elf(os.path.join(folder, name))]
    return sorted(found, key=lambda path: (not path.endswith(".so") and ".so." not in path, path))


def count_programs(account, build):
    """Of each program on its own, for they have instances and macros of their own."""
    profiles = glob.glob(os.path.join(build, "profiles", "*.profraw"))
    with tempfile.TemporaryDirectory() as folder:
        listed = os.path.join(folder, "profiles")
        with open(listed, "w", encoding="utf-8") as file:
            file.write("".join(f"{path}\n" for path in profiles))
        merged = os.path.join(folder, "merged")
        run("llvm-profdata-14", "merge", "--sparse", f"--input-files={listed}", "-o", merged)

        def export(path):
            return run("llvm-cov-14", "export", "--skip-functions", f"--instr-profile={merged}",
                       path, *(os.path.join(ROOT, source) for source in SOURCES), may_fail=True)

        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            for text in pool.map(export, programs(build)):
                if text is not None:  # A program that was not instrumented.
                    add_export(account, json.loads(text), lambda name: os.path.relpath(name, ROOT))


def run(*command, may_fail=False):
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    if result.returncode != 0:
        if may_fail:
            return None
        sys.exit(f"coverage: {' '.join(command[:2])} failed\n{result.stderr}")
    return result.stdout


# ---- Python ----


def count_python(account, jumps, build):
    """Lines, and by line the ways to others that were not gone, -1 for the function's end."""
    folder = os.path.join(build, "python")
    if not glob.glob(os.path.join(folder, "data.*")):
        return
    data = os.path.join(folder, "data")
    run("/usr/bin/python3", "-m", "coverage", "combine", "--keep", f"--data-file={data}", folder)
    listed = os.path.join(folder, "account.json")
    run("/usr/bin/python3", "-m", "coverage", "json", f"--data-file={data}",
        "-o", listed)
    with open(listed, encoding="utf-8") as file:
        files = json.load(file)["files"]
    by_name = {os.path.relpath(os.path.join(ROOT, name), ROOT): found
               for name, found in files.items()}
    for path in glob.glob(os.path.join(ROOT, "tools", "**", "*.py"), recursive=True):
        name = os.path.relpath(path, ROOT)
        found = by_name.get(name)
        if found is None:
            with open(path, encoding="utf-8") as file:
                if file.read().strip():
                    account.add_line(name, 1, 0)
            continue
        for line in found["executed_lines"]:
            account.add_line(name, line, 1)
        for line in found["missing_lines"]:
            account.add_line(name, line, 0)
        account.jumps_passed += found["summary"]["covered_branches"]
        for start, end in found["missing_branches"]:
            jumps[name].append((start, max(end, -1)))


# ---- what was not passed ----


def runs_of(lines):
    """Of the lines that were not passed those that follow each other, the code that is none left out:
    by the first one the last one."""
    runs = {}
    first = None
    for line in sorted(lines):
        if lines[line] > 0:
            first = None
        elif first is None:
            first = line
            runs[first] = line
        else:
            runs[first] = line
    return runs


def text_of(source, place):
    line, column, last_line, last_column = place
    if line == last_line:
        return source[line - 1][column - 1:last_column - 1]
    middle = [source[line - 1][column - 1:], *source[line:last_line - 1],
              source[last_line - 1][:last_column - 1]]
    return " ".join(part.strip() for part in middle)


def missed_in(file, source, lines, branches, jumps):
    """A condition stands for the lines that follow it, too."""
    missed = []
    runs = runs_of(lines)
    explained = set()
    for place, (true, false) in sorted(branches.items()):
        if (true == 0) == (false == 0):  # Both; or neither: a constant, or in a line not passed.
            continue
        missed.append(Missed(file, place[0], "true" if true == 0 else "false",
                             text_of(source, place)))
        explained.add(place[2] + 1)
    for start, end in sorted(jumps):
        if lines.get(start, 0) == 0:
            continue
        target = source[end - 1].strip() if end > 0 else "end"
        missed.append(Missed(file, start, "jump", f"{source[start - 1].strip()} -> {target}"))
        explained.add(end)
    for first in runs:
        if first not in explained:
            missed.append(Missed(file, first, "line", source[first - 1].strip()))
    return sorted(missed, key=lambda item: item.line)


def all_missed(account, jumps):
    missed = []
    for file in sorted(set(account.lines) | set(account.branches)):
        with open(os.path.join(ROOT, file), encoding="utf-8") as text:
            source = text.read().splitlines()
        missed += missed_in(file, source, account.lines[file], account.branches[file], jumps[file])
    return missed


# ---- exceptions ----


def read_exceptions(lines):
    """By file, kind and text: how often, whether chance may pass it, and the reason.

        src/some/file.cpp
            true: condition
            2 false: condition that stands there twice
                Why these never are.
            ~ line: text of the first of some lines
                Why only chance passes it.
    """
    exceptions = {}
    file = None
    waiting = []  # For their reason.
    for number, line in enumerate(lines, 1):
        text = line.strip()
        depth = len(line) - len(line.lstrip())
        if not text or text.startswith("#"):
            continue
        if depth < 8 and waiting and waiting[-1][2]:
            waiting = []
        if depth == 0:
            if waiting:
                raise ValueError(f"line {number}: no reason before it")
            file = text
        elif depth == 4:
            head, _, what = text.partition(": ")
            words = head.split()
            by_chance = words[0] == "~"
            words = words[by_chance:]
            count = int(words.pop(0)) if len(words) > 1 else 1
            if file is None or len(words) != 1 or words[0] not in ("true", "false", "jump", "line"):
                raise ValueError(f"line {number}: {text}")
            waiting.append([count, by_chance, ""])
            exceptions[file, words[0], what] = waiting[-1]
        else:
            for entry in waiting:
                entry[2] = f"{entry[2]} {text}".strip()
    without = [key for key, entry in exceptions.items() if not entry[2]]
    if without:
        raise ValueError(f"no reason for {without}")
    return exceptions


def differences(missed, exceptions):
    """What was missed and is not listed, and what is listed and was not missed."""
    found = collections.Counter((item.file, item.kind, item.text) for item in missed)
    wrong = []
    for item in missed:
        listed = exceptions.get((item.file, item.kind, item.text), (0, False))
        count = found[item.file, item.kind, item.text]
        if count > listed[0]:
            wrong.append(f"{item.file}:{item.line}: not passed: {item.kind}: {item.text}")
    for (file, kind, text), (count, by_chance, _) in exceptions.items():
        if found[file, kind, text] < count and not by_chance:
            wrong.append(f"exceptions.txt lists what was passed, or is not there: "
                         f"{file}: {kind}: {text}")
    return wrong


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    build = os.path.abspath(sys.argv[1])
    with open(os.path.join(FOLDER, "exceptions.txt"), encoding="utf-8") as file:
        exceptions = read_exceptions(file.read().splitlines())
    account = Account()
    jumps = collections.defaultdict(list)
    count_programs(account, build)
    count_python(account, jumps, build)
    missed = all_missed(account, jumps)

    text = "".join(f"{item.file}:{item.line}: {item.kind}: {item.text}\n" for item in missed)
    if len(sys.argv) == 3:
        with open(sys.argv[2], "w", encoding="utf-8") as file:
            file.write(text)
    else:
        print(text, end="")
    wrong = differences(missed, exceptions)
    for line in wrong:
        print(f"coverage: {line}")
    say_sums(account, jumps, len(missed))
    sys.exit(1 if wrong else 0)


def say_sums(account, jumps, missed):
    for kind, is_python in (("C++", False), ("Python", True)):
        lines = [count for file, counts in account.lines.items() for count in counts.values()
                 if file.endswith(".py") == is_python]
        passed = sum(count > 0 for count in lines)
        if is_python:
            sides = account.jumps_passed + sum(map(len, jumps.values()))
            sides_passed = account.jumps_passed
        else:
            # Neither: a constant, or in a line that was not passed, where it counts as two.
            both = [(counts, account.lines[file].get(place[0], 0))
                    for file, places in account.branches.items()
                    for place, counts in places.items() if any(counts) or
                    account.lines[file].get(place[0], 0) == 0]
            sides = 2 * len(both)
            sides_passed = sum((counts[0] > 0) + (counts[1] > 0) for counts, _ in both)
        for what, part, whole in (("lines", passed, len(lines)),
                                  ("branches", sides_passed, sides)):
            share = 100 * part / whole if whole else 100
            print(f"coverage: {kind}: {part} of {whole} {what} passed, {share:.2f} %")
    print(f"coverage: {missed} exceptions")


if __name__ == "__main__":
    main()
