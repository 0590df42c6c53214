"""A recording, read from its file or from several copies of it into records."""

import collections
import struct

from .layout import (BLOCK_HEAD, BLOCK_TAIL, BYTE_ORDER_MARK, CONTENT, HEAD, HEAD_BYTES,
                     HEAD_FIELDS, MAGIC, NAME, TEXT_KINDS, VERSION, WORD, WORD_BYTES, NameKind)

Head = collections.namedtuple("Head", HEAD_FIELDS)
Thread = collections.namedtuple("Thread", "kernel_id name")

# The thread is the number in the recording; fields is what layout.CONTENT says, with the text of
# kinds that have one behind it, or for an unknown kind its words.
Record = collections.namedtuple("Record", "time_ns thread kind fields")
GAP = 0  # No kind of a record: see Recording.records().


class NotReadable(Exception):
    """Says why a file is no recording that can be read."""


def text_of(raw):
    """The bytes up to the first zero as text; what is no UTF-8 comes out again as it was."""
    return raw.split(b"\0", 1)[0].decode("utf-8", "surrogateescape")


def read_head(data):
    if len(data) < HEAD_BYTES or not data.startswith(MAGIC):
        raise NotReadable("it does not begin as a recording does")
    head = Head(*HEAD.unpack_from(data))
    if head.byte_order != BYTE_ORDER_MARK:
        raise NotReadable("it is from a machine of another byte order")
    if head.version != VERSION:
        raise NotReadable(f"it has version {head.version}; this program reads {VERSION}")
    if (head.block_bytes <= BLOCK_HEAD.size + BLOCK_TAIL.size or
            head.block_bytes % WORD_BYTES != 0):
        raise NotReadable("the size of its blocks makes no sense")
    return head


def read_names(data, head):
    """{(kind, id): text}."""
    names = {}
    for i in range(head.name_capacity):
        offset = head.name_offset + i * NAME.size
        if offset + NAME.size > len(data):
            break
        number, raw, kind = NAME.unpack_from(data, offset)
        if kind != 0:
            names.setdefault((kind, number), text_of(raw))
    return names


class Block:
    """Where the records of one thread lie in a file."""

    __slots__ = ("thread", "thread_block", "kernel_id", "thread_name", "base_ns", "first", "end")

    def __init__(self, data, offset):
        (_, committed, self.thread, self.kernel_id, self.thread_block, _, self.base_ns,
         name) = BLOCK_HEAD.unpack_from(data, offset)
        self.thread_name = text_of(name)
        self.first = offset + BLOCK_HEAD.size
        self.end = self.first + committed


def read_block(data, offset, head, damage):
    """The block that begins there; None where it is unused or unreadable, which damage counts."""
    if offset + head.block_bytes > len(data):
        damage.cut_off_blocks += 1
        return None
    sequence, committed = struct.unpack_from("<II", data, offset)
    tail, _ = BLOCK_TAIL.unpack_from(data, offset + head.block_bytes - BLOCK_TAIL.size)
    if sequence != tail:
        damage.reused_blocks += 1
        return None
    if sequence == 0:
        return None
    if committed > head.block_bytes - BLOCK_HEAD.size - BLOCK_TAIL.size:
        damage.damaged_blocks += 1
        return None
    return Block(data, offset)


def read_blocks(data, head, damage):
    """The readable blocks in the order in which they lie."""
    for i in range(head.block_count):
        offset = head.block_offset + i * head.block_bytes
        if offset >= len(data):  # Cut off from here on; the count may be anything.
            damage.cut_off_blocks += head.block_count - i
            return
        block = read_block(data, offset, head, damage)
        if block is not None:
            yield block


class Damage:
    """What of a file could not be read."""

    def __init__(self):
        self.cut_off_blocks = 0
        self.reused_blocks = 0  # By the process, while it was copied or when it was killed.
        self.damaged_blocks = 0
        self.ended_blocks = 0  # Read up to a record that makes no sense.

    def unreadable_blocks(self):
        return self.cut_off_blocks + self.reused_blocks + self.damaged_blocks

    def describe(self, head):
        """Why it could not be read whole; empty where it could.

        That a living process reuses a block is no damage.
        """
        parts = []
        if self.cut_off_blocks:
            parts.append(f"it is cut off: {self.cut_off_blocks} of {head.block_count} blocks "
                         "are missing")
        damaged = self.damaged_blocks + self.ended_blocks
        if head.stop_ns != 0:
            damaged += self.reused_blocks
        if damaged:
            parts.append(f"it is damaged: {damaged} of {head.block_count} blocks could not be "
                         "read, or not whole")
        return "; ".join(parts)


class Recording:
    """The records of one process, from one file or from several copies.

    Holds for each record where it lies and when it happened, and unpacks it when it is asked for.
    """

    def __init__(self, data):
        """Raises NotReadable where data does not begin as a recording."""
        self.head = read_head(data)
        self.names = read_names(data, self.head)
        self.damage = Damage()
        self.shift_ns = 0  # Added to all times: to the clock of another boot.
        self._data = data
        self._set_blocks({(block.thread, block.thread_block): block
                          for block in read_blocks(data, self.head, self.damage)})

    def identity(self):
        """Is equal for copies of the same recording."""
        return (self.head.boot_id, self.head.process_id, self.head.start_ns)

    def add_copy(self, other):
        """Takes in what a copy of the same recording has more."""
        blocks = dict(self._blocks)
        shift = len(self._data)
        for key, block in other._blocks.items():
            block.first += shift
            block.end += shift
            mine = blocks.get(key)
            if mine is None or mine.end - mine.first < block.end - block.first:
                blocks[key] = block
        self._data += other._data
        self.names.update(other.names)
        if other.head.stop_ns != 0 or other.head.records_lost > self.head.records_lost:
            self.head = other.head
        for name, count in vars(other.damage).items():
            if name != "ended_blocks":
                setattr(self.damage, name, max(count, getattr(self.damage, name)))
        self._set_blocks(blocks)

    def _set_blocks(self, blocks):
        self._blocks = blocks
        self.threads = {}
        self._gaps = set()  # Positions of records before which records of the thread are missing.
        times = []
        positions = []
        threads = []
        self.damage.ended_blocks = 0
        # The thread's own numbers give the exact order; its clock may have stood still.
        expected = {}
        for key in sorted(blocks):
            block = blocks[key]
            self.threads[block.thread] = Thread(block.kernel_id, block.thread_name)
            if expected.get(block.thread, block.thread_block) != block.thread_block:
                self._gaps.add(block.first)
            expected[block.thread] = block.thread_block + 1
            self._walk(block, times, positions)
            threads.extend([block.thread] * (len(times) - len(threads)))
        order = sorted(range(len(times)), key=times.__getitem__)
        self._times = [times[i] for i in order]
        self._positions = [positions[i] for i in order]
        self._threads = [threads[i] for i in order]

    def _walk(self, block, times, positions):
        """What is damaged ends the block."""
        unpack = WORD.unpack_from
        data = self._data
        position = block.first
        end = block.end
        base = block.base_ns
        while position + WORD_BYTES <= end:
            first, = unpack(data, position)
            following = position + (first >> 5 & 0x7F8)  # The length is in words.
            if following == position or following > end:
                self.damage.ended_blocks += 1
                return
            times.append(base + (first >> 16))
            positions.append(position)
            position = following

    def __len__(self):
        return len(self._times)

    def first_ns(self):
        return (self._times[0] if self._times else self.head.start_ns) + self.shift_ns

    def last_ns(self):
        last = self._times[-1] if self._times else self.head.start_ns
        return max(last, self.head.stop_ns) + self.shift_ns

    def records(self, with_gaps=False):
        """All in order of time, those of each thread in their own order.

        With gaps: a record of kind GAP stands before one that is behind a thread's missing records.
        """
        data = self._data
        shift = self.shift_ns
        gaps = self._gaps if with_gaps else ()
        for time_ns, position, thread in zip(self._times, self._positions, self._threads):
            if position in gaps:
                yield Record(time_ns + shift, thread, GAP, ())
            kind, fields = unpack_record(data, position)
            yield Record(time_ns + shift, thread, kind, fields)


def unpack_record(data, position):
    """(kind, fields) of the record that lies there."""
    kind = data[position]
    length = data[position + 1] * WORD_BYTES - WORD_BYTES
    position += WORD_BYTES
    layout = CONTENT.get(kind)
    if layout is None:
        return kind, struct.unpack_from(f"<{length // WORD_BYTES}Q", data, position)
    if length < layout.size:  # Damaged: what is missing is zero.
        content = data[position:position + length].ljust(layout.size, b"\0")
        return kind, layout.unpack(content) + (("",) if kind in TEXT_KINDS else ())
    fields = layout.unpack_from(data, position)
    if kind in TEXT_KINDS:
        fields += (text_of(data[position + layout.size:position + length]),)
    return kind, fields


def name_of(names, kind, number):
    """The name alone where there is one, else the number."""
    return names.get((kind, number)) or str(number)


def module_name(names, number):
    return name_of(names, NameKind.MODULE, number)


def event_name(names, number):
    return name_of(names, NameKind.EVENT, number)


def read_file(path):
    """Raises OSError or NotReadable."""
    with open(path, "rb") as file:
        return Recording(file.read())
