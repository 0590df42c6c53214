"""The catalogue of log texts against the sources, both ways."""

import contextlib
import copy
import io
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from unittest import mock

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).parents[2] / "tools/catalogue"))

import catalogue  # noqa: E402
import generate  # noqa: E402
from statements import SourceFile, Sources  # noqa: E402

ENTRIES = catalogue.load()
STATEMENTS = Sources(catalogue.ROOT).statements()
FILES = [generate.PAGE, generate.FORMAT, generate.HEADER]


def entry(name):
    return next(e for e in ENTRIES if e["id"] == name)


class CatalogueTest(unittest.TestCase):
    def test_every_statement_is_an_entry_and_every_entry_a_statement(self):
        self.assertEqual(catalogue.compare(ENTRIES, STATEMENTS), [])

    # Whatever the search misses would be missed both ways: each log macro in the sources, counted
    # without looking at what it is.
    def test_the_search_finds_every_log_macro(self):
        found = 0
        for path in sorted((catalogue.ROOT / "src").rglob("*")):
            if path.suffix not in (".h", ".cpp"):
                continue
            for line in path.read_text().splitlines():
                if line.lstrip().startswith(("//", "#define")):
                    continue
                found += len(re.findall(r"\bBLOG(_AS|_AT|_EXCEPTION_AT|_TRACE_SCOPE|_TRACE_POINT)?\(",
                                        line))
        macros = [s for s in STATEMENTS if s.source.startswith("src/") and s.layout != "output"]
        self.assertEqual(len(macros), found)
        self.assertGreater(found, 100)

    def test_identifiers_are_unique_and_plain(self):
        names = [e["id"] for e in ENTRIES]
        self.assertEqual(len(names), len(set(names)))
        for name in names:
            self.assertRegex(name, r"^[a-z]+(-[a-z]+)+$")

    def test_every_entry_says_what_it_means_and_what_to_look_at(self):
        for e in ENTRIES:
            self.assertRegex(e["meaning"], r"^\S.*\.$", e["id"])
            self.assertRegex(e["next"], r"[.?]$", e["id"])

    def test_every_error_and_warning_names_the_failure_and_nothing_else_does(self):
        for e in ENTRIES:
            is_failure = e["level"] in (1000, 3000) or catalogue.layout_of(e) == "own line"
            self.assertEqual(bool(e["failure"]), is_failure, e["id"])

    def test_what_differs_is_named(self):
        for change, expected in [
                (dict(level=1000), "level is 1000, in the sources 5000"),
                (dict(tag="Other"), "tag is 'Other', in the sources 'B-LOG'"),
                (dict(functions=["x"]), r"functions is \['x'\], in the sources \['HandleTimeout'\]"),
                (dict(line_offset=7), "line_offset is 7, in the sources 1000"),
                (dict(text="Other.\n"), "no statement in 'fireHead'")]:
            changed = copy.deepcopy(entry("timer-once-expired"))
            changed.update(change)
            problems = catalogue.compare(
                [changed if e["id"] == changed["id"] else e for e in ENTRIES], STATEMENTS)
            self.assertRegex("\n".join(problems), expected)

    def test_a_statement_without_entry_is_named(self):
        entries = [e for e in ENTRIES if e["id"] != "timer-once-expired"]
        problems = catalogue.compare(entries, STATEMENTS)
        self.assertEqual(len(problems), 1)
        self.assertRegex(problems[0], r"^src/timer/scheduler\.cpp:\d+: not in the catalogue: ")

    def test_a_trace_without_entry_is_named(self):
        for name in ("trace-scope-in", "trace-point"):
            changed = copy.deepcopy(entry(name))
            changed["statements"].pop()
            problems = catalogue.compare(
                [changed if e["id"] == name else e for e in ENTRIES], STATEMENTS)
            self.assertEqual(len(problems), 1)
            self.assertIn(f"{name}: the traces are", problems[0])


class SourcesTest(unittest.TestCase):
    """On sources that are made up."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        (self.root / "src").mkdir()

    def write(self, text):
        (self.root / "src/a.cpp").write_text(text)

    def test_what_stands_in_no_function_has_no_name(self):
        self.write("namespace a {\n\n#define B 1\nint x = f();\n\n"
                   "void g() {\n    f();\n}\n\n}\n")
        file = SourceFile(self.root, "src/a.cpp")
        self.assertEqual([file.enclosing(match.start()) for match in re.finditer("f\\(", file.text)],
                         ["", "g"])

    def test_of_the_calls_of_a_helper_those_count_that_name_a_function(self):
        self.write("void say(const char* name) {\n"
                   "    BLOG_AS(name, kLogError, \"It fails.\\n\");\n}\n\n"
                   "void first() {\n    say(__func__);\n}\n\n"
                   "void second() {\n    say(\"third\");\n}\n\n"
                   "void fourth(const char* whose) {\n    say(whose);\n}\n")
        found, = Sources(self.root).statements()
        self.assertEqual((found.within, found.functions), ("say", ["first", "third"]))


class GeneratedTest(unittest.TestCase):
    @staticmethod
    def run_main(*arguments, entries=ENTRIES, root=catalogue.ROOT):
        """What it exits with, and what it prints."""
        output = io.StringIO()
        with (mock.patch.object(sys, "argv", ["generate.py", *arguments]),
              mock.patch.object(generate, "load", lambda: entries),
              mock.patch.object(generate, "ROOT", root), contextlib.redirect_stdout(output)):
            try:
                status = generate.main()
            except SystemExit as end:
                status = end.code
        return status, output.getvalue()

    def test_it_writes_what_is_not_stale_then(self):
        with tempfile.TemporaryDirectory() as folder:
            for name in FILES:
                (Path(folder) / name).parent.mkdir(parents=True)
            self.assertEqual(self.run_main(root=Path(folder)), (None, ""))
            self.assertEqual(generate.stale(ENTRIES, Path(folder)), [])

    def test_asked_only_to_check_it_says_what_is_stale(self):
        changed = copy.deepcopy(ENTRIES)
        next(e for e in changed if e["id"] == "task-empty")["text"] = "Other.\n"
        self.assertEqual(self.run_main("--check", entries=changed), (1, "".join(
            f"generate: {name} is stale: run tools/catalogue/generate.py\n" for name in FILES)))
        result = subprocess.run([sys.executable, "-B", generate.__file__, "--check"],
                                capture_output=True, text=True, check=False)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))

    def test_wrong_usage(self):
        self.assertEqual(self.run_main("--chekc"), (generate.__doc__, ""))

    def test_a_message_of_no_family_is_named(self):
        with self.assertRaisesRegex(SystemExit, r"^generate: of no family: \['stranger-comes'\]$"):
            generate.page([*ENTRIES, {**entry("task-empty"), "id": "stranger-comes"}])

    def test_what_is_generated_is_not_stale(self):
        self.assertEqual(generate.stale(ENTRIES), [])

    def test_what_is_stale_is_named(self):
        changed = copy.deepcopy(ENTRIES)
        next(e for e in changed if e["id"] == "task-empty")["text"] = "Other.\n"
        self.assertEqual(generate.stale(changed), FILES)
        with tempfile.TemporaryDirectory() as folder:
            self.assertEqual(generate.stale(ENTRIES, Path(folder)), FILES)

    def test_the_page_has_every_message_once(self):
        headings = re.findall(r"^### (.*)$", (catalogue.ROOT / generate.PAGE).read_text(), re.M)
        self.assertEqual(sorted(headings), sorted(e["id"] for e in ENTRIES))


if __name__ == "__main__":
    unittest.main()
