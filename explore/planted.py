#!/usr/bin/env python3
"""Plants the mistakes in explore/planted/, one after the other, and has the explorer find each.

usage: planted.py BUILD-FOLDER [NAME...]

A patch names the scenario that finds it and how that fails. What it changes, and what includes that,
is compiled as the scenarios are and linked before the rest of the library. Each line tells after how
many schedules the mistake was found; the stories are kept in BUILD-FOLDER/explore/planted/.
"""

import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
TREES = ("src", "pubinc", "platform/zor_debug", "explore")
INCLUDE = re.compile(r'^\s*#include "([^"]+)"', re.M)
FOUND = re.compile(r"^\w+: (.*?): .*\n  after (\d+) schedules", re.M)


class Mistake:
    def __init__(self, path):
        text = path.read_text()
        self.path = path
        self.name = path.stem
        self.scenario = re.search(r"^Scenario: (\w+)$", text, re.M)[1]
        self.failure = re.search(r"^Failure: (.+)$", text, re.M)[1]
        self.files = re.findall(r"^\+\+\+ b/(\S+)$", text, re.M)


def source_files():
    for tree in TREES:
        for path in sorted((ROOT / tree).rglob("*")):
            if path.suffix in (".cpp", ".h"):
                yield path.relative_to(ROOT).as_posix()


def includers():
    """The files that include a header directly, by the header's path in the tree."""
    files = list(source_files())
    by_header = {}
    for name in files:
        for included in INCLUDE.findall((ROOT / name).read_text()):
            for header in files:
                if header.endswith("/" + included):
                    by_header.setdefault(header, set()).add(name)
    return by_header


def affected(files, by_header):
    seen, todo = set(), list(files)
    while todo:
        name = todo.pop()
        if name not in seen:
            seen.add(name)
            todo += by_header.get(name, ())
    return {name for name in seen if name.endswith(".cpp")}


class Build:
    def __init__(self, folder):
        self.folder = folder.resolve()
        commands = json.loads((self.folder / "compile_commands.json").read_text())
        self.commands = [entry for entry in commands if " explore/CMakeFiles/" in entry["command"]]
        self.by_header = includers()
        self.programs = {}
        for program in sorted((self.folder / "explore").glob("explore_*")):
            names = subprocess.run([program, "--list"], stdout=subprocess.PIPE, text=True, check=True)
            for scenario in names.stdout.split():
                self.programs[scenario] = program.name

    def object_command(self, source, program):
        """Of the program's own source, else of the library's."""
        for target in program, "tevalon-base-explored":
            for entry in self.commands:
                if entry["file"] == str(ROOT / source) and f"/{target}.dir/" in entry["command"]:
                    return target, shlex.split(entry["command"])
        return None, None

    def link_command(self, program):
        lines = subprocess.run(["ninja", "-C", self.folder, "-t", "commands", f"explore/{program}"],
                               stdout=subprocess.PIPE, text=True, check=True).stdout.splitlines()
        return shlex.split(lines[-1].replace(": && ", "").replace(" && :", ""))


def output_of(command):
    return command[command.index("-o") + 1]


def run(command, folder, log):
    with open(log, "a") as out:
        out.write(shlex.join(map(str, command)) + "\n")
        out.flush()
        return subprocess.run(command, cwd=folder, stdout=out, stderr=subprocess.STDOUT,
                              check=False).returncode


def build_with(mistake, build, folder):
    """The program with the mistake in it, or None."""
    log = folder / "build.log"
    tree = folder / "tree"
    for name in TREES:
        shutil.copytree(ROOT / name, tree / name)
    if run(["patch", "-p1", "-i", mistake.path], tree, log) != 0:
        return None
    program = build.programs[mistake.scenario]
    link = build.link_command(program)
    own = f"explore/CMakeFiles/{program}.dir/"
    added = []
    scenario_source = f"explore/{program.replace('explore_', '')}_scenarios.cpp"
    for source in sorted(affected(mistake.files, build.by_header) | {scenario_source}):
        target, command = build.object_command(source, program)
        if command is None:
            continue
        compiled = str(folder / (source.replace("/", "_") + ".o"))
        original = output_of(command)
        command = [part.replace(str(ROOT), str(tree)) if part != original else compiled
                   for part in command]
        # Headers that a build makes, and the explorer's own, are where they were.
        command = [part.replace(f"{tree}/testkit", f"{ROOT}/testkit") for part in command]
        if run(command, build.folder, log) != 0:
            return None
        if original in link:
            link[link.index(original)] = compiled
        elif target != program:
            added.append(compiled)
    first = next(i for i, part in enumerate(link) if part.startswith((own, str(folder))))
    link[first:first] = added
    result = folder / program
    link[link.index("-o") + 1] = str(result)
    return result if run(link, build.folder, log) == 0 else None


def try_out(mistake, build):
    folder = build.folder / "explore" / "planted" / mistake.name
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    program = build_with(mistake, build, folder)
    if program is None:
        return False, f"cannot be built: see {folder}/build.log"
    story = subprocess.run([program, mistake.scenario], stdout=subprocess.PIPE,
                           stderr=subprocess.STDOUT, text=True, check=False).stdout
    (folder / "story.txt").write_text(story.replace(f"explore/planted/{mistake.name}/tree/", ""))
    found = FOUND.search(story)
    shutil.rmtree(folder / "tree")
    if found is None:
        return False, "is not found"
    if found[1] != mistake.failure:
        return False, f"is found as {found[1]}, and not as {mistake.failure}"
    return True, f"{found[1]} after {found[2]} schedules"


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    build = Build(pathlib.Path(sys.argv[1]))
    mistakes = [Mistake(path) for path in sorted((ROOT / "explore" / "planted").glob("*.patch"))]
    if len(sys.argv) > 2:
        mistakes = [mistake for mistake in mistakes if mistake.name in sys.argv[2:]]
    is_good = bool(mistakes)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        results = pool.map(lambda mistake: try_out(mistake, build), mistakes)
        for mistake, (is_found, text) in zip(mistakes, results):
            print(f"{mistake.name:42} {mistake.scenario:40} {text}", flush=True)
            is_good = is_good and is_found
    sys.exit(0 if is_good else 1)


main()
