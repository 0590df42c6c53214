"""The calls in the machine code of the built libraries that can fail, and which were made to."""

import collections
import os
import re
import subprocess
import sys

from errors import CANNOT_FAIL, ERRORS, NOT_OURS

# returns_to: the return addresses of the call; of a tail call those of the calls of its function.
Site = collections.namedtuple("Site", "module returns_to call where")

# By the names in the libraries.
RENAMED = {"__register_atfork": "pthread_atfork", "fopen64": "fopen", "open64": "open", "openat64": "openat",
           "mmap64": "mmap", "readdir64": "readdir", "stat64": "stat", "fstat64": "fstat",
           "fstatfs64": "fstatfs", "fcntl64": "fcntl", "getrlimit64": "getrlimit",
           "posix_fallocate64": "posix_fallocate",
           # What allocates, starts a thread or waits on the library's behalf.
           "_Znwm": "new", "_Znam": "new", "_ZnwmRKSt9nothrow_t": "new",
           "_ZNSt18condition_variable4waitERSt11unique_lockISt5mutexE": "pthread_cond_wait",
           "_ZNSt6chrono3_V212steady_clock3nowEv": "clock_gettime",
           "_ZNSt18condition_variable10notify_oneEv": "pthread_cond_signal",
           "_ZNSt18condition_variable10notify_allEv": "pthread_cond_broadcast"}
STARTS_THREAD = re.compile(r"_ZNSt6thread15_M_start_thread")
CALL = re.compile(r"^ *([0-9a-f]+):\s.*\b(call|jmp)\s+[0-9a-f]+ <([^>@+]+)(?:@[^>]*)?@plt>")
LOCAL_CALL = re.compile(r"^ *[0-9a-f]+:\s.*\bcall\s+[0-9a-f]+ <([^>@+]+)>")
INSTRUCTION = re.compile(r"^ *([0-9a-f]+):\s")
FUNCTION = re.compile(r"^[0-9a-f]+ <([^>]+)>:")


class Symbols:
    """Names and source lines of addresses in one file."""

    def __init__(self, path):
        self.path = path
        self.known = {}

    def look_up(self, addresses):
        missing = sorted({a for a in addresses if a not in self.known})
        if not missing:
            return
        text = subprocess.run(["addr2line", "-Cfai", "-e", self.path], check=True, text=True,
                              input="".join(f"{a:x}\n" for a in missing),
                              stdout=subprocess.PIPE).stdout
        frames = None
        lines = iter(text.splitlines())
        for line in lines:
            if line.startswith("0x"):
                frames = self.known.setdefault(int(line, 16), [])
            else:
                frames.append((line, next(lines).split(" (disc")[0]))

    def frames(self, address):
        self.look_up([address])
        return self.known[address]


def call_of(symbol):
    if STARTS_THREAD.match(symbol):
        return "pthread_create"
    return RENAMED.get(symbol, symbol)


def find_sites(module, path, symbols, root, all_are_known):
    """Each call of a function that can fail, in the machine code."""
    text = subprocess.run(["objdump", "-d", "--no-show-raw-insn", path], check=True, text=True,
                          stdout=subprocess.PIPE).stdout
    found = []  # (address, return address or, of a tail call, the function it is in, call)
    callers = collections.defaultdict(list)  # By local function.
    unknown = set()
    before = function = local = None
    for line in text.splitlines():
        instruction = INSTRUCTION.match(line)
        if instruction:
            address = int(instruction.group(1), 16)
            if before:
                found.append((before[0], address, before[1]))
            if local:
                callers[local].append(address)
            before = local = None
        elif FUNCTION.match(line):
            function = FUNCTION.match(line).group(1)
        local_call = LOCAL_CALL.match(line)
        if local_call:
            local = local_call.group(1)
        call = CALL.match(line)
        if not call or function.endswith("@plt"):
            continue
        name = call_of(call.group(3))
        if name in ERRORS or name == "syscall":
            if call.group(2) == "jmp":
                found.append((address, function, name))
            else:
                before = (address, name)
        elif name not in CANNOT_FAIL and not name.startswith(NOT_OURS):
            unknown.add(name)
    if unknown and all_are_known:
        sys.exit("faults: neither in the table of errors nor among what cannot fail: " +
                 " ".join(sorted(unknown)))
    symbols.look_up([address for address, _, _ in found])
    return [Site(module, tuple(callers[returns]) if isinstance(returns, str) else (returns,), name,
                 place_of(symbols.frames(address), root))
            for address, returns, name in found]


def place_of(frames, root):
    """The innermost function, and the innermost line that is ours."""
    function = re.sub(r"tevalon::base::|\(anonymous namespace\)::", "", frames[0][0]).split("(")[0]
    for _, line in frames:
        parts = os.path.normpath(line).split("/")
        # The tree may have had another place when a compiler cache filled.
        for i in range(len(parts) - 1):
            path = "/".join(parts[i:])
            if os.path.exists(os.path.join(root, path.rsplit(":", 1)[0])) and parts[i] != "":
                return f"{function}, {path}"
    return f"{function}, {os.path.basename(frames[0][1])}"


def read_unreached(path):
    """Sites by "MODULE CALL in PLACE", the line's number left out, with the reason; and those of
    them that chance may reach."""
    reasons = {}
    by_chance = set()
    with open(path, encoding="utf-8") as file:
        for line in file:
            line = line.strip()
            if line and not line.startswith("#"):
                site, _, reason = line.removeprefix("~ ").rpartition(": ")
                reasons[site] = reason
                if line.startswith("~ "):
                    by_chance.add(site)
    return reasons, by_chance


def name_of_site(site):
    return f"{site.module} {site.call} in {re.sub(r':[0-9?]+$', '', site.where)}"


def print_table(sites, reached, infallible, unreached, out):
    """False where a site was reached by none and has no reason."""
    reasons, by_chance = unreached
    missing = []
    used_reasons = set()
    for site in sorted(sites, key=lambda s: (s.module, s.where, s.returns_to)):
        places = [(site.module, address) for address in site.returns_to]
        errors = sorted({error for place in places for error in reached.get(place, ())})
        name = name_of_site(site)
        if errors:
            what = " ".join(errors)
            if name in by_chance:
                used_reasons.add(name)
        elif any(place in infallible for place in places):
            what = "cannot fail: " + " ".join(infallible[place] for place in places)
        elif name in reasons:
            used_reasons.add(name)
            what = "unreached: " + reasons[name]
        else:
            missing.append(site)
            what = "UNREACHED"
        print(f"{site.module:5} {site.call:24} {site.where:70} {what}", file=out)
    for name in sorted(set(reasons) - used_reasons):
        print(f"faults: unreached.txt lists '{name}', which was reached, or is not there")
    for site in missing:
        print(f"faults: reached by none: {name_of_site(site)} ({site.where})")
    return not missing and set(reasons) == used_reasons
