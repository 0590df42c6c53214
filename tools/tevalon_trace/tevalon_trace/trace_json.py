"""Trace-event JSON, which the Perfetto UI opens.

The format: "Trace Event Format", with B and E for slices, which nest by their order on a thread, s
and f for arrows, i for instants, C for counters and M for names. Times are microseconds.
"""

import json

from .device_log import Line
from .sentences import Sentences
from .text import fixed_text
from .timeline import Timeline

# Above all ids that a kernel gives: for a thread whose id an earlier one had.
SECOND_USE = 10_000_000


def quoted(text):
    """As JSON; bytes that are no UTF-8 are replaced."""
    if text.isascii() and text.isprintable() and '"' not in text and "\\" not in text:
        return f'"{text}"'
    return json.dumps(text.encode("utf-8", "surrogateescape").decode("utf-8", "replace"))


class Process:
    """Writes what a Timeline tells of one recording."""

    def __init__(self, recording, out):
        self._write = out.write
        self._sentences = Sentences(recording.names)
        self._recording = recording
        self.pid = recording.head.process_id
        self._place = {}  # Thread: what stands in each of its lines.
        self._names = {}
        self._used = {}
        self._arrows = 0
        self.timeline = Timeline(recording, self)
        self.tids = {}
        self._write_metadata()

    def _write_metadata(self):
        name = quoted(fixed_text(self._recording.head.process_name))
        self._write(f'{{"ph":"M","name":"process_name","pid":{self.pid},"args":{{"name":{name}}}}}')
        for number, thread in sorted(self._recording.threads.items()):
            tid = thread.kernel_id
            if tid in self._used:
                tid = SECOND_USE + number
            self._used[tid] = number
            self.tids[number] = tid
            self._place[number] = f'"pid":{self.pid},"tid":{tid}'
            self._write(f',\n{{"ph":"M","name":"thread_name",{self._place[number]},'
                        f'"args":{{"name":{quoted(thread.name or str(tid))}}}}}')

    def _record(self, record):
        return quoted(self._sentences.of(*record))

    def _name(self, name):
        text = self._names.get(name)
        if text is None:
            text = self._names[name] = quoted(name or "?")
        return text

    # ---- the timeline's sink ----

    def begun(self, new):
        self._write(f',\n{{"ph":"B","ts":{new.begin_ns / 1000:.3f},"cat":"{new.category}",'
                    f'"name":{self._name(new.name)},{self._place[new.thread.number]},'
                    f'"args":{{"record":{self._record(new.record)}}}}}')

    def ended(self, old):
        if old.end_record is not None:
            args = f',"args":{{"end":{self._record(old.end_record)}}}'
        elif old.is_whole:
            args = ""
        else:
            args = ',"args":{"end":"not recorded"}'
        self._write(f',\n{{"ph":"E","ts":{old.end_ns / 1000:.3f},'
                    f'{self._place[old.thread.number]}{args}}}')

    def arrow(self, tail, tail_ns, head, head_ns):
        self._arrows += 1
        same = f'"id":"{self.pid}.{self._arrows}","cat":"flow","name":"flow"'
        self._write(f',\n{{"ph":"s","ts":{tail_ns / 1000:.3f},{same},'
                    f'{self._place[tail.thread.number]}}},\n{{"ph":"f","bp":"e",'
                    f'"ts":{head_ns / 1000:.3f},{same},{self._place[head.thread.number]}}}')

    def instant(self, instant):
        self._write(f',\n{{"ph":"i","s":"t","ts":{instant.ns / 1000:.3f},'
                    f'"cat":"{instant.category}","name":{self._name(instant.name)},'
                    f'{self._place[instant.thread.number]},'
                    f'"args":{{"record":{self._record(instant.record)}}}}}')

    def counter(self, ns, name, values):
        numbers = ",".join(f"{quoted(key)}:{value:.6g}" if isinstance(value, float)
                           else f"{quoted(key)}:{value}" for key, value in values.items())
        self._write(f',\n{{"ph":"C","ts":{ns / 1000:.3f},"name":{self._name(name)},'
                    f'"pid":{self.pid},"args":{{{numbers}}}}}')

    def circle(self, ns, way, is_cut):
        names = [self.timeline.thread_name(thread) for thread in way]
        text = quoted("circle: " + " -> ".join(names + names[:1]))
        self._write(f',\n{{"ph":"i","s":"p","ts":{ns / 1000:.3f},"cat":"circle","name":{text},'
                    f'{self._place[way[0].number]}}}')

    def kept_events(self, event_type, created, kept):
        pass


class LogTrack:
    """Lines of a log: on the track of their thread where it is known, else on one of their own."""

    def __init__(self, processes, out):
        self._tids = {tid: process for process in processes
                      for tid in process.tids.values() if tid < SECOND_USE}
        self._write = out.write

    def line(self, line):
        process = self._tids.get(line.kernel_id)
        place = (f'"pid":{process.pid},"tid":{line.kernel_id},"s":"t"' if process is not None
                 else '"pid":0,"tid":0,"s":"g"')
        self._write(f',\n{{"ph":"i","ts":{line.time_ns / 1000:.3f},"cat":"log",'
                    f'"name":{quoted(line.text)},{place}}}')


def write_json(collection, out):
    out.write('{"displayTimeUnit":"ns","traceEvents":[\n')
    processes = []
    timelines = {}
    for number, recording in enumerate(collection.recordings):
        if number != 0:
            out.write(",\n")
        process = Process(recording, out)
        processes.append(process)
        timelines[id(recording)] = process.timeline
    log = LogTrack(processes, out)
    for _, source, what in collection.entries(with_gaps=True):
        if isinstance(what, Line):
            log.line(what)
        else:
            timelines[id(source)].feed(what)
    for process in processes:
        process.timeline.finish(min(collection.to_ns, process.timeline.recording.last_ns()))
    out.write(f'\n],"otherData":{other_data(processes)}}}\n')


def other_data(processes):
    """What of the recordings is missing, for whoever wonders."""
    return json.dumps({
        "unpaired ends": sum(process.timeline.unpaired for process in processes),
        "records lost": sum(process.timeline.recording.head.records_lost for process in processes),
        "unreadable blocks": sum(process.timeline.recording.damage.unreadable_blocks()
                                 for process in processes)})
