#!/usr/bin/python3
"""Makes small mistakes in the library, one at a time, and says which of them no test finds.

    mutants.py [FILE...] [--group=locks|rest|all] [--count=N] [--seed=S] [--build=FOLDER] [--list]

All mutants are in one build, and a process runs the one whose number is in its environment; see
edits.py. Without arguments: all of the locks, of ends and of time, and 400 of the rest at random. With
files: those in them; --count: so many of them, at random by --seed.

A mutant is tried by the tests that reach it, the most specific and the shortest first, until one
fails, and once more when it is run alone; where locks, ends and time are concerned also by the scenarios
of the schedule explorer; of locks, signals and flags under the thread sanitizer; and what survives
under the address sanitizer. What hangs for longer than ten seconds and five times its time is found,
too. Those that no test could find stand in equivalent.txt, with the reason.

What was found is kept in FOLDER/results, for these sources of the library, so that a run goes on
where another was broken off; survivors are tried anew once a test has changed. Status 1 where less
than all of the locks, or than 95 % of the rest, is found.
"""

import argparse
import collections
import concurrent.futures
import dataclasses
import hashlib
import json
import os
import pathlib
import pickle
import random
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time

import edits

ROOT = pathlib.Path(__file__).resolve().parents[2]
HERE = pathlib.Path(__file__).resolve().parent
MUTATED = ("src/", "pubinc/")
SOURCES_OF_TESTS = ("tests/", "explore/", "testkit/", "examples/", "tools/", "platform/")
REST_COUNT = 400
LEAST_SHARE = {"locks": 100.0, "rest": 95.0}
KINDS_OF_LOCKS = ("lock", "notify", "flag")
# What locks, ends and tells the time: a file, or functions of one.
LOCKS = {
    "pubinc/base/simple_timer.h": None,
    "pubinc/base/singleton.h": None,
    "pubinc/base/synchronization/": None,
    "pubinc/base/threading/": None,
    "pubinc/base/timer/": None,
    "pubinc/base/utils/monotonic_time.h": None,
    "src/event_dispatcher/event_dispatcher.cpp": None,
    "src/event_dispatcher/event_hub_impl.cpp": r"[sS]top|[jJ]oin|~|[fF]orked|[tT]hread|[tT]ear|[wW]ait|end",
    "src/event_dispatcher/event.cpp": r"[wW]ait|[rR]eply|~",
    "src/event_dispatcher/nap.h": None,
    "src/event_dispatcher/spin.h": None,
    "src/locks/": None,
    "src/os/": None,
    "src/runnable.cpp": None,
    "src/singleton.cpp": None,
    "src/synchronization.cpp": None,
    "src/timer/": None,
    "src/timer_thread": None,
}
# What has no part in what the library does, or cannot tell a mutant from the original: the build of
# a client with other flags, a debugger that reads another library's names.
LEFT_OUT_TESTS = re.compile(r"^(GdbTest|planted_fits|package|tidy|RunTest|soak|EnduranceTest\.)")
# What only compiles, and these mutants' own tests.
LEFT_OUT_FOLDERS = ("tests/headers/CMakeLists.txt", "tests/mutants/CMakeLists.txt")
# Macros that declare what ends with the scope that they stand in.
DECLARING = re.compile(r"BLOG_TRACE_SCOPE\(")
PATIENCE_SECONDS = 10
PATIENCE_FACTOR = 5
LONGEST_TEST_SECONDS = 20
EXPLORER_SECONDS = 60
# The builds that survivors are tried under, how much slower they are, and which kinds they are for.
SANITIZERS = {"tsan": ("thread", 10, KINDS_OF_LOCKS), "asan": ("address,undefined", 4, None)}
FILTER_LENGTH = 150


def fail(text):
    sys.exit(f"mutants: {text}")


def say(text):
    print(f"mutants: {text}", flush=True)


def digest_of(names):
    total = hashlib.sha256()
    for name in sorted(names):
        total.update(name.encode() + b"\0")
        total.update((ROOT / name).read_bytes())
    return total.hexdigest()[:16]


def tracked():
    listed = subprocess.run(["git", "-C", ROOT, "ls-files", "-z", "--cached", "--others",
                             "--exclude-standard"], check=True, stdout=subprocess.PIPE).stdout
    return [name for name in listed.decode().split("\0") if name and (ROOT / name).is_file()]


def write_if_changed(path, data):
    if not path.exists() or path.read_bytes() != data:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)


# ---- which mutants there are ----

@dataclasses.dataclass
class Entry:
    """A mutant and where it stands."""
    number: int
    file: str
    line: int
    function: str
    kind: str
    original: str
    mutated: str
    key: str = ""
    text: str = ""  # Of its line.

    def group(self):
        if self.kind in KINDS_OF_LOCKS:
            return "locks"
        for prefix, functions in LOCKS.items():
            if self.file.startswith(prefix) and \
                    (functions is None or re.search(functions, self.function)):
                return "locks"
        return "rest"

    def __str__(self):
        return f"{self.file}:{self.line}: {self.function}: {self.original} -> " \
            f"{self.mutated or '(nothing)'}"


def flags():
    folders = ["pubinc", "src", "platform/zor_debug/include"]
    return ["-std=c++17", "-D_FILE_OFFSET_BITS=64", "-DTEVALON_BASE_BLOCK_CACHE=1", "-w"] + \
        [f"-I{ROOT / folder}" for folder in folders]


def find_in(unit_name, headers):
    """The sites of one translation unit, by file."""
    names = [unit_name] + headers if unit_name else headers
    if unit_name:
        unit = edits.parse(str(ROOT / unit_name), flags())
    else:
        path = str(ROOT / "all_headers.cpp")
        unit = edits.parse(path, flags(),
                           {path: "".join(f'#include "{ROOT / name}"\n' for name in headers)})
    included = {str(item.include) for item in unit.get_includes()} | {str(ROOT / unit_name)}
    result = {}
    for name in names:
        path = str(ROOT / name)
        if path in included:
            finder = edits.Finder(path, (ROOT / name).read_text())
            finder.look_at(unit)
            result[name] = (finder.sites, finder.text)
    return result


def find_sites(names):
    """All sites of the library, by file, and the text of each file."""
    headers = [name for name in names if name.endswith(".h")]
    units = [name for name in names if name.endswith(".cpp") and "crc_arm" not in name and
             "no_diagnostics" not in name]
    # Each header once, from whichever unit has it.
    public = [name for name in headers if name.startswith("pubinc/")]
    private = [name for name in headers if name.startswith("src/") and "crc_arm" not in name and
               "crc_folding" not in name]
    sites, texts = {}, {}
    with concurrent.futures.ProcessPoolExecutor(os.cpu_count()) as pool:
        jobs = [pool.submit(find_in, "", public + private)] + \
            [pool.submit(find_in, unit, []) for unit in units]
        for job in jobs:
            for name, (found, text) in job.result().items():
                texts[name] = text
                sites.setdefault(name, {}).update(found)
    return {name: edits.nested(found.values()) for name, found in sites.items()}, texts


def number_mutants(sites, texts):
    entries = []
    seen = collections.Counter()
    for name in sorted(sites):
        for site in sites[name]:
            for mutant in site.mutants:
                mutant.number = len(entries) + 1
                line = texts[name][:site.start].count("\n") + 1
                entry = Entry(mutant.number, name, line, site.function, mutant.kind, site.original,
                              mutant.mutated)
                base = "|".join((name, site.function, mutant.kind, site.original, mutant.mutated))
                seen[base] += 1
                entry.key = f"{base}|{seen[base]}"
                entry.text = texts[name].split("\n")[line - 1].strip()
                entries.append(entry)
    return entries


# ---- the build ----

class Build:
    """A copy of the tree with all mutants in it, built."""

    def __init__(self, folder):
        self.folder = folder
        self.tree = folder / "source"
        self.names = tracked()
        self.library = [name for name in self.names if name.startswith(MUTATED) and
                        name.endswith((".cpp", ".h"))]
        self.digest = digest_of(self.library + [str(HERE.relative_to(ROOT) / "edits.py")])
        self.tests_digest = digest_of([name for name in self.names
                                       if name.startswith(SOURCES_OF_TESTS) and
                                       not name.startswith("tests/mutants/")])
        self.dropped_file = folder / "dropped.json"
        self.dropped = set()
        if self.dropped_file.exists():
            known = json.loads(self.dropped_file.read_text())
            if known["digest"] == self.digest:
                self.dropped = set(known["numbers"])
        self.spans = {}

    def find(self):
        cache = self.folder / "sites.pickle"
        known = pickle.loads(cache.read_bytes()) if cache.exists() else {}
        if known.get("digest") != self.digest:
            say("looking for mutants")
            sites, texts = find_sites(self.library)
            known = {"digest": self.digest, "sites": sites, "texts": texts}
            cache.write_bytes(pickle.dumps(known))
        self.sites, self.texts = known["sites"], known["texts"]
        self.entries = number_mutants(self.sites, self.texts)
        self.dropped |= {entry.number for entry in self.entries if DECLARING.match(entry.original)}

    def drop(self, numbers):
        self.dropped |= set(numbers)
        self.dropped_file.write_text(json.dumps({"digest": self.digest,
                                                 "numbers": sorted(self.dropped)}))

    def write(self):
        for name in self.names:
            data = (ROOT / name).read_bytes()
            if name in self.sites:
                data = self.mutated(name)
            elif name in LEFT_OUT_FOLDERS:
                data = b""
            write_if_changed(self.tree / name, data)
        wanted = {str(self.tree / name) for name in self.names}
        for path in self.tree.rglob("*"):
            if path.is_file() and str(path) not in wanted:
                path.unlink()

    def mutated(self, name):
        sites = []
        for site in self.sites[name]:
            kept = [mutant for mutant in site.mutants if mutant.number not in self.dropped]
            sites.append(dataclasses.replace(site, mutants=kept))
        text, spans = edits.rendered(self.texts[name], sites)
        self.spans[name] = (text, spans)
        return text.encode("latin-1")

    def wrong_ones(self, output):
        """Which mutants the compiler's errors are about: the innermost around each."""
        wrong = set()
        place = re.compile(r"\b" + self.tree.name + r"/([\w/.]+):(\d+):(\d+):")
        lines = output.splitlines()
        for index, line in enumerate(lines):
            if ": error:" not in line and ": note:" not in line and "required from" not in line:
                continue
            if ": error:" not in line and wrong:
                continue
            found = place.search(line)
            if not found and ": error:" in line:
                # In a header of somebody else: what it was used by stands before.
                for earlier in reversed(lines[max(0, index - 30):index]):
                    found = place.search(earlier)
                    if found and found[1] in self.spans:
                        break
            if not found or found[1] not in self.spans:
                continue
            text, spans = self.spans[found[1]]
            start = sum(len(part) + 1 for part in text.split("\n")[:int(found[2]) - 1])
            position = start + int(found[3]) - 1
            around = [(end - begin, numbers) for begin, end, numbers in spans
                      if begin <= position < end]
            if around:
                wrong |= set(min(around)[1])
            else:
                line_end = text.find("\n", start)
                wrong |= {number for begin, end, numbers in spans
                          if begin < line_end and end > start for number in numbers}
        return wrong

    def configure(self, name, *options):
        folder = self.folder / name
        if not (folder / "build.ninja").exists():
            say(f"configuring {name}")
            include = HERE / "mutant.h"
            self.must("cmake", "--preset", "dev", "-B", str(folder), "-DTEVALON_BASE_STRICT=OFF",
                      "-DCMAKE_CXX_FLAGS_DEBUG=-g1", "-DTEVALON_BASE_INSTALL=OFF",
                      f"-DCMAKE_CXX_FLAGS=-include {include} -w -Wno-narrowing", *options)
        return folder

    def must(self, *command):
        result = subprocess.run(command, cwd=self.tree, text=True, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, check=False)
        if result.returncode != 0:
            fail(f"{' '.join(command)} fails:\n{result.stdout[-4000:]}")

    def build(self, folder, *targets):
        """Until it compiles: a mutant that does not is left out."""
        say(f"building {folder.name} {' '.join(targets)}")
        while True:
            command = ["cmake", "--build", str(folder), "--parallel", str(os.cpu_count())]
            result = subprocess.run(command + (["--target", *targets] if targets else []) +
                                    ["--", "-k", "0"], text=True, stdout=subprocess.PIPE,
                                    stderr=subprocess.STDOUT, check=False)
            if result.returncode == 0:
                return
            wrong = self.wrong_ones(result.stdout) - self.dropped
            if not wrong:
                (self.folder / "build.log").write_text(result.stdout)
                fail(f"the build fails, and not for a mutant: see {self.folder}/build.log")
            say(f"{len(wrong)} mutants do not compile")
            self.drop(wrong)
            self.write()


# ---- the tests ----

@dataclasses.dataclass
class Test:
    """One of the suite's, or a scenario of the explorer's."""
    name: str
    command: list
    folder: str
    environment: dict
    program: str = ""  # Of GoogleTest, with the filter below.
    filter: str = ""
    seconds: float = 0.0
    reached: frozenset = frozenset()


def list_tests(folder):
    shown = subprocess.run(["ctest", "--show-only=json-v1"], cwd=folder, check=True,
                           stdout=subprocess.PIPE, text=True).stdout
    tests, names = [], collections.Counter()
    for item in json.loads(shown)["tests"]:
        if "command" not in item or LEFT_OUT_TESTS.search(item["name"]):
            continue
        properties = {entry["name"]: entry["value"] for entry in item.get("properties", [])}
        if properties.get("DISABLED"):
            continue
        environment = dict(pair.split("=", 1) for pair in properties.get("ENVIRONMENT", []))
        test = Test(item["name"], item["command"],
                    properties.get("WORKING_DIRECTORY", str(folder)), environment)
        for argument in item["command"][1:]:
            if argument.startswith("--gtest_filter="):
                test.program, test.filter = item["command"][0], argument[len("--gtest_filter="):]
                test.name = f"{pathlib.PurePath(test.program).name}: {test.filter}"
        # Of some there are two by one name, for two processors or with two settings.
        names[test.name] += 1
        if names[test.name] > 1:
            test.name += f" ({names[test.name]})"
        tests.append(test)
    return tests


def list_scenarios(folder):
    tests = []
    for program in sorted((folder / "explore").glob("explore_*")):
        names = subprocess.run([program, "--list"], check=True, stdout=subprocess.PIPE, text=True)
        tests += [Test(f"explore.{name}", [str(program), name], str(folder), {})
                  for name in names.stdout.split()]
    return tests


def fixed_addresses():
    """The thread sanitizer of GCC 12 cannot live with the address randomisation of newer kernels."""
    return ["setarch", os.uname().machine, "-R"]


RUNNING = set()  # The first processes of the sessions that tests run in.


def end_all(number, _frame):
    """What was started ends with this process, when that is interrupted."""
    for leader in list(RUNNING):
        try:
            os.killpg(leader, signal.SIGKILL)
        except ProcessLookupError:
            pass
    os._exit(128 + number)


def run(command, folder, environment, seconds):
    """The status, None where it took too long, and what was printed last. With its own session, which
    goes with it."""
    with tempfile.TemporaryFile() as output, tempfile.TemporaryDirectory() as temporary:
        variables = {**os.environ, "TMPDIR": temporary, **environment}
        with subprocess.Popen(command, cwd=folder, env=variables, stdin=subprocess.DEVNULL,
                              stdout=output, stderr=subprocess.STDOUT,
                              start_new_session=True) as process:
            RUNNING.add(process.pid)
            try:
                status = process.wait(seconds)
            except subprocess.TimeoutExpired:
                status = None
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            process.wait()
            RUNNING.discard(process.pid)
        output.seek(0, os.SEEK_END)
        output.seek(max(0, output.tell() - 200000))
        return status, output.read().decode(errors="replace")


class Suite:
    """The tests of the build, and which of them reach what."""

    def __init__(self, build, folder):
        self.build = build
        self.folder = folder
        self.cache = build.folder / "reach.json"
        self.programs = {}

    def key(self, test):
        """Of what a test's result depends on."""
        program = test.program or test.command[0]
        if program not in self.programs:
            is_built = program.startswith(str(self.build.folder))
            self.programs[program] = hashlib.sha256(
                pathlib.Path(program).read_bytes()).hexdigest()[:16] if is_built \
                else self.build.tests_digest
        return f"{self.build.digest} {self.programs[program]}"

    def measure(self):
        tests = list_tests(self.folder) + list_scenarios(self.folder)
        known = json.loads(self.cache.read_text()) if self.cache.exists() else {}
        todo = [test for test in tests
                if known.get(test.name, {}).get("key") != self.key(test) or
                not known[test.name]["good"] and known[test.name]["dropped"] != self.dropped()]
        if todo:
            say(f"running {len(todo)} tests one by one, to see what each reaches")
            with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
                for test, result in zip(todo, pool.map(self.try_alone, todo)):
                    known[test.name] = {"key": self.key(test), "dropped": self.dropped(), **result}
            self.cache.write_text(json.dumps(known))
        self.tests, unfit = [], []
        for test in tests:
            result = known[test.name]
            if not result["good"]:
                unfit.append(test.name)
            elif result["reached"]:
                test.seconds = result["seconds"]
                test.reached = frozenset(result["reached"])
                self.tests.append(test)
        self.unfit = unfit
        say(f"{len(self.tests)} tests reach mutants; left out, for they fail or take too long "
            f"without one: {' '.join(unfit) or 'none'}")
        self.by_mutant = collections.defaultdict(list)
        for test in self.tests:
            for number in test.reached:
                self.by_mutant[number].append(test)

    def dropped(self):
        return hashlib.sha256(str(sorted(self.build.dropped)).encode()).hexdigest()[:16]

    def try_alone(self, test):
        with tempfile.NamedTemporaryFile(dir=self.build.folder) as table:
            table.truncate(1 << 16)
            begin = time.monotonic()
            status, _ = run(test.command, test.folder,
                            {**test.environment, "MUTANTS_REACHED": table.name},
                            LONGEST_TEST_SECONDS if not test.name.startswith("explore.")
                            else EXPLORER_SECONDS)
            seconds = time.monotonic() - begin
            table.seek(0)
            reached = [number for number, mark in enumerate(table.read()) if mark]
        return {"good": status == 0, "seconds": seconds, "reached": reached}


class Trial:
    """Tries one mutant."""

    def __init__(self, suite, sanitized, entry):
        self.suite = suite
        self.sanitized = sanitized  # Builds by their names.
        self.entry = entry
        self.environment = {"MUTANT": str(entry.number)}

    def outcome(self):
        """The test that finds it, or None."""
        tests = self.suite.by_mutant.get(self.entry.number, [])
        ordinary = [test for test in tests if not test.name.startswith("explore.")]
        found = self.by_tests(ordinary, self.suite.folder, [], 1)
        if found is None and self.entry.group() == "locks":
            found = self.by_scenarios(sorted((test for test in tests if test not in ordinary),
                                             key=lambda test: test.seconds))
        for name, folder in self.sanitized.items():
            _, factor, kinds = SANITIZERS[name]
            if found is None and (kinds is None or self.entry.kind in kinds):
                there = [test for test in ordinary if test.program and
                         pathlib.Path(self.moved(test, folder, [])[0]).exists()]
                found = self.by_tests(there, folder, fixed_addresses(), factor)
                found = found and f"{found} ({name})"
        return found

    def affinity(self, test):
        """Programs that are named as the file or its folder is come first."""
        path = pathlib.PurePath(self.entry.file)
        name = pathlib.PurePath(test.program or test.name).name
        return 0 if name.startswith(path.stem) else 1 if name.startswith(path.parent.name) else 2

    def by_tests(self, tests, folder, prefix, factor):
        groups = collections.defaultdict(list)
        for test in tests:
            # What one process can run: without a filter every test is a group of its own.
            groups[tuple(test.command) if not test.filter else
                   tuple(part for part in test.command if not part.startswith("--gtest_filter=")),
                   tuple(test.environment.items())].append(test)
        order = sorted(groups.values(), key=lambda group: (self.affinity(group[0]),
                                                           sum(test.seconds for test in group)))
        for group in order:
            group.sort(key=lambda test: (test.seconds, len(test.reached)))
            for start in range(0, len(group), FILTER_LENGTH):
                found = self.by_group(group[start:start + FILTER_LENGTH], folder, prefix, factor)
                if found:
                    return found
        return None

    def moved(self, test, folder, prefix):
        """The same test of another build."""
        return prefix + [part.replace(str(self.suite.folder), str(folder)) for part in test.command]

    def by_group(self, group, folder, prefix, factor):
        left = list(group)
        while left:
            seconds = PATIENCE_SECONDS + PATIENCE_FACTOR * factor * sum(test.seconds
                                                                        for test in left)
            command = self.moved(left[0], folder, prefix)
            if left[0].filter and len(left) > 1:
                together = ":".join(test.filter for test in left)
                command = [f"--gtest_filter={together}" if part.startswith("--gtest_filter=")
                           else part for part in command] + ["--gtest_fail_fast"]
            status, text = run(command, left[0].folder, {**left[0].environment, **self.environment},
                               seconds)
            if status == 0:
                return None
            suspect = self.suspect(left, text)
            if self.repeats(suspect, folder, prefix, factor):
                return suspect.name + (" (hangs)" if status is None else "")
            # It disturbed another in the same process, or was seen by chance: on with the rest.
            if suspect not in left:
                return None
            left.remove(suspect)
        return None

    @staticmethod
    def suspect(tests, text):
        """The one that ran last."""
        names = re.findall(r"^\[ (?:RUN     |  FAILED ) \] ([\w/.]+)", text, re.M)
        begun = re.findall(r"^\[ RUN      \] ([\w/.]+)", text, re.M)
        failed = re.findall(r"^\[  FAILED  \] ([\w/.]+) \(\d+ ms\)", text, re.M)
        wanted = (failed or begun or names or [""])[0 if failed else -1]
        return next((test for test in tests if test.filter == wanted), tests[0])

    def repeats(self, test, folder, prefix, factor):
        """Alone, and not for a busy machine: it did not fail without the mutant."""
        for _ in range(3):
            status, _ = run(self.moved(test, folder, prefix), test.folder,
                            {**test.environment, **self.environment},
                            PATIENCE_SECONDS + PATIENCE_FACTOR * factor * test.seconds)
            if status != 0:
                clean, _ = run(self.moved(test, folder, prefix), test.folder, test.environment,
                               PATIENCE_SECONDS + PATIENCE_FACTOR * factor * test.seconds)
                return clean == 0
        return False

    def by_scenarios(self, tests):
        for test in tests:
            status, _ = run(test.command, test.folder, {**test.environment, **self.environment},
                            PATIENCE_SECONDS + PATIENCE_FACTOR * test.seconds)
            if status != 0:
                return test.name
        return None


# ---- the account ----

class Equivalent:
    """equivalent.txt: paragraphs of file, function, original, mutated and reason; with the text of the
    line where a function has several of the kind."""

    FIELDS = {"file", "function", "original", "mutated", "reason"}

    def __init__(self, path):
        self.paragraphs = []
        for number, paragraph in enumerate(re.split(r"\n\s*\n", path.read_text())):
            lines = [line for line in paragraph.splitlines() if line and not line.startswith("#")]
            if not lines:
                continue
            fields = dict(line.split(": ", 1) for line in lines if ": " in line)
            if set(fields) - {"line"} != self.FIELDS or len(fields) != len(lines):
                fail(f"{path}: paragraph {number + 1} lacks a field, or has one too many")
            self.paragraphs.append(fields)

    @staticmethod
    def fits(fields, entry):
        return (fields["file"], fields["function"], fields["original"], fields["mutated"]) == \
            (entry.file, entry.function, entry.original, entry.mutated or "(nothing)") and \
            fields.get("line", entry.text) == entry.text

    def reason(self, entry):
        return next((fields["reason"] for fields in self.paragraphs if self.fits(fields, entry)), None)

    def unknown(self, entries):
        """Those that fit no mutant of the sources, or several."""
        return [fields for fields in self.paragraphs
                if sum(self.fits(fields, entry) for entry in entries) != 1]


class Results:
    """What was found so far, of these sources."""

    def __init__(self, build, means):
        self.means = sorted(means)  # The sanitized builds.
        self.path = build.folder / "results" / f"{build.digest}.jsonl"
        self.path.parent.mkdir(exist_ok=True)
        self.tests_digest = build.tests_digest
        self.known = {}
        self.lock = threading.Lock()
        if self.path.exists():
            for line in self.path.read_text().splitlines():
                item = json.loads(line)
                self.known[item["key"]] = item

    def of(self, entry):
        item = self.known.get(entry.key)
        if item is None or item["found"]:
            return item
        is_tried = item["tests"] == self.tests_digest and set(self.means) <= set(item.get("means", []))
        return item if is_tried else None

    def put(self, entry, found, seconds):
        item = {"key": entry.key, "found": found, "seconds": round(seconds, 1),
                "tests": self.tests_digest, "means": self.means}
        with self.lock:
            self.known[entry.key] = item
            with open(self.path, "a", encoding="utf-8") as file:
                file.write(json.dumps(item) + "\n")
        return item


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
        survivors = [entry for entry in counted if not results.of(entry)["found"]]
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
    parser.add_argument("--plain", action="store_true", help="without the sanitizers' builds")
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
    build.build(plain, "scenarios")
    entries = chosen(arguments, [entry for entry in build.entries
                                 if entry.number not in build.dropped])
    sanitized = {}
    for name, (sanitizer, _, _) in SANITIZERS.items():
        if not arguments.plain:
            sanitized[name] = build.configure(name, f"-DTEVALON_BASE_SANITIZE={sanitizer}")
            build.build(sanitized[name])
    suite = Suite(build, plain)
    suite.measure()
    results = Results(build, sanitized)
    todo = [entry for entry in entries
            if results.of(entry) is None and not equivalent.reason(entry)]
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

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for _ in pool.map(work, todo):
            pass
    if not report(entries, results, equivalent):
        sys.exit(1)


if __name__ == "__main__":
    main()
