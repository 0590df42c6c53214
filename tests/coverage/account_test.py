#!/usr/bin/python3
"""What account.py makes of accounts that are made up, and whether its list fits the sources."""
import collections
import os
import sys
import unittest

sys.dont_write_bytecode = True
FOLDER = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(FOLDER))
sys.path.insert(0, FOLDER)

import account  # noqa: E402

SOURCE = """int sign(int number) {
    if (number < 0) {
        return -1;
    }
    return number > 0 ? 1 : 0;
}
""".splitlines()

# Its lines, conditions and ways as Clang counts them when only sign(3) was called.
SEGMENTS = [[1, 22, 1, True, True, False], [2, 9, 1, True, True, False],
            [2, 19, 1, True, False, False], [2, 20, 0, True, True, True],
            [2, 21, 0, True, True, False], [4, 6, 1, True, True, True],
            [5, 5, 1, True, True, False], [5, 25, 1, True, True, False],
            [5, 26, 1, True, False, False], [5, 29, 0, True, True, False],
            [5, 30, 1, True, False, False], [6, 2, 0, False, False, False]]
# Of the lines of a negative number when there was one.
PASSED = [[2, 21, 1, True, True, False], [4, 6, 0, False, False, False]]
NEGATIVE = [2, 9, 2, 19]
POSITIVE = [5, 12, 5, 22]


def export(segments, *branches, name="src/sign.cpp"):
    return {"data": [{"files": [{"filename": name, "segments": segments,
                                 "branches": [[*place, true, false, 0, 0, 4]
                                              for place, true, false in branches]}]}]}


class AccountTest(unittest.TestCase):
    def setUp(self):
        self.account = account.Account()

    def add(self, *arguments, **names):
        account.add_export(self.account, export(*arguments, **names), lambda path: path)

    def missed(self, jumps=()):
        file = "src/sign.cpp"
        return account.missed_in(file, SOURCE, self.account.lines[file],
                                  self.account.branches[file], jumps)

    def texts(self, jumps=()):
        return [f"{item.kind}: {item.text}" for item in self.missed(jumps)]

    def wrong(self, listed):
        return account.differences(self.missed(), account.read_exceptions(listed.splitlines()))

    def test_lines_are_counted_as_by_the_regions_that_begin_in_them(self):
        self.add(SEGMENTS)
        self.assertEqual(dict(self.account.lines["src/sign.cpp"]),
                         {1: 1, 2: 1, 3: 0, 4: 0, 5: 1, 6: 1})

    def test_what_only_a_gap_covers_is_not_counted(self):
        self.add([[1, 22, 1, True, True, False], [2, 6, 0, True, True, True],
                  [4, 5, 1, True, True, False], [6, 2, 0, False, False, False]])
        self.assertEqual(dict(self.account.lines["src/sign.cpp"]), {1: 1, 2: 1, 4: 1, 5: 1, 6: 1})

    def test_a_condition_stands_for_the_lines_behind_it(self):
        self.add(SEGMENTS, (NEGATIVE, 0, 1), (POSITIVE, 1, 0))
        self.assertEqual(self.texts(), ["true: number < 0", "false: number > 0"])

    def test_lines_without_a_condition_stand_by_themselves(self):
        self.add(SEGMENTS, (NEGATIVE, 1, 1), (POSITIVE, 1, 1))
        self.assertEqual(self.texts(), ["line: return -1;"])

    def test_one_instance_of_a_template_or_one_program_is_enough(self):
        self.add(SEGMENTS, (NEGATIVE, 0, 1), (POSITIVE, 1, 0))
        self.add(PASSED,
                 (NEGATIVE, 1, 0), (POSITIVE, 0, 1))
        self.assertEqual(self.texts(), [])

    def test_constants_and_other_folders_are_left_out(self):
        self.add(SEGMENTS[:1] + SEGMENTS[-1:], (NEGATIVE, 0, 0))
        self.add(SEGMENTS, (POSITIVE, 0, 1), name="tests/sign.cpp")
        self.assertEqual(self.texts(), [])
        self.assertEqual(list(self.account.lines), ["src/sign.cpp"])

    def test_a_macros_conditions_are_of_the_file_that_defines_it(self):
        made = export(SEGMENTS, (NEGATIVE, 1, 1))
        made["data"][0]["files"][0]["expansions"] = [
            {"filenames": ["src/sign.cpp", "pubinc/sign.h"],
             "branches": [[7, 1, 7, 5, 0, 4, 1, 0, 4]]}]
        account.add_export(self.account, made, lambda path: path)
        self.assertEqual(dict(self.account.branches["pubinc/sign.h"]), {(7, 1, 7, 5): (0, 4)})

    def test_ways_in_python_are_named_by_both_lines(self):
        self.add(SEGMENTS, (NEGATIVE, 1, 1), (POSITIVE, 1, 1))
        self.assertEqual(self.texts([(2, 3), (5, -1), (3, 4)]),
                         ["jump: if (number < 0) { -> return -1;",
                          "jump: return number > 0 ? 1 : 0; -> end"])

    def test_what_is_new_and_not_passed_is_wrong(self):
        self.add(SEGMENTS, (NEGATIVE, 0, 1), (POSITIVE, 1, 0))
        self.assertEqual(self.wrong("src/sign.cpp\n    true: number < 0\n        Why.\n"),
                         ["src/sign.cpp:5: not passed: false: number > 0"])

    def test_what_is_listed_and_passed_or_not_there_is_wrong(self):
        self.add(SEGMENTS, (NEGATIVE, 1, 1), (POSITIVE, 1, 1))
        self.assertEqual(
            self.wrong("src/sign.cpp\n    line: return -1;\n        Why.\n"
                       "    true: number < 0\n        Why.\n    line: return 7;\n        Why.\n"),
            ["exceptions.txt lists what was passed, or is not there: src/sign.cpp: true: number < 0",
             "exceptions.txt lists what was passed, or is not there: src/sign.cpp: line: return 7;"])

    def test_what_is_listed_once_and_missed_twice_is_wrong(self):
        self.add(SEGMENTS, (NEGATIVE, 0, 1), (POSITIVE, 1, 1))
        item = self.missed()[0]
        one = account.read_exceptions(["src/sign.cpp", "    true: number < 0", "        Why."])
        two = account.read_exceptions(["src/sign.cpp", "    2 true: number < 0", "        Why."])
        self.assertEqual(len(account.differences([item, item._replace(line=9)], one)), 2)
        self.assertEqual(account.differences([item, item._replace(line=9)], two), [])
        self.assertEqual(len(account.differences([item], two)), 1)

    def test_what_chance_passes_may_be_passed(self):
        self.add(SEGMENTS, (NEGATIVE, 1, 1), (POSITIVE, 1, 1))
        listed = "src/sign.cpp\n    ~ line: return -1;\n        Why.\n"
        self.assertEqual(self.wrong(listed), [])
        self.add(PASSED)
        self.assertEqual(self.wrong(listed), [])

    def test_entries_that_follow_each_other_share_a_reason(self):
        found = account.read_exceptions([
            "src/sign.cpp", "    true: a", "    ~ false: b", "        Why these", "        two.",
            "    3 line: c", "        Why this."])
        self.assertEqual(list(found.values()), [[1, False, "Why these two."],
                                                [1, True, "Why these two."], [3, False, "Why this."]])

    def test_an_entry_needs_a_reason(self):
        with self.assertRaises(ValueError):
            account.read_exceptions(["src/sign.cpp", "    line: return -1;", "src/other.cpp",
                                     "    line: return 1;", "        Why."])
        with self.assertRaises(ValueError):
            account.read_exceptions(["src/sign.cpp", "    line: return -1;"])
        with self.assertRaises(ValueError):
            account.read_exceptions(["src/sign.cpp", "    return -1;", "        Why."])

    def test_the_list_fits_the_sources(self):
        with open(os.path.join(FOLDER, "exceptions.txt"), encoding="utf-8") as file:
            exceptions = account.read_exceptions(file.read().splitlines())
        texts = collections.defaultdict(str)
        for name, kind, text in exceptions:
            if not texts[name]:
                with open(os.path.join(ROOT, name), encoding="utf-8") as file:
                    texts[name] = " ".join(file.read().split())
            parts = text.rsplit(" -> ", 1) if kind == "jump" else [text]
            for part in parts:
                if part != "end":
                    self.assertIn(" ".join(part.split()), texts[name])


if __name__ == "__main__":
    unittest.main()
