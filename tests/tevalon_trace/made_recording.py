"""Recordings that a test makes up, laid out as docs/recording-format.md says.

Knows nothing of the package under test, so that both have to agree with the page.
"""

import struct

BLOCK_HEAD = 48
BLOCK_TAIL = 8

MODULE, EVENT, TASK = 1, 2, 3
NANOSECONDS = 10**9


def halves(low, high=0):
    return struct.pack("<ii", low, high)


def word(value):
    return struct.pack("<Q", value % 2**64)


def text(value):
    raw = value.encode() if isinstance(value, str) else value
    return raw + bytes(-len(raw) % 8)


class MadeRecording:
    """The records are added in their order; each thread's fill blocks of their own."""

    def __init__(self, block_bytes=4096, start_ns=1000 * NANOSECONDS,
                 start_realtime_ns=1_700_000_000 * NANOSECONDS, process_id=4000, boot_id=7,
                 pointer_bytes=8, name="made"):
        self.block_bytes = block_bytes
        self.start_ns = start_ns
        self.start_realtime_ns = start_realtime_ns
        self.stop_ns = 0
        self.process_id = process_id
        self.boot_id = boot_id
        self.pointer_bytes = pointer_bytes
        self.process_name = name
        self.records_lost = 0
        self.names = []
        self.threads = {}  # Number: (kernel id, name).
        self.blocks = []  # [thread, number of the thread's block, base, bytearray].
        self._open = {}

    def name(self, kind, number, name):
        self.names.append(struct.pack("<i24sI", number, name.encode(), kind))

    def thread(self, number, kernel_id, name):
        self.threads[number] = (kernel_id, name)

    def add(self, ns, thread, kind, content=b""):
        """ns since the start."""
        assert len(content) % 8 == 0
        block = self._open.get(thread)
        room = self.block_bytes - BLOCK_HEAD - BLOCK_TAIL
        if block is None or len(block[3]) + 8 + len(content) > room:
            number = 0 if block is None else block[1] + 1
            block = self._open[thread] = [thread, number, self.start_ns + ns, bytearray()]
            self.blocks.append(block)
        first = (self.start_ns + ns - block[2]) << 16 | (1 + len(content) // 8) << 8 | kind
        block[3].extend(struct.pack("<Q", first) + content)

    def event(self, ns, thread, kind, address, event_type, *more):
        self.add(ns, thread, kind, word(address) + halves(event_type, more[0] if more else 0) +
                 b"".join(halves(*pair) for pair in more[1:]))

    def bytes(self):
        name_offset = 256
        block_offset = name_offset + 32 * len(self.names)
        head = struct.pack(
            "<8sIHHIIIIIIIIIIQQQ16s16s20s20s", b"TVRECORD", 0x01020304, 1, self.pointer_bytes, 256,
            name_offset, len(self.names), len(self.names), block_offset, len(self.blocks),
            self.block_bytes, self.records_lost, self.process_id, self.boot_id, self.start_ns,
            self.start_realtime_ns, self.stop_ns, self.process_name.encode(), b"x86_64",
            bytes(range(1, 21)), bytes(20))
        parts = [head.ljust(256, b"\0"), *self.names]
        for sequence, (thread, number, base, records) in enumerate(self.blocks, 1):
            kernel_id, name = self.threads[thread]
            parts.append(struct.pack("<IIIIIIQ16s", sequence, len(records), thread, kernel_id,
                                     number, 0, base, name.encode()))
            parts.append(bytes(records).ljust(self.block_bytes - BLOCK_HEAD - BLOCK_TAIL, b"\0"))
            parts.append(struct.pack("<II", sequence, 0))
        return b"".join(parts)

    def write(self, path):
        with open(path, "wb") as file:
            file.write(self.bytes())
