"""The recording that lies in the process's memory; docs/recording-format.md describes its layout."""

import errno
import os
import struct
import tempfile

from tevalon_gdb import memory

MAGIC = b'TVRECORD'
HEAD_BYTES = 256
BLOCK_HEAD_BYTES = 48
BLOCK_TAIL_BYTES = 8
PHASES = ('Idle', 'Changing', 'Recording')
PIECE_BYTES = 1 << 20
PAGE_BYTES = 4096
KIND_MEMORY = 28


class Content:
    """What a recording's bytes say of the process: when something happened last, and what its
    threads are called."""

    def __init__(self, data, order):
        self._data = data
        self._order = order
        fields = struct.unpack_from(order + '9I', data, 16)
        (_, _, _, _, self._block_offset, self._block_count, self._block_bytes, self.records_lost,
         self.process_id) = fields
        self.start_ns, start_realtime_ns = struct.unpack_from(order + 'QQ', data, 56)
        self.last_ns = self.start_ns
        self.realtime = (self.start_ns, start_realtime_ns)  # Two readings of the same moment.
        self.thread_names = {}
        self._read_blocks()

    def _read_blocks(self):
        """A thread's last record is in its youngest block."""
        youngest = {}
        for i in range(self._block_count):
            begin = self._block_offset + i * self._block_bytes
            if begin + self._block_bytes > len(self._data):
                break
            sequence, committed, thread, kernel_id, number = struct.unpack_from(
                self._order + '5I', self._data, begin)
            tail, = struct.unpack_from(self._order + 'I', self._data,
                                       begin + self._block_bytes - BLOCK_TAIL_BYTES)
            room = self._block_bytes - BLOCK_HEAD_BYTES - BLOCK_TAIL_BYTES
            if sequence == 0 or sequence != tail or committed > room:
                continue
            if thread not in youngest or youngest[thread][0] < number:
                youngest[thread] = (number, begin, committed, kernel_id, sequence)
        # A later thread may have the kernel id of an earlier one.
        for _, begin, committed, kernel_id, _ in sorted(youngest.values(), key=lambda b: b[4]):
            name = memory.text_of(self._data[begin + 32:begin + 48])
            if name:
                self.thread_names[kernel_id] = name
            self._read_times(begin, committed)

    def _read_times(self, begin, committed):
        base, = struct.unpack_from(self._order + 'Q', self._data, begin + 24)
        at = begin + BLOCK_HEAD_BYTES
        end = at + committed
        while at + 8 <= end:
            head, = struct.unpack_from(self._order + 'Q', self._data, at)
            length = (head >> 8 & 0xff) * 8
            if length == 0 or at + length > end:
                return
            time_ns = base + (head >> 16)
            self.last_ns = max(self.last_ns, time_ns)
            if head & 0xff == KIND_MEMORY and length >= 40 and time_ns >= self.realtime[0]:
                self.realtime = (time_ns, struct.unpack_from(self._order + 'Q', self._data,
                                                             at + 32)[0])
            at += length


class Recording:
    """Where it lies. `content` is None where there is none, or it cannot be read."""

    def __init__(self, phase, begin, size):
        self.phase = phase
        self.begin = begin
        self.size = size
        self.missing_bytes = 0
        self.content = None
        self.notes = []
        self._data = b''

    def read(self):
        """All of it. What is not in memory is zeros, which a reader takes for unused blocks."""
        if self.begin == 0:
            return
        self._data, self.missing_bytes = _read_what_there_is(self.begin, self.size)
        order = memory.byte_order()
        if not self._data.startswith(MAGIC):
            self.notes.append('the recording cannot be read: ' + self.why_unreadable())
            return
        if self.missing_bytes:
            self.notes.append('%d of the recording\'s %d bytes are not in memory'
                              % (self.missing_bytes, self.size))
        try:
            self.content = Content(self._data, order)
        except struct.error as error:
            self.notes.append('the recording is damaged: %s' % error)

    def why_unreadable(self):
        if self.missing_bytes >= min(self.size, PAGE_BYTES):
            return ('its %d bytes at 0x%x are not in memory. Cores do not have what was recorded '
                    'into a file: that file has it' % (self.size, self.begin))
        return 'the process stopped before its head was written'

    def data(self):
        """The bytes to save. Raises memory.Failure where that is no recording."""
        if self.begin == 0:
            raise memory.Failure('the process has not recorded anything')
        if not self._data.startswith(MAGIC):
            raise memory.Failure('no recording to save: ' + self.why_unreadable())
        return self._data

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
    return bytes(data), missing


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
    """The recording, read. Raises memory.Failure without debug information."""
    phase = memory.unsigned(memory.variable('diagnostics::(anonymous namespace)::g_phase'))
    place = memory.variable('diagnostics::(anonymous namespace)::g_memory')
    begin = int(place['p_begin'])
    size = int(place['bytes'])
    most = 1 << 30
    recording = Recording(PHASES[phase] if phase < len(PHASES) else 'Changing', begin, size)
    if begin != 0 and not HEAD_BYTES <= size <= most:
        recording.notes.append('the recording is damaged: %d bytes at 0x%x' % (size, begin))
        recording.begin = 0
    recording.read()
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
