#!/usr/bin/python3
"""Tests of parts of tevalon-trace alone, as the program does not show them: other users' processes,
and pages that hold less.
"""

import os
import sys
import unittest
from pathlib import Path

from made_recording import halves, text, word
from trace_tool import COUNTER, MARK, MS, TASK_BEGUN, TASK_ENDED, Scratch, answered, modules

sys.path.insert(0, str(Path(__file__).parents[2] / "tools/tevalon_trace"))

from tevalon_trace.follow import Followed  # noqa: E402
from tevalon_trace.merged import Collection  # noqa: E402
from tevalon_trace.page import Document  # noqa: E402
from tevalon_trace.sentences import date  # noqa: E402


class PartsTest(Scratch):
    def test_a_process_of_another_user_may_go_on(self):
        recording = answered()
        recording.process_id = 1
        followed = Followed(self.write(recording))
        if os.geteuid() == 0:
            nobody = 65534
            try:
                os.setresuid(nobody, nobody, 0)
            except OSError as error:
                self.skipTest(str(error))
            self.addCleanup(os.setresuid, 0, 0, 0)
        self.assertEqual(followed.is_over(), "")

    def page_of(self, most, recording, log):
        """The data of a page that holds so many slices and lines."""
        path = self.path("log")
        with open(path, "w", encoding="utf-8") as file:
            file.write(log)
        collection = Collection()
        collection.add_recording(self.write(recording))
        collection.add_log(path)
        self.assertEqual(collection.complaints, [])
        document = Document(collection, most)
        document.read()
        return document.make()

    @staticmethod
    def shown(data, category):
        instants = data["instants"]
        return [data["names"][name] for name, each in zip(instants["name"], instants["category"])
                if data["names"][each] == category]

    def test_a_page_that_holds_fewer_lines_than_there_are(self):
        log = "".join(f"[ 1000.00010{number}] line {number}\n" for number in range(5))
        recording = modules()
        recording.add(0, 1, MARK, word(1) + text("m"))
        data = self.page_of(3, recording, log)
        self.assertEqual(data["notes"], ["Shows the last 3 of 5 lines of the log."])
        self.assertEqual(self.shown(data, "log"), ["line 2", "line 3", "line 4"])
        self.assertEqual(self.page_of(5, recording, log)["notes"], [])

    def test_a_page_that_begins_where_its_slices_do(self):
        """Lines and counters from before are left out."""
        recording = modules()
        recording.add(0, 1, COUNTER, word(1) + text("early"))
        for number in range(5):
            recording.add(2 * number * MS, 2, TASK_BEGUN, word(0x700) + halves(number))
            recording.add((2 * number + 1) * MS, 2, TASK_ENDED, word(0x700) + halves(number))
        recording.add(20 * MS, 1, COUNTER, word(2) + text("late"))
        log = "[ 1000.000500] early line\n[ 1000.009500] late line\n"
        data = self.page_of(3, recording, log)
        self.assertEqual(data["notes"], [
            "Shows the last 3 of 5 slices, from 1000.003000000 s on: a page holds at most 3. Others "
            "are chosen by --from and --to. The findings are of the whole recording."])
        self.assertEqual([data["names"][name] for name in data["slices"]["name"]],
                         ["task 2", "task 3", "task 4"])
        self.assertEqual(self.shown(data, "log"), ["late line"])
        self.assertEqual([counter["name"] for counter in data["counters"]], ["late"])
        whole = self.page_of(5, recording, log)
        self.assertEqual(self.shown(whole, "log"), ["early line", "late line"])
        self.assertEqual(sorted(counter["name"] for counter in whole["counters"]), ["early", "late"])

    def test_a_date_beyond_all_calendars(self):
        self.assertEqual(date(1_700_000_000_123_000_000), "2023-11-14 22:13:20.123 UTC")
        self.assertEqual(date(10**30), "an unknown date")


if __name__ == "__main__":
    unittest.main()
