#!/usr/bin/python3
"""Makes each call that can fail fail, and judges what the library makes of it.

    faults.py [--all | --runs] [--state FILE] [--scenario TEXT] [--verbose] BUILD_FOLDER

For each scenario of faults_program: runs it once to count the calls that the library makes into the
system and the C library, then once for each call and each error that it can plausibly give with
that call failing, then once with that call and all later ones failing. Each time in a new process.

Then the call sites: each call in the built libraries' machine code of a function that can fail,
with the errors that it was made to give. One that none was given fails the run, unless
unreached.txt lists it with a reason.

With --runs no more than the runs: for libraries that contain calls of a compiler's runtime.

Without --all a choice that takes two minutes and reaches every site. With --all what is through
is kept in the state file, and not done again while the build is the same.
"""

import argparse
import collections
import concurrent.futures
import errno
import hashlib
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time

from expectations import judge

FOLDER = os.path.dirname(os.path.abspath(__file__))

# ---- what can fail, and how ----
#
# The errors that a call can give to a caller that makes no mistake, the most telling first. "+": the
# call is made, and reported as failed then: it has no other way to fail, or would leave a lock held
# that the system never leaves so. "short": half of what was asked for.
WRITE_ERRORS = ["EIO", "ENOSPC", "EINTR", "EAGAIN", "EPIPE", "short"]
ERRORS = {
    "new": ["ENOMEM"],
    "malloc": ["ENOMEM"],
    "realloc": ["ENOMEM"],
    "mmap": ["ENOMEM", "EAGAIN"],
    "munmap": ["ENOMEM+"],
    "pthread_create": ["EAGAIN", "ENOMEM"],
    "pthread_attr_init": ["ENOMEM"],
    "pthread_atfork": ["ENOMEM"],
    "pthread_key_create": ["EAGAIN", "ENOMEM"],
    "pthread_setspecific": ["ENOMEM"],
    "pthread_setname_np": ["ERANGE"],
    "pthread_getname_np": ["ERANGE"],
    "pthread_mutex_init": ["ENOMEM", "EAGAIN"],
    "pthread_mutex_lock": ["EINVAL"],
    "pthread_mutex_trylock": ["EBUSY"],
    "pthread_mutex_unlock": ["EPERM+"],
    "pthread_cond_init": ["ENOMEM", "EAGAIN"],
    "pthread_cond_wait": ["EINVAL", "wake"],
    "pthread_cond_clockwait": ["EINVAL", "wake"],
    "pthread_cond_timedwait": ["EINVAL", "wake"],
    "pthread_cond_signal": ["EINVAL+"],
    "pthread_cond_broadcast": ["EINVAL+"],
    "sem_wait": ["EINTR"],
    "sem_clockwait": ["EINTR"],
    "clock_gettime": ["EINVAL"],
    "nanosleep": ["EINTR"],
    "clock_nanosleep": ["EINTR"],
    "sched_yield": ["ENOSYS"],
    "sched_getcpu": ["ENOSYS"],
    "prctl": ["EINVAL"],
    "getrlimit": ["ENOSYS"],
    "pipe2": ["EMFILE", "ENFILE"],
    "select": ["ENOMEM", "EINTR"],
    "poll": ["ENOMEM", "EINTR"],
    "read": ["EIO", "EINTR", "EAGAIN", "short"],
    "write": WRITE_ERRORS,
    "open": ["EMFILE", "ENFILE", "ENOSPC", "EACCES", "EEXIST", "EINTR"],
    "close": ["EIO+", "EINTR+"],
    "fcntl": ["EMFILE", "EINVAL"],
    "fstat": ["EIO"],
    "fstatfs": ["ENOSYS"],
    "isatty": ["ENOTTY"],
    "fopen": ["EMFILE", "ENOENT", "ENOMEM"],
    "fread": ["EIO", "short"],
    "fclose": ["EIO+"],
    "printf": ["EIO"],
    "fprintf": ["EIO"],
    "vsnprintf": ["EOVERFLOW"],
    "access": ["ENOENT", "EACCES", "EIO"],
    "opendir": ["EMFILE", "ENOMEM", "EACCES"],
    "readdir": ["EIO"],
    "closedir": ["EIO+"],
    "stat": ["ENOENT", "EACCES", "EIO"],
    "unlink": ["EACCES", "EBUSY"],
    "rename": ["EACCES", "EISDIR", "ENOSPC"],
    "rmdir": ["EACCES", "ENOTEMPTY"],
    "openat": ["EMFILE", "EACCES", "ELOOP"],
    "fdopendir": ["ENOMEM"],
    "unlinkat": ["EACCES", "EBUSY"],
    "posix_fallocate": ["ENOSPC", "EINTR", "EFBIG", "EOPNOTSUPP"],
    "sigtimedwait": ["EAGAIN", "EINTR"],
    "syscall(openat)": ["EMFILE", "ENFILE", "EACCES"],
    "syscall(read)": ["EIO", "EINTR"],
    "syscall(write)": WRITE_ERRORS,
    "syscall(close)": ["EIO+"],
}

# What is called and not in the table, since it cannot fail where its arguments are good. (But
# atexit(): without memory, from the 33rd on. Then what is static is not destroyed.)
CANNOT_FAIL = """
    pthread_mutex_destroy pthread_cond_destroy pthread_attr_destroy pthread_attr_setdetachstate
    pthread_join pthread_detach pthread_self pthread_equal pthread_once pthread_setcancelstate
    pthread_key_delete pthread_sigmask sem_init sem_destroy sem_post sysconf sigpending sigaddset
    sigemptyset sigismember uuid_generate mallinfo2 getauxval getenv secure_getenv getpid exit
    getopt_long dirfd geteuid localtime_r snprintf strerror strerror_r tolower ceil ldexp free
    __errno_location
    bcmp memchr memcmp memcpy memmove memrchr memset strcmp strlen strncmp strnlen strrchr strstr
    atexit __cxa_atexit __cxa_finalize __tls_get_addr __stack_chk_fail
    zorDebugCheckLevelGetFrameAndChunk zorDebugOutput0 zorDebugOutputV
    syscall(gettid) syscall(getcpu)
""".split()

# What the compiler calls on its own, and the C++ library.
NOT_OURS = ("_Z", "__cxa_", "_Unwind", "__asan", "__ubsan", "__tsan")

# Once one call has failed, all that follow do: what a process without memory, threads,
# descriptors, disk and clock meets. Locks hold: without them it would end at the next one.
LATER = {
    name: errors[0]
    for name, errors in ERRORS.items()
    if "(" not in name and not errors[0].endswith("+") and name not in
    ("pthread_mutex_lock", "pthread_mutex_trylock", "pthread_cond_wait", "pthread_cond_clockwait",
     "pthread_cond_timedwait", "sem_wait", "sem_clockwait")
}
LATER["syscall"] = "EIO"

# Nor is one of them the first: without memory for the text of its error the process ends.
LOCKS = ("pthread_mutex_lock", "pthread_mutex_unlock")

SYSTEM_CALLS = {"x86_64": {0: "read", 1: "write", 3: "close", 186: "gettid", 257: "openat",
                           309: "getcpu"}}


def number(error):
    """As engine.cpp reads it."""
    if error == "short":
        return "s"
    if error == "wake":
        return "0"
    suffix = "+" if error.endswith("+") else ""
    return str(getattr(errno, error.rstrip("+"))) + suffix


# ---- call sites ----

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


# ---- runs ----

# count: how often while it could fail.
Use = collections.namedtuple("Use", "scenario key call count alive site frames")
Plan = collections.namedtuple("Plan", "scenario key call use error later")


class Report:
    """What faults_program has reported."""

    def __init__(self, text, status, errors, hangs=False):
        self.status = status
        self.errors = errors
        self.hangs = hangs
        self.lines = []  # ("say" or "log", stage, text)
        self.uses = []
        self.failed = None
        self.alive = self.descriptors = None  # Of the blocks those that nobody keeps for later.
        self.kept = 0
        self.is_complete = False
        for line in text.splitlines():
            word, _, rest = line.partition(" ")
            if word in ("say", "log"):
                stage, _, what = rest.partition(" ")
                self.lines.append((word, int(stage), what))
            elif word == "call":
                self.uses.append(rest.split(" "))
            elif word == "failed":
                self.failed = rest
            elif word == "alive":
                self.alive = int(rest)
            elif word == "descriptors":
                self.descriptors = int(rest)
            elif word == "end":
                self.is_complete = True


    def tell_apart(self, keepers):
        """Blocks that come from these places are kept for later, more or fewer."""
        self.kept = sum(int(alive) for _, _, _, _, _, alive, *chain in self.uses
                        if chain[0] in keepers)
        if self.alive is not None:
            self.alive -= self.kept


class Runner:
    def __init__(self, program, sites):
        self.program = program
        self.keepers = {f"{site.module}:{address:x}" for site in sites for address in site.returns_to
                        if "BlockCache::allocate" in site.where}
        self.architecture = os.uname().machine
        self.later = ",".join(f"{name}={number(error)}" for name, error in LATER.items())

    def start(self, scenario, blocks, *plan, patience_ms=500):
        folder = tempfile.mkdtemp(prefix="faults.")
        try:
            with (tempfile.TemporaryFile("w+", errors="backslashreplace") as output,
                  tempfile.TemporaryFile("w+", errors="backslashreplace") as errors):
                environment = {name: value for name, value in os.environ.items()
                               if not name.startswith("ZOR_DEBUG") and name != "NO_COLOR"}
                environment["FAULTS_PATIENCE_MS"] = str(patience_ms)
                process = subprocess.Popen([self.program, scenario, str(blocks), *plan], cwd=folder,
                                           stdin=subprocess.DEVNULL, stdout=output, stderr=errors,
                                           env=environment)
                hangs = False
                try:
                    process.wait(timeout=45)
                except subprocess.TimeoutExpired:
                    hangs = True
                    process.kill()
                    process.wait()
                output.seek(0)
                errors.seek(0)
                report = Report(output.read(), process.returncode, errors.read(), hangs)
                report.tell_apart(self.keepers)
                return report
        finally:
            shutil.rmtree(folder, ignore_errors=True)

    def name_of(self, call, call_number):
        if call != "syscall":
            return call
        names = SYSTEM_CALLS.get(self.architecture, {})
        return f"syscall({names.get(int(call_number), call_number)})"

    def run(self, plan, baseline, patience_ms):
        text = f"{plan.key}:{plan.use}:{number(plan.error)}" + (":later" if plan.later else "")
        return self.start(plan.scenario, baseline.alive + baseline.kept, text, self.later,
                          patience_ms=patience_ms)


def later_sites(report):
    """What failed after the first failure, with what."""
    sites = set()
    for call, _, _, _, failures, _, *chain in report.uses:
        if int(failures) > 0:
            module, offset = chain[0].split(":")
            sites.add((module, int(offset, 16), LATER[call]))
    return sorted(sites)


class Baseline:
    """A scenario without failures."""

    def __init__(self, runner, scenario):
        # With patience: what it has not seen by then nobody expects of the other runs.
        reports = [runner.start(scenario, -1, patience_ms=10000) for _ in range(3)]
        for report in reports:
            if report.status != 0 or not report.is_complete:
                sys.exit(f"faults: '{scenario}' fails by itself: status {report.status}, "
                         f"{report.errors}")
        self.scenario = scenario
        self.lines = reports[0].lines
        self.alive = max(report.alive for report in reports)
        self.kept = max(report.kept for report in reports)
        self.descriptors = max(report.descriptors for report in reports)
        self.uses = {}
        for report in reports:
            for call, call_number, key, count, _, alive, *chain in report.uses:
                frames = [(module, int(offset, 16)) for module, offset in
                          (frame.split(":") for frame in chain)]
                use = Use(scenario, key, runner.name_of(call, call_number), int(count), int(alive),
                          frames[0], frames)
                known = self.uses.get(key)
                if known is None or known.count > use.count:
                    self.uses[key] = use


def plan_runs(baselines, everything, place):
    """All runs, or those in which each call fails once, each place in our sources that leads to a
    site with each error, and each site in each scenario with all later calls failing as well."""
    plans = []
    seen = set()

    def add(use, nth, error, later=False):
        plan = Plan(use.scenario, use.key, use.call, nth, error, later)
        if plan not in seen:
            seen.add(plan)
            plans.append(plan)

    if everything:
        for baseline in baselines:
            for use in baseline.uses.values():
                errors = ERRORS.get(use.call, [])
                for nth in chosen_uses(use.count):
                    for error in errors:
                        add(use, nth, error)
                    if errors and use.call not in LOCKS:
                        add(use, nth, errors[0], True)
        return plans

    places = set()
    visited = set()
    for baseline in baselines:
        for use in sorted(baseline.uses.values(), key=lambda u: u.frames):
            errors = ERRORS.get(use.call, []) if use.count > 0 else []
            for error in errors:
                if (place(use), error) not in places:
                    places.add((place(use), error))
                    add(use, 1, error)
            if errors:
                add(use, 1, errors[0])
            if errors and (use.scenario, use.site) not in visited:
                visited.add((use.scenario, use.site))
                if use.call not in LOCKS:
                    add(use, 1, errors[0], True)
    return plans


def is_for_races(library):
    """Whether it is built for the thread sanitizer."""
    with open(library, "rb") as file:
        return b"__tsan_init" in file.read()


def chosen_uses(count):
    """Every one, where there are few; of many the first, some between and the last."""
    if count <= 6:
        return range(1, count + 1)
    return sorted({1, 2, 3, count // 2, count - 1, count})


# ---- main ----

class State:
    """What is through already, by plan."""

    def __init__(self, path, build):
        self.path = path
        self.done = {}
        if path is None:
            return
        if os.path.exists(path):
            with open(path, encoding="utf-8") as file:
                lines = file.read().splitlines()
            if lines and lines[0] == build:
                self.done = {json.dumps(json.loads(line)[0]): json.loads(line)[1]
                             for line in lines[1:]}
        if not self.done:
            with open(path, "w", encoding="utf-8") as file:
                file.write(build + "\n")

    def known(self, plan):
        return self.done.get(json.dumps(plan))

    def keep(self, plan, problems):
        self.done[json.dumps(plan)] = problems
        if self.path is not None:
            with open(self.path, "a", encoding="utf-8") as file:
                file.write(json.dumps([plan, problems]) + "\n")


def digest_of(paths):
    digest = hashlib.sha256()
    for path in paths:
        with open(path, "rb") as file:
            digest.update(file.read())
    return digest.hexdigest()


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


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n", maxsplit=1)[0])
    parser.add_argument("--all", action="store_true")
    parser.add_argument("--usual", action="store_true", help="only run what nothing fails in")
    parser.add_argument("--runs", action="store_true", help="do not look at the call sites")
    parser.add_argument("--first", action="store_true", help="end with the first failure")
    parser.add_argument("--state")
    parser.add_argument("--scenario")
    parser.add_argument("--verbose", action="store_true")
    parser.add_argument("--jobs", type=int, default=2 * os.cpu_count())
    parser.add_argument("build")
    options = parser.parse_args()
    options.build = os.path.abspath(options.build)
    begin = time.monotonic()

    root = os.path.dirname(os.path.dirname(FOLDER))
    files = {"base": os.path.join(options.build, "libtevalon-base.so"),
             "zor": os.path.join(options.build, "platform/zor_debug/libzor-debug.so"),
             "program": os.path.join(options.build, "tests/faults/faults_program")}
    symbols = {module: Symbols(path) for module, path in files.items()}
    sites = [site for module in ("base", "zor")
             for site in find_sites(module, files[module], symbols[module], root,
                                    not options.runs)]

    runner = Runner(files["program"], sites)
    names = subprocess.run([files["program"], "--list"], check=True, text=True,
                           stdout=subprocess.PIPE).stdout.splitlines()
    names = [name for name in names if options.scenario is None or options.scenario in name]
    pool = concurrent.futures.ThreadPoolExecutor(options.jobs)
    baselines = list(pool.map(lambda name: Baseline(runner, name), names))
    if options.usual:
        print(f"faults: {len(baselines)} scenarios work")
        return
    by_name = {baseline.scenario: baseline for baseline in baselines}
    for module in files:
        symbols[module].look_up({frame[1] - 1 for baseline in baselines
                                 for use in baseline.uses.values()
                                 for frame in use.frames if frame[0] == module})

    def functions(use):
        return [name for module, offset in use.frames
                for name, _ in symbols[module].frames(offset - 1)]

    def place(use):
        """The site, and the first function on the way to it that is no inline one's."""
        for module, offset in use.frames:
            if symbols[module].frames(offset - 1)[-1][1].rsplit(":", 1)[0].endswith(".cpp"):
                return use.call, use.site, module, offset
        return use.call, use.site

    plans = plan_runs(baselines, options.all, place)
    if is_for_races(files["base"]):
        # What goes on without its lock races, as documented.
        plans = [plan for plan in plans if plan.call != "pthread_mutex_lock"]
    scripts = [os.path.join(FOLDER, name) for name in ("faults.py", "expectations.py")]
    state = State(options.state, digest_of([*files.values(), *scripts]) if options.all else "")

    def execute(plan):
        known = state.known(plan)
        if known is not None:
            return plan, known[0], known[1]
        baseline = by_name[plan.scenario]
        use = baseline.uses[plan.key]
        # Once more, with more patience: the machine may have been busy. A crash counts at once.
        for patience_ms in (500, 500, 3000):
            report = runner.run(plan, baseline, patience_ms)
            if report.failed is None:
                continue  # By chance the call was not made.
            problems = judge(plan, functions(use), baseline, report)
            if not problems or report.status != 0:
                break
        if report.failed is None:
            return plan, None, None
        return plan, problems, later_sites(report)

    reached = collections.defaultdict(set)
    failures = 0
    missed = 0
    for plan, problems, others in pool.map(execute, plans):
        if others is None:
            missed += 1
            continue
        if state.known(plan) is None:
            state.keep(plan, [problems, others])
        use = by_name[plan.scenario].uses[plan.key]
        reached[use.site].add(plan.error)
        for module, offset, error in others:
            reached[module, offset].add(error)
        if problems:
            failures += 1
            later = " and all later calls" if plan.later else ""
            print(f"faults: '{plan.scenario}': {plan.call} ({plan.error}, use {plan.use}){later}")
            print(f"    in {' < '.join(functions(use))}")
            for problem in problems:
                print(f"    {problem}")
            if options.first:
                sys.stdout.flush()
                pool.shutdown(wait=False, cancel_futures=True)
                os._exit(1)

    ok = failures == 0
    if options.scenario is None and not options.runs:
        table = os.path.join(options.build, "faults.txt")
        with open(table, "w", encoding="utf-8") as file:
            infallible = {use.site: use.call for baseline in baselines
                          for use in baseline.uses.values() if use.call in CANNOT_FAIL}
            unreached = read_unreached(os.path.join(FOLDER, "unreached.txt"))
            ok = print_table(sites, reached, infallible, unreached, file) and ok
        if options.verbose:
            with open(table, encoding="utf-8") as file:
                print(file.read())
    pairs = sum(len(errors) for errors in reached.values())
    print(f"faults: {len(baselines)} scenarios, {len(plans)} runs ({missed} without the call), "
          f"{len(sites)} call sites, {pairs} pairs of site and error, {failures} failures, "
          f"{time.monotonic() - begin:.0f} s")
    sys.exit(0 if ok else 1)


if __name__ == "__main__":
    main()
