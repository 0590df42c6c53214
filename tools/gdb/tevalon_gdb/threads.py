"""The process and its threads, as gdb knows them."""

import re

import gdb

from tevalon_gdb import memory

MOST_NAME_BYTES = 256  # Of a file's name, which the report has whole, there are no more.


def connection_type():
    """'native', 'core', 'remote', ...; '' where nothing is being debugged."""
    connection = getattr(gdb.selected_inferior(), 'connection', None)
    return connection.type if connection is not None else ''


class Threads:
    """The kernel's ids and names of the threads."""

    def __init__(self):
        inferior = gdb.selected_inferior()
        self._names = {}
        for thread in sorted(inferior.threads(), key=lambda thread: thread.num):
            self._names[thread.ptid[1] or thread.ptid[0]] = thread.name or ''
        self._given = {}
        ids = list(self._names)
        # The main thread's id is the process's; some stubs call every process 1.
        self.process_id = inferior.pid
        if ids and inferior.pid not in ids:
            self.process_id = ids[0]

    def ids_with_stack(self):
        """Those of which there are registers. A core may lack some; gdb then lists the threads that
        the C library knows of, and has no backtrace of them."""
        if connection_type() != 'core':
            return set(self._names)
        sections = gdb.execute('maintenance info sections', to_string=True)
        return {int(thread_id) for thread_id in re.findall(r'\.reg/(\d+)', sections)}

    def has_names(self):
        return any(self._names.values())

    def give_name(self, thread_id, name):
        """For a thread whose name gdb does not know, as in every core."""
        self._given[thread_id] = name

    def name(self, thread_id):
        return self._names.get(thread_id) or self._given.get(thread_id, '')

    def program_name(self):
        """As the C library has it; else that of the program's file."""
        for symbol in ('program_invocation_short_name', '__progname'):
            address = memory.linked(symbol, 'unsigned long')
            if address == 0:
                continue
            try:
                return memory.c_string(address, MOST_NAME_BYTES)
            except memory.READ_ERRORS:
                continue
        return (gdb.current_progspace().filename or '').rsplit('/', 1)[-1]


def build_id(objfile):
    """As the report shows it; zeros where there is none."""
    text = objfile.build_id if objfile is not None else None
    return (text or '')[:40].ljust(40, '0')


def program_build_id():
    filename = gdb.current_progspace().filename
    for objfile in gdb.objfiles():
        if objfile.filename == filename:
            return build_id(objfile)
    return build_id(None)


def library_build_id():
    """Of the program where the library is linked into it."""
    objfile = memory.library()
    return build_id(objfile) if objfile is not None else program_build_id()
