"""Concludes from what was seen in a log what is wrong: the likeliest cause first."""

# What goes on for so long is taken for stuck; without times in the log, by the lines that follow.
STUCK_SECONDS = 3.0
STUCK_LINES = 50
SLOW_SECONDS = 1.0

# Up to here a finding is a remark: it is no fault by itself.
REMARK = 10
OPEN_AT_END = 9

# How likely a message is the cause of others, for those that no rule below takes. What stops a whole
# process is above what stops a module, and that above what fails a call.
WEIGHTS = {
    "hub-null-parameter": 95,
    "pool-no-worker": 78,
    "timer-invalid": 70,
    "event-not-armed": 62,
    "timer-not-started": 61,
    "timer-is-started": 60,
    "timer-zero-becomes-periodic": 60,
    "hub-handler-exists": 60,
    "hub-already-registered": 58,
    "watch-callback-set": 55,
    "zor-debug-lost": 45,
    "task-no-time": 40,
    "zor-debug-setting": 35,
    "memory-file-not-opened": 30,
    "memory-file-empty": 30,
    "option-taken": 30,
    "task-put-back": 20,
    "path-missing": 8,
    "task-gone": 5,
    "task-exit-before-wait": 5,
}
CALL_WEIGHT = 60  # A refused call.
FILE_WEIGHT = 50


class Finding:
    """Something that is wrong."""

    def __init__(self, weight, title, why, seen, look, count=1, more=()):
        self.weight = weight
        self.title = title
        self.why = why  # Sentences.
        self.seen = seen  # The line that shows it.
        self.look = look
        self.count = count
        self.more = more  # Further lines that show it.

    def is_remark(self):
        return self.weight <= REMARK


def findings(case):
    """Of a log that has been read up to here; the likeliest cause first."""
    taken = set()
    found = []
    for rule in (threads_refused, descriptors_used_up, descriptors_closed, memory_short,
                 clock_unreadable, locks_failed, no_period, nobody_receives, watches_overrun):
        finding, messages = rule(case)
        if finding is not None:
            found.append(finding)
            taken.update(messages)
    found += stuck(case)
    found += slow(case)
    found += clients_report(case)
    found += [single(case, name) for name in case.failures if name not in taken]
    return sorted(found, key=lambda f: (-f.weight, -f.count, f.seen.line))


def times(count):
    return "once" if count == 1 else f"{count} times"


def first_of(case, names):
    """The first line of any of these messages; how many there are; which of them."""
    there = [name for name in names if name in case.failures]
    if not there:
        return None, 0, []
    first = min((case.failures[name][0] for name in there), key=lambda seen: seen.line)
    return first, sum(case.count(name) for name in there), there


def threads_refused(case):
    names = ("timer-no-handler-thread", "hub-no-thread", "timer-no-scheduler")
    first, count, there = first_of(case, names)
    if first is None:
        return None, ()
    why = [f"The system refused the library a new thread, {times(count)}."]
    if case.expiries:
        name, most = max(case.expiries.items(), key=lambda item: item[1])
        if most >= 5:
            why.append(f"Timer '{name}' had expired {most} times before: if its handler does not "
                       "return, each of its runs keeps a thread.")
    return Finding(97, "the process can start no more threads", why, first,
                   "The number of its threads in /proc/PID/status and what they do (the state "
                   "report); ulimit -u and the memory cgroup's pids.max.", count), there


def descriptors_used_up(case):
    first, count, there = first_of(case, ("timer-no-pipe",))
    if first is None:
        return None, ()
    errno = first.values[0] if first.values else ""
    also = case.count("timer-command-lost")
    why = ["The simple timers' scheduler could not make its pipe: none of the process's simple timers "
           "will fire."]
    if also:
        why.append(f"\"Fail to wrtie data\", {times(also)}, follows from it.")
        there = [*there, "timer-command-lost"]
    if errno in ("23", "24"):
        whose = "the process" if errno == "24" else "the whole system"
        title = f"{whose} has too many files open"
        look = "ls -l /proc/PID/fd: what there is most of is not closed. ulimit -n."
    else:
        title = "the simple timers' scheduler could not be made"
        look = "The error's text."
    return Finding(99, title, why, first, look, count), there


def descriptors_closed(case):
    """Where the pipe was never made, its use fails too: see above."""
    names = ("timer-select-failed", "timer-command-lost")
    first, count, there = first_of(case, names)
    if first is None or "timer-no-pipe" in case.failures:
        return None, ()
    why = [f"The scheduler of the simple timers failed to use its own pipe, {times(count)}."]
    numbers = {errno for name in there for errno in case.errnos.get(name, ())}
    if numbers & {"9", "32"}:
        why.append("The pipe was good before: only another part of the process can have closed it.")
    return Finding(98, "some code closes descriptors that are not its own", why, first,
                   "strace -f -e trace=close,dup2,dup3,close_range; a double close(), or a loop that "
                   "closes all descriptors.", count), there


def memory_short(case):
    names = ("hub-not-created", "timer-not-created", "uuid-no-memory", "hub-no-impl",
             "timer-no-impl")
    first, count, there = first_of(case, names)
    if first is None:
        return None, ()
    return Finding(96, "memory ran out",
                   [f"The library got no memory, or uses what could not be made then, "
                    f"{times(count)}."], first,
                   "What takes the memory: the memory status, the recording.", count), there


def clock_unreadable(case):
    names = ("timer-clock-failed", "timer-clock-unread", "timer-expiry-unknown")
    first, count, there = first_of(case, names)
    if first is None:
        return None, ()
    return Finding(94, "the monotonic clock cannot be read",
                   [f"clock_gettime() failed, {times(count)}: timers do not start, or do not fire."],
                   first, "A seccomp filter that forbids it, or a broken vDSO.", count), there


def locks_failed(case):
    first, count, there = first_of(case, ("lock-failed",))
    if first is None:
        return None, ()
    function = first.text.split("():")[0].rsplit(":", 1)[-1]
    what = "unlock" if function.startswith("~") else "lock"
    return Finding(93, "a mutex is used wrongly",
                   [f"A {function.lstrip('~')} could not {what} its mutex; {times(count)} a guard "
                    "failed. What such a guard is to protect runs without protection: whatever else is "
                    "wrong may come from it."],
                   first, case.knowledge.by_id["lock-failed"].next, count), there


def no_period(case):
    first, count, there = first_of(case, ("timer-zero-period",))
    if first is None:
        return None, ()
    why = [f"A periodic timer was given the timeout {{0, 0, 0}}, {times(count)}; it is refused."]
    refused = case.failures.get("timer-invalid")
    if refused:
        why.append(f"So timer '{refused[0].values[0]}' could not be started."
                   if refused[0].values else "So the timer could not be started.")
        there = [*there, "timer-invalid"]
    return Finding(71, "a periodic timer has no period", why, first,
                   case.knowledge.by_id["timer-zero-period"].next, count), there


def nobody_receives(case):
    first, count, there = first_of(case, ("event-not-sent",))
    if first is None:
        return None, ()
    is_null = case.count("dispatcher-null-event")
    if is_null >= count:
        return Finding(72, "a module sends null events",
                       [f"{times(is_null).capitalize()}; the send then fails."], first,
                       case.knowledge.by_id["dispatcher-null-event"].next,
                       count), [*there, "dispatcher-null-event"]
    why = [f"A synchronous event found no receiver, {times(count)}: no hub is registered for its "
           "target, or that has no handler for it."]
    there_now = sorted((m for m, is_there in case.registered.items() if is_there), key=int)
    gone = sorted((m for m, is_there in case.registered.items() if not is_there), key=int)
    if there_now:
        why.append(f"Registered modules in this log: {', '.join(there_now)}.")
    if gone:
        why.append(f"Unregistered by its end: {', '.join(gone)}.")
    return Finding(72, "a module asks one that is not there, or does not listen", why, first,
                   case.knowledge.by_id["event-not-sent"].next, count), there


def watches_overrun(case):
    if not case.overruns:
        first, count, there = first_of(case, ("watch-overrun",))
        if first is None:
            return None, ()
        return Finding(80, "a watched operation takes too long", ["The line is cut."], first,
                       first.message.next, count), there
    watch, longest, seen, has_ended = max(case.overruns.values(), key=lambda o: (not o[3], o[1]))
    count = case.count("watch-overrun")
    why = [f"{watch} had taken {longest:.1f} s when it was reported last"
           + ("; it has ended since." if has_ended else ", and does not end in this log.")]
    if len(case.overruns) > 1:
        why.append("Also: " + ", ".join(sorted(o[0] for o in case.overruns.values()
                                               if o[0] != watch)) + ".")
    return Finding(75 if has_ended else 80, f"the watched operation {watch} takes too long", why, seen,
                   case.knowledge.by_id["watch-overrun"].next, count), ("watch-overrun",)


def stuck(case):
    """What has begun and not ended, though the log goes on."""
    found = []
    last_time = case.last_time
    for (name, _), seen in case.open.items():
        if name == "watch-begun":
            continue  # The watchdog says itself what takes too long.
        if seen.time is not None and last_time is not None:
            age = last_time - seen.time + case.idle
            weight = 90 if age >= STUCK_SECONDS else 40 if age >= SLOW_SECONDS else OPEN_AT_END
            how_long = f"It began {age:.1f} s before the log's end and has not ended."
        else:
            after = case.lines - seen.line
            is_stuck = after >= STUCK_LINES or case.idle >= STUCK_SECONDS
            weight = 85 if is_stuck else OPEN_AT_END
            how_long = f"It began {after} lines before the log's end and has not ended."
        if weight == OPEN_AT_END:
            title = f"the log ends before the end of what this line begins: {seen.message.id}"
            found.append(Finding(weight, title, [how_long], seen, seen.message.next))
        else:
            found.append(stuck_finding(case, name, seen, weight, how_long))
    return found


def stuck_finding(case, name, seen, weight, how_long):
    who = f" Thread '{seen.name}' waits." if seen.name else ""
    if name == "timer-stop-waits":
        timer = seen.values[0]
        why = [how_long + who]
        last = case.last_of_thread.get(("T:" + timer)[:15])
        if last is not None:
            why.append(f"The handler's thread wrote line {last.line} last.")
        return Finding(weight, f"the handler of timer '{timer}' does not return, and its stop waits",
                       why, seen, "What the handler waits for: something that the stopping thread "
                       "holds, as a rule a lock. The state report names both.")
    if name == "hub-ending-thread":
        return Finding(weight, "a module's event handler does not return, and its unregister waits",
                       [how_long + who], seen, "The \"UnRegister hub\" line before it names the "
                       "module; the state report says what its handler is in.")
    return Finding(weight, f"task {seen.values[2]} does not return, and its thread is blocked",
                   [how_long, "All tasks that are posted to the same timer thread wait behind it."],
                   seen, "What the task is doing: the state report, or a backtrace of "
                   + (f"thread '{seen.name}'." if seen.name else "its thread."))


def slow(case):
    found = []
    texts = {"task-begun": ("a task holds its thread up for {:.1f} s",
                            "Tasks behind it are late by as much."),
             "timer-stop-waits": ("stopping a timer took {:.1f} s",
                                  "So long its handler ran on after it was told to stop."),
             "hub-ending-thread": ("unregistering a module took {:.1f} s",
                                   "So long its event handler ran on.")}
    for name, (title, why) in texts.items():
        taken, seen = case.durations.get(name, (0, None))
        if taken >= SLOW_SECONDS:
            found.append(Finding(63, title.format(taken), [why], seen,
                                 case.knowledge.by_id[name].next))
    if case.late_task is not None and case.late_task[0] >= SLOW_SECONDS:
        late, seen = case.late_task
        found.append(Finding(50, f"tasks run up to {late:.1f} s late",
                             ["The times in the line are that far apart."], seen,
                             "The task that ran before it on the same thread."))
    return found


def clients_report(case):
    found = []
    for letter, weight, what in (("E", 32, "errors"), ("W", 31, "warnings")):
        lines = case.client_reports[letter]
        if not lines:
            continue
        count = case.client_report_counts[letter]
        why = [f"{count} of their lines {'is' if count == 1 else 'are'} of that level."]
        found.append(Finding(weight, f"other modules report {what}", why, lines[0],
                             "What these modules mean by it; --errors shows all of them.", count,
                             lines[1:]))
    return found


def single(case, name):
    message = case.knowledge.by_id[name]
    count = case.count(name)
    weight = WEIGHTS.get(name)
    if weight is None:
        weight = FILE_WEIGHT if message.source == "src/utils.cpp" else CALL_WEIGHT
    # A task that goes round and round keeps its thread from working.
    if name == "task-put-back" and count > 100:
        weight = 64
    return Finding(weight, f"{message.failure}", [message.meaning, f"Seen {times(count)}."],
                   case.failures[name][0], message.next, count)

