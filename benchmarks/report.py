#!/usr/bin/env python3
"""Reads what Google Benchmark wrote as JSON, and prints one table: ours, the best peer, the limit.
Below it stand the rows where a peer is ahead.

usage: report.py FOLDER [--markdown FILE]

FOLDER holds one JSON file for each benchmark program, what run_all.py noted of the machine in
machine.json and what futex_counts.py counted. table.json and plot.svg are written beside them. With
--markdown the tables, the plot and the commit also go into FILE, between its two marks. A row's
figure is the median of its repetitions; its spread is the distance between their quartiles, shown
half to either side in per cent of the median. Fewer than three repetitions have none.

Whatever a program counts beside the time stands in a table of its own, by the name it gave it. A
row counts as behind where the ratio to the best peer, as it is shown, is above 1.00.
"""

import argparse
import json
import pathlib
import re
import shutil
import statistics
import sys

NOISY_SPREAD = 0.10   # Quartiles further apart than this make a row noisy,
NOISY_ROWS = 0.20     # more noisy rows than this the whole run,
NOISY_LOAD = 0.5      # and so does other work on the machine before it began,
NOISY_STEAL = 0.01    # or processor time that the hypervisor gave to others.

# Rows where what has to be done is more than what the peers or the limit do, and why.
BOUNDS = (
    (r"^logging/off/", "the level is the platform's to tell: a call into its library"),
    (r"^logging/on_(flushed|buffered)/", "a system call for each line: none is kept in a buffer"),
    (r"^logging/dump_4_KiB_on$", "a system call for each of 257 lines, of three outputs each"),
    (r"^(lateness/timers|expiries)", "a new thread for each run of a handler"),
    (r"^weights/process_start/", "three more libraries to load, libuuid and libzor-debug beside it"),
)

BEGIN_MARK = "<!-- what report.py writes: begin -->"
END_MARK = "<!-- what report.py writes: end -->"

NOT_PEERS = ("ours", "limit", "plain")
NANOSECONDS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}
LIBRARY_SUFFIXES = ("iterations:", "repeats:", "min_time:", "real_time", "manual_time",
                    "process_time")


def task_and_peer(run_name):
    """Takes "events/one_sender/two_cpus/POCO/iterations:9/real_time" apart."""
    parts = [part for part in run_name.split("/") if not part.startswith(LIBRARY_SUFFIXES)]
    return "/".join(parts[:-1]), parts[-1]


class Row:
    """The repetitions of one peer at one task."""

    def __init__(self):
        self.values = []
        self.unit = "ns"
        self.counters = {}

    def add(self, run):
        self.unit = next((name for name in UNITS if name in run), "ns")
        self.values.append(run["real_time"] * NANOSECONDS[run["time_unit"]]
                           if self.unit == "ns" else run[self.unit])
        for name, value in run.items():
            if name not in OF_GOOGLE_BENCHMARK and name not in UNITS:
                self.counters.setdefault(name, []).append(value)

    def median(self):
        return statistics.median(self.values)

    def spread(self):
        if len(self.values) < 3:
            return None
        low, _, high = statistics.quantiles(self.values, n=4, method="inclusive")
        return (high - low) / self.median()


# What Google Benchmark says of each run; all else was counted by the program.
OF_GOOGLE_BENCHMARK = ("name", "family_index", "per_family_instance_index", "run_name", "run_type",
                       "repetitions", "repetition_index", "threads", "iterations", "real_time",
                       "cpu_time", "time_unit", "label", "bytes_per_second", "items_per_second",
                       "error_occurred", "error_message")
UNITS = ("bytes", "per_second")  # Counters that take the place of the time, where there are any.


def read_rows(folder):
    """{task: {peer: Row}}, in the order in which the programs name them."""
    tasks = {}
    for path in sorted(folder.glob("*_benchmark.json")):
        # Empty where no row matched the pattern.
        runs = json.loads(path.read_text() or '{"benchmarks": []}')["benchmarks"]
        # The runs were interleaved; their families are numbered as they were added.
        for run in sorted(runs, key=lambda run: run["family_index"]):
            if run.get("run_type") != "iteration" or run.get("error_occurred"):
                continue
            task, peer = task_and_peer(run["run_name"])
            tasks.setdefault(task, {}).setdefault(peer, Row()).add(run)
    return tasks


def compare(task, peers):
    """One line of the table."""
    line = {"task": task,
            "unit": next(iter(peers.values())).unit,
            "medians": {name: row.median() for name, row in peers.items()},
            "spreads": {name: row.spread() for name, row in peers.items()},
            "counters": {name: {counter: statistics.median(values)
                                for counter, values in row.counters.items()}
                         for name, row in peers.items() if row.counters}}
    rivals = {name: row.median() for name, row in peers.items() if name not in NOT_PEERS}
    ours = line["medians"].get("ours")
    if rivals:
        line["best_peer"] = min(rivals, key=rivals.get)
        if ours is not None:
            line["to_best_peer"] = ours / rivals[line["best_peer"]]
    if ours is not None and "limit" in peers:
        line["to_limit"] = ours / line["medians"]["limit"]
    bounds = [reason for pattern, reason in BOUNDS if ours is not None and re.search(pattern, task)]
    if bounds:
        line["bound"] = "; ".join(bounds)
    return line


def is_behind(line):
    return round(line.get("to_best_peer", 0), 2) > 1


def add_futex_counts(folder, lines):
    path = folder / "futex_counts.json"
    counts = json.loads(path.read_text()) if path.exists() else {}
    for line in lines:
        for peer, values in counts.get(line["task"], {}).items():
            if peer in line["medians"]:
                line["counters"].setdefault(peer, {}).update(values)


def with_unit(value, unit="ns"):
    if unit != "ns":
        return f"{value:.0f} B" if unit == "bytes" else f"{value:.3g} /s"
    return with_unit_of_time(value)


def with_unit_of_time(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if nanoseconds >= size * 10:
            value = nanoseconds / size
            return f"{value:.0f} {unit}" if value >= 100 else f"{value:.3g} {unit}"
    return f"{nanoseconds:.3g} ns" if nanoseconds < 1000 else f"{nanoseconds:.0f} ns"


def figure(line, name):
    if name not in line["medians"]:
        return ""
    value = with_unit(line["medians"][name], line["unit"])
    spread = line["spreads"][name]
    return value if spread is None else f"{value} ±{spread * 50:.0f}%"


def best_peer(line):
    best = line.get("best_peer")
    return f"{best} {figure(line, best)}" if best else ""


def ratio(line, name):
    return f"{line[name]:.2f}" if name in line else ""


def cells(line):
    return [line["task"], figure(line, "ours"), best_peer(line), figure(line, "limit"),
            ratio(line, "to_best_peer"), ratio(line, "to_limit"), line.get("bound", "")]


def behind_cells(line):
    return [line["task"], figure(line, "ours"), best_peer(line), ratio(line, "to_best_peer"),
            line.get("bound", "")]


HEADINGS = ["task", "ours", "best peer", "limit", "ours/peer", "ours/limit", "bounded by"]
BEHIND_HEADINGS = ["task", "ours", "best peer", "ours/peer", "bounded by"]


def table(lines):
    return [HEADINGS] + [cells(line) for line in lines]


def behind_table(lines):
    """The rows where a peer is ahead, the furthest first."""
    behind = sorted(filter(is_behind, lines), key=lambda line: -line["to_best_peer"])
    return [BEHIND_HEADINGS] + [behind_cells(line) for line in behind]


def behind_summary(lines):
    compared = sum("to_best_peer" in line for line in lines)
    count = sum(map(is_behind, lines))
    return f"A peer is ahead in {count} of the {compared} rows that have one" + (":" if count else ".")


def print_table(rows):
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    for number, row in enumerate(rows):
        print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip())
        if number == 0:
            print("  ".join("-" * width for width in widths))


def markdown_table(rows):
    lines = [rows[0], ["---"] * len(rows[0])] + rows[1:]
    return "".join("| " + " | ".join(line) + " |\n" for line in lines)


def counter_rows(lines):
    """What was counted beside the time, each peer a row."""
    counted = [(line["task"], peer, values) for line in lines
               for peer, values in line["counters"].items()]
    names = sorted({name for _, _, values in counted for name in values})
    rows = [[task, peer] + [f"{values[name]:.3g}" if name in values else "" for name in names]
            for task, peer, values in counted]
    return [["task", "who"] + names] + rows


def write_markdown(path, lines, remarks, machine, folder):
    plot_file = path.with_suffix(".svg")
    if not (folder / "plot.svg").exists():
        sys.exit("report: the page needs the plot, and there is none")
    shutil.copy(folder / "plot.svg", plot_file)
    parts = [f"On commit {machine.get('commit', 'unknown')}, with {machine.get('processors')} "
             f"processors ({machine.get('processor')}), {machine.get('system')}.\n",
             *(f"{remark}\n" for remark in remarks),
             f"{behind_summary(lines)}\n",
             *([markdown_table(behind_table(lines))] if any(map(is_behind, lines)) else []),
             "All rows:\n",
             markdown_table(table(lines)),
             f"![Ours beside the best peer and the limit]({plot_file.name})\n",
             "Counted beside the time, for each iteration:\n",
             markdown_table(counter_rows(lines))]
    before, _, rest = path.read_text().partition(BEGIN_MARK)
    _, mark, after = rest.partition(END_MARK)
    if not mark:
        sys.exit(f"report: '{path}' lacks the marks '{BEGIN_MARK}' and '{END_MARK}'")
    path.write_text(before + BEGIN_MARK + "\n\n" + "\n".join(parts) + "\n" + END_MARK + after)


def noise(machine, lines):
    """Why the figures are not to be trusted; empty where they are."""
    reasons = []
    spreads = [spread for line in lines for spread in line["spreads"].values()
               if spread is not None]
    noisy = sum(spread > NOISY_SPREAD for spread in spreads)
    if spreads and noisy > NOISY_ROWS * len(spreads):
        reasons.append(f"{noisy} of {len(spreads)} rows spread by more than "
                       f"{NOISY_SPREAD:.0%} between their quartiles")
    if machine.get("load_before", 0) > NOISY_LOAD:
        reasons.append(f"the load was {machine['load_before']:.2f} before the run")
    if machine.get("steal", 0) > NOISY_STEAL:
        reasons.append(f"{machine['steal']:.1%} of the processor time went to other guests")
    return reasons


def plot(path, lines):
    """Bars to the left of 1 are where ours is ahead."""
    try:
        import matplotlib
        matplotlib.use("svg")
        from matplotlib import pyplot
    except ImportError:
        print("report: matplotlib is missing, no plot", file=sys.stderr)
        return
    compared = [line for line in lines if "to_best_peer" in line or "to_limit" in line][::-1]
    figure, axes = pyplot.subplots(figsize=(10, 1 + 0.22 * len(compared)))
    places = range(len(compared))
    axes.barh([place + 0.2 for place in places],
              [line.get("to_best_peer", 0) for line in compared], 0.4, label="ours ÷ best peer")
    axes.barh([place - 0.2 for place in places],
              [line.get("to_limit", 0) for line in compared], 0.4, label="ours ÷ limit")
    axes.axvline(1, color="black", linewidth=0.8)
    axes.set_yticks(list(places), [line["task"] for line in compared], fontsize=7)
    axes.set_xscale("log")
    axes.set_xlabel("time, lower is better")
    axes.legend(loc="upper right", fontsize=8)
    figure.tight_layout()
    figure.savefig(path)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--markdown", type=pathlib.Path)
    arguments = parser.parse_args()

    lines = [compare(task, peers) for task, peers in read_rows(arguments.folder).items()]
    if not lines:
        sys.exit(f"report: no figures in '{arguments.folder}'")
    add_futex_counts(arguments.folder, lines)
    machine_file = arguments.folder / "machine.json"
    machine = json.loads(machine_file.read_text()) if machine_file.exists() else {}
    reasons = noise(machine, lines)
    remarks = [f"This run was noisy: {reason}." for reason in reasons]

    (arguments.folder / "table.json").write_text(
        json.dumps({"machine": machine, "noise": reasons,
                    "behind": [row[0] for row in behind_table(lines)[1:]], "tasks": lines},
                   indent=1) + "\n")
    plot(arguments.folder / "plot.svg", lines)
    if arguments.markdown:
        write_markdown(arguments.markdown, lines, remarks, machine, arguments.folder)
    print_table(table(lines))
    print(f"\n{behind_summary(lines)}")
    if any(map(is_behind, lines)):
        print_table(behind_table(lines))
    for remark in remarks:
        print(remark)


if __name__ == "__main__":
    main()
