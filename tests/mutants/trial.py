"""Tries one mutant."""
import collections
import pathlib
import re

from sites import KINDS_OF_LOCKS
from suite import fixed_addresses, run

PATIENCE_SECONDS = 10
PATIENCE_FACTOR = 5
FILTER_LENGTH = 150


def is_of_a_lock(entry):
    return entry.kind in KINDS_OF_LOCKS or "isLocked()" in entry.original


# The builds that survivors are tried under, how much slower they are, and which mutants they are for.
SANITIZERS = {"tsan": ("thread", 10, is_of_a_lock),
              "asan": ("address,undefined", 4, lambda entry: True)}
# Lest a race be taken for the mistake of the test that runs last.
AT_FIRST_REPORT = ["env", "TSAN_OPTIONS=halt_on_error=1"]


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
            _, factor, is_for = SANITIZERS[name]
            if found is None and is_for(self.entry):
                there = [test for test in ordinary if test.program and
                         pathlib.Path(self.moved(test, folder, [])[0]).exists()]
                found = self.by_tests(there, folder, [*fixed_addresses(), *AT_FIRST_REPORT],
                                      factor)
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
