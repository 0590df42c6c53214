"""The catalogue of log texts against the sources, both ways."""

import copy
import re
import sys
import tempfile
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).parents[2] / "tools/catalogue"))

import catalogue  # noqa: E402
import generate  # noqa: E402
from statements import Sources  # noqa: E402

ENTRIES = catalogue.load()
STATEMENTS = Sources(catalogue.ROOT).statements()


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


class GeneratedTest(unittest.TestCase):
    def test_what_is_generated_is_not_stale(self):
        self.assertEqual(generate.stale(ENTRIES), [])

    def test_what_is_stale_is_named(self):
        changed = copy.deepcopy(ENTRIES)
        next(e for e in changed if e["id"] == "task-empty")["text"] = "Other.\n"
        self.assertEqual(generate.stale(changed), [generate.PAGE, generate.FORMAT, generate.HEADER])
        with tempfile.TemporaryDirectory() as folder:
            self.assertEqual(generate.stale(ENTRIES, Path(folder)),
                             [generate.PAGE, generate.FORMAT, generate.HEADER])

    def test_the_page_has_every_message_once(self):
        headings = re.findall(r"^### (.*)$", (catalogue.ROOT / generate.PAGE).read_text(), re.M)
        self.assertEqual(sorted(headings), sorted(e["id"] for e in ENTRIES))


if __name__ == "__main__":
    unittest.main()
