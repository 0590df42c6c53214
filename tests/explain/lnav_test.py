"""lnav with our format, on a log that the library wrote.

usage: lnav_test.py LNAV [TEST...]
"""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

HERE = Path(__file__).parent
ROOT = HERE.parents[1]
LNAV = sys.argv.pop(1) if len(sys.argv) > 1 else "lnav"
LOGS = HERE / "logs"


class LnavTest(unittest.TestCase):
    """As it is installed: in a folder of its own below the formats of a folder of settings."""

    def setUp(self):
        self.folder = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)
        formats = self.folder / "settings/formats/tevalon_base"
        formats.mkdir(parents=True)
        (formats / "tevalon_base_log.json").symlink_to(ROOT / "packaging/lnav/tevalon_base_log.json")

    def lnav(self, *arguments):
        environment = dict(os.environ, HOME=str(self.folder), TERM="xterm")
        environment.pop("XDG_CONFIG_HOME", None)
        result = subprocess.run([LNAV, "-I", self.folder / "settings", *map(str, arguments)],
                                env=environment, stdin=subprocess.DEVNULL, capture_output=True,
                                text=True, check=False)
        self.assertEqual((result.returncode, result.stderr), (0, ""), result.stdout)
        return result.stdout

    def select(self, log, what):
        return self.select_of(LOGS / f"{log}.log", what)

    def select_of(self, path, what):
        output = self.lnav("-n", "-c", f";SELECT {what}", "-c", ":write-json-to -", path)
        return json.loads(output)

    def test_lnav_finds_nothing_wrong_with_the_format(self):
        self.lnav("-C")

    def test_each_line_with_the_prefix_is_taken_apart(self):
        lines = (LOGS / "evening.log").read_text().splitlines()
        ours = [line for line in lines if "] [B-LOG] " in line]
        rows = self.select("evening", "tag, count(*) AS n FROM tevalon_base_log GROUP BY tag")
        counts = {row["tag"]: row["n"] for row in rows}
        self.assertEqual(counts["B-LOG"], len(ours))
        self.assertEqual(sum(counts.values()), len(lines))

    def test_time_level_module_and_thread_are_lnavs_own(self):
        rows = self.select("mutex-misused", "log_time, log_level, module, thread_id, thread, source, "
                           "source_line, function, monotonic, log_body FROM tevalon_base_log "
                           "WHERE log_level = 'error'")
        line = next(line for line in (LOGS / "mutex-misused.log").read_text().splitlines()
                    if "unique_lock.h" in line)
        self.assertGreaterEqual(len(rows), 3)
        row = rows[0]
        self.assertEqual(row["log_time"], line[1:24].replace("T", " "))
        self.assertEqual((row["module"], row["thread"], row["source"], row["source_line"],
                          row["function"]), ("0x5f", "faulty_set", "unique_lock.h", 33, "UniqueLock"))
        self.assertIn(f"[{row['monotonic']:.6f}]".encode(), line.replace(" ", "").encode())
        self.assertTrue(row["log_body"].startswith("An runtime_error has been caught:"))

    def test_a_function_may_have_any_name_that_a_compiler_gives_it(self):
        functions = ["operator()", "~Recorder", "operator==", "operator[]", "operator new []",
                     'operator""_ms', "operator const char *", "operator void (*)()", "operators"]
        path = self.folder / "recorder.log"
        path.write_text("".join(
            f"[2026-11-22T20:15:00.{number:06}+01:00] [I] [0x60] [7 a b] "
            f"[Recorder] recorder.cpp:69:{function}(): saved (): x\n"
            for number, function in enumerate(functions)))
        rows = self.select_of(path, "tag, source, source_line, function, log_body FROM tevalon_base_log")
        self.assertEqual([tuple(row.values()) for row in rows],
                         [("Recorder", "recorder.cpp", 69, function, "saved (): x")
                          for function in functions])

    def test_all_levels_are_lnavs(self):
        rows = self.select("mutex-misused", "DISTINCT log_level FROM tevalon_base_log")
        self.assertEqual(sorted(row["log_level"] for row in rows), ["debug", "error", "info", "notice"])

    def test_failures_are_tagged_with_their_names(self):
        rows = self.select("zero-period", "log_tags FROM tevalon_base_log")
        self.assertEqual([json.loads(row["log_tags"]) if isinstance(row["log_tags"], str)
                          else row["log_tags"] for row in rows],
                         [["#timer-zero-period"], ["#timer-invalid"], ["#path-missing"]] * 2)


if __name__ == "__main__":
    unittest.main()
