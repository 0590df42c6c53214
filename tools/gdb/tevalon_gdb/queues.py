"""What waits in a hub's queues and in a timer thread's."""

from tevalon_gdb import memory
from tevalon_gdb.memory import Damaged, object_at, type_of

MOST_ENTRIES = 100000
NO_INDEX = 2**32 - 1


def hub_events(impl):
    """The addresses of the events that wait in an EventHubImpl, the next one first."""
    of_thread = memory.pointer(impl['m_ofThread'])
    if of_thread != 0:
        yield from _events_of(object_at(of_thread, 'event_dispatcher::EventHubImpl::OfThread')
                              ['takenEvents'])
    yield from _events_of(impl['m_eventQueue'])


def _events_of(queue):
    """See EventQueue: an event takes one word, that of its control block, where the event follows
    from it; else two, the first of them marked."""
    width = memory.word_bytes()
    distance = width + 8
    has_second = 1
    chunk = int(queue['m_first'])
    last = int(queue['m_last'])
    at, room = int(queue['m_begin']), int(queue['m_firstRoom'])
    seen = 0
    while chunk != 0:
        end = int(queue['m_end']) if chunk == last else room
        address = int(memory.at(chunk, type_of('event_dispatcher::EventQueue::Chunk'))['p_next'])
        while at < end:
            word = _word(chunk + width * (1 + at))
            if word == 0:
                break  # The rest of the chunk has no room for two.
            seen += 1
            if seen > MOST_ENTRIES:
                raise Damaged('the queue does not end')
            if word & has_second:
                yield word - has_second
                at += 2
            else:
                yield word + distance
                at += 1
        if chunk == last:
            return
        chunk, at, room = address, 0, 14


def _word(address):
    order = 'big' if memory.byte_order() == '>' else 'little'
    return int.from_bytes(memory.read_bytes(address, memory.word_bytes()), order)


class TaskQueue:
    """The tasks of a TimerThread::State, from front to back: see TaskQueue::forEach()."""

    def __init__(self, state):
        self._queue = state['m_taskQueue']
        self._left = int(self._queue['m_size'])
        pointer_type = type_of('timer::TimerTaskBase').pointer()  # As wide as a unique_ptr.
        self._chunks = list(memory.vector(self._queue['m_tasks']['m_chunks'], pointer_type))
        self._blocks = list(memory.vector(self._queue['m_blocks'], pointer_type))

    def __iter__(self):
        """The addresses of the tasks."""
        yield from self._list(int(self._queue['m_front']))
        for sorted_block in memory.vector(self._queue['m_order'],
                                          type_of('timer::TaskQueue::Sorted')):
            number = int(sorted_block['block'])
            if number >= len(self._blocks):
                raise Damaged('no block %d' % number)
            block = object_at(int(self._blocks[number]), 'timer::TaskQueue::Block')
            indices = memory.address_of(block['tasks'])
            for i in range(int(block['begin']), int(block['end'])):
                index = int.from_bytes(
                    memory.read_bytes(indices + 4 * i, 4),
                    'big' if memory.byte_order() == '>' else 'little')
                slot = self._slot(index)
                yield self._task(slot)
                yield from self._list(int(slot['link']))

    def _list(self, last):
        """A circle, known by its last: the link of that is the first."""
        if last == NO_INDEX:
            return
        index = last
        while True:
            index = int(self._slot(index)['link'])
            yield self._task(self._slot(index))
            if index == last:
                return

    def _task(self, slot):
        self._left -= 1
        if self._left < 0:
            raise Damaged('the queue does not end')
        return memory.pointer(slot['task'])

    def _slot(self, index):
        slots_in_chunk = 32
        number, place = divmod(index, slots_in_chunk)
        if number >= len(self._chunks):
            raise Damaged('no task %d' % index)
        slot_type = type_of('timer::TaskSlab::Slot')
        return memory.at(int(self._chunks[number]) + place * slot_type.sizeof, slot_type)
