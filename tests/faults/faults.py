#!/usr/bin/python3
"""Makes each call that can fail fail, and judges what the library makes of it.

    faults.py [--all | --runs] [--state FILE] [--scenario TEXT] [--verbose] BUILD_FOLDER

For each scenario of faults_program: runs it once to count the calls that the library makes into the
system and the C library, then once for each call and each error that it can plausibly give with
that call failing, then once with that call and all later ones failing. Each time in a new process.

Then the call sites: each call in the built libraries' machine code of a function that can fail,
with the errors that it was made to give. One that none was given fails the run, unless
unreached.txt lists it with a reason.

With --runs no more than the runs: for libraries that contain calls of a compiler's runtime.

Without --all a choice that takes two minutes and reaches every site. With --all what is through
is kept in the state file, and not done again while the build is the same.
"""

import argparse
import collections
import concurrent.futures
import hashlib
import os
import subprocess
import sys
import time

from call_sites import Symbols, find_sites, print_table, read_unreached
from errors import CANNOT_FAIL
from expectations import judge
from runs import Baseline, Runner, State, later_sites, plan_runs

FOLDER = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(FOLDER))
SCRIPTS = [os.path.join(FOLDER, name)
           for name in ("faults.py", "call_sites.py", "errors.py", "expectations.py", "runs.py")]


def digest_of(paths):
    digest = hashlib.sha256()
    for path in paths:
        with open(path, "rb") as file:
            digest.update(file.read())
    return digest.hexdigest()


class Build:
    """The libraries and the program of one build."""

    def __init__(self, folder, all_calls_are_known):
        self.table = os.path.join(folder, "faults.txt")
        self.files = {"base": os.path.join(folder, "libtevalon-base.so"),
                      "zor": os.path.join(folder, "platform/zor_debug/libzor-debug.so"),
                      "program": os.path.join(folder, "tests/faults/faults_program")}
        self.symbols = {module: Symbols(path) for module, path in self.files.items()}
        self.sites = [site for module in ("base", "zor")
                      for site in find_sites(module, self.files[module], self.symbols[module], ROOT,
                                             all_calls_are_known)]

    def scenarios(self, text):
        """Those with this text in their names."""
        names = subprocess.run([self.files["program"], "--list"], check=True, text=True,
                               stdout=subprocess.PIPE).stdout.splitlines()
        return [name for name in names if text is None or text in name]

    def is_for_races(self):
        """Whether it is built for the thread sanitizer."""
        with open(self.files["base"], "rb") as file:
            return b"__tsan_func_entry" in file.read()

    def look_up(self, baselines):
        """The names of all functions that lead to a call, at once."""
        for module in self.files:
            self.symbols[module].look_up({frame[1] - 1 for baseline in baselines
                                          for use in baseline.uses.values()
                                          for frame in use.frames if frame[0] == module})

    def functions(self, use):
        """On the stack, innermost first."""
        return [name for module, offset in use.frames
                for name, _ in self.symbols[module].frames(offset - 1)]

    def place(self, use):
        """The site, and the first function on the way to it that is no inline one's."""
        for module, offset in use.frames:
            outermost = self.symbols[module].frames(offset - 1)[-1]
            if outermost[1].rsplit(":", 1)[0].endswith(".cpp"):
                return use.call, use.site, module, offset
        return use.call, use.site


class Trial:
    """All runs of some scenarios, and what they have reached."""

    def __init__(self, build, options, pool):
        self.build = build
        self.pool = pool
        self.runner = Runner(build.files["program"], build.sites)
        baselines = pool.map(lambda name: Baseline(self.runner, name),
                             build.scenarios(options.scenario))
        self.baselines = {baseline.scenario: baseline for baseline in baselines}
        build.look_up(self.baselines.values())
        self.plans = [self.with_kept_lock(plan) for plan in
                      plan_runs(self.baselines.values(), options.all, build.place)]
        if build.is_for_races():
            # What is thrown in a destructor ends such a build without a word of what it was.
            self.plans = [plan for plan in self.plans
                          if (plan.call, plan.error) != ("pthread_mutex_lock", "EINVAL")]
        self.state = State(options.state,
                           digest_of([*build.files.values(), *SCRIPTS]) if options.all else "")
        self.reached = collections.defaultdict(set)
        self.failures = 0
        self.missed = 0  # By chance the call was not made.

    def with_kept_lock(self, plan):
        """A guard whose lock fails goes on, and unlocks: what another thread may hold, unless it is
        locked in truth."""
        if plan.call == "pthread_mutex_lock":
            functions = self.build.functions(self.baselines[plan.scenario].uses[plan.key])
            if any("lockOrLog" in function for function in functions):
                return plan._replace(error=plan.error + "+")
        return plan

    def execute(self, plan):
        known = self.state.known(plan)
        if known is not None:
            return plan, known[0], known[1]
        baseline = self.baselines[plan.scenario]
        use = baseline.uses[plan.key]
        # Once more, with more patience: the machine may have been busy. A crash counts at once.
        for patience_ms in (500, 500, 3000):
            report = self.runner.run(plan, baseline, patience_ms)
            if report.failed is None:
                continue
            problems = judge(plan, self.build.functions(use), baseline, report)
            if not problems or report.status != 0:
                break
        if report.failed is None:
            return plan, None, None
        return plan, problems, later_sites(report)

    def run(self, ends_with_first_failure):
        for plan, problems, others in self.pool.map(self.execute, self.plans):
            if others is None:
                self.missed += 1
                continue
            if self.state.known(plan) is None:
                self.state.keep(plan, [problems, others])
            use = self.baselines[plan.scenario].uses[plan.key]
            self.reached[use.site].add(plan.error)
            for module, offset, error in others:
                self.reached[module, offset].add(error)
            if problems:
                self.failures += 1
                self.tell(plan, use, problems)
            if problems and ends_with_first_failure:
                sys.stdout.flush()
                self.pool.shutdown(wait=False, cancel_futures=True)
                os._exit(1)

    def tell(self, plan, use, problems):
        later = " and all later calls" if plan.later else ""
        print(f"faults: '{plan.scenario}': {plan.call} ({plan.error}, use {plan.use}){later}")
        print(f"    in {' < '.join(self.build.functions(use))}")
        for problem in problems:
            print(f"    {problem}")

    def write_table(self):
        """Of the sites; false where one was reached by none and has no reason."""
        infallible = {use.site: use.call for baseline in self.baselines.values()
                      for use in baseline.uses.values() if use.call in CANNOT_FAIL}
        unreached = read_unreached(os.path.join(FOLDER, "unreached.txt"))
        with open(self.build.table, "w", encoding="utf-8") as file:
            return print_table(self.build.sites, self.reached, infallible, unreached, file)


def parsed_arguments():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n", maxsplit=1)[0])
    parser.add_argument("--all", action="store_true")
    parser.add_argument("--usual", action="store_true", help="only run what nothing fails in")
    parser.add_argument("--runs", action="store_true", help="do not look at the call sites")
    parser.add_argument("--first", action="store_true", help="end with the first failure")
    parser.add_argument("--state")
    parser.add_argument("--scenario")
    parser.add_argument("--verbose", action="store_true")
    parser.add_argument("--jobs", type=int, default=2 * os.cpu_count())
    parser.add_argument("build", type=os.path.abspath)
    return parser.parse_args()


def main():
    options = parsed_arguments()
    begin = time.monotonic()
    build = Build(options.build, not options.runs)
    trial = Trial(build, options, concurrent.futures.ThreadPoolExecutor(options.jobs))
    if options.usual:
        print(f"faults: {len(trial.baselines)} scenarios work")
        return
    trial.run(options.first)
    is_good = trial.failures == 0
    if options.scenario is None and not options.runs:
        is_good = trial.write_table() and is_good
        if options.verbose:
            with open(build.table, encoding="utf-8") as file:
                print(file.read())
    pairs = sum(len(errors) for errors in trial.reached.values())
    print(f"faults: {len(trial.baselines)} scenarios, {len(trial.plans)} runs ({trial.missed} without "
          f"the call), {len(build.sites)} call sites, {pairs} pairs of site and error, "
          f"{trial.failures} failures, {time.monotonic() - begin:.0f} s")
    sys.exit(0 if is_good else 1)


if __name__ == "__main__":
    main()
