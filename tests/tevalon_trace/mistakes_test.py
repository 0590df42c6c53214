#!/usr/bin/python3
"""The mistakes of a session of the example browser are found in its recording.

usage: mistakes_test.py TOOL BROWSER RECORDER SESSION
"""

import os
import re
import subprocess
import sys
import unittest

from trace_tool import Scratch

BROWSER, RECORDER, SESSION = sys.argv[1:]
del sys.argv[1:]

# Of each heading one line, without its numbers.
FOUND = {
    "circles": r"Evt:40 .* op_app_host \(Evt:40\) -> hbbtv_controller \(Evt:20\) -> op_app_host "
               r"\(Evt:40\)",
    "time-outs": r"Evt:20 .* key to page not answered within 400 ms",
    "sends to nobody": r"Evt:10 .* greeting refused: no hub of that module, nobody",
    "timers stopped by another thread": r"Evt:30 .* timer 'reminder' stopped, which Evt:40 started",
    "events that may never be freed": r"event page data: 300 of 300 were handled, and nothing came "
                                      r"to their addresses again",
    "growing memory": r"private memory grew from [0-9.]+ MiB to [0-9.]+ MiB in [0-9.]+ s",
    "slowest handlers": r"Evt:30 .* key to page in browser_engine",
}


class MistakesTest(Scratch):
    def test_each_is_found(self):
        recording = self.path("recording")
        environment = dict(os.environ, LD_PRELOAD=RECORDER, TEVALON_RECORD_FILE=recording,
                           TEVALON_RECORD_BYTES="4M", ZOR_DEBUG="off")
        subprocess.run([BROWSER, f"--session={SESSION}"], env=environment, check=True,
                       stdout=subprocess.DEVNULL)
        summary = self.show("--summary", recording)
        sections = dict(re.findall(r"^(\w[\w -]*?)(?: \(.*\))?:\n((?:  .*\n)+)", summary, re.M))
        for heading, pattern in FOUND.items():
            self.assertRegex(sections.get(heading, summary), pattern)
        self.show("--json", "-o", self.path("json"), recording)


if __name__ == "__main__":
    unittest.main()
