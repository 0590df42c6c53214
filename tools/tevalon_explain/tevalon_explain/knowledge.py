"""Recognises log lines by the catalogue of log texts."""

import re
import tomllib

LETTERS = {1: "A", 1000: "E", 3000: "W", 4000: "I", 5000: "D"}

CONVERSION = re.compile(r"%[-+ #0]*[\d.*]*(?:hh|h|ll|l|z|j)?([a-zA-Z%])")

CONVERTED = {"d": r"(-?\d+)", "i": r"(-?\d+)", "u": r"(\d+)", "x": r"([0-9a-f]+)",
             "X": r"([0-9A-F]+)", "p": r"(0x[0-9a-f]+|\(nil\))",
             "f": r"(-?(?:\d+(?:\.\d+)?|inf|nan))", "c": r"(.)", "s": r"(.*?)"}

# A function as a compiler names it in __func__: in a lambda it is "operator()", and what an operator
# converts to has blanks and brackets.
FUNCTION = r'(?:operator(?:[^\w\s]{1,3}|(?: |"" ?)[\w:<>,*&(){}\[\] ]+?)|~?\w+)'

# "[tag] file:line:function(): " and what stands behind it.
STATEMENT = re.compile(rf"\[([^\]\s]+)\] ([\w.+-]+):(\d+):({FUNCTION})\(\): (.*)", re.S)

# The end of a place whose beginning has been cut off.
CUT_PLACE = re.compile(r"(~?\w+)\(\): (.*)", re.S)

# A text of the library is taken for one of its own, without its place, by so many characters.
SHORTEST_PIECE = 12


def pattern_of(text):
    """A regular expression for what a format can give, without its line ends."""
    text = text.rstrip("\n")
    parts, last = [], 0
    for match in CONVERSION.finditer(text):
        parts.append(re.escape(text[last:match.start()]))
        kind = match.group(1)
        parts.append("%" if kind == "%" else CONVERTED[kind])
        last = match.end()
    return "".join(parts) + re.escape(text[last:])


def literals_of(text):
    return [piece for piece in CONVERSION.split(text.rstrip("\n"))[::2] if piece]


class Message:
    """An entry of the catalogue, as far as lines are concerned."""

    def __init__(self, entry, number):
        self.number = number
        self.id = entry["id"]
        self.level = entry["level"]
        self.text = entry["text"].rstrip("\n")
        self.meaning = entry["meaning"]
        self.next = entry["next"]
        self.failure = entry["failure"]
        self.files = entry["files"]
        self.functions = entry["functions"]
        self.source = entry["source"]
        self.within = entry["within"].lstrip("#")
        self.layout = entry.get("layout", "statement")
        self.offset = entry.get("line_offset", 0)
        self.fixed = entry.get("fixed_lines", [])
        self.has_fixed_lines = bool(self.fixed) and self.layout == "statement"
        self.match = re.compile(pattern_of(entry["text"]) + r"\s*", re.S).fullmatch
        pieces = literals_of(entry["text"])
        self.begin = pieces[0] if self.text.startswith(pieces[:1][0]) else ""
        self.piece = max(pieces, key=len)

    def fits_line(self, number):
        """Whether the line number is one that this statement writes."""
        if self.has_fixed_lines:
            return number in self.fixed
        return self.offset <= number < self.offset + 1000

    def place(self, number):
        """Where the statement of a line with this number is: the true file and line."""
        if number is None or self.has_fixed_lines or self.layout != "statement":
            return f"{self.source}, {self.within}()"
        return f"{self.source}:{number - self.offset}"


# A line that a client wrote with our log statement.
CLIENT = "client"


class Found:
    """A recognised line."""

    __slots__ = ("message", "is_cut", "number", "values")

    def __init__(self, message, is_cut=False, number=None, values=()):
        self.message = message
        self.is_cut = is_cut
        self.number = number
        self.values = values


class Knowledge:
    """All messages, and the look for one of them in a line."""

    def __init__(self, path):
        with open(path, "rb") as file:
            entries = tomllib.load(file)["message"]
        self.messages = [Message(entry, i) for i, entry in enumerate(entries)]
        self.by_id = {message.id: message for message in self.messages}
        self.by_place = {}
        self.by_function = {}
        for message in self.messages:
            if message.layout != "statement":
                continue
            for function in message.functions:
                self.by_function.setdefault(function, []).append(message)
                for file in message.files:
                    self.by_place.setdefault((file, function), []).append(message)
        report = self.by_id["memory-report"]
        report.match = re.compile(r"==(.*)==\s*", re.S).fullmatch
        self.by_place[(report.files[0], "showFileContents")].append(report)
        self.others = [(self.by_id[name], re.compile(expression, re.S)) for name, expression in (
            ("trace-scope-in", r"\[TRACE -> (\S+|operator .+?)\(IN\)\] [\w.+-]+:\d+:.+\(\) "),
            ("trace-scope-out", r"\[TRACE <- (\S+|operator .+?)\(OUT\)\] [\w.+-]+:\d+:.+\(\) "),
            ("trace-point", r"\[TRACE\] [\w.+-]+:\d+:(.*)"),
            ("trace-function-in", r"TRACE -> \[(.*)\(IN\)\] :.*:\d+ "),
            ("trace-function-out", r"TRACE <- \[(.*)\(OUT\)\] :.*:\d+ "))]
        self.own_lines = [m for m in self.messages if m.layout == "own line"]
        self.client = re.compile(rf"\[([^\]\s]*)\][\w.+-]*:\d+:({FUNCTION}|):(.*)", re.S)
        self.dump = re.compile(r"\[\]:0::DUMPMEM\([0-9A-F]{8}d\):, ((?:[0-9A-F]{2} ){1,16}$)?")
        # A text without its place: by its longest piece, where only one message has that.
        pieces = {}
        for message in self.messages:
            if message.layout == "statement" and len(message.piece) >= SHORTEST_PIECE:
                pieces.setdefault(message.piece, []).append(message)
        self.pieces = [(piece, found[0]) for piece, found in pieces.items() if len(found) == 1]

    def look(self, line):
        """What a line is: Found, CLIENT, or None where it has no layout that we know. Whatever stands
        before it on the line is no matter."""
        match = STATEMENT.search(line)
        if match is None:
            return self.look_at_other(line)
        _, file, number, function, text = match.groups()
        candidates = self.by_place.get((file, function))
        if candidates is None:
            return CLIENT
        number = int(number)
        fitting = None
        for message in candidates:
            found = message.match(text)
            if found is None:
                continue
            if message.fits_line(number):
                return Found(message, False, number, found.groups())
            # Of another version, or the lines have moved.
            fitting = fitting or Found(message, False, number, found.groups())
        return fitting or self.begun(candidates, text, number) or CLIENT

    def begun(self, candidates, text, number):
        """A line whose end is missing."""
        text = text.rstrip()
        best = None
        for message in candidates:
            begin = message.begin
            length = min(len(begin), len(text))
            # Nothing but the place: of the only message that there is.
            if begin[:length] != text[:length] or (length == 0 and len(candidates) > 1):
                continue
            if best is None or length > best[0] or (
                    length == best[0] and message.fits_line(number)):
                best = (length, message)
        return Found(best[1], True, number) if best is not None else None

    def look_at_other(self, line):
        if "TRACE" in line:
            for message, expression in self.others:
                match = expression.search(line)
                if match is not None:
                    return Found(message, values=match.groups())
        if "zor-debug: " in line:
            for message in self.own_lines:
                match = message.match(line[line.index("zor-debug: "):])
                if match is not None:
                    return Found(message, values=match.groups())
        if "]:0::DUMPMEM(" in line:
            match = self.dump.search(line)
            if match is not None:
                name = "dump-line" if match.group(1) else "dump-title"
                return Found(self.by_id[name])
        match = CUT_PLACE.search(line) if "(): " in line else None
        if match is not None:
            for message in self.by_function.get(match.group(1), ()):
                found = message.match(match.group(2))
                if found is not None:
                    return Found(message, True, None, found.groups())
        match = self.client.search(line) if "]" in line else None
        if match is not None:
            return Found(self.by_id["client-line"], values=match.groups())
        return self.cut_front(line)

    def cut_front(self, line):
        """A line whose beginning is missing, with its place."""
        for piece, message in self.pieces:
            if piece in line:
                return Found(message, True)
        return None
