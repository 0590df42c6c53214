"""The tests of a build with mutants, and which of them reach what."""
import collections
import concurrent.futures
import dataclasses
import hashlib
import json
import os
import pathlib
import re
import signal
import subprocess
import tempfile
import time

from tree import say

# What has no part in what the library does, or cannot tell a mutant from the original: the build of
# a client with other flags, a debugger that reads another library's names.
LEFT_OUT_TESTS = re.compile(r"^(GdbTest|planted_fits|package|tidy|RunTest|soak|EnduranceTest\.)")
LONGEST_TEST_SECONDS = 20
LONGEST_QUICK_TEST_SECONDS = 5  # Those that reach most of all mutants are longer.
EXPLORER_SECONDS = 60


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

    def __init__(self, build, folder, has_scenarios):
        self.build = build
        self.has_scenarios = has_scenarios
        self.longest_seconds = EXPLORER_SECONDS if has_scenarios else LONGEST_QUICK_TEST_SECONDS
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
        scenarios = list_scenarios(self.folder) if self.has_scenarios else []
        tests = list_tests(self.folder) + scenarios
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
            elif result["reached"] and result["seconds"] <= self.longest_seconds:
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
