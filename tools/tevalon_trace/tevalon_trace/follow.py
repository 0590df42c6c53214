"""The records of a process that goes on, as they come."""

import os
import time

from .recording import (Damage, Record, Thread, read_block, read_file, read_head, read_names,
                        unpack_record)
from .text import Lines, describe_head

INTERVAL = 0.1
MAX_HEAD_BYTES = 256 + 512 * 32  # With the names.


class Followed:
    """A recording that is read again and again; each time what is new.

    A record has its time before it can be read, and another thread's with a later time may be read
    first: so what is not older than the look before waits for the next look.
    """

    def __init__(self, path):
        """Raises OSError or NotReadable."""
        self.threads = {}
        self.names = {}
        self.missed_blocks = 0
        self._file = os.open(path, os.O_RDONLY | os.O_CLOEXEC)
        self._marks = {}  # Offset of a block: its first words, which change with each record.
        self._read_to = {}  # (thread, block of the thread): bytes.
        self._newest_block = {}  # thread: its newest block that was seen.
        self._waiting = []
        self._last_look_ns = 0
        self._read_head()

    def _read_head(self):
        data = os.pread(self._file, MAX_HEAD_BYTES, 0)
        self.head = read_head(data)
        self.names.update(read_names(data, self.head))

    def _changed_blocks(self):
        """[(block, the bytes that it lies in)], by thread and in its order."""
        changed = []
        for i in range(self.head.block_count):
            offset = self.head.block_offset + i * self.head.block_bytes
            mark = os.pread(self._file, 8, offset)
            if self._marks.get(offset) == mark:
                continue
            data = os.pread(self._file, self.head.block_bytes, offset)
            block = read_block(data, 0, self.head, Damage())
            if block is not None:
                self._marks[offset] = data[:8]
                changed.append((block, data))
        return sorted(changed, key=lambda pair: (pair[0].thread, pair[0].thread_block))

    def look(self):
        """The new records that no older one can follow, in order of time."""
        now = time.monotonic_ns()
        self._read_head()
        self._take_new()
        ready = [record for record in self._waiting if record.time_ns < self._last_look_ns]
        self._waiting = [record for record in self._waiting
                         if record.time_ns >= self._last_look_ns]
        self._last_look_ns = now
        return sorted(ready, key=lambda record: record.time_ns)

    def rest(self):
        """Those that still waited, once more are not to come."""
        self._read_head()
        self._take_new()
        rest, self._waiting = self._waiting, []
        return sorted(rest, key=lambda record: record.time_ns)

    def _take_new(self):
        for block, data in self._changed_blocks():
            self.threads[block.thread] = Thread(block.kernel_id, block.thread_name)
            newest = self._newest_block.get(block.thread, block.thread_block)
            self.missed_blocks += max(0, block.thread_block - newest - 1)
            self._newest_block[block.thread] = max(block.thread_block, newest)
            self._take_from(block, data)

    def _take_from(self, block, data):
        key = (block.thread, block.thread_block)
        position = block.first + self._read_to.get(key, 0)
        while position + 8 <= block.end:
            length = 8 * data[position + 1]
            if length == 0 or position + length > block.end:
                break
            first = int.from_bytes(data[position:position + 8], "little")
            kind, fields = unpack_record(data, position)
            self._waiting.append(Record(block.base_ns + (first >> 16), block.thread, kind, fields))
            position += length
        self._read_to[key] = position - block.first

    def is_over(self):
        """Why no more records will come; empty while they may."""
        if self.head.stop_ns != 0:
            return "the recording was stopped"
        try:
            os.kill(self.head.process_id, 0)
        except ProcessLookupError:
            return f"process {self.head.process_id} has ended"
        except PermissionError:
            pass
        return ""


def follow(path, last, out, report):
    """Writes a recording's lines, the last ones first, until it is over.

    Raises OSError or NotReadable.
    """
    followed = Followed(path)
    out.write("\n".join(describe_head(read_file(path))) + "\n")
    over = followed.is_over()
    records = followed.rest()  # What is there already.
    while True:
        lines = Lines(followed)  # Threads and names may be new.
        for record in records[-last:] if last is not None else records:
            out.write(lines.of(record) + "\n")
        last = None
        out.flush()
        if followed.missed_blocks:
            report(f"'{path}': {followed.missed_blocks} blocks were overwritten before they were "
                   "read")
            followed.missed_blocks = 0
        if over:
            report(f"'{path}': {over}")
            return
        time.sleep(INTERVAL)
        over = followed.is_over()  # Before the look, which then sees all there will ever be.
        records = followed.look()
        if over:
            records += followed.rest()
