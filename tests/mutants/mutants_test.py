"""The mutants of a small source: which there are, that they compile, and what is said of them."""
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

try:
    import edits  # noqa: E402
except ImportError:
    print("Skipped: there is no libclang for this Python")
    sys.exit()
from mutated_build import Build  # noqa: E402
from results import Equivalent, Found, Results  # noqa: E402
from sites import number_mutants  # noqa: E402
from suite import Test  # noqa: E402
import trial  # noqa: E402

SAMPLE = HERE / "sample.cpp"


class MutantsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.text = SAMPLE.read_text()
        finder = edits.Finder(str(SAMPLE), cls.text)
        finder.look_at(edits.parse(str(SAMPLE), ["-std=c++17"]))
        cls.sites = edits.nested(finder.sites.values())
        cls.entries = number_mutants({"sample.cpp": cls.sites}, {"sample.cpp": cls.text})
        cls.mutated, cls.spans = edits.rendered(cls.text, cls.sites)
        cls.folder = tempfile.TemporaryDirectory()
        cls.program = pathlib.Path(cls.folder.name) / "sample"
        source = pathlib.Path(cls.folder.name) / "sample.cpp"
        source.write_text(cls.mutated)
        subprocess.run([os.environ.get("CXX", "c++"), "-std=c++17", "-w", "-include",
                        HERE / "mutant.h", source, "-o", cls.program, "-pthread"], check=True)

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def of(self, function):
        return [(entry.kind, entry.original, entry.mutated) for entry in self.entries
                if entry.function == function]

    def number_of(self, function, mutated):
        return next(entry.number for entry in self.entries
                    if entry.function == function and entry.mutated == mutated)

    def test_a_guard_an_assignment_and_a_log_line_are_left_out_and_an_operator_is_another(self):
        self.assertEqual(self.of("added"), [
            ("lock", "const std::lock_guard<std::mutex> lock(g_mutex)", ""),
            ("statement", "g_sum = a + b;", ""),
            ("arithmetic", "a + b", "a - b"),
            ("statement", 'SAY("1 + 1", TWICE(a + 1));', "")])

    def test_operators_of_a_class_are_made_of_the_one_that_it_has(self):
        self.assertEqual(self.of("isShorter"), [
            ("comparison", "a < b", "!(a < b)"), ("comparison", "a < b", "b < a")])

    def test_conditions_and_constants_and_steps(self):
        self.assertEqual(self.of("counted"), [
            ("constant", "0", "1"),
            ("constant", "0", "1"),
            ("condition", "i < limit", "false"),
            ("comparison", "i < limit", "i <= limit"),
            ("comparison", "i < limit", "i >= limit"),
            ("arithmetic", "++i", "--i"),
            ("condition", "i == EINVAL || !(i % 2)", "false"),
            ("condition", "i == EINVAL || !(i % 2)", "true"),
            ("logical", "i == EINVAL || !(i % 2)", "i == EINVAL && !(i % 2)"),
            ("comparison", "i == EINVAL", "i != EINVAL"),
            ("logical", "!(i % 2)", "static_cast<bool>((i % 2))"),
            ("arithmetic", "i % 2", "i * 2"),
            ("constant", "2", "3"),
            ("constant", "2", "1"),
            ("statement", "continue;", ""),
            ("statement", "found += 2;", ""),
            ("arithmetic", "found += 2", "found -= 2"),
            ("constant", "2", "3"),
            ("constant", "2", "1"),
            ("condition", "limit > 0 && buffer[0] == 0", "false"),
            ("condition", "limit > 0 && buffer[0] == 0", "true"),
            ("logical", "limit > 0 && buffer[0] == 0", "limit > 0 || buffer[0] == 0"),
            ("comparison", "limit > 0", "limit >= 0"),
            ("comparison", "limit > 0", "limit <= 0"),
            ("constant", "0", "1"),
            ("comparison", "buffer[0] == 0", "buffer[0] != 0"),
            ("constant", "0", "1"),
            ("constant", "0", "1"),
            ("constant", "1", "2"),
            ("constant", "1", "0")])

    def test_what_the_compiler_evaluates_stays_as_it_is(self):
        self.assertEqual(self.of("folded"), [])

    def test_no_line_moves(self):
        self.assertEqual(self.mutated.count("\n"), self.text.count("\n"))
        where = [index for index, line in enumerate(self.text.splitlines()) if "neverCalled" in line]
        moved = [index for index, line in enumerate(self.mutated.splitlines())
                 if "neverCalled" in line]
        self.assertEqual(where, moved)

    def test_the_mutant_of_the_environment_is_the_one_that_runs(self):
        def status(number):
            return subprocess.run([self.program], env={"MUTANT": str(number)}, timeout=20,
                                  check=False).returncode
        self.assertEqual(status(0), 0)
        self.assertEqual(status(self.number_of("added", "a - b")), 1)
        self.assertEqual(status(self.number_of("isShorter", "b < a")), 1)
        self.assertEqual(status(self.number_of("neverCalled", "++a")), 0)

    def suite(self):
        """One test, with what it reaches."""
        class Suite:
            by_mutant = {}
            folder = self.folder.name
        test = Test("sample", [str(self.program)], self.folder.name, {})
        with tempfile.NamedTemporaryFile() as table:
            table.truncate(1 << 16)
            subprocess.run([self.program], env={"MUTANTS_REACHED": table.name}, check=True)
            test.reached = [number for number, mark in enumerate(table.read()) if mark]
        test.seconds = 0.1
        suite = Suite()
        for number in test.reached:
            suite.by_mutant[number] = [test]
        return suite

    def outcome(self, function, mutated):
        number = self.number_of(function, mutated)
        return trial.Trial(self.suite(), {}, self.entries[number - 1]).outcome()

    def test_a_mutant_is_found_where_a_test_fails(self):
        self.assertEqual(self.outcome("added", "a - b"), "sample")

    def test_a_mutant_that_hangs_is_found(self):
        trial.PATIENCE_SECONDS = 1
        self.assertEqual(self.outcome("counted", "--i"), "sample (hangs)")

    def test_a_mutant_survives_where_no_test_gets(self):
        reached = self.suite().by_mutant
        self.assertNotIn(self.number_of("neverCalled", "++a"), reached)
        self.assertIsNone(self.outcome("neverCalled", "++a"))

    def test_a_mutant_survives_where_the_test_does_not_look(self):
        number = self.number_of("counted", "i != EINVAL")
        self.assertIn(number, self.suite().by_mutant)
        self.assertIsNone(self.outcome("added", ""))  # The lock: there is but one thread.

    def test_a_compiler_error_is_that_of_the_innermost_mutant(self):
        build = Build.__new__(Build)
        build.tree = pathlib.Path("/somewhere/source")
        build.spans = {"sample.cpp": (self.mutated, self.spans)}
        number = self.number_of("isShorter", "b < a")
        at = self.mutated.index(f"is({number})") + len(f"is({number}) ? (")
        line = self.mutated[:at].count("\n") + 1
        column = at - self.mutated[:at].rfind("\n")
        told = f"../source/sample.cpp:{line}:{column}: error: no match for 'operator<'"
        self.assertEqual(build.wrong_ones(told), {number})

    def test_equivalent_ones_have_a_reason_and_fit_a_mutant(self):
        path = pathlib.Path(self.folder.name) / "equivalent.txt"
        path.write_text("# Comment.\n\nfile: sample.cpp\nfunction: added\n"
                        "original: g_sum = a + b;\nmutated: (nothing)\nreason: None: a test.\n")
        equivalent = Equivalent(path)
        entry = self.entries[self.number_of("added", "a - b") - 2]
        self.assertEqual(equivalent.reason(entry), "None: a test.")
        self.assertEqual(equivalent.unknown(self.entries), [])
        self.assertEqual(len(equivalent.unknown([])), 1)

    def results(self, means=(), tests="tests"):
        folder = pathlib.Path(self.folder.name)
        return Results(folder, tests, list(means), Found(folder / "found.txt"))

    def tearDown(self):
        for name in ("results.jsonl", "found.txt"):
            (pathlib.Path(self.folder.name) / name).unlink(missing_ok=True)

    def test_a_survivor_is_tried_again_by_other_tests_or_further_means(self):
        entry = self.entries[0]
        results = self.results()
        self.assertFalse(results.is_tried(entry))
        results.put(entry, None, 1.0)
        self.assertTrue(self.results().is_tried(entry))
        self.assertFalse(self.results(means=["asan"]).is_tried(entry))
        self.assertFalse(self.results(tests="others").is_tried(entry))
        self.assertFalse(self.results().is_found(entry))

    def test_what_was_found_is_noted_until_its_file_changes(self):
        results = self.results()
        for entry in self.entries[:3] + self.entries[4:5]:
            results.put(entry, "a test", 1.0)
        results.note(self.entries)
        noted = (pathlib.Path(self.folder.name) / "found.txt").read_text().splitlines()
        self.assertEqual(noted[2:], [f"sample.cpp {self.entries[0].digest} 1-3 5"])
        (pathlib.Path(self.folder.name) / "results.jsonl").unlink()
        again = self.results()
        self.assertEqual([again.is_found(entry) for entry in self.entries[:6]],
                         [True, True, True, False, True, False])
        changed = number_mutants({"sample.cpp": self.sites}, {"sample.cpp": self.text + "\n"})
        self.assertFalse(again.is_found(changed[0]))


if __name__ == "__main__":
    unittest.main()
