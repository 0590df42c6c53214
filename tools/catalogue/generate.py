#!/usr/bin/env python3
"""Writes what is made from the catalogue of log texts: the guide's page, lnav's format, and the names
of the messages for tests.

usage: generate.py [--check]    with --check only says which of them is not what it would write
"""

import json
import re
import sys
import textwrap

from catalogue import LEVEL_NAMES, ROOT, layout_of, load

PAGE = "docs/what-a-line-means.md"
FORMAT = "packaging/lnav/tevalon_base_log.json"
HEADER = "testkit/include/testkit/log_messages.h"

FAMILIES = [
    ("timer", "Simple timers"),
    ("task", "Task threads"),
    ("pool", "The pool of task threads"),
    ("watch", "Watchdog"),
    ("dispatcher", "The event dispatcher"),
    ("hub", "Event hubs"),
    ("event", "Events"),
    ("lock", "Locks"),
    ("runnable", "Repeated jobs"),
    ("folder file removal path uuid", "Files and identifiers"),
    ("option", "Command line"),
    ("memory dump", "Memory"),
    ("trace", "Traces"),
    ("client", "Other modules"),
    ("zor", "The substitute debug library itself"),
]

# Of lnav's names for levels those that its colours and its filters know.
LNAV_LEVELS = {"error": "^E$", "warning": "^W$", "info": "^I$", "debug": "^D$", "notice": "^A$"}

# What the substitute debug library puts before a line, in its order: wall, time, level, module, thread.
LNAV_LINE = (
    r"^\[(?<timestamp>\d{4}-\d{2}-\d{2}T\d{2}:\d{2}:\d{2}\.\d{6}[+-]\d{2}:\d{2})\] "
    r"(?:\[ *(?<monotonic>\d+\.\d{6})\] )?"
    r"(?:\[(?<level>[AEWID-])\] )?"
    r"(?:\[(?<module>0x[0-9a-f]+)\] )?"
    r"(?:\[(?<thread_id>\d+) (?<thread>[^\]]*)\] )?"
    r"(?:\[(?<tag>[^\]\s]+)\] (?<source>[\w.+-]+):(?<source_line>\d+):"
    # As a compiler names it: in a lambda "operator()".
    r'(?<function>operator(?:[^\w\s]{1,3}|(?: |"" ?)[\w:<>,*&(){}\[\] ]+?)|~?\w+)\(\): )?'
    r"(?<body>.*)$")

CONVERSION = re.compile(r"%[-+ #0]*[\d.*]*(?:hh|h|ll|l|z|j)?[a-zA-Z]")


def plain_text(entry):
    return entry["text"].rstrip("\n")


def page(entries):
    lines = ["# What a line means", "",
             "Each message that the library writes to the log: its text, what it means, and what to look",
             "at next. `%s`, `%d` and the like stand for what differs from line to line. `tevalon-explain`",
             "looks all of that up for a whole log, and says what is most likely wrong in it. It, lnav and",
             "the test kit call the messages by the names that are the headings here.", "",
             "A line is `[tag] file:line:function(): text`. Where a source was split into several, the",
             "line keeps the first one's name and adds 1000 or 2000 to the line number; some numbers are",
             "fixed. Each entry says so, and where its statement really is.", ""]
    left = list(entries)
    for prefixes, title in FAMILIES:
        mine = [e for e in left if e["id"].split("-")[0] in prefixes.split()]
        left = [e for e in left if e not in mine]
        lines += [f"## {title}", ""]
        # What has failed before what goes its way.
        for entry in sorted(mine, key=lambda e: (not e["failure"], e["level"])):
            lines += described(entry)
    if left:
        raise SystemExit(f"generate: of no family: {[e['id'] for e in left]}")
    return "\n".join(lines).rstrip() + "\n"


def described(entry):
    name = LEVEL_NAMES[entry["level"]]
    text = textwrap.indent(plain_text(entry), "    ")
    lines = [f"### {entry['id']}", "", text, "", entry["meaning"], ""]
    if entry["failure"]:
        lines += [f"- Failed: {entry['failure']}."]
    if not entry["next"].startswith("Nothing: "):
        lines += [f"- Look at: {entry['next']}"]
    lines += [f"- Level {name}; {place_of(entry)}.", ""]
    return lines


def place_of(entry):
    within = entry["within"].lstrip("#")
    text = f"written by `{within}()` in `{entry['source']}`"
    if layout_of(entry) != "statement":
        return text
    shown = ", ".join(f"`{f}()`" for f in entry["functions"])
    if entry["functions"] != [within]:
        text += f", in the name of {shown}"
    if entry.get("line_offset"):
        text += f"; the line calls it `{entry['files'][0]}`, and adds {entry['line_offset']} to the number"
    if entry.get("fixed_lines"):
        numbers = ", ".join(map(str, entry["fixed_lines"]))
        files = ", ".join(f"`{f}`" for f in entry["files"])
        text += f"; the numbers are always {numbers}, of {files}" if len(
            entry["fixed_lines"]) > 1 else f"; the number is always {numbers}"
    return text


def pattern_of(entry):
    """For lnav: the place and the text."""
    escape = lambda text: re.sub(r"([\\^$.|?*+()\[\]{}])", r"\\\1", text)  # noqa: E731
    pieces = CONVERSION.split(plain_text(entry))
    files = "|".join(map(escape, entry["files"]))
    functions = "|".join(entry["functions"])
    return rf"\] (?:{files}):\d+:(?:{functions})\(\): " + ".*".join(map(escape, pieces))


def lnav_format(entries):
    failures = [e for e in entries if e["failure"] and layout_of(e) == "statement"]
    identifier = {"kind": "string", "identifier": True}
    wall, thread = "[2026-11-22T20:15:00.123456+01:00] ", "[4711 SimpleTimer] "
    return json.dumps({
        "$schema": "https://lnav.org/schemas/format-v1.schema.json",
        "tevalon_base_log": {
            "title": "tevalon-base",
            "description": "The log of tevalon-base and its clients, with the prefix 'wall' and any of "
                           "the others, as the substitute debug library writes it",
            "regex": {"wall": {"pattern": LNAV_LINE}},
            "level-field": "level",
            "level": LNAV_LEVELS,
            "opid-field": "thread_id",
            "value": {
                "monotonic": {"kind": "float", "foreign-key": True},
                "module": identifier,
                "thread_id": identifier,
                "thread": identifier,
                "tag": identifier,
                "source": identifier,
                "source_line": {"kind": "integer", "foreign-key": True},
                "function": identifier,
            },
            "tags": {e["id"]: {"description": e["meaning"], "pattern": pattern_of(e)}
                     for e in failures},
            "sample": [
                {"line": wall + "[ 4711.123456] [E] [0x5f] " + thread +
                 "[B-LOG] timer.cpp:1237:HandleTimerThread(): Fail to select, errno(9):'Bad'.",
                 "level": "error"},
                {"line": wall + "[W] [B-LOG] timer_thread.cpp:296:waitNextTaskWithTimeOut(): "
                 "Request Exit before wait.", "level": "warning"},
                {"line": wall + "[A] " + thread +
                 "[EventDispatcher] event_dispatcher.cpp:144:EventDispatcher(): "
                 "Create EventDispatcher.", "level": "notice"},
                {"line": wall + "a line of another layout"},
            ],
        },
    }, indent=2) + "\n"


def header(entries):
    lines = ["// log_messages.h: the library's log messages by name, for tests that look for them.",
             "//",
             "// Generated from tools/catalogue/messages.toml by generate.py beside it.", "",
             "#ifndef TESTKIT_LOG_MESSAGES_H", "#define TESTKIT_LOG_MESSAGES_H", "",
             "#include <cstdint>", "",
             "namespace tevalon::testkit {", "",
             "/// A log message: its name in docs/what-a-line-means.md and in tevalon-explain, and what its",
             "/// lines have in common.",
             "struct LogMessage {",
             "    const char* name;     ///< As it is called there.",
             "    std::uint16_t level;  ///< 0 where the caller's, or beyond all levels.",
             "    const char* tag;      ///< At the front of its lines.",
             "    const char* format;   ///< Of the text behind the line's place, with its line end.",
             "    /// Those that its lines name, with commas between them; empty where it is not one of few.",
             "    const char* functions;",
             "};", "",
             "namespace log_messages {", "",
             "/// @{", "/// The message of that name."]
    lines += ["// clang-format off"]
    for entry in entries:
        name = "k" + "".join(word.capitalize() for word in entry["id"].split("-"))
        values = [json.dumps(entry["id"]), str(entry["level"]), json.dumps(entry["tag"]),
                  json.dumps(entry["text"]), json.dumps(",".join(entry["functions"]))]
        lines += [f"inline constexpr LogMessage {name} = {{{', '.join(values)}}};"]
    lines += ["// clang-format on", "/// @}", "", "}  // namespace log_messages", "}  // namespace tevalon::testkit", "",
              "#endif  // TESTKIT_LOG_MESSAGES_H"]
    return "\n".join(lines) + "\n"


def generated(entries):
    return {PAGE: page(entries), FORMAT: lnav_format(entries), HEADER: header(entries)}


def stale(entries, root=ROOT):
    """Which of the files are not as they would be written."""
    return [name for name, text in generated(entries).items()
            if not (root / name).exists() or (root / name).read_text() != text]


def main():
    if sys.argv[1:] not in ([], ["--check"]):
        sys.exit(__doc__)
    if sys.argv[1:]:
        names = stale(load())
        for name in names:
            print(f"generate: {name} is stale: run tools/catalogue/generate.py")
        sys.exit(1 if names else 0)
    for name, text in generated(load()).items():
        (ROOT / name).write_text(text)


if __name__ == "__main__":
    main()
