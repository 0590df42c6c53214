"""What a process with tevalon-base is doing, from its memory: a stopped process or a core."""

_is_registered = False


def register():
    """Adds the commands and the pretty-printers, once."""
    global _is_registered
    if _is_registered:
        return
    from tevalon_gdb import commands, printers
    commands.register()
    printers.register()
    _is_registered = True
