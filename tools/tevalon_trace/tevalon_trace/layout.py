"""How a recording lies in a file: docs/recording-format.md in numbers."""

import enum
import struct

MAGIC = b"TVRECORD"
BYTE_ORDER_MARK = 0x01020304
VERSION = 1

# Up to the byte order, to be read before anything else is believed.
HEAD = struct.Struct("<8sIHHIIIIIIIIIIQQQ16s16s20s20s")
HEAD_BYTES = 256
HEAD_FIELDS = (
    "magic", "byte_order", "version", "pointer_bytes", "head_bytes", "name_offset",
    "name_capacity", "names_given", "block_offset", "block_count", "block_bytes", "records_lost",
    "process_id", "boot_id", "start_ns", "start_realtime_ns", "stop_ns", "process_name",
    "architecture", "program_build_id", "library_build_id")

NAME = struct.Struct("<i24sI")

BLOCK_HEAD = struct.Struct("<IIIIIIQ16s")
BLOCK_TAIL = struct.Struct("<II")
WORD = struct.Struct("<Q")
WORD_BYTES = 8


class NameKind(enum.IntEnum):
    MODULE = 1
    EVENT = 2
    TASK = 3


class Kind(enum.IntEnum):
    EVENT_CREATED = 1
    EVENT_SENT = 2
    EVENT_QUEUED = 3
    EVENT_REFUSED = 4
    HANDLER_BEGUN = 5
    HANDLER_ENDED = 6
    EVENT_REPLIED = 7
    EVENT_AWAITED = 8
    EVENT_AWAITED_IN_VAIN = 9
    EVENT_UNANSWERED = 10
    TASK_POSTED = 11
    TASK_CANCELLED = 12
    TASK_BEGUN = 13
    TASK_ENDED = 14
    TIMER_STARTED = 15
    TIMER_STOPPED = 16
    TIMER_DUE = 17
    TIMER_RUN_BEGUN = 18
    TIMER_RUN_ENDED = 19
    WATCH_BEGUN = 20
    WATCH_OVERDUE = 21
    WATCH_ENDED = 22
    HUB_REGISTERED = 23
    HUB_UNREGISTERED = 24
    HUB_THREAD_STARTED = 25
    HUB_THREAD_ENDED = 26
    WAITED = 27
    MEMORY = 28
    MARK = 29
    SCOPE_BEGUN = 30
    SCOPE_ENDED = 31
    COUNTER = 32


# The fixed part of each kind's content: Q a whole word, q one that is signed, ii two signed halves.
# Behind it, where TEXT_KINDS says so, a text that takes the rest.
_EVENT = struct.Struct("<Qii")
_EVENT_AND_TWO = struct.Struct("<Qiiii")
_TASK = struct.Struct("<Qii")
_ADDRESS = struct.Struct("<Q")
_WATCH = struct.Struct("<iiq")
_HUB = struct.Struct("<Qii")
_VALUE = struct.Struct("<q")

CONTENT = {
    Kind.EVENT_CREATED: _EVENT,
    Kind.EVENT_SENT: _EVENT_AND_TWO,
    Kind.EVENT_QUEUED: _EVENT_AND_TWO,
    Kind.EVENT_REFUSED: _EVENT_AND_TWO,
    Kind.HANDLER_BEGUN: _EVENT_AND_TWO,
    Kind.HANDLER_ENDED: _EVENT_AND_TWO,
    Kind.EVENT_REPLIED: _EVENT,
    Kind.EVENT_AWAITED: _EVENT,
    Kind.EVENT_AWAITED_IN_VAIN: _EVENT,
    Kind.EVENT_UNANSWERED: _EVENT,
    Kind.TASK_POSTED: struct.Struct("<Qiiq"),
    Kind.TASK_CANCELLED: _TASK,
    Kind.TASK_BEGUN: _TASK,
    Kind.TASK_ENDED: _TASK,
    Kind.TIMER_STARTED: struct.Struct("<Qq"),
    Kind.TIMER_STOPPED: _ADDRESS,
    Kind.TIMER_DUE: _ADDRESS,
    Kind.TIMER_RUN_BEGUN: _ADDRESS,
    Kind.TIMER_RUN_ENDED: _ADDRESS,
    Kind.WATCH_BEGUN: _WATCH,
    Kind.WATCH_OVERDUE: _WATCH,
    Kind.WATCH_ENDED: struct.Struct("<ii"),
    Kind.HUB_REGISTERED: _HUB,
    Kind.HUB_UNREGISTERED: _HUB,
    Kind.HUB_THREAD_STARTED: _HUB,
    Kind.HUB_THREAD_ENDED: _HUB,
    Kind.WAITED: struct.Struct("<Qiiq"),
    Kind.MEMORY: struct.Struct("<QQQQ"),
    Kind.MARK: _VALUE,
    Kind.SCOPE_BEGUN: struct.Struct("<"),
    Kind.SCOPE_ENDED: struct.Struct("<"),
    Kind.COUNTER: _VALUE,
}
TEXT_KINDS = frozenset({Kind.TIMER_STARTED, Kind.TIMER_RUN_BEGUN, Kind.MARK, Kind.SCOPE_BEGUN,
                        Kind.SCOPE_ENDED, Kind.COUNTER})

ANY_MODULE = -2**31  # As a target: whoever takes it. As a source: nobody in particular.
