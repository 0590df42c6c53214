"""Which mutants of the library there are, and which of them are of locks, ends and time."""
import concurrent.futures
import dataclasses
import hashlib
import os
import re

import edits
from tree import HERE, ROOT

KINDS_OF_LOCKS = ("lock", "notify", "flag")
# What locks, ends and tells the time: a file, or functions of one.
LOCKS = {
    "pubinc/base/simple_timer.h": None,
    "pubinc/base/singleton.h": None,
    "pubinc/base/synchronization/": None,
    "pubinc/base/threading/": None,
    "pubinc/base/timer/": None,
    "pubinc/base/utils/monotonic_time.h": None,
    "src/event_dispatcher/event_dispatcher.cpp": None,
    "src/event_dispatcher/event_hub_impl.cpp": r"[sS]top|[jJ]oin|~|[fF]orked|[tT]hread|[tT]ear|[wW]ait|end",
    "src/event_dispatcher/event.cpp": r"[wW]ait|[rR]eply|~",
    "src/event_dispatcher/nap.h": None,
    "src/event_dispatcher/spin.h": None,
    "src/locks/": None,
    "src/os/": None,
    "src/runnable.cpp": None,
    "src/singleton.cpp": None,
    "src/synchronization.cpp": None,
    "src/timer/": None,
    "src/timer_thread": None,
}


@dataclasses.dataclass
class Entry:
    """A mutant and where it stands."""
    number: int
    file: str
    line: int
    function: str
    kind: str
    original: str
    mutated: str
    place: int  # Among those of its file, from 1.
    text: str = ""  # Of its line.
    digest: str = ""  # Of its file, and of what makes mutants of it.

    def group(self):
        if self.kind in KINDS_OF_LOCKS:
            return "locks"
        for prefix, functions in LOCKS.items():
            if self.file.startswith(prefix) and \
                    (functions is None or re.search(functions, self.function)):
                return "locks"
        return "rest"

    def __str__(self):
        return f"{self.file}:{self.line}: {self.function}: {self.original} -> " \
            f"{self.mutated or '(nothing)'}"


def flags():
    folders = ["pubinc", "src", "platform/zor_debug/include"]
    return ["-std=c++17", "-D_FILE_OFFSET_BITS=64", "-DTEVALON_BASE_BLOCK_CACHE=1", "-w"] + \
        [f"-I{ROOT / folder}" for folder in folders]


def find_in(unit_name, headers):
    """The sites of one translation unit, by file."""
    names = [unit_name] + headers if unit_name else headers
    if unit_name:
        unit = edits.parse(str(ROOT / unit_name), flags())
    else:
        path = str(ROOT / "all_headers.cpp")
        unit = edits.parse(path, flags(),
                           {path: "".join(f'#include "{ROOT / name}"\n' for name in headers)})
    included = {str(item.include) for item in unit.get_includes()} | {str(ROOT / unit_name)}
    result = {}
    for name in names:
        path = str(ROOT / name)
        if path in included:
            finder = edits.Finder(path, (ROOT / name).read_text())
            finder.look_at(unit)
            result[name] = (finder.sites, finder.text)
    return result


def find_sites(names):
    """All sites of the library, by file, and the text of each file."""
    headers = [name for name in names if name.endswith(".h")]
    units = [name for name in names if name.endswith(".cpp") and "crc_arm" not in name and
             "no_diagnostics" not in name]
    # Each header once, from whichever unit has it.
    public = [name for name in headers if name.startswith("pubinc/")]
    private = [name for name in headers if name.startswith("src/") and "crc_arm" not in name and
               "crc_folding" not in name]
    sites, texts = {}, {}
    with concurrent.futures.ProcessPoolExecutor(os.cpu_count()) as pool:
        jobs = [pool.submit(find_in, "", public + private)] + \
            [pool.submit(find_in, unit, []) for unit in units]
        for job in jobs:
            for name, (found, text) in job.result().items():
                texts[name] = text
                sites.setdefault(name, {}).update(found)
    return {name: edits.nested(found.values()) for name, found in sites.items()}, texts


def number_mutants(sites, texts):
    entries = []
    maker = (HERE / "edits.py").read_text() + (HERE / "sites.py").read_text()
    for name in sorted(sites):
        digest = hashlib.sha256((maker + texts[name]).encode()).hexdigest()[:12]
        mutants = [(site, mutant) for site in sites[name] for mutant in site.mutants]
        for place, (site, mutant) in enumerate(mutants, 1):
            mutant.number = len(entries) + 1
            line = texts[name][:site.start].count("\n") + 1
            text = texts[name].split("\n")[line - 1].strip()
            entries.append(Entry(mutant.number, name, line, site.function, mutant.kind, site.original,
                                 mutant.mutated, place, text, digest))
    return entries
