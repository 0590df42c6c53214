"""Commands and pretty-printers of tevalon-base for gdb: `source` this file, unless gdb does so."""

import os
import sys


def _load():
    """Imports the package beside this file, and leaves no compiled files there."""
    # Not __file__, which is another script's where that has gdb source this one.
    folder = os.path.dirname(os.path.realpath(_load.__code__.co_filename))
    writes_no_bytecode = sys.dont_write_bytecode
    sys.dont_write_bytecode = True
    sys.path.insert(0, folder)
    try:
        import tevalon_gdb
        tevalon_gdb.register()
    finally:
        sys.path.remove(folder)
        sys.dont_write_bytecode = writes_no_bytecode


_load()
