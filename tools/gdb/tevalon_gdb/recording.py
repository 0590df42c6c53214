"""The recording that lies in the process's memory. docs/recording-format.md has its layout."""

import errno
import os
import struct
import tempfile
from types import SimpleNamespace

from tevalon_gdb import memory

MAGIC = b'TVRECORD'
HEAD_BYTES = 256
BLOCK_HEAD_BYTES = 48
BLOCK_TAIL_BYTES = 8
PHASES = ('Idle', 'Changing', 'Recording')
PIECE_BYTES = 1 << 20
PAGE_BYTES = 4096
MOST_BLOCKS = 511
LEAST_BLOCK_BYTES = 256
KIND_MEMORY = 28

NOT_IN_CORES = 'cores do not have what was recorded into a file: that file has it'
UNFINISHED = 'the process stopped before its head was written'


class Content:
    """What a recording says of the process: when something happened last, and what its threads are
    called. Reads no more than that takes, for memory may be far away: the head, those of the
    blocks, and the youngest block of each thread, which has its last record."""

    def __init__(self, begin):
        self._begin = begin
        self._order = memory.byte_order()
        self.unread_blocks = 0
        head = self._read(0, HEAD_BYTES)
        (_, _, _, _, self._block_offset, self._block_count, self._block_bytes,
         self.records_lost) = struct.unpack_from(self._order + '8I', head, 16)
        if self._block_count > MOST_BLOCKS or self._block_bytes < LEAST_BLOCK_BYTES:
            raise memory.Damaged('%d blocks of %d bytes' % (self._block_count, self._block_bytes))
        self.start_ns, start_realtime_ns = struct.unpack_from(self._order + 'QQ', head, 56)
        self.last_ns = self.start_ns
        self.realtime = (self.start_ns, start_realtime_ns)  # Two readings of the same moment.
        self.thread_names = {}
        self._read_blocks()

    def _read(self, offset, count):
        return memory.read_bytes(self._begin + offset, count)

    def _read_blocks(self):
        youngest = {}
        for i in range(self._block_count):
            try:
                block = self._read_block_head(self._block_offset + i * self._block_bytes)
            except memory.READ_ERRORS:
                self.unread_blocks += 1
                continue
            if block is None:
                continue
            known = youngest.get(block.thread)
            if known is None or known.number < block.number:
                youngest[block.thread] = block
        # In order: a later thread may have the kernel id of an earlier one.
        for block in sorted(youngest.values(), key=lambda block: block.sequence):
            if block.name:
                self.thread_names[block.kernel_id] = block.name
            try:
                self._read_times(block)
            except memory.READ_ERRORS:
                self.unread_blocks += 1

    def _read_block_head(self, begin):
        """None of a block that is unused, or was being reused."""
        head = self._read(begin, BLOCK_HEAD_BYTES)
        tail = self._read(begin + self._block_bytes - BLOCK_TAIL_BYTES, 4)
        sequence, committed, thread, kernel_id, number, _, base_ns = struct.unpack_from(
            self._order + '6IQ', head)
        room = self._block_bytes - BLOCK_HEAD_BYTES - BLOCK_TAIL_BYTES
        last_sequence, = struct.unpack(self._order + 'I', tail)
        if sequence == 0 or sequence != last_sequence or committed > room:
            return None
        return SimpleNamespace(begin=begin, sequence=sequence, committed=committed, thread=thread,
                               kernel_id=kernel_id, number=number, base_ns=base_ns,
                               name=memory.text_of(head[32:48]))

    def _read_times(self, block):
        data = self._read(block.begin + BLOCK_HEAD_BYTES, block.committed)
        at = 0
        while at + 8 <= len(data):
            head, = struct.unpack_from(self._order + 'Q', data, at)
            length = (head >> 8 & 0xff) * 8
            if length == 0 or at + length > len(data):
                return
            time_ns = block.base_ns + (head >> 16)
            self.last_ns = max(self.last_ns, time_ns)
            if head & 0xff == KIND_MEMORY and length >= 40 and time_ns >= self.realtime[0]:
                self.realtime = (time_ns, struct.unpack_from(self._order + 'Q', data, at + 32)[0])
            at += length


class Recording:
    """Where it lies. `content` is None where there is none, or it cannot be read."""

    def __init__(self, phase, begin, size):
        self.phase = phase
        self.begin = begin
        self.size = size
        self.content = None
        self.notes = []

    def look(self):
        """Finds out what is in it."""
        if self.begin == 0:
            return
        try:
            if memory.read_bytes(self.begin, len(MAGIC)) != MAGIC:
                self.notes.append('no recording can be read: ' + UNFINISHED)
                return
            self.content = Content(self.begin)
        except memory.READ_ERRORS as error:
            self.notes.append('no recording can be read: %s; %s' % (error, NOT_IN_CORES))
            return
        if self.content.unread_blocks > 0:
            self.notes.append("%d of the recording's blocks are not in memory"
                              % self.content.unread_blocks)

    def data(self):
        """All of it; what is not in memory is zeros, which a reader takes for unused blocks. Raises
        memory.Failure where that is no recording."""
        if self.begin == 0:
            raise memory.Failure('no recording to save: ' + self.notes[0] if self.notes else
                                 'the process has not recorded anything')
        data, missing = _read_what_there_is(self.begin, self.size)
        if missing == self.size:
            raise memory.Failure('no recording to save: its %d bytes at 0x%x are not in memory; %s'
                                 % (self.size, self.begin, NOT_IN_CORES))
        if not data.startswith(MAGIC):
            raise memory.Failure('no recording to save: ' + UNFINISHED)
        self.notes = ["%d of the recording's bytes are not in memory, and zeros in the file"
                      % missing] if missing else []
        return data

    def summary(self):
        """The state report's line."""
        if self.begin == 0 or self.phase == 'Changing' or self.content is None:
            return 'recorder: nothing was recorded'
        return ('recorder: %s, %d bytes, from monotonic %d.%09d, %d records lost'
                % ('recording' if self.phase == 'Recording' else 'stopped', self.size,
                   self.content.start_ns // 10**9, self.content.start_ns % 10**9,
                   self.content.records_lost))


def _read_what_there_is(begin, size):
    """The bytes, and how many of them are zeros for want of memory."""
    data = bytearray(size)
    missing = 0
    for at in range(0, size, PIECE_BYTES):
        count = min(PIECE_BYTES, size - at)
        try:
            data[at:at + count] = memory.read_bytes(begin + at, count)
        except memory.READ_ERRORS:
            missing += _read_pages(begin, data, at, at + count)
    return data, missing


def _read_pages(begin, data, at, end):
    missing = 0
    while at < end:
        count = min(PAGE_BYTES - (begin + at) % PAGE_BYTES, end - at)
        try:
            data[at:at + count] = memory.read_bytes(begin + at, count)
        except memory.READ_ERRORS:
            missing += count
        at += count
    return missing


def find():
    """The recording. Raises memory.Failure without debug information."""
    memory.list_of_activities()
    phase = memory.variable_if_linked('diagnostics::(anonymous namespace)::g_phase')
    place = memory.variable_if_linked('diagnostics::(anonymous namespace)::g_memory')
    if phase is None or place is None:
        return Recording('Idle', 0, 0)
    phase = memory.unsigned(phase)
    begin = int(place['p_begin'])
    size = int(place['bytes'])
    most = 1 << 30
    recording = Recording(PHASES[phase] if phase < len(PHASES) else 'Changing', begin, size)
    if begin != 0 and not HEAD_BYTES <= size <= most:
        recording.notes.append('the recording is damaged: %d bytes at 0x%x' % (size, begin))
        recording.begin = 0
    recording.look()
    return recording


def save(path):
    """Saves it as a new file, all of it or nothing, for its user alone. Returns the lines that say
    what was saved."""
    recording = find()
    data = recording.data()
    folder = os.path.dirname(path) or '.'
    try:
        descriptor, temporary = tempfile.mkstemp(prefix='.tevalon-record-', dir=folder)
        try:
            with os.fdopen(descriptor, 'wb') as file:
                file.write(data)
                file.flush()
                os.fsync(file.fileno())
            _give_name(temporary, path)
        finally:
            if os.path.lexists(temporary):
                os.unlink(temporary)
    except OSError as error:
        raise memory.Failure("cannot save '%s': %s" % (path, error.strerror))
    lines = ["%d bytes saved as '%s'" % (len(data), path)]
    return lines + ['note: ' + note for note in recording.notes]


def _give_name(temporary, path):
    """An earlier file is not lost: neither replaced nor followed, where it is a link."""
    try:
        os.link(temporary, path)
    except OSError as error:
        if error.errno not in (errno.EPERM, errno.EOPNOTSUPP, errno.ENOSYS):
            raise
        # A file system without links.
        if os.path.lexists(path):
            raise FileExistsError(errno.EEXIST, os.strerror(errno.EEXIST), path)
        os.rename(temporary, path)
