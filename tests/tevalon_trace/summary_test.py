#!/usr/bin/python3
"""Tests of tevalon-trace --summary.

usage: summary_test.py TOOL
"""

import unittest

from made_recording import halves, text, word
from trace_tool import (AWAITED, BEGUN, CREATED, ENDED, MEMORY, MS, QUEUED, REFUSED, SENT,
                        TIMER_STARTED, TIMER_STOPPED, TUNE, TUNER, SCREEN, UNANSWERED, VIEWER, Scratch,
                        answered, ask, circle, modules, overrun)

WORTH_A_LOOK = ("circles", "time-outs", "overruns", "unanswered requests", "still waiting",
                "sends to nobody", "timers stopped by another thread",
                "events that may never be freed", "growing memory")


def line(time, duration, thread, said, width=14):
    return f"  {time:>15}  {duration:>{width}}  {thread:<22}  {said}"


def hang(recording):
    """The tuner has once answered within 1 ms. Now its handler does not return: the screen waits,
    and soon the viewer too, and then nobody records anything."""
    answered(recording)
    ask(recording, 10 * MS, 3, SCREEN, 0x310, TUNE, TUNER)
    recording.event(10 * MS + 100, 2, BEGUN, 0x310, TUNE, SCREEN, (TUNER, 0))
    ask(recording, 10 * MS + 5000, 1, VIEWER, 0x320, TUNE, TUNER)
    return recording


class SummaryTest(Scratch):
    def sections(self, recording):
        """{heading: lines}."""
        found = {}
        heading = None
        for each in self.show("--summary", self.write(recording)).splitlines()[4:]:
            if each.startswith("  "):
                found[heading].append(each)
            elif each.startswith("none: "):
                found["none"] = each[len("none: "):].split(", ")
            else:
                heading = each.rstrip(":")
                found[heading] = []
        return found

    def test_of_an_answered_request(self):
        found = self.sections(answered())
        self.assertEqual(found, {
            "slowest handlers": [line("1000.000000100", "1.000 ms", "Evt:7             4001",
                                      "tune in tuner")],
            "longest scopes": [line("1000.000000200", "0.000 ms", "Evt:7             4001",
                                    "look up")],
            "longest queues": [line("1000.000000020", "", "", "queue of tuner: 1")],
            "busiest threads": [
                line("", "1.000 ms", "Evt:7             4001", "50.0 % of the time"),
                line("", "0.000 ms", "main              4000", "0.0 % of the time")],
            "none": list(WORTH_A_LOOK)})

    def test_the_circle_is_named_once(self):
        recording = modules()
        circle(recording, 0)
        found = self.sections(recording)
        self.assertEqual(found["circles"], [
            line("1000.800000000", "800.000 ms", "Evt:7             4001",
                 "tuner (Evt:7) -> screen (Evt:9) -> tuner (Evt:7)")])
        self.assertEqual(len(found["time-outs"]), 2)

    def test_the_circle_of_a_process_that_was_killed_in_it(self):
        recording = modules()
        circle(recording, 0)
        for block in recording.blocks:  # All but what was recorded when the patience had ended.
            if block[0] in (2, 3):
                del block[3][-(24 + 32):]
        found = self.sections(recording)
        self.assertEqual(len(found["circles"]), 1)
        self.assertEqual(len(found["still waiting"]), 2)

    def test_a_wait_for_a_busy_module_is_no_circle(self):
        recording = modules()
        recording.event(0, 2, BEGUN, 0x300, TUNE, VIEWER, (TUNER, 0))
        recording.event(10, 1, CREATED, 0x310, TUNE, VIEWER)
        recording.event(20, 1, SENT, 0x310, TUNE, VIEWER, (TUNER, 0))
        recording.event(30, 1, QUEUED, 0x310, TUNE, VIEWER, (TUNER, 1))
        recording.event(40, 1, AWAITED, 0x310, TUNE, 800)
        recording.event(800 * MS, 1, 9, 0x310, TUNE, 800)
        found = self.sections(recording)
        self.assertIn("circles", found["none"])
        self.assertEqual(found["time-outs"], [
            line("1000.800000000", "", "main              4000",
                 "tune not answered within 800 ms")])
        self.assertEqual(found["slowest handlers"], [
            line("1000.000000000", "at least 800.000 ms", "Evt:7             4001",
                 "tune in tuner, not ended", 19)])

    def test_a_reply_that_was_forgotten_is_no_circle(self):
        recording = modules()
        recording.event(0, 2, BEGUN, 0x300, TUNE, VIEWER, (TUNER, 0))
        recording.event(1, 2, ENDED, 0x300, TUNE, VIEWER, (TUNER, 0))
        # The screen's request has been handled by the tuner, which now waits for the screen.
        ask(recording, 100, 3, SCREEN, 0x310, TUNE, TUNER)
        recording.event(200, 2, BEGUN, 0x310, TUNE, SCREEN, (TUNER, 0))
        recording.event(300, 2, ENDED, 0x310, TUNE, SCREEN, (TUNER, 0))
        recording.event(400, 3, BEGUN, 0x320, TUNE, VIEWER, (SCREEN, 0))
        ask(recording, 500, 3, SCREEN, 0x330, TUNE, TUNER)
        recording.event(600, 2, BEGUN, 0x330, TUNE, SCREEN, (TUNER, 0))
        recording.event(610, 2, ENDED, 0x330, TUNE, SCREEN, (TUNER, 0))
        ask(recording, 700, 2, TUNER, 0x340, TUNE, SCREEN)
        recording.event(800 * MS, 3, 9, 0x330, TUNE, 800)
        found = self.sections(recording)
        self.assertIn("circles", found["none"])
        self.assertEqual(len(found["still waiting"]), 1)

    def test_of_what_goes_on_in_a_copy_only_the_least_is_known(self):
        found = self.sections(hang(modules()))
        self.assertEqual(found["still waiting"], [
            line("1000.010000030", "at least 0.005 ms", "Evt:9             4002",
                 "wait for tune", 17),
            line("1000.010005030", "at least 0.000 ms", "main              4000",
                 "wait for tune", 17)])
        # Before what took longer up to there, for nobody knows how long it takes.
        self.assertEqual(found["slowest handlers"], [
            line("1000.010000100", "at least 0.005 ms", "Evt:7             4001",
                 "tune in tuner, not ended", 17),
            line("1000.000000100", "1.000 ms", "Evt:7             4001", "tune in tuner", 17)])

    def test_what_goes_on_is_counted_to_the_end_of_the_recording(self):
        recording = hang(modules())
        recording.stop_ns = recording.start_ns + 3010 * MS
        found = self.sections(recording)
        self.assertEqual(found["still waiting"], [
            line("1000.010000030", "3000.000 ms", "Evt:9             4002", "wait for tune"),
            line("1000.010005030", "2999.995 ms", "main              4000", "wait for tune")])
        self.assertEqual(found["slowest handlers"][0], line(
            "1000.010000100", "3000.000 ms", "Evt:7             4001", "tune in tuner, not ended"))
        # Whatever was behind the chosen time is not known.
        path = self.write(recording)
        self.assertIn("  at least 0.000 ms  Evt:9             4002  wait for tune\n",
                      self.show("--summary", "--to", "1000.010000050", path))

    def test_what_goes_on_leaves_room_for_what_has_ended(self):
        recording = modules()
        for number in range(15):
            recording.event(number, 2, BEGUN, 0x300, TUNE, VIEWER, (TUNER, 0))
            recording.event(number + 1, 2, ENDED, 0x300, TUNE, VIEWER, (TUNER, 0))
            recording.thread(10 + number, 5000 + number, "Evt:7")
            recording.event(number, 10 + number, BEGUN, 0x310 + number, TUNE, VIEWER, (TUNER, 0))
        found = self.sections(recording)["slowest handlers (20 of 25)"]
        self.assertEqual(["at least" in each for each in found], [True] * 10 + [False] * 10)

    def test_a_circle_that_lasts_took_so_long_at_least(self):
        recording = modules()
        circle(recording, 0)
        for block in recording.blocks:
            if block[0] in (2, 3):
                del block[3][-(24 + 32):]
        self.assertIn("  at least ", self.sections(recording)["circles"][0])
        recording.stop_ns = recording.start_ns + 3000 * MS
        self.assertIn("  3000.000 ms  ", self.sections(recording)["circles"][0])

    def test_an_overrun_tells_what_was_watched(self):
        recording = modules()
        recording.event(0, 2, BEGUN, 0x300, TUNE, VIEWER, (TUNER, 0))
        overrun(recording, MS)
        self.assertEqual(self.sections(recording)["overruns"], [
            line("1000.101000000", "", "main              4000",
                 "watch 17 overdue after 100.000 ms, begun by Evt:7 in tune")])

    def test_a_request_that_is_not_answered(self):
        recording = modules()
        recording.event(MS, 2, UNANSWERED, 0x300, TUNE, VIEWER)
        self.assertEqual(self.sections(recording)["unanswered requests"], [
            line("1000.001000000", "", "Evt:7             4001", "tune ended without a reply")])

    def test_a_send_to_nobody(self):
        recording = modules()
        recording.event(0, 1, SENT, 0x300, TUNE, VIEWER, (55, 0))
        recording.event(1, 1, REFUSED, 0x300, TUNE, VIEWER, (55, 0))
        self.assertEqual(self.sections(recording)["sends to nobody"], [
            line("1000.000000001", "", "main              4000",
                 "tune refused: no hub of that module, 55")])

    def test_a_timer_that_another_thread_stopped(self):
        recording = modules()
        recording.add(0, 2, TIMER_STARTED, word(0x55) + word(150 * MS) + text("banner"))
        recording.add(MS, 3, TIMER_STOPPED, word(0x55))
        recording.add(2 * MS, 2, TIMER_STARTED, word(0x55) + word(150 * MS) + text("banner"))
        recording.add(3 * MS, 2, TIMER_STOPPED, word(0x55))
        self.assertEqual(self.sections(recording)["timers stopped by another thread"], [
            line("1000.001000000", "", "Evt:9             4002",
                 "timer 'banner' stopped, which Evt:7 started")])

    def test_events_that_are_kept(self):
        recording = modules()
        for number in range(30):
            ns = number * MS
            # The one's address comes again and again, the others' never.
            for event, event_type in ((0x1000 + number * 0x100, TUNE), (0x90, 101)):
                recording.event(ns, 1, CREATED, event, event_type, VIEWER)
                recording.event(ns + 1, 2, BEGUN, event, event_type, VIEWER, (TUNER, 0))
                recording.event(ns + 2, 2, ENDED, event, event_type, VIEWER, (TUNER, 0))
        self.assertEqual(self.sections(recording)["events that may never be freed"], [
            line("1000.029000002", "", "", "event tune: 30 of 30 were handled, and nothing came to "
                 "their addresses again")])

    def test_growing_memory(self):
        recording = modules()
        for second, private in enumerate((1, 5, 7, 12)):
            recording.add(second * 10**9, 1, MEMORY,
                          word(50 << 20) + word(private << 20) + word(0) + word(0))
        self.assertEqual(self.sections(recording)["growing memory"], [
            line("1001.000000000", "2000.000 ms", "",
                 "private memory grew from 5.0 MiB to 12.0 MiB in 2.0 s")])

    def test_only_the_worst_are_listed(self):
        recording = modules()
        for number in range(25):
            recording.event(number, 2, UNANSWERED, 0x300, TUNE, VIEWER)
            recording.event(10**9 * number, 2, BEGUN, 0x300, TUNE, VIEWER, (TUNER, 0))
            recording.event(10**9 * number + number, 2, ENDED, 0x300, TUNE, VIEWER, (TUNER, 0))
        found = self.sections(recording)
        self.assertEqual(len(found["unanswered requests (10 of 25)"]), 10)
        self.assertEqual(len(found["slowest handlers"]), 10)
        self.assertIn(" 1024.000000000", found["slowest handlers"][0])

    def test_where_everything_goes_wrong_nothing_is_left_to_say(self):
        recording = modules()
        for number in range(30):
            for step, kind in enumerate((BEGUN, ENDED)):
                recording.event(2 * number + step, 2, kind, 0x1000 + number * 0x100, TUNE, VIEWER,
                                (TUNER, 0))
        circle(recording, 1 * MS)
        overrun(recording, 1000 * MS)
        recording.event(1200 * MS, 2, UNANSWERED, 0x300, TUNE, VIEWER)
        recording.event(1200 * MS, 1, REFUSED, 0x300, TUNE, VIEWER, (55, 0))
        recording.add(1300 * MS, 2, TIMER_STARTED, word(0x55) + word(150 * MS) + text("banner"))
        recording.add(1400 * MS, 3, TIMER_STOPPED, word(0x55))
        for second, private in ((2, 1), (3, 12)):
            recording.add(second * 10**9, 1, MEMORY,
                          word(50 << 20) + word(private << 20) + word(0) + word(0))
        ask(recording, 4000 * MS, 1, VIEWER, 0x320, TUNE, TUNER)
        found = self.sections(recording)
        self.assertLessEqual({*WORTH_A_LOOK}, {*found})
        self.assertNotIn("none", found)

    def test_halves_are_signed(self):
        recording = modules()
        recording.add(0, 2, 5, word(0x300) + halves(-5, -6) + halves(-7, 0))
        self.assertIn("event -5 in -7", self.sections(recording)["slowest handlers"][0])


if __name__ == "__main__":
    unittest.main()
