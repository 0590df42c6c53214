"""What the library has to make of a failed call: its answers and its error lines, compared whole.

A run says, stage by stage, what the library answered: 1 while the call fails, 2 afterwards with the
same objects, 3 and 4 with new ones. Without a word here, all of it is as without the failure, and
no error is logged; where memory is missing an operation may throw std::bad_alloc instead, and where
a mutex that is no guard's cannot be locked, std::system_error.

In lines and answers "#" stands for any number and "%" for what strerror() says of the error.
"""

import collections
import errno
import os
import re

ANY = None

# call, error and scenario: what fails, as regular expressions for the whole name; within: one for
# the functions on the stack, innermost first, with " < " between them.
# lines: the error lines, in order; one that ends in "*" may come any number of times, or not.
# says and then: by what is asked, the answers that are other ones, in stage 1 and later; ANY allows
# each. then_lines: error lines in the later stages.
# lost: a line that is there without the failure may be missing.
# throws: what leaves the operation. ends: what the process ends with, on standard error.
Expectation = collections.namedtuple(
    "Expectation", "call within scenario error lines says then then_lines lost throws ends",
    defaults=(".*", ".*", ".*", (), {}, {}, (), False, None, None))

SYSTEM_ERROR = r"terminate called after throwing an instance of 'std::system_error'"
BAD_ALLOC = r"terminate called after throwing an instance of 'std::bad_alloc'"
NOW_FAILED = "Fail to get now time, errorno(22):'%'.\\n"
NOT_ARMED = r"[EventDispatcher] event.cpp:#:waitForResult(): " \
            r"waitResultMtx or waitResultCv is NULL.\n"
NO_HUB = r"[EventDispatcher] event_hub.cpp:#:\w+(): m_impl is NULL.\n*"
NOT_SENT = r"[EventDispatcher] event_hub.cpp:#:sendEventSync(): Fail to send event.\n*"
NO_IMPL = r"[B-LOG] timer.cpp:#:\w+(): m_impl is NULL.\n*"


def guard(name, file, lock_line, unlock_line):
    caught = "An runtime_error has been caught:"
    return [
        Expectation("pthread_mutex_lock", rf"\b{name}<pthread_mutex_t>::{name}\b",
                    lines=[f"[B-LOG] {file}:{lock_line}:{name}(): {caught}Mutex lock error: ?.\\n"]),
        Expectation("pthread_mutex_lock", rf"\b{name}<std::mutex>::{name}\b",
                    lines=[f"[B-LOG] {file}:{lock_line}:{name}(): {caught}%.\\n"]),
        Expectation("pthread_mutex_unlock", rf"\b{name}<pthread_mutex_t>::~{name}\b",
                    lines=[f"[B-LOG] {file}:{unlock_line}:~{name}(): "
                           f"{caught}Mutex unlock error: ?.\\n"]),
    ]


def without_thread(call, within):
    lines = [r"[EventDispatcher] event_hub.cpp:#:registerHandler(): "
             r"Fail to create EventHandlerThread.\n"]
    return [
        Expectation(call, within, "asynchronous sends", lines=lines,
                    says={"sent": ("0", "-1"), "called": ANY}),
        Expectation(call, within, lines=lines,
                    says={"handled": ANY, "reply": ("1", "42"), "worked": "no"}),
    ]


EXPECTATIONS = [
    # ---- command line: "--help" ends the process, unless it throws ----
    Expectation("new", scenario="command line help", throws="std::bad_alloc", then={"*": ANY}),

    # ---- logging ----
    Expectation("clock_gettime", r"\bbootID\b", "logging", says={"boot id without a clock": "1"}),
    Expectation("clock_gettime", r"monotonicSeconds < (debug::)?report", "memory report", lost=True,
                lines=[r"{#-#}[B-LOG] debug_memory.cpp:79:showFileContents(): "
                       r"==Title==\n one\ntwo\n"]),
    Expectation("malloc", r"^[^<]*debug_init", "memory report", lost=True),
    Expectation("fopen|malloc", r"showFileContents", "memory report",
                lines=[r"[B-LOG] debug_memory.cpp:68:showFileContents(): Error opening shown.txt\n"],
                lost=True),
    Expectation("fread", r"showFileContents", "memory report", "EIO",
                lines=[r"[B-LOG] debug_memory.cpp:73:showFileContents(): Error reading shown.txt\n"],
                lost=True),

    # ---- locks ----
    *guard("AutoLock", "auto_lock.h", 31, 44),
    *guard("LockGuard", "lock_guard.h", 29, 43),
    *guard("UniqueLock", "unique_lock.h", 33, 47),

    # ---- singletons: whose creation has failed once, there is none for good ----
    Expectation("new", r"Singleton<.*TimerThreadPool", "singletons",
                says={"pool": "std::bad_alloc"}, then={"pool": "failed"}),
    Expectation("new", r"Singleton<.*EventDispatcher", "singletons",
                says={"dispatcher": "std::bad_alloc"}, then={"dispatcher": "failed"}),
    Expectation("new", r"Singleton<.*GLWatchDog", "singletons",
                says={"watchdog": "std::bad_alloc"}, then={"watchdog": "failed"}),
    Expectation("pthread_mutex_init", r"Singleton<.*TimerThreadPool", "singletons",
                says={"pool": "Mutex init error: ?"}, then={"pool": "failed"}),
    Expectation("pthread_mutex_init", r"Singleton<.*GLWatchDog", "singletons",
                says={"watchdog": "Mutex init error: ?"}, then={"watchdog": "failed"}),
    Expectation("pthread_create", r"Singleton<.*GLWatchDog", "singletons",
                says={"watchdog": "Thread initialization failed"}, then={"watchdog": "failed"}),
    Expectation("pthread_mutex_init", throws="Mutex init error: ?"),
    Expectation("pthread_cond_init", r"\bConditionVariable::ConditionVariable\b",
                throws="ConditionVariable init error: ?"),

    # ---- Runnable ----
    Expectation("pthread_cond_wait", r"ConditionVariable::wait<", "runnable", "EINVAL",
                says={"run threw": "ConditionVariable cond_wait error: ?", "resumed": "no"},
                then={"run": ANY, "run threw": ANY}),
    Expectation("pthread_cond_signal", r"\bConditionVariable::notify_one\b",
                throws="ConditionVariable notify_one error: ?"),
    Expectation("pthread_mutex_lock", r"UniqueLock<std::mutex>", "runnable"),

    # ---- Timer ----
    Expectation("new", r"startHandlerThread",
                lines=[r"[B-LOG] timer.cpp:#:HandleTimeout(): Fail to create handler thread of "
                       r"timer:'\w+[\w ]*', error:'std::bad_alloc'.\n"],
                says={"fired": ANY, "fired on": ANY}),
    Expectation("pthread_create|pthread_attr_init", r"startHandlerThread",
                lines=[r"[B-LOG] timer.cpp:#:HandleTimeout(): Fail to create handler thread of "
                       r"timer:'\w+[\w ]*', error:'%'.\n"],
                says={"fired": ANY, "fired on": ANY}),
    Expectation("pipe2", r"StartTimerThreadOnce",
                lines=["[B-LOG] timer.cpp:#:StartTimerThreadOnce(): "
                       "Fail to create pipe, errno(#):'%'.\\n"],
                says={"fired": "no"}, then={"fired": "no", "fired then": "no"}),
    Expectation("new", r"StartTimerThreadOnce\b",
                lines=["[B-LOG] timer.cpp:#:StartTimerThreadOnce(): "
                       "Fail to create timer thread, error:'std::bad_alloc'.\\n"],
                says={"fired": "no"}, then={"fired": "no", "fired then": "no"}),
    Expectation("pthread_create|pthread_attr_init",
                r"StartTimerThreadOnce\b",
                lines=["[B-LOG] timer.cpp:#:StartTimerThreadOnce(): "
                       "Fail to create timer thread, error:'%'.\\n"],
                says={"fired": "no"}, then={"fired": "no", "fired then": "no"}),
    Expectation("clock_gettime", r"TimerImpl::caculateExpiredTime.*\bTimerImpl::start\b",
                lines=["[B-LOG] timer.cpp:#:caculateExpiredTime(): " + NOW_FAILED,
                       r"[B-LOG] timer.cpp:#:start(): Fail to start timer:'\w+[\w ]*'.\n",
                       r"[B-LOG] timer.cpp:#:start(): Fail to start timer:'\w+[\w ]*'.\n",
                       r"[B-LOG] timer.cpp:#:restart(): Fail to start timer:'\w+[\w ]*'.\n*"],
                says={"start": "-1", "restart": "-1", "fired": "no", "fired on": "no",
                      "started": "100"}),
    Expectation("clock_gettime", r"TimerImpl::caculateExpiredTime",
                lines=["[B-LOG] timer.cpp:#:caculateExpiredTime(): " + NOW_FAILED]),
    Expectation("clock_gettime", r"HandleTimeout",
                lines=["[B-LOG] timer.cpp:#:HandleTimeout(): " + NOW_FAILED]),
    Expectation("clock_gettime", r"CaculateSelectTimeout",
                lines=["[B-LOG] timer.cpp:#:CaculateSelectTimeout(): "
                       "Fail to get now time, errorno(22):'%', timeout is 0.\\n"]),
    Expectation("select", lines=["[B-LOG] timer.cpp:#:HandleTimerThread(): "
                                 "Fail to select, errno(#):'%'.\\n"]),
    # A pipe that is full wakes the scheduler as well; here it is not.
    Expectation("write", r"SendCmd", error="EAGAIN", says={"fired": ANY, "fired on": ANY}),
    Expectation("write", r"SendCmd", error="short"),
    Expectation("write", r"SendCmd",
                lines=["[B-LOG] timer.cpp:#:SendCmd(): Fail to wrtie data, errno(#):'%'.\\n"],
                says={"fired": ANY, "fired on": ANY}, then={"fired then": ANY}),
    Expectation("new", r"InsterTimer",
                lines=[r"[B-LOG] timer.cpp:#:start(): Fail to start timer:'\w+[\w ]*'.\n"],
                says={"start": "-1", "fired": "no", "started": "100"}),
    Expectation("new", r"\bTimer::Timer\b|\bTimerImpl::TimerImpl\b", "timers many",
                lines=[r"[B-LOG] timer.cpp:#:Timer(): Fail to create TimerImpl.\n", NO_IMPL],
                says={"started": "100", "*": ("-1", "no")}, then={"*": ("-1", "no")},
                then_lines=[NO_IMPL]),
    Expectation("new", r"\bTimer::Timer\b|\bTimerImpl::TimerImpl\b",
                lines=[r"[B-LOG] timer.cpp:#:Timer(): Fail to create TimerImpl.\n", NO_IMPL],
                says={"*": ("-1", "no")}, then={"*": ("-1", "no")}, then_lines=[NO_IMPL]),

    # ---- TimerThread, pool and watchdog ----
    Expectation("pthread_create", r"BasicThread<", throws="Thread initialization failed",
                says={"posted": "Thread initialization failed"}),

    # Who knows no time does not wait for one.
    Expectation("clock_gettime", r"TimerThread::postTask", "timer thread queue",
                says={"queued": ("199", "200")}),
    Expectation("clock_gettime", r"WatchDog::beginWatch", says={"reported": "no", "overdue": "0"},
                lost=True),
    # Each watch is looked at by a reading of its own; without one it is not overdue in this pass.
    Expectation("clock_gettime", r"WatchDog::takeOverrun", "watchdog check",
                says={"overdue": ("0", "1")}, lost=True),
    Expectation("clock_gettime", r"OwnWatch::begin", says={"reported": "no"}, lost=True),

    # ---- events ----
    Expectation("new", r"armFor", scenario="asynchronous sends",
                says={"sent": "-1", "called": ANY}),
    Expectation("new", r"initWaitResultCv", "reply that does not come", says={"result": "-1"},
                lines=[NOT_ARMED]),
    Expectation("new", r"initWaitResultCv", "reply .*",
                says={"waiting": ANY, "result": ANY}),
    Expectation("new", r"initWaitResultCv", says={"reply": "-1"}, lines=[NOT_ARMED]),
    Expectation("pthread_mutex_lock", r"replyToWaiters|replyResult", "reply .*",
                says={"reply threw": "%", "result": ANY}, then={"result": "42"}),
    Expectation("pthread_mutex_lock", r"BrowserEvent::waitForResult", "reply (in|with|to).*",
                says={"wait threw": "%", "waiting": ANY, "result": ANY}),
    Expectation("pthread_cond_wait|pthread_cond_clockwait", r"BrowserEvent::", "reply (in|with|to).*",
                "EINVAL", says={"wait threw": "%", "result": ANY}),
    Expectation("pthread_cond_clockwait", r"BrowserEvent::", error="EINVAL", throws="%"),
    Expectation("clock_gettime", r"monotonicDeadline|readMonotonicClock < [\w:]*BrowserEvent::park",
                "reply that does not come|reply without limit|reply to the client's own"),
    Expectation("clock_gettime", r"monotonicDeadline|readMonotonicClock < [\w:]*BrowserEvent::park",
                says={"result": "1", "reply": "1"}),

    # ---- hubs ----
    Expectation("new", r"EventHub::EventHub\b", scenario="asynchronous sends",
                lines=[r"[EventDispatcher] event_hub.cpp:#:EventHub(): "
                       r"Fail to create EventHubImpl.\n", NO_HUB],
                says={"*": ("-1", "0"), "called": ANY},
                then={"*": ("-1", "0"), "called then": ANY}, then_lines=[NO_HUB]),
    Expectation("new", r"EventHub::EventHub\b",
                lines=[r"[EventDispatcher] event_hub.cpp:#:EventHub(): "
                       r"Fail to create EventHubImpl.\n", NO_HUB, NOT_SENT],
                says={"*": ("-1", "0", "no")}, then={"*": ("-1", "0", "no")},
                then_lines=[NO_HUB, NOT_SENT, NO_HUB]),
    # Without a thread of the sender's nothing is sent; without one of the receiver's nobody replies.
    *without_thread("new|pthread_create", r"ensureThread"),
    *without_thread("pthread_mutex_lock", r"prepareThread"),

    # ---- diagnostics ----
    Expectation(r"syscall\(write\)", r"diagnostics::", error="EIO|ENOSPC|EAGAIN|EPIPE",
                says={"write": "9", "state": "9", "written": ANY}),
    Expectation("clock_nanosleep", r"diagnostics::", says={"written": ANY}),
    Expectation("vsnprintf", r"diagnostics::", says={"state": "5", "written": ANY}),
    Expectation("mmap", r"PageMemory", says={"state": "5", "written": ANY}),
    Expectation("mmap", r"makeRecordingMemory",
                says={"start": "5", "restart": "5", "recording": "5", "write": "2", "stop": "2", "written": "0"}),
    Expectation("posix_fallocate", error="ENOSPC|EFBIG|EOPNOTSUPP",
                says={"start": "8", "write": "2", "stop": "2", "written": "0"}),
    Expectation("pthread_atfork", r"replaceRecording",
                says={"start": "5", "recording": "5", "write": "2", "stop": "2", "written": "0"}),
    Expectation("open", r"makeRecordingMemory", error="EEXIST",
                says={"start": "6", "write": "2", "stop": "2", "written": "0"}),
    Expectation("open", r"makeRecordingMemory", says={"start": "7", "write": "2", "stop": "2", "written": "0"}),

    # ---- the substitute debug library ----
    # What was lost is told where the output goes next, in a line of its own.
    Expectation("open|fcntl", r"zor_debug::Destination::useFile",
                "output (without standard error|to a full disk)",
                says={"file": ("-1",), "other file": ("-1",)}, then={"lines then": ("6",)}),
    Expectation(r"syscall\(write\)", scenario="output .*|settings.*", error="EIO|ENOSPC|EPIPE",
                then={"lines then": ("6",)}),
    Expectation("open", r"zor_debug::Destination::useFile", says={"file": "-1", "other file": "-1"}),
    Expectation("fcntl", r"zor_debug::moveAboveStandard", says={"file": "-1"}),

    # A file of levels that cannot be read changes nothing.
    Expectation("open|fstat", r"zor_debug::.*setLevelsFile", "levels from a file",
                says={"level": "1000"}),
    Expectation("read", r"zor_debug::.*setLevelsFile", "levels from a file", "EIO|EAGAIN",
                says={"level": "1000"}),

    # ---- files ----
    Expectation("access", r"isPathExists",
                lines=["[B-LOG] utils.cpp:#:isPathExists(): "
                       "filePath:'tree', ret:-1, error:'%'.\\n"], says={"exists": "0"}),
    Expectation("opendir|malloc", r"^[^<]*rmDir(?!.*rmDir)",
                lines=[r"[B-LOG] utils.cpp:#:rmDir(): Fail to opendir('tree').\n\n"],
                says={"removed": "-2"}),
    Expectation("opendir|malloc", r"rmDir.*rmDir",
                lines=[r"[B-LOG] utils.cpp:#:rmDir(): Fail to opendir('tree/[\w ]+').\n\n",
                       "[B-LOG] utils.cpp:#:rmDir(): Fail to delete dir:'tree', "
                       "error:(39-'Directory not empty').\\n\\n"],
                says={"removed": "-3"}),
    Expectation("stat", r"rmDir",
                lines=["[B-LOG] utils.cpp:#:rmDir(): "
                       "Fail to get stat of path.error:(#-'%').\\n\\n",
                       r"[B-LOG] utils.cpp:#:rmDir(): Fail to delete dir:'tree[\w/ ]*', "
                       r"error:(39-'Directory not empty').\n\n",
                       "[B-LOG] utils.cpp:#:rmDir(): Fail to delete dir:'tree', "
                       r"error:(39-'Directory not empty').\n\n*"],
                says={"removed": "-3"}),
    Expectation("unlink", r"rmDir",
                lines=[r"[B-LOG] utils.cpp:#:rmDir(): Fail to delete:'tree/[\w/ ]+', "
                       r"error:(#-'%').\n\n",
                       r"[B-LOG] utils.cpp:#:rmDir(): Fail to delete dir:'tree[\w/ ]*', "
                       r"error:(39-'Directory not empty').\n\n",
                       "[B-LOG] utils.cpp:#:rmDir(): Fail to delete dir:'tree', "
                       r"error:(39-'Directory not empty').\n\n*"],
                says={"removed": "-3"}),
    Expectation("rmdir", r"rmDir",
                lines=[r"[B-LOG] utils.cpp:#:rmDir(): Fail to delete dir:'tree[\w/ ]*', "
                       r"error:(#-'%').\n\n",
                       "[B-LOG] utils.cpp:#:rmDir(): Fail to delete dir:'tree', "
                       r"error:(39-'Directory not empty').\n\n*"],
                says={"removed": "-3"}),
    # As good as the end of the folder: what came before has been removed.
    Expectation("readdir", r"rmDir",
                lines=[r"[B-LOG] utils.cpp:#:rmDir(): Fail to delete dir:'tree[\w/ ]*', "
                       r"error:(39-'Directory not empty').\n\n*"],
                says={"removed": ("-3",)}),
    Expectation("openat|fdopendir", r"^(?!.*\bempty\b).*removeFolder",
                lines=[r"[B-LOG] folder_removal.cpp:#:removeFolder(): "
                       r"Fail to opendir('tree').\n\n"],
                says={"removed": "-2"}),
    Expectation("openat|fdopendir", r"removeAt.*\bempty\b.*removeAt",
                lines=[r"[B-LOG] folder_removal.cpp:#:removeFolder(): "
                       r"Fail to opendir('tree/[\w ]+').\n\n",
                       "[B-LOG] folder_removal.cpp:#:removeFolder(): Fail to delete dir:'tree', "
                       "error:(39-'Directory not empty').\\n\\n"],
                says={"removed": "-3"}),
    # What is a folder is entered whatever the error, and removed.
    Expectation("unlinkat", r"^empty\b",
                lines=[r"[B-LOG] folder_removal.cpp:#:removeFolder(): "
                       r"Fail to delete:'tree/[\w/ ]+', error:(#-'%').\n\n*",
                       r"[B-LOG] folder_removal.cpp:#:removeFolder(): "
                       r"Fail to delete dir:'tree[\w/ ]*', error:(39-'Directory not empty').\n\n*"],
                says={"removed": ("-3",)}),
    Expectation("unlinkat", r"^removeAt\b",
                lines=[r"[B-LOG] folder_removal.cpp:#:removeFolder(): "
                       r"Fail to delete dir:'tree[\w/ ]*', error:(#-'%').\n\n",
                       "[B-LOG] folder_removal.cpp:#:removeFolder(): Fail to delete dir:'tree', "
                       r"error:(39-'Directory not empty').\n\n*"],
                says={"removed": "-3"}),
    # As with rmDir(): nothing is amiss where all had been removed before.
    Expectation("readdir", r"removeFolder",
                lines=[r"[B-LOG] folder_removal.cpp:#:removeFolder(): "
                       r"Fail to delete dir:'tree[\w/ ]*', error:(39-'Directory not empty').\n\n*"],
                says={"removed": ("-3",)}),
    # What cannot be told to be of the same file system is left.
    Expectation("fstat", r"removeFolder",
                lines=[r"[B-LOG] folder_removal.cpp:#:removeFolder(): "
                       r"Fail to delete dir:'tree[\w/ ]*', error:(39-'Directory not empty').\n\n*"],
                says={"removed": "-3"}),
    Expectation("malloc", r"generateUUID",
                lines=[r"[B-LOG] utils.cpp:#:generateUUID(): Fail to allocate buffer.\n"],
                says={"length": "0"}),
]

# Failures that last as long as the process: what other answers they bring, wherever they happen.
LASTING = [
    (re.compile(r"Fail to create (pipe|timer thread)"), {"fired": "no", "fired then": "no",
                                                        "fired on": "no"}),
]


def pattern_of(text, error):
    """A whole line or answer as a regular expression."""
    number = getattr(errno, error.rstrip("+"), 0)
    parts = []
    i = 0
    while i < len(text):
        if text.startswith("{#-#}", i):  # As normal() leaves the time of a memory report.
            parts.append(r"\{#--?#\.#\}")
            i += 5
        elif text.startswith(r"\w+[\w ]*", i):
            parts.append(r"\w+[\w ]*")
            i += 9
        elif text[i] == "[" and (match := re.match(r"\[\\w/? ?\][*+]", text[i:])):
            parts.append(match.group())
            i += match.end()
        elif text.startswith(r"\w+", i):
            parts.append(r"\w+")
            i += 3
        elif text[i] == "#":
            parts.append(r"-?[0-9.#]+")
            i += 1
        elif text[i] == "%":
            parts.append(re.escape(os.strerror(number)))
            i += 1
        elif text[i] == "?":  # Of whatever the thread's errno was.
            parts.append(r"[A-Z][A-Za-z/() -]+")
            i += 1
        else:
            parts.append(re.escape(text[i]))
            i += 1
    return "".join(parts)


def plain(functions):
    """The names without what makes them long."""
    names = (re.sub(r"tevalon::base::|\(anonymous namespace\)::|\[clone[^\]]*\]", "", name)
             for name in functions)
    return " < ".join(re.sub(r"\(\)$|\((?!\)).*", "", name) for name in names)


def find(plan, functions):
    stack = plain(functions)
    for expectation in EXPECTATIONS:
        if re.fullmatch(expectation.call, plan.call) and \
                re.search(expectation.within, stack) and \
                re.fullmatch(expectation.scenario, plan.scenario) and \
                re.fullmatch(expectation.error, plan.error.rstrip("+")):
            return expectation
    if plan.call in ("new", "malloc", "realloc"):
        return Expectation(plan.call, throws="std::bad_alloc",
                           says={"posted": ("std::bad_alloc", "yes")})
    if plan.call == "pthread_mutex_lock":
        return Expectation(plan.call, throws="%", ends=SYSTEM_ERROR, says={"posted": ("%", "yes")})
    return Expectation(plan.call)


def normal(line):
    """Without the numbers that differ from run to run."""
    line = re.sub(r"\{-?\d+-", "{#-", line)
    return re.sub(r"\d+\.\d{6}", "#.#", line)


def logged(lines, first, last):
    return [normal(text) for word, stage, text in lines if word == "log" and first <= stage <= last]


def answers(lines, first, last):
    return [(stage, *text.split(": ", 1)) for word, stage, text in lines
            if word == "say" and first <= stage <= last]


def difference(lines, others):
    """Those of the lines that are not among the others, in order."""
    left = collections.Counter(others)
    extra = []
    for line in lines:
        if left[line] > 0:
            left[line] -= 1
        else:
            extra.append(line)
    return extra


def match_lines(patterns, lines, error):
    """Whether the lines are those that are wanted, and no others."""
    whole = ""
    for text in patterns:
        many = text.endswith("*")
        pattern = pattern_of(text[:-1] if many else text, error)
        whole += f"(?:{pattern}\x00)" + ("*" if many else "")
    return re.fullmatch(whole, "".join(line + "\x00" for line in lines)) is not None


def allows(changes, what, value, error):
    wanted = changes.get(what, changes.get("*", ()))
    if wanted is ANY:
        return True
    wanted = (wanted,) if isinstance(wanted, str) else wanted
    return any(re.fullmatch(pattern_of(text, error), value) for text in wanted)


def compare_answers(said, usual, changes, error, problems, may_be_missing=False):
    """Each as usual, or changed as is allowed."""
    usual = collections.Counter(usual)
    for stage, what, value in said:
        if usual[(stage, what, value)] > 0:
            usual[(stage, what, value)] -= 1
        elif not allows(changes, what, value, error):
            problems.append(f"stage {stage}: answers '{what}: {value}'")
    if may_be_missing:
        return
    asked = collections.Counter((stage, what) for stage, what, _ in said)
    for stage, what, value in usual.elements():
        if asked[(stage, what)] == 0 and changes.get(what, 0) is not ANY:
            problems.append(f"stage {stage}: does not answer '{what}: {value}'")


def judge_stages(plan, expectation, baseline, report, problems):
    said = answers(report.lines, 1, 1)
    # Said in stage 2 where an object's destructor has ended the failures.
    threw = next((value for _, what, value in answers(report.lines, 1, 2) if what == "threw"), None)
    if threw is not None:
        wanted = expectation.throws
        if wanted is None or not re.fullmatch(pattern_of(wanted, plan.error), threw):
            problems.append(f"throws '{threw}'")
        said = [entry for entry in said if entry[1] != "threw"]
    compare_answers(said, answers(baseline.lines, 1, 1), expectation.says, plan.error, problems,
                    threw is not None)

    # Named answers: at least one of those that are asked for has to be there.
    named = {what for what, value in expectation.says.items() if isinstance(value, str)}
    asked = {entry for entry in answers(baseline.lines, 1, 1) if entry[1] in named}
    if asked and asked <= set(said):
        problems.append("stage 1: answers as if nothing had failed")

    extra = difference(logged(report.lines, 1, 1), logged(baseline.lines, 1, 1))
    if not match_lines(expectation.lines, extra, plan.error):
        problems.append(f"logs {extra} instead of {list(expectation.lines)}")
    lost = difference(logged(baseline.lines, 1, 1), logged(report.lines, 1, 1))
    if lost and threw is None and not expectation.lost:
        problems.append(f"does not log {lost}")

    # An operation that threw has left the rest of stage 2 out.
    second = [entry for entry in answers(report.lines, 2, 2) if entry[1] != "threw"]
    compare_answers(second, answers(baseline.lines, 2, 2), expectation.then,
                    plan.error, problems, threw is not None)
    compare_answers(answers(report.lines, 3, 4), answers(baseline.lines, 3, 4), expectation.then,
                    plan.error, problems)
    first = 3 if threw is not None else 2
    extra = difference(logged(report.lines, first, 4), logged(baseline.lines, first, 4))
    if not match_lines(expectation.then_lines, extra, plan.error):
        problems.append(f"logs {extra} afterwards")


def judge_recovery(plan, expectation, baseline, report, problems):
    """After many failures: new objects work, unless what has failed lasts as long as the process."""
    changes = dict(expectation.then)
    for lasting, what in LASTING:
        if any(lasting.search(line) for line in logged(report.lines, 1, 1)):
            changes.update(what)
    for _, what, value in answers(report.lines, 1, 1):
        if plan.scenario == "singletons" and value != "there":
            changes[what] = "failed"
    compare_answers(answers(report.lines, 3, 4), answers(baseline.lines, 3, 4), changes, plan.error,
                    problems)


# Freed events and payloads are kept for the next ones: which thread frees which decides how many,
# up to 32 KiB in all and 16 of each size a thread. Where it is not told of a thread's end, that
# thread keeps none, and others keep them instead.
# What the address sanitizer fills allocated memory with, as no text has it.
NEVER_SET = r"\xbe\xbe"
KEPT_MORE = 32
WATCH_ENDS_OF_THREADS = ("pthread_key_create", "pthread_setspecific")
KEPT_AT_MOST = 1000


def judge(plan, functions, baseline, report):
    """What is wrong, as a list of texts."""
    expectation = find(plan, functions)
    if report.hangs:
        return ["hangs"]
    if report.status != 0:
        if expectation.ends and report.status == -6 and re.match(expectation.ends, report.errors):
            return []
        return [f"ends with status {report.status}: {report.errors.strip()[-300:]}"]
    problems = []
    if NEVER_SET in report.errors:
        problems.append("writes memory that was never set")
    if not report.is_complete:
        problems.append("ends before its report does")
    if report.alive is not None and report.alive > baseline.alive:
        problems.append(f"leaves {report.alive} blocks instead of {baseline.alive}: " +
                        ", ".join(leaked(baseline, report)))
    allowed = KEPT_AT_MOST if plan.call in WATCH_ENDS_OF_THREADS else baseline.kept + KEPT_MORE
    if report.kept > allowed:
        problems.append(f"keeps {report.kept} blocks instead of {baseline.kept}: " +
                        ", ".join(leaked(baseline, report)))
    if report.descriptors is not None and report.descriptors > baseline.descriptors:
        problems.append(f"leaves {report.descriptors} descriptors instead of "
                        f"{baseline.descriptors}")
    if plan.later:
        judge_recovery(plan, expectation, baseline, report, problems)
    else:
        judge_stages(plan, expectation, baseline, report, problems)
    return problems


def leaked(baseline, report):
    """Who has allocated what is still there."""
    for call, _, key, _, _, alive, *chain in report.uses:
        usual = baseline.uses[key].alive if key in baseline.uses else 0
        if int(alive) > usual:
            yield f"{int(alive) - usual} by {call} at {' '.join(chain[:3])}"
