#!/usr/bin/python3
"""Tests of the page that tevalon-trace --html writes, in a headless Chromium.

usage: page_test.py TOOL

Leaves screenshots in the working directory, for people to look at.
"""

import os
import re
import shutil
import subprocess
import sys
import unittest

import large_recording
from headless_browser import Browser, program
from made_recording import text
from trace_tool import (BEGUN, ENDED, MARK, MEMORY, MS, SCOPE_BEGUN, SCREEN, TOOL, TUNE, TUNER,
                        VIEWER, Scratch, answered, circle, modules, overrun, run, word)

LIMIT_TO_OPEN_S = 5
WIDE, NARROW = (1280, 800), (390, 844)


def has_script():
    return os.path.exists(os.path.join(os.path.dirname(TOOL), "page", "page.js"))


def evening():
    """A recording with everything that a page shows; some of it goes wrong."""
    recording = answered()
    circle(recording, 10 * MS)
    recording.event(900 * MS, 2, BEGUN, 0x500, TUNE, VIEWER, (TUNER, 0))
    overrun(recording, 901 * MS)
    recording.event(1100 * MS, 2, ENDED, 0x500, TUNE, VIEWER, (TUNER, 0))
    for second in (0, 1):
        recording.add(second * 1000 * MS + 1200 * MS, 1, MEMORY,
                      word((20 + second) << 20) + word(5 << 20) + word(0) + word(0))
    recording.thread(4, 4010, "T:banner")
    recording.thread(5, 4011, "T:banner")
    for thread, ns in ((4, 1300 * MS), (5, 1400 * MS)):
        recording.add(ns, thread, 18, word(0x66) + text("banner"))
        recording.add(ns + MS, thread, 19, word(0x66))
    recording.add(2300 * MS, 3, MARK, word(1) + text("</script><b>late"))
    return recording


@unittest.skipUnless(has_script(), "the page's script was not built")
@unittest.skipUnless(program(), "there is no Chromium")
class PageTest(Scratch):
    @classmethod
    def setUpClass(cls):
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.__exit__)

    def setUp(self):
        super().setUp()
        self.page = self.browser
        self.page.errors.clear()
        self.page.screen(*WIDE)

    def tearDown(self):
        self.assertEqual(self.page.errors, [])

    def open(self, recording, *more):
        path = self.path("page.html")
        self.show("--html", "-o", path, *more, self.write(recording))
        took = self.page.open(path)
        self.assertEqual(self.page.evaluate("document.documentElement.dataset.state"), "ready")
        self.page.frame()
        return took

    def ask(self, expression):
        return self.page.evaluate(f"(({{model, chart, show}}) => {expression})(tevalonTrace)")

    def item(self, category, name):
        """The first item of that category and name."""
        return self.ask(f"Array.from({{length: model.itemCount}}, (_, i) => i).find((i) => "
                        f"model.category(i) === {category!r} && model.name(i) === {name!r})")

    def selected(self):
        return self.ask("chart.selected === null ? null : "
                        "[model.category(chart.selected), model.name(chart.selected)]")

    def assert_in_view(self):
        view, begin, duration = self.ask("[chart.view(), model.begin(chart.selected), "
                                         "model.duration(chart.selected)]")
        self.assertLessEqual(view["from"], begin)
        self.assertGreaterEqual(view["to"], begin + duration)

    def click_on(self, item):
        point = self.ask(f"chart.pointOf({item})")
        self.page.click(point["x"], point["y"])

    def test_every_thread_is_there_and_nothing_comes_from_elsewhere(self):
        self.open(evening())
        self.assertEqual(self.ask("model.tracks.map((track) => [track.name, track.ids])"), [
            ["main", "4000"], ["Evt:7", "4001"], ["Evt:9", "4002"],
            ["T:banner", "4010 and 1 more"]])
        self.assertEqual(self.page.evaluate("performance.getEntriesByType('resource').length"), 0)
        self.assertEqual(self.page.evaluate("document.title"), "made[4000]")

    def test_arrows_join_what_belongs_together(self):
        self.open(evening())
        pairs = self.ask("model.arrows.map(({from, to}) => [model.name(from), model.detail(from), "
                         "model.name(to), model.detail(to)])")
        self.assertEqual([(tail, head) for tail, _, head, _ in pairs],
                         [("send tune", "tune"), ("tune", "wait for tune")])
        for _, tail, _, head in pairs:
            address = re.match(r"event 0x[0-9a-f]+", tail).group()
            self.assertTrue(head.startswith(address), (tail, head))

    def find_by_search(self, query):
        self.page.evaluate("document.querySelector('#search input').value = ''")
        self.page.key("/")
        self.page.type(query)
        self.page.key("Enter")
        return self.selected()

    def find_by_link(self, words):
        link = ("[...document.querySelectorAll('#findings a')]"
                f".find((link) => link.textContent.includes({words!r}))")
        box = self.page.evaluate(f"({link}.scrollIntoView({{block: 'center'}}), "
                                 f"{link}.getBoundingClientRect().toJSON())")
        self.page.click(box["x"] + 5, box["y"] + 5)
        return self.selected()

    def test_the_overrun_and_the_time_out_are_found(self):
        self.open(evening())
        overdue = ["overrun", "watch 17 overdue after 100.000 ms, begun by Evt:7 in tune"]
        late = ["time-out", "show not answered within 800 ms"]
        for query, expected in (("overdue", overdue), ("overrun thread:main", overdue),
                                ("within 800", late), ("time-out thread:evt:7", late)):
            self.assertEqual(self.find_by_search(query), expected, query)
            self.assert_in_view()
            self.page.key("Escape")  # Out of the search,
            self.page.key("Escape")  # and nothing is chosen.
            self.assertIsNone(self.selected())
        for words, expected in (("watch 17 overdue", overdue), ("show not answered", late)):
            self.assertEqual(self.find_by_link(words), expected)
            self.assert_in_view()
        self.assertIn("show not answered within 800 ms", self.page.evaluate(
            "document.getElementById('details').textContent"))

    def test_of_what_goes_on_in_a_copy_only_the_least_is_told(self):
        recording = answered()
        recording.event(10 * MS, 2, BEGUN, 0x310, TUNE, VIEWER, (TUNER, 0))
        recording.event(11 * MS, 3, BEGUN, 0x320, TUNE, VIEWER, (SCREEN, 0))
        facts = "[...document.querySelectorAll('#findings small')].map((each) => each.textContent)"
        for stop_ns, expected in ((0, "at least 1.00 ms · Evt:7 · at 1000.010000000 s"),
                                  (1020 * 10**9, "19.990 s · Evt:7 · at 1000.010000000 s")):
            recording.stop_ns = stop_ns
            self.open(recording)
            self.assertIn(expected, self.page.evaluate(facts))

    def test_the_findings_worth_a_look_come_first(self):
        self.open(evening())
        self.assertEqual(self.page.evaluate(
            "[...document.querySelectorAll('#findings h3')].map((each) => each.textContent)"),
            ["circles1", "time-outs2", "overruns1", "slowest handlers", "slowest timer runs",
             "longest scopes", "longest queues", "busiest threads"])
        self.assertEqual(self.find_by_link("tuner (Evt:7) \u2192 screen (Evt:9)"),
                         ["reply wait", "wait for show"])

    def test_the_search_knows_modules_events_threads_and_texts(self):
        self.open(evening())
        for query, count in (("module:screen", 2), ("event:tune", 6), ("thread:banner", 2),
                             ("found", 1), ("498000", 1), ("</script>", 1), ("no such", 0),
                             ("MODULE:tuner event:TUNE thread:main", 1)):
            self.assertEqual(self.ask(f"model.find({query!r}).length"), count, query)

    def test_a_click_on_a_send_goes_to_its_handler_and_back(self):
        self.open(evening())
        send = self.item("send", "send tune")
        self.ask("chart.setView(0, 0.0005)")
        self.page.frame()
        self.click_on(send)
        self.assertEqual(self.selected(), ["handler", "tune"])
        self.assert_in_view()
        self.page.frame()
        self.click_on(self.ask("chart.selected"))
        self.assertEqual(self.selected(), ["send", "send tune"])
        self.page.key("Enter")
        self.assertEqual(self.selected(), ["handler", "tune"])
        self.page.key("b")
        self.assertEqual(self.selected(), ["send", "send tune"])

    def test_hovering_shows_the_whole_record(self):
        self.open(evening())
        self.ask("chart.setView(-0.2, 1.2)")
        self.page.frame()
        point = self.ask(f"chart.pointOf({self.item('handler', 'tune')})")
        self.page.move(point["x"] + 200, point["y"])
        self.assertEqual(
            self.page.evaluate("[...document.querySelectorAll('.tooltip *')]"
                               ".map((each) => each.textContent)"),
            ["tune", "Evt:7, at 0.000 ms, 999.9 µs",
             "event 0x1f0 type 100 (tune) from 1 (viewer) handler of 7 (tuner) begun",
             "event 0x1f0 type 100 (tune) from 1 (viewer) handler of 7 (tuner) ended"])
        self.page.move(point["x"] + 200, 790)
        self.assertTrue(self.page.evaluate("document.querySelector('.tooltip').hidden"))

    def test_an_instant_is_met_by_the_mouse(self):
        self.open(evening())
        mark = self.item("mark", "</script><b>late")
        self.click_on(mark)
        self.assertEqual(self.selected(), ["mark", "</script><b>late"])

    def view(self):
        view = self.ask("chart.view()")
        return view["from"], view["to"]

    def test_zoom_and_pan_by_mouse_and_keyboard(self):
        self.open(evening())
        whole = self.view()
        self.page.wheel(800, 400, -120, with_ctrl=True)
        closer = self.view()
        self.assertLess(closer[1] - closer[0], whole[1] - whole[0])
        self.page.drag(800, 600, 700, 600)
        moved = self.view()
        self.assertGreater(moved[0], closer[0])
        self.page.key("ArrowLeft")
        self.assertLess(self.view()[0], moved[0])
        self.page.key("+")
        self.assertLess(self.view()[1] - self.view()[0], moved[1] - moved[0])
        self.page.key("-")
        self.page.key("0")
        self.assertEqual(self.view(), whole)
        # The line of overview: what is dragged over there is what is seen.
        self.page.drag(600, 80, 800, 80)
        chosen = self.view()
        self.assertLess(chosen[1] - chosen[0], whole[1] - whole[0])

    def test_the_keyboard_goes_from_slice_to_slice(self):
        self.open(evening())
        self.ask(f"show({self.item('handler', 'tune')})")
        self.page.key("n")
        self.assertEqual(self.selected(), ["handler", "tune"])
        begin = self.ask("model.begin(chart.selected)")
        self.assertEqual(begin, 10)
        self.page.key("p")
        self.assertEqual(self.ask("model.begin(chart.selected)"), 0.0001)
        self.page.key("?")
        self.assertTrue(self.page.evaluate("document.getElementById('help').open"))

    def test_a_link_to_an_item(self):
        self.open(evening())
        item = self.item("overrun", "watch 17 overdue after 100.000 ms, begun by Evt:7 in tune")
        self.page.evaluate(f"location.hash = '#item-{item}'")
        self.page.until(f"tevalonTrace.chart.selected === {item}")
        self.assert_in_view()

    def test_light_and_dark_wide_and_narrow(self):
        path = self.path("page.html")
        self.show("--html", "-o", path, self.write(evening()))
        for width, height in (WIDE, NARROW):
            for is_dark in (False, True):
                self.page.screen(width, height, is_dark)
                self.page.open(path)
                self.find_by_link("show not answered")
                self.assertEqual(self.page.evaluate("document.documentElement.scrollWidth"), width)
                colour = self.page.evaluate(
                    "[...document.querySelector('#chart canvas').getContext('2d')"
                    ".getImageData(3, document.querySelector('#chart').clientHeight - 3, 1, 1)"
                    ".data].slice(0, 3)")
                self.assertTrue(max(colour) < 60 if is_dark else min(colour) > 200, colour)
                self.page.screenshot(f"trace-page-{width}-{'dark' if is_dark else 'light'}.png")

    def test_fingers_pan_on_a_narrow_screen(self):
        self.page.screen(*NARROW)
        self.open(evening())
        self.page.evaluate("document.getElementById('chart').scrollIntoView()")
        self.ask("chart.setView(100, 1100)")
        self.page.frame()
        box = self.page.evaluate(
            "document.getElementById('chart').getBoundingClientRect().toJSON()")
        y = box["y"] + box["height"] - 60
        self.page.touch_drag(300, y, 100, y)
        self.assertGreater(self.view()[0], 100)

    def test_the_colours_follow_the_system(self):
        self.open(evening())
        self.page.screen(*WIDE, is_dark=True)
        self.page.frame()
        self.assertEqual(self.page.evaluate(
            "[...document.querySelector('#chart canvas').getContext('2d')"
            ".getImageData(3, document.querySelector('#chart').clientHeight - 3, 1, 1).data]"
            ".slice(0, 3).every((part) => part < 60)"), True)

    def test_a_chosen_window(self):
        self.open(evening(), "--from", "1000.5", "--to", "1000.95")
        # The handlers began before, and are drawn from the edge.
        self.assertEqual(self.ask("[model.begin(0), model.data.startNs]"), [0, 1000500000000])
        self.assertIn("Shows what was chosen, from 1000.500000000 s on.",
                      self.page.evaluate("document.getElementById('notes').textContent"))
        self.assertIsNone(self.item("mark", "found"))

    def test_two_hundred_thousand_slices(self):
        used, took = self.open(large_recording.make(800_000))
        print(f"200,000 slices: {used:.1f} s of the processors to open, {took:.1f} s")
        # More than it takes where nobody else is at work: some of it is done side by side.
        self.assertLess(used, LIMIT_TO_OPEN_S)
        self.assertEqual(self.ask("model.sliceCount"), 200_000)
        self.assertIn("Shows the last 200,000 of 266,6", self.page.evaluate(
            "document.getElementById('notes').textContent"))
        # And what is found is shown, close enough to be told apart.
        self.assertEqual(self.find_by_search("event:4 module:5"), ["send", "send event 4"])
        self.assert_in_view()

    def test_a_log_lies_on_the_tracks_of_its_threads(self):
        log = self.path("log")
        with open(log, "w", encoding="utf-8") as file:
            file.write("[1000.000500] [4001 Evt:7] tuning to <b>7\n[1000.000600] of nobody\n")
        self.open(answered(), "--log", log)
        self.assertEqual(self.find_by_search("to <b>7"), ["log", "tuning to <b>7"])
        self.assertEqual(self.ask("model.track(chart.selected).name"), "Evt:7")
        self.assertEqual(self.find_by_search("of nobody"), ["log", "of nobody"])
        self.assertEqual(self.ask("model.track(chart.selected).name"), "log")

    def test_a_recording_of_nothing(self):
        self.open(modules())

    def test_missing_records_are_said(self):
        recording = modules()
        recording.event(0, 2, ENDED, 0x1f0, TUNE, VIEWER, (SCREEN, 0))
        recording.add(1, 2, SCOPE_BEGUN, text("a"))
        self.open(recording)
        self.assertEqual(self.page.evaluate("document.getElementById('notes').textContent"),
                         "1 slices are left out whose beginnings were overwritten.")


class NoScriptTest(Scratch):
    def test_says_what_to_install(self):
        tool = self.path("tevalon-trace")
        shutil.copy(TOOL, tool)  # Beside which there is no script.
        out = self.path("page.html")
        recording = self.write(answered())
        status, output, errors = run("--html", "-o", out, recording, tool=tool)
        self.assertEqual((status, output), (1, ""))
        self.assertEqual(errors, "tevalon-trace: --html needs the page's script, which was not "
                                 "built: install npm and esbuild (apt-get install npm esbuild) and "
                                 "build tevalon-base again with the npm registry in reach, or "
                                 "install the package libtevalon-base-dev\n")
        self.assertEqual(sorted(os.listdir(self.folder)), ["recording", "tevalon-trace"])


class NoBundleTest(Scratch):
    """Where the script cannot be bundled, the build goes on unless it is required."""

    def make(self, **settings):
        script = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "tools",
                              "tevalon_trace", "page", "make_page.cmake")
        settings = {"SOURCE": os.path.dirname(script), "WORK": self.path("page"), **settings}
        result = subprocess.run(["cmake", *(f"-D{key}={value}" for key, value in settings.items()),
                                 "-P", script], capture_output=True, text=True, check=False)
        return result.returncode, " ".join(result.stderr.split())

    def test_without_npm(self):
        status, errors = self.make(NPM="", ESBUILD="")
        self.assertEqual(status, 0)
        self.assertIn("tevalon-trace --html will not work, for its script cannot be made: npm or "
                      "esbuild is missing: apt-get install npm esbuild", errors)
        self.assertEqual(os.listdir(self.path("page")), ["done"])

    def test_without_a_registry(self):
        status, errors = self.make(NPM="/bin/false", ESBUILD="/bin/true")
        self.assertEqual(status, 0)
        self.assertIn("its script cannot be made: npm ci failed (1)", errors)
        self.assertFalse(os.path.exists(self.path("page/page.js")))

    def test_where_it_is_required(self):
        status, errors = self.make(NPM="/bin/false", ESBUILD="/bin/true", REQUIRED="ON")
        self.assertNotEqual(status, 0)
        self.assertIn("The script of tevalon-trace's page cannot be made", errors)
        self.assertFalse(os.path.exists(self.path("page/done")))


if __name__ == "__main__":
    result = unittest.main(exit=False).result
    if result.skipped and result.wasSuccessful():
        # For ctest, which shows as skipped what was not looked at.
        print("Skipped:", result.skipped[0][1])
    sys.exit(not result.wasSuccessful())
