#!/usr/bin/python3
"""Says which lines and branches no test has passed.

    coverage.py BUILD_FOLDER [LIST]

Reads, by way of gcovr, what the programs of a build with TEVALON_BASE_COVERAGE have counted in the
libraries and tools, and in the headers as far as these use them. Branches that only an exception
takes are left out. What was not passed is written to LIST, a line each; without one, printed.
"""
import collections
import json
import os
import re
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SOURCES = ("src/", "pubinc/", "platform/", "tools/")
OBJECTS = ("CMakeFiles/tevalon-base.dir", "platform", "tools")


def counted(build):
    """gcovr's account: by file, by line, how often it and each of its branches was passed."""
    with tempfile.TemporaryDirectory() as folder:
        account = os.path.join(folder, "account.json")
        command = ["gcovr", "--root", ROOT, "--object-directory", build, "--json", account,
                   "--exclude-throw-branches", "--exclude-unreachable-branches",
                   "-j", str(os.cpu_count())]
        for source in SOURCES:
            command += ["--filter", re.escape(os.path.join(ROOT, source))]
        command += [os.path.join(build, objects) for objects in OBJECTS]
        result = subprocess.run(command, stderr=subprocess.PIPE, text=True, check=False)
        if result.returncode != 0:
            sys.exit(f"coverage: gcovr failed\n{result.stderr}")
        with open(account, encoding="utf-8") as file:
            return json.load(file)["files"]


def unpassed(files):
    """A line for each, and how many there are of what."""
    missed = []
    totals = collections.Counter()
    for file in files:
        with open(os.path.join(ROOT, file["file"]), encoding="utf-8") as source:
            texts = source.read().splitlines()
        for line in file["lines"]:
            if line.get("gcovr/noncode") or line.get("gcovr/excluded"):
                continue
            branches = [branch for branch in line["branches"] if not branch["throw"]]
            dead = sum(1 for branch in branches if branch["count"] == 0)
            totals["lines"] += 1
            totals["lines passed"] += line["count"] > 0
            totals["branches"] += len(branches)
            totals["branches passed"] += len(branches) - dead
            if line["count"] == 0 or dead > 0:
                number = line["line_number"]
                what = "line" if line["count"] == 0 else f"{dead} of {len(branches)} branches"
                missed.append(f"{file['file']}:{number}: {what} not passed: "
                              f"{texts[number - 1].strip()}")
    return missed, totals


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    missed, totals = unpassed(counted(os.path.abspath(sys.argv[1])))
    text = "".join(f"{line}\n" for line in missed)
    if len(sys.argv) == 3:
        with open(sys.argv[2], "w", encoding="utf-8") as file:
            file.write(text)
    else:
        print(text, end="")
    for kind in ("lines", "branches"):
        share = 100 * totals[f"{kind} passed"] / totals[kind]
        print(f"coverage: {totals[f'{kind} passed']} of {totals[kind]} {kind} passed, {share:.1f} %")


if __name__ == "__main__":
    main()
