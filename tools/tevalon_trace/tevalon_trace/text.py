"""A recording as text: what it is of, and a line for each record."""

import collections

from .sentences import Sentences, date, printable, seconds

NO_BUILD_ID = bytes(20)


def build_id(raw):
    return raw.hex() if raw != NO_BUILD_ID else "unknown"


def fixed_text(raw):
    return printable(raw.split(b"\0", 1)[0].decode("utf-8", "surrogateescape"))


def describe_head(recording):
    """What the recording is of, in a few lines, and what of it is missing."""
    head = recording.head
    stop = (f", stopped at monotonic {seconds(head.stop_ns)}" if head.stop_ns != 0
            else ", not stopped")
    lines = [
        f"process {head.process_id} '{fixed_text(head.process_name)}', boot id {head.boot_id}, "
        f"on {fixed_text(head.architecture)} with {8 * head.pointer_bytes}-bit pointers",
        f"build id of the program {build_id(head.program_build_id)}, "
        f"of the library {build_id(head.library_build_id)}",
        f"started at {date(head.start_realtime_ns)}, monotonic {seconds(head.start_ns)}{stop}",
        f"{len(recording)} records of {len(recording.threads)} threads",
    ]
    if head.records_lost:
        lines.append(f"{head.records_lost} records lost")
    if recording.damage.unreadable_blocks():
        lines.append(f"{recording.damage.unreadable_blocks()} of {head.block_count} blocks "
                     "unreadable")
    if recording.damage.ended_blocks:
        lines.append(f"{recording.damage.ended_blocks} of {head.block_count} blocks damaged: read "
                     "as far as they make sense")
    if head.names_given > head.name_capacity:
        lines.append(f"{head.names_given - head.name_capacity} names missing")
    return lines


def thread_column(thread):
    return f"{printable(thread.name):<15} {thread.kernel_id:>6}"


class Lines:
    """The lines of the records of one recording."""

    def __init__(self, recording, prefix=""):
        self._sentences = Sentences(recording.names)
        self._prefix = prefix
        self._threads = recording.threads
        self._columns = {}

    def of(self, record):
        """"12.000345678  Evt:7            1234  event 0x1f0 ..."."""
        column = self._columns.get(record.thread)
        if column is None:
            column = f"  {self._prefix}{thread_column(self._threads[record.thread])}  "
            self._columns[record.thread] = column
        return seconds(record.time_ns) + column + self._sentences.of(record.kind, record.fields)


class LogLines:
    """The lines of a log, in the same columns."""

    @staticmethod
    def of(line):
        return (f"{seconds(line.time_ns)}  {printable(line.thread_name):<15} "
                f"{line.kernel_id or '':>6}  log: {printable(line.text)}")


def process_label(recording):
    return f"{fixed_text(recording.head.process_name)}[{recording.head.process_id}]"


def write_text(collection, last, out):
    """The heads, and then the records, or the last ones of them alone."""
    several = len(collection.recordings) > 1
    lines = {id(log): LogLines for log in collection.logs}
    for recording in collection.recordings:
        out.write("\n".join(describe_head(recording)) + "\n")
        lines[id(recording)] = Lines(recording,
                                     f"{process_label(recording)} " if several else "")
    entries = collection.entries()
    if last is not None:
        entries = collections.deque(entries, maxlen=last)
    for _, source, what in entries:
        out.write(lines[id(source)].of(what) + "\n")
