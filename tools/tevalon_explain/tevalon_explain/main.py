"""tevalon-explain: says what the lines of a log mean, and what is wrong."""

import argparse
import array
import os
import re
import signal
import sys
import tempfile
import time

from .case import Case
from .findings import findings
from .knowledge import CLIENT, Knowledge
from .prefix import Prefix
from .report import annotation, counts, verdict

DESCRIPTION = """\
Says what is most likely wrong in a log of tevalon-base and why, counts its messages, and shows it with
an explanation below each message. Lines of other modules and of anybody else may stand between."""

FOLLOW_SECONDS = 0.1


# As a terminal got them.
COLOUR = re.compile("\033\\[[0-9;]*m")


class CannotRead(Exception):
    """Whatever was named cannot be read."""


def parse_arguments(arguments):
    parser = argparse.ArgumentParser(prog="tevalon-explain", description=DESCRIPTION,
                                     allow_abbrev=False)
    parser.add_argument("file", nargs="?", default="-", metavar="FILE",
                        help="the log; standard input where there is none, or '-'")
    parser.add_argument("--summary", action="store_true",
                        help="leave out the log itself")
    parser.add_argument("--errors", action="store_true",
                        help="of the log itself show errors and warnings alone")
    parser.add_argument("--follow", action="store_true",
                        help="explain a log that is still being written, line by line, and say at once "
                             "when something is seen to be wrong; Ctrl-C ends it with the summary")
    parser.add_argument("--device-prefix", metavar="PATTERN", type=pattern,
                        help="what a device puts before each line: a regular expression of Python; "
                             "groups named 'time' and 'thread' in it are used")
    return parser.parse_args(arguments)


def pattern(text):
    try:
        return re.compile(text)
    except re.error as error:
        raise argparse.ArgumentTypeError(f"'{text}' is no regular expression: {error}") from error


def open_log(name):
    """Whatever the bytes are, they come out again as they were."""
    if name == "-":
        sys.stdin.reconfigure(errors="surrogateescape", encoding="utf-8", newline="\n")
        return sys.stdin
    try:
        return open(name, encoding="utf-8", errors="surrogateescape", newline="\n")
    except OSError as error:
        raise CannotRead(f"cannot read '{name}': {error.strerror}") from error


def read_lines(file, name):
    try:
        yield from file
    except OSError as error:
        raise CannotRead(f"cannot read '{name}': {error.strerror}") from error


class Explainer:
    """What both ways of reading share: each line looked at once."""

    def __init__(self, options, catalogue):
        self.options = options
        self.knowledge = Knowledge(catalogue)
        self.prefix = Prefix(options.device_prefix)
        self.case = Case(self.knowledge, self.prefix)
        self.shown = set()

    @staticmethod
    def plain(line):
        line = line.rstrip("\r\n")
        return COLOUR.sub("", line) if "\033" in line else line

    def look(self, line):
        line = self.plain(line)
        found = self.knowledge.look(self.prefix.strip(line))
        self.case.add(found, line)
        return found

    def annotated(self, line, found):
        """The line with its explanation; nothing where it is left out."""
        if found is None:
            return "" if self.options.errors else line
        if found is CLIENT:
            is_shown = not self.options.errors or self.prefix.read(self.plain(line))[3] in ("E", "W")
            return line if is_shown else ""
        if self.options.errors and not found.message.failure:
            return ""
        is_first = found.message.id not in self.shown
        self.shown.add(found.message.id)
        if not line.endswith("\n"):
            line += "\n"
        return line + annotation(found, is_first)

    def again(self, kind, line):
        """As annotated(), of a line that was looked at before; at most of these nothing is left to be
        said, and they are not looked at once more."""
        if kind == OTHER:
            return self.annotated(line, None)
        if kind == CLIENTS:
            return self.annotated(line, CLIENT)
        message = self.knowledge.messages[kind]
        if message.failure or message.id not in self.shown:
            found = self.knowledge.look(self.prefix.strip(self.plain(line)))
            return self.annotated(line, found)
        return "" if self.options.errors else line

    def summary(self):
        return verdict(self.case, findings(self.case)) + [""] + counts(self.case)


def explain(options, catalogue, out):
    """A log that is whole: what is wrong first, so it is read before anything is shown."""
    explainer = Explainer(options, catalogue)
    keeps = not options.summary
    with open_log(options.file) as file, tempfile.TemporaryFile(
            "w+", encoding="utf-8", errors="surrogateescape", newline="\n") as copy:
        is_copied = keeps and not file.seekable()
        kinds = array.array("h")  # Of each line what it was: 2 bytes, for logs are long.
        for line in read_lines(file, options.file):
            found = explainer.look(line)
            if keeps:
                kinds.append(kind_of(found))
            if is_copied:
                keep(copy, line)
        print("\n".join(explainer.summary()), file=out)
        if not keeps:
            return
        out.write("\n")
        again = copy if is_copied else file
        again.seek(0)
        for kind, line in zip(kinds, read_lines(again, options.file)):
            out.write(explainer.again(kind, line))


def keep(copy, line):
    try:
        copy.write(line)
    except OSError as error:
        raise CannotRead(f"cannot keep a copy of standard input: {error.strerror}") from error


OTHER, CLIENTS = -1, -2


def kind_of(found):
    if found is None:
        return OTHER
    return CLIENTS if found is CLIENT else found.message.number


class Growing:
    """The lines of a file that others write, as they come; begins anew where it is replaced or cut."""

    def __init__(self, name):
        self.name = name
        self.file = open_log(name)
        self.rest = ""

    def lines(self):
        """What has come since the last call."""
        yield from self.whole_lines()
        if not self.is_replaced():
            return
        try:
            replacement = open_log(self.name)
        except CannotRead:
            return  # Gone once more.
        yield from self.whole_lines()  # What came before it was replaced, and after we looked.
        if self.rest:
            yield self.rest
        self.rest = ""
        self.file.close()
        self.file = replacement
        yield from self.whole_lines()

    def whole_lines(self):
        """An unfinished line is kept back."""
        while piece := self.file.readline():
            self.rest += piece
            if self.rest.endswith("\n"):
                line, self.rest = self.rest, ""
                yield line

    def is_replaced(self):
        try:
            there = os.stat(self.name)
        except OSError:
            return False  # Between two files: the next one will come.
        mine = os.fstat(self.file.fileno())
        is_same = (there.st_dev, there.st_ino) == (mine.st_dev, mine.st_ino)
        return not is_same or there.st_size < self.file.tell()


def follow(options, catalogue, out):
    """A log that grows. What is stuck is also known by the time in which nothing comes."""
    explainer = Explainer(options, catalogue)
    told = set()

    def tell():
        for finding in findings(explainer.case):
            if not finding.is_remark() and finding.title not in told:
                told.add(finding.title)
                print(f"!!! {finding.title}", *(f"    {why}" for why in finding.why),
                      f"    look at: {finding.look}", sep="\n", file=out)
        out.flush()

    def take(line):
        found = explainer.look(line)
        if not options.summary:
            out.write(explainer.annotated(line, found))
        return found not in (None, CLIENT) and bool(found.message.failure)

    try:
        if options.file == "-":
            for line in read_lines(open_log("-"), "-"):
                if take(line):
                    tell()
                out.flush()
        else:
            growing = Growing(options.file)
            last = time.monotonic()
            while True:
                for line in growing.lines():
                    take(line)
                    last = time.monotonic()
                explainer.case.idle = time.monotonic() - last
                tell()
                time.sleep(FOLLOW_SECONDS)
    except KeyboardInterrupt:
        pass
    print("", *explainer.summary(), sep="\n", file=out)


def main(catalogue, arguments=None):
    """Returns the exit status: 0, 1 where something could not be read or written, 2 for wrong usage."""
    options = parse_arguments(arguments)
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    out = sys.stdout
    out.reconfigure(errors="surrogateescape", encoding="utf-8", newline="\n")
    try:
        (follow if options.follow else explain)(options, catalogue, out)
        out.flush()
    except CannotRead as error:
        out.flush()
        print(f"tevalon-explain: {error}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return 128 + signal.SIGINT
    except OSError as error:
        print(f"tevalon-explain: cannot write: {error.strerror}", file=sys.stderr)
        sys.stderr.flush()
        os._exit(1)  # What is left to be written cannot be, and would be complained of once more.
        return 1
    return 0
