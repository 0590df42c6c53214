"""The commands `tevalon state` and `tevalon record`."""

import gdb

from tevalon_gdb import core, memory, recording, report, threads


def _run(command):
    """Prints the lines that a command returns; what is wrong becomes gdb's own kind of error."""
    if not threads.connection_type():
        raise gdb.GdbError('There is no process and no core. Attach to one, or name one with '
                           '`core-file FILE`.')
    try:
        core.find_libraries()
        for line in command():
            gdb.write(line + '\n')
    except memory.Failure as failure:
        raise gdb.GdbError('tevalon: %s.' % failure)
    except memory.READ_ERRORS as error:
        raise gdb.GdbError('tevalon: %s.' % str(error).rstrip('.'))


class Tevalon(gdb.Command):
    """What a process with tevalon-base is doing, and has done."""

    def __init__(self):
        super().__init__('tevalon', gdb.COMMAND_STATUS, gdb.COMMAND_NONE, True)


class State(gdb.Command):
    """Print what the process is doing: the report of writeState().
Usage: tevalon state [-whole]

Hubs, the handlers in hand, who waits for whom, timers, tasks, watches and locks, from the memory
of a stopped process or a core: nothing is called there, and no lock is needed.
Lists are cut at ten entries; -whole shows all. docs/debugging.md explains the lines.

Where no clock can be read, as in a core, times are counted to the latest one that is found, and
a note says so."""

    def __init__(self):
        super().__init__('tevalon state', gdb.COMMAND_STATUS, gdb.COMPLETE_NONE)

    def invoke(self, argument, from_tty):
        arguments = gdb.string_to_argv(argument)
        if arguments not in ([], ['-whole']):
            raise gdb.GdbError('Usage: tevalon state [-whole]')
        _run(lambda: report.write_state(is_whole=bool(arguments)))


class Record(gdb.Command):
    """Save the recording that the process holds, for tevalon-trace to read.
Usage: tevalon record FILE

FILE must not exist; it is there when all of it is written."""

    def __init__(self):
        super().__init__('tevalon record', gdb.COMMAND_DATA, gdb.COMPLETE_FILENAME)

    def invoke(self, argument, from_tty):
        arguments = gdb.string_to_argv(argument)
        if len(arguments) != 1:
            raise gdb.GdbError('Usage: tevalon record FILE')
        _run(lambda: recording.save(arguments[0]))


def register():
    for command in (Tevalon, State, Record):
        command()
