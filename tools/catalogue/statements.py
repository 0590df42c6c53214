"""Finds the log statements in the library's sources."""

import re
from dataclasses import dataclass, field
from pathlib import Path

LEVELS = {"kLogAlways": 1, "kLogError": 1000, "kLogWarn": 3000, "kLogInfo": 4000, "kLogDebug": 5000}

EXCEPTION_TEXT = "An runtime_error has been caught:%s.\n"

# Where the macros are defined: what looks like a statement there is none.
MACRO_HEADERS = {"pubinc/base/logging/blog.h", "pubinc/base/logging/trace.h"}

STATEMENT = re.compile(r"\b(BLOG|BLOG_AS|BLOG_AT|BLOG_EXCEPTION|BLOG_EXCEPTION_AT|"
                       r"BLOG_TRACE_SCOPE|BLOG_TRACE_POINT|zorDebugOutput[0V]|print_browser_log|"
                       r"outputByList)\s*\(")

# The substitute debug library's own lines, wherever they are put together.
OWN_LINE = re.compile(r'"zor-debug: (?:\\.|[^"\\])*"(?:\s*"(?:\\.|[^"\\])*")*')


@dataclass
class Statement:
    """A statement as the log shows it, and where it is."""

    source: str
    within: str  # The function that it stands in.
    line: int  # Where it stands now, for messages to whoever edits.
    layout: str
    level: int
    tag: str
    files: list
    functions: list
    text: str
    # How a line's number leads back to the source: what is added to it, or the fixed numbers.
    offset: int = 0
    fixed: list = field(default_factory=list)

    def key(self):
        return (self.source, self.within, self.layout, self.text)


class SourceFile:
    """A source without its comments, its places kept."""

    def __init__(self, root, path):
        self.path = path
        self.text = blank_comments((root / path).read_text())
        self.defines = dict(re.findall(r"^#define (BLOG_\w+) +(.+)$", self.text, re.M))
        self.line_begins = [0] + [m.end() for m in re.finditer("\n", self.text)]

    def line_of(self, place):
        return self.text.count("\n", 0, place) + 1

    def tag(self):
        return self.defines.get("BLOG_TAG", '"B-LOG"').strip('"')

    def log_file(self):
        return self.defines.get("BLOG_FILE", f'"{Path(self.path).name}"').strip('"')

    def offset(self):
        added = re.search(r"\((\d+) \+ __LINE__\)", self.defines.get("BLOG_LINE", ""))
        return int(added.group(1)) if added else 0

    def enclosing(self, place):
        """The name of the function or macro that the place is in; by the layout that clang-format
        gives: a definition begins at the margin, or one step in within a class or a macro."""
        line = self.line_of(place) - 1
        while line > 0 and self.source_line(line - 1).endswith("\\"):
            line -= 1
        macro = re.match(r"#define (\w+)", self.source_line(line))
        if macro:
            return "#" + macro.group(1)
        depth = indent_of(self.source_line(line))
        while line > 0:
            line -= 1
            text = self.source_line(line)
            if not text.strip() or text.startswith("#"):
                continue
            if indent_of(text) < depth or (depth == 0 and not text.startswith((" ", "}"))):
                head = self.head(line)
                depth = indent_of(text)
                name = function_name(head)
                if name:
                    return name
        return ""

    def head(self, line):
        """From the line to the brace that opens a body; "" where a statement ends before one."""
        text = " ".join(self.source_line(i) for i in range(line, min(line + 10, len(
            self.line_begins))))
        end = re.search(r"[{;]", text)
        return text[:end.start()] if end and end.group() == "{" else ""

    def source_line(self, index):
        begin = self.line_begins[index]
        end = self.text.find("\n", begin)
        return self.text[begin:] if end < 0 else self.text[begin:end]


def indent_of(text):
    return len(text) - len(text.lstrip())


def function_name(head):
    head = re.sub(r"__attribute__\(\(.*?\)\)\s*", "", head)
    head = head.strip()
    if not re.match(r"[\w:~<\[]", head) or head.startswith(
            ("if ", "for ", "while ", "switch ", "else", "try", "namespace", "class ", "struct ",
             "return", "do ", "public", "private", "case ", "const auto", "constexpr", "template")):
        return None
    found = re.match(r"[^(=]*?([~\w]+)\(", head)
    return found.group(1) if found else None


def blank_comments(text):
    """Comments become blanks, so that what is quoted in them is no statement."""
    def blank(match):
        found = match.group(0)
        if found.startswith(('"', "'")):
            return found
        return re.sub(r"[^\n]", " ", found)
    return re.sub(r'"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'|//[^\n]*|/\*.*?\*/', blank, text,
                  flags=re.S)


def arguments_at(text, place):
    """The arguments of the call whose opening parenthesis is at place."""
    arguments, depth, begin, i = [], 0, place + 1, place
    while True:
        char = text[i]
        if char in '"\'':
            i = re.compile(r'"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])*\'').match(text, i).end()
            continue
        if char in "([{":
            depth += 1
        elif char in ")]}":
            depth -= 1
            if depth == 0:
                last = text[begin:i].strip()
                return arguments + ([last] if last or arguments else [])
        elif char == "," and depth == 1:
            arguments.append(text[begin:i].strip())
            begin = i + 1
        i += 1


def literal(expression):
    """The text of adjacent string literals; None where it is anything else."""
    pieces = re.findall(r'"((?:\\.|[^"\\])*)"', expression)
    if not pieces or re.sub(r'"(?:\\.|[^"\\])*"|\s', "", expression):
        return None
    return "".join(pieces).encode().decode("unicode_escape")


class Sources:
    """All of the library's sources, and what is said in them."""

    def __init__(self, root):
        self.root = Path(root)
        paths = [p for folder in ("src", "pubinc", "platform/zor_debug/src")
                 for p in sorted((self.root / folder).rglob("*")) if p.suffix in (".h", ".cpp")]
        self.files = [SourceFile(self.root, str(p.relative_to(self.root))) for p in paths]

    def statements(self):
        found = []
        for file in self.files:
            if file.path in MACRO_HEADERS:
                continue
            for match in STATEMENT.finditer(file.text):
                if is_declaration(file.text, match):
                    continue
                statement = self.statement(file, match)
                if statement is None:
                    continue
                if is_next_piece(statement, found):
                    found[-1].text += statement.text
                else:
                    found.append(statement)
            found += self.own_lines(file)
        return found

    def own_lines(self, file):
        for match in OWN_LINE.finditer(file.text):
            yield Statement(source=file.path, within=file.enclosing(match.start()),
                            line=file.line_of(match.start()), layout="own line", level=0,
                            tag="zor-debug", files=[], functions=[],
                            text=literal(match.group(0)))

    def statement(self, file, match):
        macro = match.group(1)
        arguments = arguments_at(file.text, match.end() - 1)
        within = file.enclosing(match.start())
        line = file.line_of(match.start())
        make = lambda **more: Statement(**{**dict(  # noqa: E731
            source=file.path, within=within, line=line, layout="statement", level=0,
            tag=file.tag(), files=[file.log_file()], functions=[within], text="",
            offset=file.offset()), **more})
        if macro == "BLOG":
            return make(level=LEVELS[arguments[0]], text=literal(arguments[1]))
        if macro == "BLOG_AS":
            return make(level=LEVELS[arguments[1]], text=literal(arguments[2]),
                        functions=self.functions(arguments[0], file, within))
        if macro == "BLOG_AT":
            numbers = self.numbers(arguments[3], file, within)
            return make(level=LEVELS[arguments[1]], text=literal(arguments[5]), fixed=numbers,
                        functions=self.functions(arguments[4], file, within))
        if macro == "BLOG_EXCEPTION_AT":
            places = self.guard_places()
            return make(level=LEVELS["kLogError"], text=EXCEPTION_TEXT,
                        files=sorted({p[0] for p in places}), fixed=sorted(p[1] for p in places),
                        functions=sorted(p[2] for p in places))
        if macro == "BLOG_TRACE_SCOPE":
            return make(level=LEVELS["kLogDebug"], layout="scope trace")
        if macro == "BLOG_TRACE_POINT":
            return make(level=LEVELS["kLogDebug"], layout="point trace")
        if file.path.startswith("platform/") or within == "outputByList":
            return None
        return self.output(macro, arguments, make, file, match.start())

    def output(self, macro, arguments, make, file, place):
        """A piece of a line that is written by a call of the debug library itself."""
        text = arguments[5 if macro == "print_browser_log" else 0]
        defined = re.search(rf"^#define {re.escape(text)} (.+)$", file.text, re.M)
        text = literal(defined.group(1) if defined else text) or "<format>"
        return make(layout="output", functions=[], text=text,
                    level=self.level_of_output(file, place))

    def level_of_output(self, file, place):
        """By the level that its function asks for; where it asks for none, its header has. 0 where
        the caller names one."""
        begin = max(file.text.rfind("\n}\n", 0, place), file.text.rfind("\n    }\n", 0, place), 0)
        function = file.text[begin:file.text.index("\n}", place)]
        if "kLevels[" in function:
            return 0
        asked = re.findall(r"\bkLog[A-Z]\w+", function)
        return LEVELS[asked[0]] if asked else LEVELS["kLogDebug"]

    def functions(self, expression, file, within):
        """The names that a statement may show: its function, a literal, or, where it is handed on
        by a helper, those of the helper's callers."""
        if literal(expression) is not None:
            return [literal(expression)]
        if expression == "__func__":
            return [within]
        return sorted({name for call_file, place in self.calls(within, file)
                       for name in self.names_in_call(call_file, place)})

    def calls(self, helper, own_file):
        """Anywhere, where a header declares the helper; else it is its source's own."""
        is_shared = any(file.path.endswith(".h") and re.search(rf"\b{helper}\(", file.text)
                        for file in self.files)
        for file in self.files if is_shared else [own_file]:
            for match in re.finditer(rf"\b{re.escape(helper)}\s*\(", file.text):
                if not is_declaration(file.text, match):
                    yield file, match.start()

    def names_in_call(self, file, place):
        """Of the functions that make the call; through the macros that it stands in."""
        arguments = arguments_at(file.text, file.text.index("(", place))
        for argument in arguments:
            if literal(argument) is not None:
                yield literal(argument)
                return
        if "__func__" in arguments:
            yield from self.callers(file, place)

    def callers(self, file, place):
        within = file.enclosing(place)
        if not within.startswith("#"):
            yield within
            return
        for match in re.finditer(rf"(?<!#define )\b{within[1:]}\b", file.text):
            yield from self.callers(file, match.start())

    def numbers(self, expression, file, within):
        if expression.isdigit():
            return [int(expression)]
        numbers = []
        for match in re.finditer(r"\bLOG_CALLED_AT\((\d+)\)", file.text):
            numbers.append(int(match.group(1)))
        return sorted(numbers)

    def guard_places(self):
        places = []
        for file in self.files:
            for name, line, function in re.findall(
                    r'lockOrLog\(m_mutex, "(\w+\.h)", (\d+), "(~?\w+)"\)', file.text):
                places.append((name, int(line), function))
        return places


def is_next_piece(statement, found):
    return (statement.layout == "output" and found and found[-1].layout == "output" and
            found[-1].key()[:2] == statement.key()[:2] and statement.line - found[-1].line < 5 and
            not found[-1].text.endswith("\n"))


def is_declaration(text, match):
    """A declaration or definition of the function of that name rather than a call of it."""
    line_begin = text.rfind("\n", 0, match.start()) + 1
    before = text[line_begin:match.start()]
    if before.lstrip().startswith("#define"):
        return re.match(r"\s*#define\s*$", before) is not None
    return re.search(r"(\bvoid|\bint|\bbool|std::\w+|\binline)\s+(\w+::)*$", before) is not None
