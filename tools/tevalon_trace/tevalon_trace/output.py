"""Files that are there whole or not at all."""

import contextlib
import os
import secrets
import sys


class NotWritable(Exception):
    """Says which file could not be written, and why."""


@contextlib.contextmanager
def opened(path):
    """A text file to write to: standard output for None.

    A file gets its name when everything has been written; until then it has another one in the same
    folder, which is gone if anything fails. Raises NotWritable.
    """
    if path is None:
        with standard_output() as out:
            yield out
        return
    # Named before it is made: a signal may end the process right behind that. Nobody else's has this
    # name.
    unfinished = f"{path}.{secrets.token_hex(8)}"
    try:
        descriptor = os.open(unfinished, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC, 0o600)
        with open(descriptor, "w", encoding="utf-8", errors="surrogateescape",
                  newline="\n") as out:
            yield out
        os.chmod(unfinished, 0o666 & ~current_umask())
        os.rename(unfinished, path)
        unfinished = None
    except OSError as error:
        raise NotWritable(f"cannot write '{path}': {error.strerror}") from error
    finally:
        if unfinished is not None:
            with contextlib.suppress(OSError):
                os.unlink(unfinished)


@contextlib.contextmanager
def standard_output():
    out = sys.stdout
    try:
        out.reconfigure(encoding="utf-8", errors="surrogateescape", newline="\n")
        yield out
        out.flush()
    except OSError as error:
        # What is left would be written, and fail, once more at exit.
        with contextlib.suppress(OSError):
            os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        raise NotWritable(f"cannot write: {error.strerror}") from error


def current_umask():
    umask = os.umask(0)
    os.umask(umask)
    return umask
