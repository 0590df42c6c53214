"""Runs of faults_program: what each reports, and which there are to be."""

import collections
import json
import os
import shutil
import subprocess
import sys
import tempfile

from errors import ERRORS, LATER, LOCKS, SYSTEM_CALLS, number

# count: how often while it could fail.
Use = collections.namedtuple("Use", "scenario key call count alive site frames")
Plan = collections.namedtuple("Plan", "scenario key call use error later")


class Report:
    """What faults_program has reported."""

    def __init__(self, text, status, errors, hangs=False):
        self.status = status
        self.errors = errors
        self.hangs = hangs
        self.lines = []  # ("say" or "log", stage, text)
        self.uses = []
        self.failed = None
        self.alive = self.descriptors = None  # Of the blocks those that nobody keeps for later.
        self.kept = 0
        self.is_complete = False
        for line in text.splitlines():
            word, _, rest = line.partition(" ")
            if word in ("say", "log"):
                stage, _, what = rest.partition(" ")
                self.lines.append((word, int(stage), what))
            elif word == "call":
                self.uses.append(rest.split(" "))
            elif word == "failed":
                self.failed = rest
            elif word == "alive":
                self.alive = int(rest)
            elif word == "descriptors":
                self.descriptors = int(rest)
            elif word == "end":
                self.is_complete = True


    def tell_apart(self, keepers):
        """Blocks that come from these places are kept for later, more or fewer."""
        self.kept = sum(int(alive) for _, _, _, _, _, alive, *chain in self.uses
                        if chain[0] in keepers)
        if self.alive is not None:
            self.alive -= self.kept


class Runner:
    def __init__(self, program, sites):
        self.program = program
        self.keepers = {f"{site.module}:{address:x}" for site in sites for address in site.returns_to
                        if "BlockCache::allocate" in site.where}
        self.architecture = os.uname().machine
        self.later = ",".join(f"{name}={number(error)}" for name, error in LATER.items())

    def start(self, scenario, blocks, *plan, patience_ms=500):
        folder = tempfile.mkdtemp(prefix="faults.")
        try:
            with (tempfile.TemporaryFile("w+", errors="backslashreplace") as output,
                  tempfile.TemporaryFile("w+", errors="backslashreplace") as errors):
                environment = {name: value for name, value in os.environ.items()
                               if not name.startswith("ZOR_DEBUG") and name != "NO_COLOR"}
                environment["FAULTS_PATIENCE_MS"] = str(patience_ms)
                process = subprocess.Popen([self.program, scenario, str(blocks), *plan], cwd=folder,
                                           stdin=subprocess.DEVNULL, stdout=output, stderr=errors,
                                           env=environment)
                hangs = False
                try:
                    process.wait(timeout=45)
                except subprocess.TimeoutExpired:
                    hangs = True
                    process.kill()
                    process.wait()
                output.seek(0)
                errors.seek(0)
                report = Report(output.read(), process.returncode, errors.read(), hangs)
                report.tell_apart(self.keepers)
                return report
        finally:
            shutil.rmtree(folder, ignore_errors=True)

    def name_of(self, call, call_number):
        if call != "syscall":
            return call
        names = SYSTEM_CALLS.get(self.architecture, {})
        return f"syscall({names.get(int(call_number), call_number)})"

    def run(self, plan, baseline, patience_ms):
        text = f"{plan.key}:{plan.use}:{number(plan.error)}" + (":later" if plan.later else "")
        return self.start(plan.scenario, baseline.alive + baseline.kept, text, self.later,
                          patience_ms=patience_ms)


def later_sites(report):
    """What failed after the first failure, with what."""
    sites = set()
    for call, _, _, _, failures, _, *chain in report.uses:
        if int(failures) > 0:
            module, offset = chain[0].split(":")
            sites.add((module, int(offset, 16), LATER[call]))
    return sorted(sites)


class Baseline:
    """A scenario without failures."""

    def __init__(self, runner, scenario):
        # With patience: what it has not seen by then nobody expects of the other runs.
        reports = [runner.start(scenario, -1, patience_ms=10000) for _ in range(3)]
        for report in reports:
            if report.status != 0 or not report.is_complete:
                sys.exit(f"faults: '{scenario}' fails by itself: status {report.status}, "
                         f"{report.errors}")
        self.scenario = scenario
        self.lines = reports[0].lines
        self.alive = max(report.alive for report in reports)
        self.kept = max(report.kept for report in reports)
        self.descriptors = max(report.descriptors for report in reports)
        self.uses = {}
        for report in reports:
            for call, call_number, key, count, _, alive, *chain in report.uses:
                frames = [(module, int(offset, 16)) for module, offset in
                          (frame.split(":") for frame in chain)]
                use = Use(scenario, key, runner.name_of(call, call_number), int(count), int(alive),
                          frames[0], frames)
                known = self.uses.get(key)
                if known is None or known.count > use.count:
                    self.uses[key] = use


def plan_runs(baselines, everything, place):
    """All runs, or those in which each call fails once, each place in our sources that leads to a
    site with each error, and each site in each scenario with all later calls failing as well."""
    plans = []
    seen = set()

    def add(use, nth, error, later=False):
        plan = Plan(use.scenario, use.key, use.call, nth, error, later)
        if plan not in seen:
            seen.add(plan)
            plans.append(plan)

    if everything:
        for baseline in baselines:
            for use in baseline.uses.values():
                errors = ERRORS.get(use.call, [])
                for nth in chosen_uses(use.count):
                    for error in errors:
                        add(use, nth, error)
                    if errors and use.call not in LOCKS:
                        add(use, nth, errors[0], True)
        return plans

    places = set()
    visited = set()
    for baseline in baselines:
        for use in sorted(baseline.uses.values(), key=lambda u: u.frames):
            errors = ERRORS.get(use.call, []) if use.count > 0 else []
            for error in errors:
                if (place(use), error) not in places:
                    places.add((place(use), error))
                    add(use, 1, error)
            if errors:
                add(use, 1, errors[0])
            if errors and (use.scenario, use.site) not in visited:
                visited.add((use.scenario, use.site))
                if use.call not in LOCKS:
                    add(use, 1, errors[0], True)
    return plans


def chosen_uses(count):
    """Every one, where there are few; of many the first, some between and the last."""
    if count <= 6:
        return range(1, count + 1)
    return sorted({1, 2, 3, count // 2, count - 1, count})


class State:
    """What is through already, by plan."""

    def __init__(self, path, build):
        self.path = path
        self.done = {}
        if path is None:
            return
        if os.path.exists(path):
            with open(path, encoding="utf-8") as file:
                lines = file.read().splitlines()
            if lines and lines[0] == build:
                self.done = {json.dumps(json.loads(line)[0]): json.loads(line)[1]
                             for line in lines[1:]}
        if not self.done:
            with open(path, "w", encoding="utf-8") as file:
                file.write(build + "\n")

    def known(self, plan):
        return self.done.get(json.dumps(plan))

    def keep(self, plan, problems):
        self.done[json.dumps(plan)] = problems
        if self.path is not None:
            with open(self.path, "a", encoding="utf-8") as file:
                file.write(json.dumps([plan, problems]) + "\n")
