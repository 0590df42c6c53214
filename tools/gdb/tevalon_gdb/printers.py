"""Pretty-printers of what clients hold: values, events, timers, hubs and digests.

Where the state report has a line for an object, its printer has the same words."""

import gdb
import gdb.printing

from tevalon_gdb import clock, looks, memory, queues, report
from tevalon_gdb.memory import READ_ERRORS, Failure, number, object_at, unsigned


class Printer:
    """Says what is wrong in place of a text that cannot be made."""

    def __init__(self, value):
        self._value = value

    def to_string(self):
        try:
            return self._text()
        except (Failure,) + READ_ERRORS as error:
            return '<damaged: %s>' % error


class WithChildren(Printer):
    """With what is in it, as far as that can be read."""

    def children(self):
        try:
            for i, entry in enumerate(self._entries()):
                yield '[%d]' % i, entry
        except (Failure,) + READ_ERRORS as error:
            yield '[...]', '<damaged: %s>' % error

    @staticmethod
    def display_hint():
        return 'array'


class ArrayPrinter(WithChildren):
    """A CommonValue that is an array."""

    def _text(self):
        return 'array of %d' % len(self._elements())

    def _elements(self):
        return list(memory.vector(self._value['m_array'],
                                  memory.type_of('container::CommonValue')))

    def _entries(self):
        return iter(self._elements())


class CommonValuePrinter(Printer):
    SLOTS = {'kInt': 'asInt', 'kUInt': 'asUInt', 'kShort': 'asShort', 'kUShort': 'asUShort',
             'kLongLong': 'asLongLong', 'kULongLong': 'asULongLong', 'kBool': 'asBool',
             'kFloat': 'asFloat', 'kDouble': 'asDouble'}
    WORDS = {'kInt': 'int', 'kUInt': 'unsigned int', 'kShort': 'short',
             'kUShort': 'unsigned short', 'kLongLong': 'long long',
             'kULongLong': 'unsigned long long', 'kBool': 'bool', 'kFloat': 'float',
             'kDouble': 'double'}

    @staticmethod
    def kind_of(value):
        tag = int(value['m_type'])
        for field in memory.type_of('container::CommonValue::Type').fields():
            if field.enumval == tag:
                return field.name.rsplit('::', 1)[-1]
        raise memory.Damaged('a value of no kind, %d' % tag)

    def _text(self):
        kind = self.kind_of(self._value)
        if kind in self.SLOTS:
            return '%s %s' % (self.WORDS[kind], self._value['m_scalar'][self.SLOTS[kind]])
        if kind == 'kString':
            text = memory.std_string(self._value['m_string'], 4096).decode('utf-8', 'replace')
            return '"%s"' % text.replace('\0', '\\000')
        if kind == 'kPoint':
            point = self._value['m_point']
            return 'point (%d,%d)' % (int(point['x']), int(point['y']))
        return {'kNull': 'null', 'kUndefined': 'undefined'}.get(kind, kind)


def common_value_printer(value):
    try:
        if CommonValuePrinter.kind_of(value) == 'kArray':
            return ArrayPrinter(value)
    except (Failure,) + READ_ERRORS:
        pass  # Said by the other one.
    return CommonValuePrinter(value)


def _named(kind, of_kind):
    names = looks.Names()
    try:
        names.read()
    except (Failure,) + READ_ERRORS:
        pass  # As in a library without the recorder.
    name = names.find(kind, of_kind)
    return "%d '%s'" % (of_kind, name) if name is not None else '%d' % of_kind


class BrowserEventPrinter(Printer):
    def _text(self):
        event = self._value
        text = 'event %s of module %s' % (_named('event', int(event['eventType'])),
                                          _named('module', int(event['srcModule'])))
        if int(event['param']) != 0:
            text += ', payload at 0x%x' % int(event['param'])
        if unsigned(event['replied']):
            return text + ', replied %d' % number(event['result'])
        return text + (', no reply yet' if int(event['waitResultMtx']) != 0
                       else ', no reply asked for')


class TimerPrinter(Printer):
    def _text(self):
        address = memory.pointer(self._value['m_impl'])
        if address == 0:
            return 'timer without memory'
        timer = object_at(address, 'simple_timer::TimerImpl')
        look = looks.timer_look(timer)
        period = '%.3f s' % (look.timeout_ns / clock.NS)
        text = "timer '%s', %s %s" % (look.name, 'every' if look.is_periodic else 'once after',
                                      period)
        if unsigned(timer['m_isStarted']):
            expired = memory.at(memory.address_of(timer['m_expiredTime']),
                                memory.type_of('simple_timer::ExpiredTime'))
            due = looks.time_of(expired)
            text += ', due at monotonic %d.%09d' % (due // clock.NS, due % clock.NS)
        else:
            text += ', stopped'
        if look.runs > 0:
            text += ', %d run%s going on' % (look.runs, '' if look.runs == 1 else 's')
        return text


class TimerThreadPrinter(WithChildren):
    def _state(self):
        return object_at(memory.pointer(self._value['m_state']), 'timer::TimerThread::State')

    def _text(self):
        state = self._state()
        look = looks.task_queue_look(state)
        thread_id = number(state['m_threadId'])
        is_running = unsigned(state['m_running'])
        return "timer thread '%s': %s, %d queued%s" % (
            look.name, 'thread %d' % thread_id if is_running else 'no thread', look.queued,
            ', in a task' if unsigned(state['m_busy']) else '')

    def _entries(self):
        for address in queues.TaskQueue(self._state()):
            task = object_at(address, 'timer::TimerTaskBase')
            fire_time = memory.atomic_double(task['m_nextFireTime'])
            yield 'task %s of session %d at 0x%x, %s' % (
                _named('task', number(task['m_taskId'])), int(task['m_sessionId']), address,
                'cancelled' if fire_time == 0.0 else 'due at monotonic %.9f' % fire_time)


class EventHubPrinter(WithChildren):
    def _text(self):
        address = memory.pointer(self._value['m_impl'])
        if address == 0:
            return 'hub without memory'
        return 'hub of ' + report.hub_line(address)

    def _entries(self):
        address = memory.pointer(self._value['m_impl'])
        if address == 0:
            return
        impl = object_at(address, 'event_dispatcher::EventHubImpl')
        for event in queues.hub_events(impl):
            yield object_at(event, 'event_dispatcher::BrowserEvent')


class Md5Printer(Printer):
    def _text(self):
        if int(self._value['m_finalized']):
            return memory.read_bytes(memory.address_of(self._value['m_digest']), 16).hex()
        low, high = int(self._value['m_count'][0]), int(self._value['m_count'][1])
        return 'not finalized, %d bytes so far' % ((high << 32 | low) // 8)


def register():
    printers = gdb.printing.RegexpCollectionPrettyPrinter('tevalon-base')
    for name, printer in (('container::CommonValue', common_value_printer),
                          ('event_dispatcher::BrowserEvent', BrowserEventPrinter),
                          ('event_dispatcher::EventHub', EventHubPrinter),
                          ('simple_timer::Timer', TimerPrinter),
                          ('timer::TimerThread', TimerThreadPrinter),
                          ('utils::MD5', Md5Printer)):
        printers.add_printer(name, '^%s%s$' % (memory.BASE, name), printer)
    gdb.printing.register_pretty_printer(None, printers, replace=True)
