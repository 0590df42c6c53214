#!/usr/bin/env python3
"""Says what a build of the library weighs, in all and by subsystem, and holds it to a limit.

    size_report.py LIBRARY
    size_report.py --total LIBRARY LIMIT_KIB

The first gives a table, and is for a library of the minsize preset with the linker's map beside it.
One that was optimised when it was linked, as a set should have it, can be weighed in --total only:
its map names no sources.
"""

import argparse
import collections
import pathlib
import re
import subprocess
import sys

SUBSYSTEMS = [
    ("diagnostics", r"^src/(logging|debug_memory)\."),
    ("concurrency foundation", r"^src/(os/|(synchronization|singleton|runnable|current_thread)\.)"),
    ("CRC tables and code", r"^src/check_sum"),
    ("other values and utilities", r"^src/(common_value|command_line|utils|process_property|md5)\."),
    ("timers", r"^src/timer"),
    ("event dispatching", r"^src/event_dispatcher/"),
    ("recorder and state report", r"^src/(activity|diagnostics|record)/"),
    ("runtime's start-up code", r""),
]
KINDS = {
    ".text": "code", ".rodata": "constants", ".data.rel.ro": "data", ".data": "data",
    ".init_array": "data", ".bss": "bss", ".ARM.extab": "unwinding", ".ARM.exidx": "unwinding",
    ".gcc_except_table": "unwinding", ".eh_frame": "unwinding",
}  # fmt: skip
COLUMNS = ["code", "constants", "data", "bss", "unwinding"]

# An input section of the map: its name, its address, its size, the object that it comes from. The
# name stands on a line of its own where it is long.
INPUT_SECTION = re.compile(r"^ (\.[\w.$]+)\s+0x[0-9a-f]+\s+(0x[0-9a-f]+) (\S+)", re.MULTILINE)


def kind_of(section: str) -> str | None:
    matches = [name for name in KINDS if section == name or section.startswith(name + ".")]
    return KINDS[max(matches, key=len)] if matches else None


def subsystem_of(object_file: str) -> str:
    source = object_file.rpartition("tevalon-base.dir/")[2]
    return next(name for name, pattern in SUBSYSTEMS if re.search(pattern, source))


def weigh_subsystems(map_text: str) -> dict[str, collections.Counter]:
    weights = {name: collections.Counter() for name, _ in SUBSYSTEMS}
    kept = map_text.partition("Linker script and memory map")[2]
    for section, size, object_file in INPUT_SECTION.findall(kept):
        kind = kind_of(section)
        if kind:
            weights[subsystem_of(object_file)][kind] += int(size, 16)
    return weights


def run(*command: str) -> str:
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def section_sizes(library: pathlib.Path) -> collections.Counter:
    rows = (line.split() for line in run("size", "-A", str(library)).splitlines())
    return collections.Counter({row[0]: int(row[1]) for row in rows if row and row[0][0] == "."})


def stripped_size(library: pathlib.Path) -> int:
    copy = library.with_name("stripped.so")
    run("arm-linux-gnueabihf-strip", "-o", str(copy), str(library))
    return copy.stat().st_size


def print_subsystems(map_text: str) -> None:
    print(f"{'bytes on armhf':28}" + "".join(f"{column:>11}" for column in COLUMNS))
    for name, weight in weigh_subsystems(map_text).items():
        print(f"{name:28}" + "".join(f"{weight[column]:11}" for column in COLUMNS))


def main() -> int:
    arguments = argparse.ArgumentParser()
    arguments.add_argument("--total", action="store_true")
    arguments.add_argument("library", type=pathlib.Path)
    arguments.add_argument("limit", type=int, nargs="?")
    options = arguments.parse_args()
    if options.total != (options.limit is not None):
        arguments.error("a limit is for the total")
    library = options.library.resolve()
    if not options.total:
        print_subsystems(next(library.parent.glob("libtevalon-base.so*.map")).read_text())

    sizes = section_sizes(library)
    relocations = sizes[".rel.dyn"] + sizes[".rel.plt"]
    symbols = sum(sizes[name] for name in (".dynsym", ".dynstr", ".gnu.hash", ".gnu.version"))
    size = stripped_size(library)
    print(f"in all: text {sizes['.text']}, constants {sizes['.rodata']}, data {sizes['.data']}, "
          f"bss {sizes['.bss']}, relocations {relocations} ({relocations // 8} of them), "
          f"symbols {symbols}")  # fmt: skip
    weight = f"stripped: {size} bytes, {size / 1024:.1f} KiB"
    if options.limit is None:
        print(weight)
        return 0
    print(f"{weight}; the limit is {options.limit} KiB")
    return 0 if size < options.limit * 1024 else 1


if __name__ == "__main__":
    sys.exit(main())
