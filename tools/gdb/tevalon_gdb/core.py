"""Cores that gdb does not find its way into by itself."""

import re

import gdb

from tevalon_gdb import memory, threads


def find_libraries():
    """Tells gdb where the program lies, and has it look for the libraries from there.

    The cores that qemu's user mode writes leave out what is read-only, the program's headers too.
    gdb then reads zeros for them, takes the core for another program's, and leaves a program that
    was moved when it was loaded where its file says."""
    if threads.connection_type() != 'core' or memory.library() is not None:
        return
    distance = _distance_moved()
    if not distance:
        return
    program = gdb.current_progspace().filename
    confirm = gdb.parameter('confirm')
    gdb.execute('set confirm off')
    try:
        gdb.execute('symbol-file -o 0x%x "%s"' % (distance, program), to_string=True)
        gdb.execute('sharedlibrary', to_string=True)
    finally:
        gdb.execute('set confirm %s' % ('on' if confirm else 'off'))


def _distance_moved():
    """How far the program is from where gdb takes it to be; None where that is not to be had."""
    text = _output('info files')
    taken = re.search(r'Entry point: (0x[0-9a-f]+)', text)
    loaded = re.search(r'AT_ENTRY .* (0x[0-9a-f]+)$', _output('info auxv'), re.MULTILINE)
    if taken is None or loaded is None:
        return None
    thumb = 1  # Of an address of code on ARM.
    distance = (int(loaded.group(1), 16) & ~thumb) - (int(taken.group(1), 16) & ~thumb)
    return distance if distance > 0 and distance % 4096 == 0 else None


def _output(command):
    try:
        return gdb.execute(command, to_string=True)
    except gdb.error:
        return ''
