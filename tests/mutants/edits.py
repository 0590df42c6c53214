"""Makes mutants of C++ sources: small mistakes, all of them in one text, chosen at run time.

A site is a piece of a source with its mutants. Where an expression stands, the text becomes a choice
of the mutants and of the original; alternatives hold the original text of what is inside of them, so
that the text grows with the depth and not exponentially. No edit adds or removes a line: numbers of
lines are part of what the library logs.
"""

import dataclasses
import re

from clang import cindex

Kind = cindex.CursorKind

COMPARISONS = {"<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<"),
               "==": ("!=",), "!=": ("==",)}
OPERATORS = {"+": ("-",), "-": ("+",), "*": ("/",), "/": ("*",), "%": ("*",), "&": ("|",),
             "|": ("&",), "^": ("|",), "<<": (">>",), ">>": ("<<",), "&&": ("||",), "||": ("&&",)}
ASSIGNMENTS = {"+=": ("-=",), "-=": ("+=",), "*=": ("/=",), "/=": ("*=",), "%=": ("*=",),
               "&=": ("|=",), "|=": ("&=",), "^=": ("|=",), "<<=": (">>=",), ">>=": ("<<=",)}
UNARY = {"++": ("--",), "--": ("++",), "~": ("",), "-": ("",)}

LOCKING = re.compile(r"\b(try_?lock\w*|lock\w*|unlock\w*|nativeLocked|pthread_(mutex|rwlock|spin)_\w+)"
                     r"\(")
TELLING = re.compile(r"\b(notify\w*|wake\w*|signal\w*|broadcast\w*|sem_post|post|futex\w*|"
                     r"pthread_cond_(signal|broadcast)|write|SendCmd|sendCmd\w*|join|detach|"
                     r"pthread_(join|detach))\(")
FLAG = re.compile(r"(\.|->)(store|exchange|fetch_\w+|compare_exchange_\w+|clear|test_and_set)\(")
GUARD = re.compile(r"(Lock|Guard|lock_guard|unique_lock|scoped_lock|NoCancellation)\b")

# Not evaluated when the process runs, or no code.
SKIPPED = {Kind.STATIC_ASSERT, Kind.ENUM_DECL, Kind.TEMPLATE_NON_TYPE_PARAMETER,
           Kind.TEMPLATE_TEMPLATE_PARAMETER, Kind.CXX_UNARY_EXPR, Kind.ASM_STMT, Kind.TYPE_ALIAS_DECL,
           Kind.TYPEDEF_DECL, Kind.ALIGNED_ATTR, Kind.UNEXPOSED_ATTR, Kind.STRING_LITERAL,
           Kind.MACRO_DEFINITION, Kind.MACRO_INSTANTIATION, Kind.INCLUSION_DIRECTIVE}
FUNCTIONS = {Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.CONSTRUCTOR, Kind.DESTRUCTOR,
             Kind.CONVERSION_FUNCTION, Kind.FUNCTION_TEMPLATE}
POINTERS = {cindex.TypeKind.POINTER, cindex.TypeKind.CONSTANTARRAY, cindex.TypeKind.INCOMPLETEARRAY}
STATEMENTS = {Kind.CALL_EXPR, Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR,
              Kind.UNARY_OPERATOR, Kind.CXX_DELETE_EXPR, Kind.UNEXPOSED_EXPR, Kind.PAREN_EXPR,
              Kind.CSTYLE_CAST_EXPR, Kind.CXX_THROW_EXPR, Kind.BREAK_STMT, Kind.CONTINUE_STMT,
              Kind.RETURN_STMT, Kind.CXX_STATIC_CAST_EXPR}
NUMBER = re.compile(r"(0[xX][0-9a-fA-F']+|[0-9][0-9']*)([uUlL]*)$")
COMMENT = re.compile(r'"(?:[^"\\\n]|\\.)*"|\'(?:[^\'\\\n]|\\.)+\'|//[^\n]*|/\*.*?\*/', re.S)


@dataclasses.dataclass
class Mutant:
    """One mistake: what of what it makes."""
    kind: str
    mutated: str  # What replaces the site's text, or what happens to it.
    number: int = 0


@dataclasses.dataclass
class Site:
    """A piece of a source, by offsets, and its mutants."""
    form: str  # value, condition, statement, guard, absent
    start: int
    end: int
    function: str
    original: str
    mutants: list
    argument: tuple = ()  # Of a guard: where its mutex stands.


def flat(text):
    """In one line, without comments."""
    text = COMMENT.sub(lambda found: found[0] if found[0][0] in "\"'" else " ", text)
    return re.sub(r"\s+", " ", text).strip()


def is_balanced(text):
    depth = 0
    for char in COMMENT.sub("", text):
        depth += (char in "([{") - (char in ")]}")
        if depth < 0:
            return False
    return depth == 0


def end_of_brackets(text, start):
    """Behind the bracket that closes the one at start."""
    depth = 0
    position = start
    while position < len(text):
        literal = COMMENT.match(text, position)
        if literal:
            position = literal.end()
            continue
        depth += (text[position] in "([{") - (text[position] in ")]}")
        position += 1
        if depth == 0:
            return position
    return None


def first_argument(text, start, end):
    """The range of the first of the arguments from start to end."""
    depth = 0
    for position in range(start, end):
        depth += (text[position] in "([{<") - (text[position] in ")]}>" and
                                               text[position - 1] != "-")
        if text[position] == "," and depth == 0:
            end = position
            break
    return (start, end) if text[start:end].strip() else ()


class Finder:
    """The sites in one source, of one or more translation units that it is part of."""

    def __init__(self, path, text):
        self.path = path
        self.data = text.encode()
        # The positions of the parser are of bytes.
        self.text = self.data.decode("latin-1")
        self.sites = {}
        self.macros = []
        self.function = ""

    # ---- positions ----

    def extent(self, cursor):
        return cursor.extent.start.offset, cursor.extent.end.offset

    def is_here(self, cursor):
        file = cursor.extent.start.file
        return file is not None and file.name == self.path and \
            cursor.extent.end.file is not None and cursor.extent.end.file.name == self.path

    def is_of_macro(self, start, end):
        """The whole of it, or a part: what a macro gives cannot be edited where it is used."""
        return any(begin <= start and end <= finish for begin, finish in self.macros)

    def before(self, position):
        return self.text[:position].rstrip()[-1:]

    def after(self, position):
        return re.match(r"\s*(.?)", self.text[position:position + 200], re.S)[1]

    # ---- sites ----

    def add(self, form, start, end, mutants, argument=()):
        piece = self.text[start:end]
        if not mutants or not piece.strip() or not is_balanced(piece) or \
                re.search(r"^\s*#", piece, re.M):
            return
        key = (form, start, end)
        if key not in self.sites:
            self.sites[key] = Site(form, start, end, self.function, flat(piece), [], argument)
        known = {(mutant.kind, mutant.mutated) for mutant in self.sites[key].mutants}
        self.sites[key].mutants += [Mutant(kind, mutated) for kind, mutated in mutants
                                    if (kind, mutated) not in known]

    def add_replaced(self, cursor, place, options, kind):
        """Of an expression whose operator stands at place."""
        start, end = self.extent(cursor)
        if self.is_of_macro(start, end) or self.is_of_macro(*place):
            return
        self.add("value", start, end,
                 [(kind, flat(self.text[start:place[0]] + option + self.text[place[1]:end]))
                  for option in options])

    def between(self, left, right):
        """Where the operator between two operands stands, and which it is."""
        start, end = self.extent(left)[1], self.extent(right)[0]
        raw = self.text[start:end]
        operator = flat(raw)
        if start > end or operator not in raw or not operator:
            return (0, 0), ""
        at = start + raw.index(operator)
        return (at, at + len(operator)), operator

    def binary(self, cursor):
        children = list(cursor.get_children())
        if len(children) < 2:
            return
        left, right = children[0], children[-1]
        place, operator = self.between(left, right)
        if cursor.kind == Kind.CALL_EXPR:
            self.comparison_of_class(cursor, place, operator)
            return
        if operator in COMPARISONS:
            self.add_replaced(cursor, place, COMPARISONS[operator], "comparison")
            return
        pointers = [child.type.get_canonical().kind in POINTERS for child in (left, right)]
        if operator == "-" and all(pointers) or operator == "+" and pointers[1]:
            return
        self.add_replaced(cursor, place, OPERATORS.get(operator, ()),
                          "logical" if operator in ("&&", "||") else "arithmetic")
        self.add_replaced(cursor, place, ASSIGNMENTS.get(operator, ()), "arithmetic")

    def comparison_of_class(self, cursor, place, operator):
        """Which of the other operators a class has is not asked: these are made of the one it has."""
        start, end = self.extent(cursor)
        if operator not in COMPARISONS or self.is_of_macro(start, end) or self.is_of_macro(*place):
            return
        left, right = flat(self.text[start:place[0]]), flat(self.text[place[1]:end])
        mutants = [("comparison", f"!({left} {operator} {right})")]
        if operator not in ("==", "!="):
            mutants.append(("comparison", f"{right} {operator} {left}"))
        self.add("value", start, end, mutants)

    def unary(self, cursor):
        children = list(cursor.get_children())
        if len(children) != 1:
            return
        start, end = self.extent(cursor)
        inner_start, inner_end = self.extent(children[0])
        place = (start, inner_start) if start < inner_start else (inner_end, end)
        operator = flat(self.text[place[0]:place[1]])
        if operator == "-" and children[0].kind == Kind.INTEGER_LITERAL:
            return  # The number has mutants of its own.
        if operator == "!":  # Of a class that converts to bool, too.
            if not self.is_of_macro(start, end):
                operand = flat(self.text[inner_start:inner_end])
                self.add("value", start, end, [("logical", f"static_cast<bool>({operand})")])
            return
        self.add_replaced(cursor, place, UNARY.get(operator, ()), "arithmetic")

    def number(self, cursor, parent):
        start, end = self.extent(cursor)
        text = self.text[start:end]
        found = NUMBER.match(text)
        if not found or self.is_of_macro(start, end) or self.is_of_type(parent, start, end):
            return
        digits = found[1].replace("'", "")
        base = 16 if digits[:2].lower() == "0x" else 8 if digits[:1] == "0" else 10
        value = int(digits, base)
        self.add("value", start, end,
                 [("constant", f"{other}{found[2]}") for other in (value + 1, value - 1) if other >= 0])

    def is_of_type(self, parent, start, end):
        """An argument of a template."""
        if parent.kind in (Kind.BINARY_OPERATOR, Kind.CALL_EXPR) and self.before(start) != "<":
            return False
        return self.before(start) == "<" and parent.kind != Kind.BINARY_OPERATOR or \
            self.after(end) == ">" and parent.kind != Kind.BINARY_OPERATOR

    def truth(self, cursor, parent):
        start, end = self.extent(cursor)
        text = self.text[start:end]
        if text in ("true", "false") and not self.is_of_macro(start, end) and \
                not self.is_of_type(parent, start, end):
            self.add("value", start, end,
                     [("constant", "false" if text == "true" else "true")])

    def condition(self, cursor, is_loop):
        start, end = self.extent(cursor)
        text = self.text[start:end]
        if not cursor.kind.is_expression() or self.is_of_macro(start, end) or \
                text in ("true", "false") or NUMBER.match(text):
            return
        inner = cursor
        while inner.kind in (Kind.UNEXPOSED_EXPR, Kind.PAREN_EXPR):
            children = list(inner.get_children())
            if len(children) != 1:
                break
            inner = children[0]
        has_operator = inner.kind in (Kind.BINARY_OPERATOR, Kind.UNARY_OPERATOR) or \
            inner.spelling.startswith("operator")
        mutants = [("condition", "false")]
        if not is_loop:
            mutants.append(("condition", "true"))
        elif not has_operator:
            mutants.append(("condition", f"!({flat(text)})"))
        self.add("condition", start, end, mutants)

    # ---- statements ----

    def statement(self, cursor):
        start, end = self.extent(cursor)
        macro = next((found for found in self.macros if found[0] == start), None)
        if macro is not None and re.match(r"\w+\s*\(", self.text[start:]):
            closed = end_of_brackets(self.text, self.text.index("(", start))
            if closed is None or not macro[1] >= end - 1 and not macro[1] <= closed:
                return
            end = closed if self.after(closed) == ";" else end
        elif self.is_of_macro(start, end) or cursor.kind not in STATEMENTS:
            return
        text = self.text[start:end]
        if cursor.kind == Kind.RETURN_STMT and flat(text) != "return" or \
                re.match(r"\(void\)\s*\w+$", text) or self.after(end) != ";":
            return
        end = self.text.index(";", end) + 1
        kind = "statement"
        for name, pattern in (("lock", LOCKING), ("notify", TELLING), ("flag", FLAG)):
            if macro is None and pattern.search(text):
                kind = name
                break
        self.add("statement", start, end, [(kind, "")])

    def declaration(self, cursor):
        """The guards."""
        children = list(cursor.get_children())
        if len(children) != 1 or children[0].kind != Kind.VAR_DECL:
            return
        variable = children[0]
        start, end = self.extent(cursor)
        text = self.text[start:end]
        declared = re.match(r"(?:const\s+)?([\w:<>]+)\s+" + re.escape(variable.spelling), text)
        if not declared or not GUARD.search(declared[1].split("<")[0]) or self.is_of_macro(start, end):
            return
        behind = start + declared.end()
        if self.text[behind] == ";":
            self.add("absent", start, behind + 1, [("lock", "")])
        if self.text[behind] not in "({" or "adopt_lock" in text or "defer_lock" in text:
            return
        closed = end_of_brackets(self.text, behind)
        argument = first_argument(self.text, behind + 1, closed - 1)
        if argument:
            self.add("guard", start, closed, [("lock", "")], argument)

    # ---- the walk ----

    def is_constant(self, cursor):
        """An initialiser that the compiler knows the value of."""
        if cursor.kind in (Kind.CALL_EXPR, Kind.LAMBDA_EXPR, Kind.CXX_NEW_EXPR):
            return False
        if cursor.kind == Kind.DECL_REF_EXPR and cursor.referenced is not None and \
                not cursor.referenced.type.is_const_qualified() and \
                cursor.referenced.kind != Kind.ENUM_CONSTANT_DECL:
            return False
        return all(self.is_constant(child) for child in cursor.get_children())

    def is_left_out(self, cursor):
        if cursor.kind in SKIPPED:
            return True
        start, end = self.extent(cursor)
        if cursor.kind in FUNCTIONS:
            return re.search(r"\bconstexpr\b", self.text[start:end].split("{")[0]) is not None
        if cursor.kind == Kind.VAR_DECL:
            head = re.search(r"\b(constexpr|static|thread_local)\b", self.text[start:end].split("=")[0])
            is_global = not self.function or head is not None or \
                cursor.storage_class == cindex.StorageClass.STATIC
            return is_global or cursor.type.is_const_qualified() and self.is_constant(cursor)
        return cursor.kind == Kind.FIELD_DECL and cursor.is_bitfield()

    def end_of_sizes(self, cursor):
        """Of an array, where the sizes behind its name end; else 0."""
        if cursor.kind not in (Kind.VAR_DECL, Kind.FIELD_DECL, Kind.PARM_DECL):
            return 0
        position = cursor.location.offset + len(cursor.spelling)
        while self.text[position:position + 1] == "[":
            position = end_of_brackets(self.text, position)
        return position

    def walk(self, cursor, parent):
        if not self.is_here(cursor):
            # What includes a file, or a namespace that goes over several.
            if cursor.kind in (Kind.TRANSLATION_UNIT, Kind.NAMESPACE, Kind.LINKAGE_SPEC):
                for child in cursor.get_children():
                    self.walk(child, cursor)
            return
        if self.is_left_out(cursor):
            return
        outer = self.function
        if cursor.kind in FUNCTIONS:
            owner = cursor.semantic_parent
            prefix = owner.spelling + "::" if owner is not None and \
                owner.kind not in (Kind.NAMESPACE, Kind.TRANSLATION_UNIT) and owner.spelling else ""
            self.function = prefix + cursor.spelling
        elif cursor.kind == Kind.FIELD_DECL:
            self.function = self.function or cursor.semantic_parent.spelling
        children = list(cursor.get_children())
        self.look(cursor, parent, children)
        sizes = self.end_of_sizes(cursor)
        for index, child in enumerate(children):
            if cursor.kind == Kind.CASE_STMT and index == 0 or \
                    child.extent.end.offset <= sizes:
                continue
            self.walk(child, cursor)
        self.function = outer

    def look(self, cursor, parent, children):
        start, end = self.extent(cursor)
        kind = cursor.kind
        if kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR):
            self.binary(cursor)
        elif kind == Kind.CALL_EXPR and re.match(r"operator\W", cursor.spelling):
            self.binary(cursor)
        elif kind == Kind.UNARY_OPERATOR:
            self.unary(cursor)
        elif kind == Kind.INTEGER_LITERAL:
            self.number(cursor, parent)
        elif kind == Kind.CXX_BOOL_LITERAL_EXPR:
            self.truth(cursor, parent)
        elif kind == Kind.CONDITIONAL_OPERATOR and len(children) == 3:
            self.condition(children[0], False)
        elif kind == Kind.DECL_STMT and parent.kind == Kind.COMPOUND_STMT:
            self.declaration(cursor)
        elif kind in (Kind.IF_STMT, Kind.WHILE_STMT) and not self.is_of_macro(start, end):
            if re.match(r"(if|while)\s*\($", self.text[start:self.extent(children[0])[0]]) and \
                    self.after(self.extent(children[0])[1]) == ")":
                self.condition(children[0], kind == Kind.WHILE_STMT)
        elif kind == Kind.DO_STMT and len(children) == 2:
            self.condition(children[1], True)
        elif kind == Kind.FOR_STMT and not self.is_of_macro(start, end):
            self.condition_of_for(start, children)
        self.bodies(kind, parent, children)

    def condition_of_for(self, start, children):
        opened = self.text.index("(", start)
        closed = end_of_brackets(self.text, opened) or opened
        for child in children:
            child_start, child_end = self.extent(child)
            if child_start > opened and child_end < closed and self.before(child_start) == ";" and \
                    self.after(child_end) == ";" and child.kind.is_expression():
                self.condition(child, True)
                return

    def bodies(self, kind, parent, children):
        """What stands where a statement does."""
        if kind == Kind.COMPOUND_STMT:
            candidates = children
        elif kind in (Kind.IF_STMT, Kind.WHILE_STMT):
            candidates = children[1:]
        elif kind in (Kind.FOR_STMT, Kind.CXX_FOR_RANGE_STMT):
            candidates = children[-1:]
        elif kind == Kind.DO_STMT:
            candidates = children[:1]
        elif kind == Kind.CASE_STMT:
            candidates = children[1:]
        elif kind == Kind.DEFAULT_STMT:
            candidates = children
        else:
            return
        for child in candidates:
            if child.kind != Kind.COMPOUND_STMT and self.is_here(child):
                self.statement(child)

    def look_at(self, unit):
        """Takes the sites of one translation unit that the source is part of."""
        if not self.macros:
            for cursor in unit.cursor.get_children():
                if cursor.kind == Kind.MACRO_INSTANTIATION and self.is_here(cursor):
                    self.macros.append(self.extent(cursor))
        self.walk(unit.cursor, unit.cursor)


def parse(path, arguments, unsaved=None):
    options = cindex.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD
    unit = cindex.Index.create().parse(path, args=arguments, options=options,
                                       unsaved_files=unsaved and list(unsaved.items()))
    wrong = [str(item) for item in unit.diagnostics if item.severity >= cindex.Diagnostic.Error]
    if wrong:
        raise RuntimeError(f"{path} cannot be parsed: {wrong[0]}")
    return unit


def nested(sites):
    """In order, the outer before the inner; without those that overlap others in part."""
    rank = {"absent": 0, "guard": 0, "statement": 1, "condition": 2, "value": 3}
    result, open_sites = [], []
    for site in sorted(sites, key=lambda site: (site.start, -site.end, rank[site.form])):
        while open_sites and open_sites[-1].end <= site.start:
            open_sites.pop()
        if open_sites and (open_sites[-1].end < site.end or
                           open_sites[-1].form in ("guard", "absent")):
            continue
        open_sites.append(site)
        result.append(site)
    return result


# ---- the text with all of them ----

def choice(number):
    return f"::mutants::is({number})"


def rendered(text, sites):
    """The text, and for each mutant where in it it stands: (start, end, number)."""
    out, spans = [], []
    length = 0

    def put(piece):
        nonlocal length
        out.append(piece)
        length += len(piece)

    def put_range(start, end, index):
        """What stands from start to end, with the sites from index on; the next index."""
        position = start
        while index < len(sites) and sites[index].start < end:
            site = sites[index]
            put(text[position:site.start])
            index = put_site(site, index + 1)
            position = site.end
        put(text[position:end])
        return index

    def put_site(site, index):
        begin = length
        numbers = [mutant.number for mutant in site.mutants]
        if not numbers:
            return put_range(site.start, site.end, index)
        if site.form == "value":
            put("(")
            for mutant in site.mutants:
                at = length
                put(f"{choice(mutant.number)} ? ({mutant.mutated}) : ")
                spans.append((at, length, mutant.number))
            put("(")
            index = put_range(site.start, site.end, index)
            put("))")
        elif site.form == "condition":
            index = put_condition(site, index)
        elif site.form == "statement":
            put(f"{{ if (!{choice(numbers[0])}) {{ ")
            index = put_range(site.start, site.end, index)
            put(" } }")
        elif site.form == "guard":
            start, end = site.argument
            number, mutex = numbers[0], flat(text[start:end])
            put(f"::mutants::Other<decltype(({mutex}))> mutantsOther{number}; ")
            put(text[site.start:start])
            put(f"mutantsOther{number}.pick({choice(number)}, {text[start:end]})")
            put(text[end:site.end])
        else:
            declared = re.match(r"(const\s+)?(\S+)\s+(\w+)", text[site.start:site.end])
            put(f"const ::mutants::Maybe<{declared[2]}> {declared[3]}(!{choice(numbers[0])});")
        spans.append((begin, length, numbers))
        return index

    def put_condition(site, index):
        by_text = {mutant.mutated: mutant.number for mutant in site.mutants}
        opposite = next((number for mutated, number in by_text.items()
                         if mutated not in ("true", "false")), None)
        put("(")
        if "true" in by_text:
            put(f"{choice(by_text['true'])} || ")
        put("(")
        if "false" in by_text:
            put(f"!{choice(by_text['false'])} && ")
        if opposite is not None:
            put(f"{choice(opposite)} != ")
        put("static_cast<bool>(")
        index = put_range(site.start, site.end, index)
        put(")))")
        return index

    put_range(0, len(text), 0)
    # A whole site that is wrong loses all of its mutants.
    return "".join(out), [(start, end, [which] if isinstance(which, int) else which)
                          for start, end, which in spans]
