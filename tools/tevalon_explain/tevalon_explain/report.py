"""Writes what was found: what is wrong, the counts, the annotated log."""

LEVELS = {0: "-", 1: "always", 1000: "error", 3000: "warning", 4000: "info", 5000: "debug"}

# Of the causes so many are told at length.
TOLD = 5


def verdict(case, found):
    """What is most likely wrong, and why."""
    faults = [f for f in found if not f.is_remark()]
    lines = ["Most likely wrong: " + (faults[0].title if faults else "nothing")]
    if faults:
        lines += reasons(faults[0])
    for number, finding in enumerate(faults[1:TOLD], 2):
        lines += ["", f"{number}. Also: {finding.title}"] + reasons(finding)
    if len(faults) > TOLD:
        lines += ["", f"And {len(faults) - TOLD} more:"]
        lines += [f"    line {f.seen.line}: {f.title}" for f in faults[TOLD:]]
    remarks = [f for f in found if f.is_remark()]
    if remarks:
        lines += ["", "Not wrong by itself:"]
        lines += [f"    line {f.seen.line}: {f.title} ({f.count})" for f in remarks]
    if not faults and not any(case.counts):
        lines.append("    No line of tevalon-base is in it.")
    return lines


def reasons(finding):
    lines = [f"    {sentence}" for sentence in finding.why]
    lines += [f"    line {seen.line}: {seen.text.strip()}" for seen in (finding.seen, *finding.more)]
    lines.append(f"    look at: {finding.look}")
    return lines


def counts(case):
    """How often each message is there, the most important level first."""
    there = [m for m in case.knowledge.messages if case.counts[m.number]]
    ours = sum(case.counts) - case.counts[case.knowledge.by_id["client-line"].number]
    of_modules = case.clients + sum(case.counts) - ours
    lines = [f"{case.lines} lines: {ours} of tevalon-base, {of_modules} of other modules, "
             f"{case.others} of others" + (f"; {case.cut} cut" if case.cut else "")]
    there.sort(key=lambda m: (not m.failure, m.level, -case.counts[m.number]))
    for message in there:
        lines.append(f"{case.counts[message.number]:9}  {LEVELS[message.level]:7}  "
                     f"{message.id:26}  {message.text}")
    if len(case.modules) > 1:
        lines += [f"{case.modules[module]:9}  module {module}" for module in sorted(case.modules)]
    return lines


def annotation(found, is_first):
    """What stands below a recognised line: at length the first time."""
    message = found.message
    cut = " (the line is cut)" if found.is_cut else ""
    if not is_first:
        return f"    ^ {message.id}{cut}\n" if message.failure else ""
    text = f"    ^ {message.id}{cut}: {message.meaning}\n"
    if message.failure:
        text += f"      failed: {message.failure}\n      look at: {message.next}\n"
    if message.layout == "statement":
        text += f"      in {message.place(found.number)}\n"
    return text
