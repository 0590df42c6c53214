#!/usr/bin/python3
"""Tests of tevalon-trace --json: what it says, and that it keeps the rules of the format.

usage: json_test.py TOOL
"""

import collections
import json
import os
import unittest

from made_recording import halves, text, word
from trace_tool import (AWAITED, BEGUN, ENDED, MEMORY, MS, REFUSED, SCOPE_BEGUN, SCREEN, SENT,
                        TASK_BEGUN, TASK_ENDED, TASK_POSTED, TUNE, TUNER, VIEWER, WAITED, Scratch,
                        answered, circle, modules, overrun)

REQUIRED = {
    "B": {"ts", "pid", "tid", "name", "cat"},
    "E": {"ts", "pid", "tid"},
    "s": {"ts", "pid", "tid", "name", "cat", "id"},
    "f": {"ts", "pid", "tid", "name", "cat", "id", "bp"},
    "i": {"ts", "pid", "tid", "name", "s"},
    "C": {"ts", "pid", "name", "args"},
    "M": {"pid", "name", "args"},
}


def slices_of(events):
    """[(thread, name, begin, end, depth)]; fails where beginnings and ends do not pair."""
    stacks = collections.defaultdict(list)
    slices = []
    # By time; of the same time in the order of the file, as viewers read them.
    for event in sorted((each for each in events if each["ph"] in "BE"),
                        key=lambda each: each["ts"]):
        stack = stacks[event["pid"], event["tid"]]
        if event["ph"] == "B":
            stack.append(event)
        else:
            begin = stack.pop()
            slices.append((event["tid"], begin["name"], begin["ts"], event["ts"], len(stack)))
    assert not any(stacks.values()), stacks
    return slices


def check_rules(test, document):
    """What "Trace Event Format" asks of a file, and what a viewer needs to draw arrows."""
    events = document["traceEvents"]
    named = {(each["pid"], each["tid"]) for each in events
             if each["ph"] == "M" and each["name"] == "thread_name"}
    for event in events:
        test.assertLessEqual(REQUIRED[event["ph"]], set(event), event)
        if "ts" in event:
            test.assertIsInstance(event["ts"], (int, float))
            test.assertGreaterEqual(event["ts"], 0)
        if event["ph"] == "f":
            test.assertEqual(event["bp"], "e")  # Ends in the slice around it, not in the next one.
        if event["ph"] == "i":
            test.assertIn(event["s"], ("t", "p", "g"))
        elif event["ph"] == "C":
            test.assertTrue(all(isinstance(value, (int, float))
                                for value in event["args"].values()))
        elif event["ph"] != "M":
            test.assertIn((event["pid"], event["tid"]), named)
    slices = slices_of(events)
    arrows = collections.defaultdict(list)
    for event in events:
        if event["ph"] in "sf":
            arrows[event["id"]].append(event)
            test.assertTrue(any(tid == event["tid"] and begin <= event["ts"] <= end
                                for tid, _, begin, end, _ in slices), event)
    for ends in arrows.values():
        test.assertEqual([end["ph"] for end in ends], ["s", "f"])
        test.assertLessEqual(ends[0]["ts"], ends[1]["ts"])
    return events, slices, arrows


class JsonTest(Scratch):
    def read(self, recording, *more):
        output = self.show("--json", *more, self.write(recording))
        return check_rules(self, json.loads(output))

    def test_slices_nest_and_threads_have_names(self):
        events, slices, _ = self.read(answered())
        self.assertEqual([(each["tid"], each["args"]["name"]) for each in events
                          if each["ph"] == "M" and each["name"] == "thread_name"],
                         [(4000, "main"), (4001, "Evt:7")])
        start = 1000 * 10**6
        self.assertEqual(sorted(slices, key=lambda each: each[2]), [
            (4000, "send tune", start + 0.01, start + 0.02, 0),
            (4000, "wait for tune", start + 0.03, start + 0.5, 0),
            (4001, "tune", start + 0.1, start + 1000, 0),
            (4001, "look up", start + 0.2, start + 0.4, 1)])

    def test_arrows_lead_from_send_to_handler_to_reply(self):
        _, slices, arrows = self.read(answered())

        def name_at(end):
            return [name for tid, name, begin, until, _ in sorted(slices, key=lambda each: each[4])
                    if tid == end["tid"] and begin <= end["ts"] <= until][-1]
        self.assertEqual([[name_at(end) for end in ends] for ends in arrows.values()],
                         [["send tune", "tune"], ["tune", "wait for tune"]])

    def test_counters_of_queues_memory_and_clients(self):
        recording = answered()
        recording.add(3 * MS, 1, MEMORY, word(20 << 20) + word(5 << 20) + word(0) + word(0))
        events, _, _ = self.read(recording)
        self.assertEqual([(each["name"], each["args"]) for each in events if each["ph"] == "C"], [
            ("queue of tuner", {"events": 1}), ("queue of tuner", {"events": 0}),
            ("frames", {"value": 25}), ("memory", {"resident MiB": 20, "private MiB": 5})])

    def test_instants_of_errors_time_outs_and_overruns(self):
        recording = modules()
        circle(recording, 0)
        overrun(recording, 900 * MS)
        recording.event(2000 * MS, 1, SENT, 0x400, TUNE, VIEWER, (5, 0))
        recording.event(2000 * MS, 1, REFUSED, 0x400, TUNE, VIEWER, (5, 0))
        events, _, _ = self.read(recording)
        self.assertEqual([(each["cat"], each["name"]) for each in events
                          if each["ph"] == "i" and each["cat"] != "other"], [
            ("circle", "circle: Evt:7 -> Evt:9 -> Evt:7"),
            ("time-out", "show not answered within 800 ms"),
            ("time-out", "show not answered within 800 ms"),
            ("overrun", "watch 17 overdue after 100.000 ms, begun by Evt:7"),
            ("refused", "tune refused: no hub of that module")])

    def test_tasks_have_slices_and_arrows(self):
        recording = modules()
        recording.add(0, 1, SCOPE_BEGUN, text("work"))
        recording.add(10, 1, TASK_POSTED, word(0x50) + halves(3, 1) + word(0))
        recording.add(20, 2, TASK_BEGUN, word(0x50) + halves(3, 1))
        recording.add(30, 2, TASK_ENDED, word(0x50) + halves(3, 1))
        _, slices, arrows = self.read(recording)
        self.assertEqual([each[:2] for each in slices], [(4001, "task 3"), (4000, "work")])
        self.assertEqual(len(arrows), 1)

    def test_a_wait_lies_before_its_record(self):
        recording = modules()
        recording.event(0, 2, BEGUN, 0x1f0, TUNE, VIEWER, (TUNER, 0))
        recording.add(5 * MS, 2, WAITED, word(0x99) + halves(0, 0) + word(2 * MS))
        recording.event(6 * MS, 2, ENDED, 0x1f0, TUNE, VIEWER, (TUNER, 0))
        _, slices, _ = self.read(recording)
        start = 1000 * 10**6
        self.assertEqual(slices[0], (4001, "wait: lock", start + 3000, start + 5000, 1))

    def test_what_has_not_ended_ends_with_the_recording(self):
        recording = modules()
        recording.event(0, 2, BEGUN, 0x1f0, TUNE, VIEWER, (TUNER, 0))
        recording.event(10, 2, AWAITED, 0x2f0, TUNE, -1)
        recording.stop_ns = recording.start_ns + MS
        events, slices, _ = self.read(recording)
        self.assertEqual({each[3] for each in slices}, {1000 * 10**6 + 1000})
        self.assertEqual([each["args"] for each in events if each["ph"] == "E"],
                         [{"end": "not recorded"}] * 2)

    def test_an_end_without_its_beginning_is_left_out(self):
        recording = modules()
        recording.event(0, 2, ENDED, 0x1f0, TUNE, VIEWER, (TUNER, 0))
        document = json.loads(self.show("--json", self.write(recording)))
        check_rules(self, document)
        self.assertEqual(document["otherData"]["unpaired ends"], 1)

    def test_missing_records_end_what_was_open(self):
        recording = modules()
        recording.block_bytes = 256
        recording.event(0, 2, BEGUN, 0x1f0, TUNE, VIEWER, (TUNER, 0))
        for number in range(40):
            recording.add((number + 1) * MS, 2, SCOPE_BEGUN, text(f"scope {number}"))
        del recording.blocks[1]
        _, slices, _ = self.read(recording)
        ends = {name: end for _, name, _, end, _ in slices}
        self.assertLess(ends["tune"], 1000 * 10**6 + 20 * 1000)
        self.assertEqual(ends["scope 39"], 1000 * 10**6 + 40 * 1000)

    def test_a_kernel_id_that_was_used_again(self):
        recording = modules()
        recording.thread(4, 4001, "later")
        recording.add(0, 2, SCOPE_BEGUN, text("a"))
        recording.add(1, 4, SCOPE_BEGUN, text("b"))
        _, slices, _ = self.read(recording)
        self.assertEqual(len({each[0] for each in slices}), 2)

    def test_odd_texts_are_json(self):
        recording = modules()
        for odd in ("\"", "\\", "\x1b[2J", "\u00e4", "\u2028"):
            recording.add(0, 1, SCOPE_BEGUN, text(odd))
        recording.add(0, 1, SCOPE_BEGUN, text(b"\xff\xfe"))
        _, slices, _ = self.read(recording)
        self.assertEqual({each[1] for each in slices},
                         {"\"", "\\", "\x1b[2J", "\u00e4", "\u2028", "\ufffd\ufffd"})

    def test_a_log_lies_on_its_threads(self):
        log = self.path("log")
        with open(log, "w", encoding="utf-8") as file:
            file.write("[1000.000001] [4001 Evt:7] \"tuning\"\n[1000.000002] of nobody\n")
        events, _, _ = self.read(answered(), "--log", log)
        self.assertEqual([(each["tid"], each["name"]) for each in events
                          if each.get("cat") == "log"],
                         [(4001, "\"tuning\""), (0, "of nobody")])

    def test_several_processes(self):
        other = answered()
        other.process_id = 5000
        path = self.write(other, "other")
        events, _, _ = self.read(answered(), path)
        self.assertEqual({each["pid"] for each in events}, {4000, 5000})

    def test_the_recording_of_another_architecture(self):
        path = os.path.join(os.path.dirname(os.path.abspath(__file__)), "killed_on_arm.recording")
        events, _, _ = check_rules(self, json.loads(self.show("--json", path)))
        self.assertEqual([each["name"] for each in events if each["ph"] in "iC"],
                         ["kill", "memory"])

    def test_the_end_of_a_chosen_time_ends_all(self):
        recording = modules()
        circle(recording, 0)
        _, slices, _ = self.read(recording, "--to", "1000.5")
        self.assertEqual(max(each[3] for each in slices), 1000.5 * 10**6)
        self.assertEqual(len(slices), 6)

    def test_everybody_may_be_told_without_anybody_listening(self):
        recording = modules()
        recording.event(0, 1, SENT, 0x400, TUNE, VIEWER, (-2**31, 0))
        recording.event(1, 1, REFUSED, 0x400, TUNE, VIEWER, (SCREEN, 1))
        events, _, _ = self.read(recording)
        self.assertEqual([each["cat"] for each in events if each["ph"] == "i"], ["other"])


if __name__ == "__main__":
    unittest.main()
