"""The catalogue of log texts, and its comparison with the sources."""

import tomllib
from pathlib import Path

CATALOGUE = Path(__file__).with_name("messages.toml")
ROOT = CATALOGUE.parents[2]

LEVEL_NAMES = {0: "any", 1: "always", 1000: "error", 3000: "warning", 4000: "information",
               5000: "debug"}


def load(path=CATALOGUE):
    with open(path, "rb") as file:
        return tomllib.load(file)["message"]


def layout_of(entry):
    return entry.get("layout", "statement")


def key_of(entry):
    return (entry["source"], entry["within"], layout_of(entry), entry["text"])


def described(statement):
    """What an entry has to say of a statement."""
    return {"level": statement.level, "tag": statement.tag, "files": statement.files,
            "functions": statement.functions, "fixed_lines": statement.fixed,
            "line_offset": statement.offset}


def compare(entries, statements):
    """What is wrong between the two: a line for each problem."""
    traces = [s for s in statements if s.layout.endswith("trace")]
    written = {s.key(): s for s in statements if not s.layout.endswith("trace")}
    problems = []
    for entry in entries:
        if layout_of(entry) == "point trace":
            problems += compare_traces(entry, traces, "point trace")
            continue
        statement = written.pop(key_of(entry), None)
        if statement is None:
            problems.append(f"{entry['id']}: no statement in '{entry['within']}' of "
                            f"{entry['source']} writes {entry['text']!r}")
            continue
        wanted = described(statement)
        found = {"fixed_lines": [], "line_offset": 0, **entry}
        problems += [f"{entry['id']}: {name} is {found[name]!r}, in the sources {wanted[name]!r}"
                     for name in wanted if found[name] != wanted[name]]
        if "statements" in entry:
            problems += compare_traces(entry, traces, "scope trace")
    problems += [f"{s.source}:{s.line}: not in the catalogue: {s.text!r}" for s in written.values()]
    return problems


def compare_traces(entry, traces, layout):
    there = sorted(f"{s.source} {s.within}" for s in traces if s.layout == layout)
    if sorted(entry["statements"]) == there:
        return []
    return [f"{entry['id']}: the traces are {sorted(entry['statements'])}, in the sources {there}"]
