"""The page: the slices of a window, what connects them, and the findings, for a browser.

The script that draws it is bundled when the project is built; see the folder page beside this
package. The data go into the page compressed, as one JSON document:

    title, facts            what it is of: a text, and lines
    startNs, endNs          the window, on the monotonic clock
    notes                   what is left out, in sentences
    names                   texts that the columns refer to by their number
    tracks                  [{name, rows}]
    slices, instants        columns: each a list with a value for each slice, or instant
    arrows                  [tail slice, tail ns, head slice, head ns] in columns
    counters                [{name, unit, group, points}]
    findings                [{heading, count, isUsual, items}]

Times are ns since startNs; an item is a slice by its number, or an instant by its number behind the
last slice's.
"""

import base64
import collections
import html
import json
import os
import zlib

from .device_log import Line
from .findings import USUAL, Findings
from .layout import ANY_MODULE, Kind
from .recording import module_name
from .sentences import Sentences, date, printable, seconds
from .text import describe_head, process_label
from .timeline import REPLY_WAIT, Timeline

SCRIPT = "page.js"
MAX_POINTS = 4000  # Of a counter: more than a screen is wide.
MAX_COUNTERS = 6  # Of a group.


class NoScript(Exception):
    """Says what to do to have pages."""


def read_script(folder):
    path = os.path.join(folder, SCRIPT) if folder else None
    try:
        with open(path or "", encoding="utf-8") as file:
            return file.read()
    except OSError as error:
        raise NoScript(
            "--html needs the page's script, which was not built: install npm and esbuild "
            "(apt-get install npm esbuild) and build tevalon-base again with the npm registry in "
            "reach, or install the package libtevalon-base-dev") from error


class PageData:
    """A sink of a Timeline that keeps the last slices, and passes everything on to Findings."""

    def __init__(self, recording, shared):
        self.recording = recording
        self.findings = Findings(recording)
        self.timeline = self.findings.timeline = Timeline(recording, self)
        self.sentences = Sentences(recording.names)
        self._shared = shared
        self.begun = self.findings.begun
        self.circle = self.findings.circle
        self.kept_events = self.findings.kept_events

    def ended(self, old):
        self.findings.ended(old)
        if old.end_ns >= self._shared.from_ns:
            self._shared.add_slice(old, self)

    def instant(self, instant):
        self.findings.instant(instant)
        if instant.ns >= self._shared.from_ns:
            self._shared.instants.append((instant, self))

    def arrow(self, tail, tail_ns, head, head_ns):
        self._shared.arrows.append((tail, tail_ns, head, head_ns))

    def counter(self, ns, name, values):
        self.findings.counter(ns, name, values)
        if ns >= self._shared.from_ns:
            for key, value in values.items():
                self._shared.counters[name, key].append((ns, value))


class Shared:
    """What all recordings of a page have in common."""

    def __init__(self, most, from_ns):
        self.from_ns = from_ns
        self.slices = collections.deque(maxlen=most)
        self.instants = collections.deque(maxlen=most)
        self.arrows = collections.deque(maxlen=2 * most)
        self.counters = collections.defaultdict(list)
        self.slice_count = 0
        self.dropped_to_ns = 0  # Everything that ended later is there.

    def add_slice(self, old, data):
        self.slice_count += 1
        if len(self.slices) == self.slices.maxlen:
            self.dropped_to_ns = max(self.dropped_to_ns, self.slices[0][0].end_ns)
        old.number = None
        self.slices.append((old, data))


class Tracks:
    """The rows of the page: a track for each thread, or for several short ones of one name."""

    def __init__(self):
        self._of = {}  # id of the ThreadState: track.
        self.tracks = []

    def add(self, label, timeline):
        """The main thread first, those of timers' runs, which come and go, last."""
        recording = timeline.recording

        def rank(thread):
            kernel_id, name = recording.threads[thread.number]
            return (kernel_id != recording.head.process_id, name.startswith("T:"), thread.first_ns)

        lanes = collections.defaultdict(list)
        for thread in sorted(timeline.threads.values(), key=rank):
            name = recording.threads[thread.number].name
            for track in lanes[name]:
                if track["last_ns"] < thread.first_ns:
                    break
            else:
                track = {"name": label + printable(name), "ids": [], "rows": 0}
                lanes[name].append(track)
                self.tracks.append(track)
            track["last_ns"] = thread.last_ns
            track["ids"].append(recording.threads[thread.number].kernel_id)
            self._of[id(thread)] = (self.tracks.index(track), track)

    def number_of(self, thread):
        return self._of[id(thread)][0]

    def need_row(self, thread, depth):
        track = self._of[id(thread)][1]
        track["rows"] = max(track["rows"], depth + 1)

    def of_log_line(self, line):
        """The track of its thread, or one for all lines whose thread is not known."""
        for number, track in enumerate(self.tracks):
            if line.kernel_id in track["ids"] or track["name"] == "log":
                return number
        self.tracks.append({"name": "log", "ids": [], "rows": 0})
        return len(self.tracks) - 1

    def described(self):
        described = []
        for track in self.tracks:
            ids = track["ids"]
            more = f" and {len(ids) - 1} more" if len(ids) > 1 else ""
            described.append({"name": track["name"], "rows": track["rows"],
                              "ids": f"{ids[0]}{more}" if ids else ""})
        return described


class Names:
    """Texts by their number."""

    def __init__(self):
        self.texts = []
        self._numbers = {}

    def number(self, text):
        number = self._numbers.get(text)
        if number is None:
            number = self._numbers[text] = len(self.texts)
            self.texts.append(clean(text))
        return number


def clean(text):
    """What is no UTF-8 is replaced."""
    return text if text.isascii() else text.encode("utf-8", "surrogateescape").decode(
        "utf-8", "replace")


def module_of(record, recording):
    """The module that a slice or an instant is about, for the search."""
    kind, fields = record
    if kind in (Kind.HANDLER_BEGUN, Kind.EVENT_SENT, Kind.EVENT_REFUSED):
        return "any" if fields[3] == ANY_MODULE else module_name(recording.names, fields[3])
    if kind in (Kind.HUB_REGISTERED, Kind.HUB_UNREGISTERED, Kind.HUB_THREAD_STARTED,
                Kind.HUB_THREAD_ENDED):
        return module_name(recording.names, fields[1])
    return ""


class Document:
    """Puts the data of the page together."""

    def __init__(self, collection, most):
        self._collection = collection
        self._shared = Shared(most, collection.from_ns)
        self._most = most
        self._names = Names()
        self._tracks = Tracks()
        self._log_lines = []
        self._data = [PageData(recording, self._shared) for recording in collection.recordings]

    def read(self):
        timelines = {id(data.recording): data.timeline for data in self._data}
        for _, source, what in self._collection.entries(with_gaps=True, from_the_beginning=True):
            if not isinstance(what, Line):
                timelines[id(source)].feed(what)
            elif what.time_ns >= self._shared.from_ns:
                self._log_lines.append(what)
        for data in self._data:
            data.timeline.finish(min(self._collection.to_ns, data.recording.last_ns()))
            several = len(self._data) > 1
            self._tracks.add(f"{process_label(data.recording)} " if several else "", data.timeline)

    def make(self):
        shared = self._shared
        collection = self._collection
        start_ns = max(collection.first_ns(), shared.dropped_to_ns)
        end_ns = max(collection.last_ns(), start_ns + 1)
        kept = [pair for pair in shared.slices if pair[0].end_ns >= start_ns]
        kept.sort(key=lambda pair: (pair[0].begin_ns, -pair[0].end_ns))
        slices = self._slices(kept, start_ns)
        instants = self._instants(start_ns, len(kept))
        first = self._data[0].recording
        return {
            "title": clean(process_label(first)),
            "facts": [clean(line) for data in self._data for line in describe_head(data.recording)],
            "startNs": start_ns,
            "endNs": end_ns,
            "start": f"{seconds(start_ns)} s on the monotonic clock, "
                     f"{date(first.head.start_realtime_ns + start_ns - first.head.start_ns)}",
            "notes": self._notes(len(kept), start_ns),
            "slices": slices,
            "instants": instants,
            "tracks": self._tracks.described(),
            "arrows": self._arrows(start_ns),
            "counters": self._counters(start_ns),
            "findings": self._findings(start_ns, end_ns),
            "names": self._names.texts,
        }

    def _slices(self, kept, start_ns):
        columns = {name: [] for name in ("track", "row", "begin", "duration", "category", "name",
                                         "module", "detail", "end")}
        names = self._names
        for number, (each, data) in enumerate(kept):
            each.number = number
            self._tracks.need_row(each.thread, each.depth)
            columns["track"].append(self._tracks.number_of(each.thread))
            columns["row"].append(each.depth)
            # What has begun before the window is drawn from its edge.
            begin_ns = max(each.begin_ns, start_ns)
            columns["begin"].append(begin_ns - start_ns)
            columns["duration"].append(each.end_ns - begin_ns)
            columns["category"].append(names.number(each.category))
            columns["name"].append(names.number(printable(each.name)))
            columns["module"].append(names.number(module_of(each.record, data.recording)))
            columns["detail"].append(names.number(data.sentences.of(*each.record)))
            columns["end"].append(names.number(end_of(each, data.sentences)))
        return columns

    def _instants(self, start_ns, first_number):
        columns = {name: [] for name in ("track", "ns", "category", "name", "module", "detail")}
        names = self._names

        def add(track, ns, category, name, module, detail):
            columns["track"].append(track)
            columns["ns"].append(ns - start_ns)
            columns["category"].append(names.number(category))
            columns["name"].append(names.number(name))
            columns["module"].append(names.number(module))
            columns["detail"].append(names.number(detail))

        for each, data in self._shared.instants:
            each.number = None
            if each.ns >= start_ns:
                each.number = first_number + len(columns["ns"])
                add(self._tracks.number_of(each.thread), each.ns, each.category,
                    printable(each.name), module_of(each.record, data.recording),
                    data.sentences.of(*each.record))
        for line in self._log_lines[-self._most:]:
            if line.time_ns >= start_ns:
                text = printable(line.text)
                add(self._tracks.of_log_line(line), line.time_ns, "log", text, "", text)
        return columns

    def _arrows(self, start_ns):
        columns = {name: [] for name in ("tail", "tailNs", "head", "headNs")}
        for tail, tail_ns, head, head_ns in self._shared.arrows:
            # Those of slices that were left out have none, or were never given a number.
            if number_of(tail) is not None and number_of(head) is not None:
                columns["tail"].append(tail.number)
                columns["tailNs"].append(max(0, tail_ns - start_ns))
                columns["head"].append(head.number)
                columns["headNs"].append(max(0, head_ns - start_ns))
        return columns

    def _counters(self, start_ns):
        counters = []
        for (name, key), points in self._shared.counters.items():
            points = [(ns - start_ns, value) for ns, value in points if ns >= start_ns]
            if not points:
                continue
            what, _, unit = key.partition(" ")
            group = "memory" if unit else "queues" if key == "events" else "counters"
            counters.append({"name": clean(what if unit else name), "unit": unit, "group": group,
                             "points": thinned(points)})
        # The ones that move most tell most.
        counters.sort(key=lambda each: -len(each["points"]))
        return [each for group in ("memory", "queues", "counters")
                for each in [one for one in counters if one["group"] == group][:MAX_COUNTERS]]

    def _findings(self, start_ns, end_ns):
        sections = []
        for data in self._data:
            for heading, count, found in data.findings.all(
                    min(self._collection.to_ns, data.recording.last_ns())):
                items = [self._finding(each, data, start_ns, end_ns) for each in found]
                if items:
                    sections.append({"heading": heading, "count": count, "items": items,
                                     "isUsual": heading in USUAL})
        return sections

    def _finding(self, each, data, start_ns, end_ns):
        item = {"text": clean(each.text)}
        if each.thread is not None:
            item["thread"] = clean(printable(data.recording.threads[each.thread.number].name))
            item["track"] = self._tracks.number_of(each.thread)
        if each.ns is not None:
            item["at"] = f"{seconds(each.ns)} s"
            if start_ns <= each.ns <= end_ns:
                item["ns"] = each.ns - start_ns
        if each.duration_ns is not None:
            item["durationNs"] = each.duration_ns
        if each.is_least:
            item["isLeast"] = True
        if each.place is not None and number_of(each.place) is not None:
            item["item"] = each.place.number
        return item

    def _notes(self, kept, start_ns):
        notes = []
        shared = self._shared
        if shared.slice_count > kept:
            notes.append(f"Shows the last {kept:,} of {shared.slice_count:,} slices, from "
                         f"{seconds(start_ns)} s on: a page holds at most {self._most:,}. Others "
                         "are chosen by --from and --to. The findings are of the whole recording.")
        elif self._collection.from_ns > 0:
            notes.append(f"Shows what was chosen, from {seconds(start_ns)} s on. The findings are "
                         "of the whole recording up to there.")
        if len(self._log_lines) > self._most:
            notes.append(f"Shows the last {self._most:,} of {len(self._log_lines):,} lines of the "
                         "log.")
        unpaired = sum(data.timeline.unpaired for data in self._data)
        if unpaired:
            notes.append(f"{unpaired:,} slices are left out whose beginnings were overwritten.")
        notes += self._collection.complaints
        return [clean(note) for note in notes]


def number_of(place):
    return getattr(place, "number", None)


def end_of(each, sentences):
    if each.end_record is not None:
        return sentences.of(*each.end_record)
    if not each.is_whole:
        return "its end was not recorded"
    return "answered before the thread's next record" if each.category == REPLY_WAIT else ""


def thinned(points):
    """The highest of each stretch, where there are more than can be told apart."""
    if len(points) <= MAX_POINTS:
        return points
    stretch = -(-len(points) // (MAX_POINTS // 2))
    kept = []
    for first in range(0, len(points), stretch):
        part = points[first:first + stretch]
        kept.append(part[0])
        highest = max(part, key=lambda point: point[1])
        if highest is not part[0]:
            kept.append(highest)
    return kept


def write_page(collection, most, script_folder, out):
    script = read_script(script_folder)
    with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "page.html"),
              encoding="utf-8") as file:
        template = file.read()
    document = Document(collection, most)
    document.read()
    data = document.make()
    packed = base64.b64encode(zlib.compress(
        json.dumps(data, separators=(",", ":")).encode(), 6)).decode()
    parts = {"title": html.escape(data["title"]), "data": packed,
             "script": script.replace("</script", "<\\/script")}
    before = 0
    # What is put in is not looked through for more of them.
    for name in ("title", "title", "data", "script"):
        mark = f"@{name}@"
        found = template.index(mark, before)
        out.write(template[before:found])
        out.write(parts[name])
        before = found + len(mark)
    out.write(template[before:])
