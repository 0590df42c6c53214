#!/usr/bin/python3
"""Two million records are text, and JSON, within half a minute each.

usage: large_test.py TOOL
"""

import os
import time
import unittest

import large_recording
from trace_tool import Scratch

COUNT = 2_000_000
LIMIT_S = 30


class LargeTest(Scratch):
    def test_two_million_records(self):
        path = self.write(large_recording.make(COUNT))
        for mode in ("--text", "--json", "--summary"):
            out = self.path("out")
            # The processor's time: what others do on this machine is not its fault.
            before = os.times().children_user + os.times().children_system
            begun = time.monotonic()
            self.show(mode, "-o", out, path)
            spent = os.times().children_user + os.times().children_system - before
            print(f"{mode}: {spent:.1f} s of the processor, {time.monotonic() - begun:.1f} s, "
                  f"{os.path.getsize(out) >> 20} MiB")
            self.assertLess(spent, LIMIT_S)


if __name__ == "__main__":
    unittest.main()
