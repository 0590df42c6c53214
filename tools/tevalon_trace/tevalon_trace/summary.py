"""The findings as text."""

from .findings import USUAL, Findings
from .sentences import milliseconds, seconds
from .text import describe_head, thread_column
from .timeline import Timeline


def analyse(collection):
    """[(recording, Findings)] of all that was read."""
    timelines = {}
    analysed = []
    for recording in collection.recordings:
        findings = Findings(recording)
        findings.timeline = timelines[id(recording)] = Timeline(recording, findings)
        analysed.append((recording, findings))
    for _, source, what in collection.entries(with_gaps=True):
        if id(source) in timelines:
            timelines[id(source)].feed(what)
    for recording, findings in analysed:
        findings.timeline.finish(min(collection.to_ns, recording.last_ns()))
    return analysed


def duration_of(finding):
    if finding.duration_ns is None:
        return ""
    return "at least " * finding.is_least + milliseconds(finding.duration_ns)


def line_of(finding, recording, width):
    time = seconds(finding.ns) if finding.ns is not None else ""
    thread = (thread_column(recording.threads[finding.thread.number])
              if finding.thread is not None else "")
    return f"  {time:>15}  {duration_of(finding):>{width}}  {thread:<22}  {finding.text}"


def write_summary(collection, out):
    for number, (recording, findings) in enumerate(analyse(collection)):
        out.write("\n" * (number != 0) + "\n".join(describe_head(recording)) + "\n")
        found = findings.all(min(collection.to_ns, recording.last_ns()))
        nothing = []
        for heading, count, listed in found:
            if not listed:
                if heading not in USUAL:
                    nothing.append(heading)
                continue
            of_all = f" ({len(listed)} of {count})" if count > len(listed) else ""
            out.write(f"{heading}{of_all}:\n")
            width = max(14, *(len(duration_of(finding)) for finding in listed))
            for finding in listed:
                out.write(line_of(finding, recording, width) + "\n")
        if nothing:
            out.write(f"none: {', '.join(nothing)}\n")
    for log in collection.logs:
        out.write(f"log '{log.path}': {len(log.lines)} lines, shown by --text, --json and --html\n")
