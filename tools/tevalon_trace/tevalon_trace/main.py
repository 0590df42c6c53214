"""The command line."""

import argparse
import gc
import signal
import sys

from . import merged
from .follow import follow
from .output import NotWritable, opened
from .page import NoScript, write_page
from .recording import NotReadable
from .summary import write_summary
from .text import write_text
from .trace_json import write_json

FAILED = 1
MAX_PAGE_SLICES = 200_000

DESCRIPTION = """\
Shows what processes recorded with base/diagnostics/recorder.h or libtevalon-record.so. FILE is a
recording, finished, still written, or left by a process that was killed; of this machine or of one
with other pointers. Several files are shown together: those of several processes by their time,
copies of one recording as one."""

EPILOG = """\
Exit status: 0; 1 where something could not be read, or written, which is named with the reason:
what could be read is given nevertheless; 2 where the command was not understood."""


def seconds_to_ns(text):
    value = float(text)
    if not 0 <= value < 9e9:
        raise ValueError
    return round(value * 1e9)


def positive(text):
    value = int(text)
    if value < 1:
        raise ValueError
    return value


seconds_to_ns.__name__ = "time"
positive.__name__ = "number"


def make_parser():
    parser = argparse.ArgumentParser(
        prog="tevalon-trace", description=DESCRIPTION, epilog=EPILOG, allow_abbrev=False,
        formatter_class=argparse.RawDescriptionHelpFormatter)
    modes = parser.add_mutually_exclusive_group(required=True)
    modes.add_argument("--text", action="store_true",
                       help="a line for each record, in order of time: seconds on the monotonic "
                            "clock, the thread's name and kernel id, what happened")
    modes.add_argument("--follow", action="store_true",
                       help="the same for a process that goes on, as it comes, until the recording "
                            "is stopped or the process has ended")
    modes.add_argument("--json", action="store_true",
                       help="trace-event JSON for the Perfetto UI")
    modes.add_argument("--html", action="store_true",
                       help=f"a page for a browser, with at most {MAX_PAGE_SLICES} slices: the "
                            "last ones unless --from and --to choose others")
    modes.add_argument("--summary", action="store_true",
                       help="what is worth a look: slow handlers, long queues, time-outs, circles, "
                            "unanswered requests, busy threads")
    parser.add_argument("--last", type=positive, metavar="N",
                        help="of --text and --follow the last N records only")
    parser.add_argument("--from", type=seconds_to_ns, default=merged.BEGINNING, metavar="SECONDS",
                        dest="from_ns", help="leave out what was before, on the monotonic clock")
    parser.add_argument("--to", type=seconds_to_ns, default=merged.END, metavar="SECONDS",
                        dest="to_ns", help="leave out what was after")
    parser.add_argument("--log", action="append", default=[], metavar="LOG",
                        help="merge in a log whose lines begin with their time, as "
                             "ZOR_DEBUG_PREFIX=time,thread or wall,thread writes them, or with a "
                             "date, in UTC where it has no offset")
    parser.add_argument("-o", "--output", metavar="OUT",
                        help="write to this file, which is there whole or not at all; otherwise to "
                             "the standard output")
    parser.add_argument("files", nargs="+", metavar="FILE")
    return parser


def report(text):
    print(f"tevalon-trace: {text}", file=sys.stderr)


def follow_file(arguments):
    with opened(arguments.output) as out:
        try:
            follow(arguments.files[0], arguments.last, out, report)
        except OSError as error:
            if isinstance(error, BrokenPipeError):
                raise
            report(f"cannot read '{arguments.files[0]}': {error.strerror}")
            return FAILED
        except NotReadable as error:
            report(f"cannot read '{arguments.files[0]}': {error}")
            return FAILED
        except KeyboardInterrupt:  # How it is ended as a rule.
            pass
    return 0


def write(arguments, collection, out):
    if arguments.json:
        write_json(collection, out)
    elif arguments.html:
        write_page(collection, MAX_PAGE_SLICES, arguments.page_folder, out)
    elif arguments.summary:
        write_summary(collection, out)
    else:
        write_text(collection, arguments.last, out)


def show(arguments):
    collection = merged.Collection()
    collection.from_ns = arguments.from_ns
    collection.to_ns = arguments.to_ns
    for path in arguments.files:
        collection.add_recording(path)
    if not collection.is_empty():
        for path in arguments.log:
            collection.add_log(path)
    for complaint in collection.complaints:
        report(complaint)
    if collection.is_empty():
        return FAILED
    with opened(arguments.output) as out:
        write(arguments, collection, out)
    return FAILED if collection.complaints else 0


def main(page_folder=None):
    """page_folder: where the page's script lies, if it was built."""
    parser = make_parser()
    arguments = parser.parse_args()
    arguments.page_folder = page_folder
    if arguments.follow and len(arguments.files) != 1:
        parser.error("--follow takes one file")
    if arguments.follow and arguments.log:
        parser.error("--follow takes no --log")
    if arguments.from_ns > arguments.to_ns:
        parser.error("--from is after --to")
    # Millions of records that live until the end: looking for cycles among them takes long.
    gc.disable()
    # So that what is unfinished is removed.
    signal.signal(signal.SIGTERM, lambda number, frame: sys.exit(128 + number))
    try:
        return follow_file(arguments) if arguments.follow else show(arguments)
    except (NotWritable, NoScript) as error:
        report(error)
        return FAILED
    except KeyboardInterrupt:
        return 128 + signal.SIGINT
