"""Found by every Python that is started with this folder in PYTHONPATH, gdb's too: counts."""
import atexit
import resource


def lift_limit():
    """What was counted is written whatever a test allows the tool itself."""
    _, most = resource.getrlimit(resource.RLIMIT_FSIZE)
    resource.setrlimit(resource.RLIMIT_FSIZE, (most, most))


try:
    import coverage
    coverage.process_startup()
    atexit.register(lift_limit)  # Called before what was registered before.
except ImportError:
    pass  # Not Debian's interpreter: it runs no tool.
