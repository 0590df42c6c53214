#!/usr/bin/env python3
"""house.py [--check]: draws docs/house.svg, the families of sources and which of them know which.

The picture is made from the #include lines below src/ and pubinc/. With --check it only says whether
the one that is there is up to date. Fails where families know each other in a circle.
"""
import collections
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
PICTURE = ROOT / "docs/house.svg"

# Sources and headers by where they stand; the first pattern that matches.
FAMILIES = [
    ("time", r"pubinc/base/utils/monotonic_time"),
    ("logging", r"src/(logging|debug_memory)|pubinc/base/logging"),
    ("synchronization", r"src/synchronization|pubinc/base/synchronization"),
    ("singleton", r"src/singleton|pubinc/base/singleton"),
    ("threading", r"src/(runnable|current_thread)|pubinc/base/threading"),
    ("watchdog", r"src/timer/(watch|own_watch)|pubinc/base/timer/(internal/own_watch|named_watch|scoped_watch|watchdog)"),
    ("simple timers", r"src/timer/|pubinc/base/simple_timer"),
    ("timer threads", r"src/timer_|pubinc/base/timer"),
    ("events", r"src/event_dispatcher|pubinc/base/event_dispatcher"),
    ("container", r"src/common_value|pubinc/base/container"),
    ("utils", r"src/(utils|command_line|folder_removal|md5|check_sum|process_property)|pubinc/base/utils"),
    ("diagnostics", r"src/diagnostics|pubinc/base/diagnostics"),
    ("activity", r"src/activity"),
    ("record", r"src/record"),
    ("locks", r"src/locks"),
    ("os", r"src/os"),
    ("libzor-debug", r"platform/zor_debug/include"),
]
INTERNAL = {"activity", "record", "locks", "os"}
OUTSIDE = {"libzor-debug"}
# Macros and nothing else: whoever includes them knows nobody by that.
MACROS = {"base/export.h", "base/synchronization/thread_annotations.h"}

BOX_WIDTH, BOX_HEIGHT, GAP, LEVEL = 116, 34, 22, 92


def family(path):
    for name, pattern in FAMILIES:
        if re.match(pattern, path):
            return name
    raise SystemExit(f"house: {path} belongs to no family: name it in docs/site/house.py")


def is_umbrella(path):
    return path.suffix == ".h" and (path.parent / path.stem).is_dir()


def known_families():
    """For each family those that its files include."""
    known = {name: set() for name, _ in FAMILIES}
    folders = [ROOT / "pubinc", ROOT / "platform/zor_debug/include", ROOT / "src"]
    for folder in (ROOT / "src", ROOT / "pubinc"):
        for path in sorted(folder.rglob("*")):
            if path.suffix not in (".cpp", ".h") or is_umbrella(path) or path.name == "export.h":
                continue
            user = family(path.relative_to(ROOT).as_posix())
            for include in re.findall(r'^#include "([^"]+)"', path.read_text(), re.M):
                places = [place / include for place in folders if (place / include).exists()]
                if include in MACROS or not places:
                    continue
                used = family(places[0].relative_to(ROOT).as_posix())
                if used != user:
                    known[user].add(used)
    return known


def reached(known, start, without=None):
    """What can be got to from a family, not by the way `without` as the first step."""
    found, left = set(), [name for name in known[start] if name != without]
    while left:
        name = left.pop()
        if name not in found:
            found.add(name)
            left += known[name]
    return found


def reduced(known):
    """Without what follows from the rest."""
    return {user: {used for used in uses if used not in reached(known, user, without=used)}
            for user, uses in known.items()}


def levels(known):
    """How far above the ground each family stands."""
    level = {}

    def find(name):
        if name not in level:
            level[name] = 1 + max((find(used) for used in known[name]), default=-1)
        return level[name]

    for name in known:
        find(name)
    return level


def layout(uses, level):
    """Positions of families, and the points that each arrow passes, level by level."""
    rows = collections.defaultdict(list)
    neighbours = collections.defaultdict(list)  # In the row below, and in the one above.
    ways = {}
    for name in sorted(level, key=lambda name: (level[name], name)):
        rows[level[name]].append(name)
    for user in sorted(uses):
        for used in sorted(uses[user]):
            way = [user]
            for between in range(level[user] - 1, level[used], -1):
                rows[between].append((user, used, between))
                way.append((user, used, between))
            way.append(used)
            ways[user, used] = way
            for upper, lower in zip(way, way[1:]):
                neighbours[upper, -1].append(lower)
                neighbours[lower, +1].append(upper)

    def width(node):
        return BOX_WIDTH if isinstance(node, str) else 8

    place = {}
    for row in rows.values():
        for index, node in enumerate(row):
            place[node] = index * 60.0
    order = sorted(rows)
    for sweep in range(24):  # Each row in the order of the middles of its neighbours.
        side = -1 if sweep % 2 == 0 else +1
        for height in order if side == -1 else reversed(order):
            row = rows[height]

            def middle(node):
                near = neighbours[node, side]
                return sum(place[other] for other in near) / len(near) if near else place[node]

            wanted = {node: middle(node) for node in row}
            row.sort(key=lambda node: (wanted[node], str(node)))
            x = 0.0
            for node in row:
                x = max(x + width(node) / 2, wanted[node])
                place[node] = x
                x += width(node) / 2 + GAP
            shift = sum(wanted[node] - place[node] for node in row) / len(row)
            for node in row:
                place[node] += shift
    return place, ways


def draw(known):
    uses = reduced(known)
    level = levels(known)
    place, ways = layout(uses, level)
    left = min(place[name] for name in level) - BOX_WIDTH / 2 - 20
    right = max(place[name] for name in level) + BOX_WIDTH / 2 + 20
    left = min([left] + [place[node] - 12 for node in place])
    right = max([right] + [place[node] + 12 for node in place])
    top = max(level.values())
    height = top * LEVEL + BOX_HEIGHT + 40

    def y(at):
        return 20 + (top - at) * LEVEL

    def x(node):
        return place[node] - left

    def level_of(node):
        return level[node] if isinstance(node, str) else node[2]

    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {right - left:.0f} {height:.0f}" '
        f'width="{right - left:.0f}" height="{height:.0f}" font-family="sans-serif" font-size="13">',
        "<title>The families of sources, and which of them include which</title>",
        '<defs><marker id="tip" viewBox="0 0 8 8" refX="7" refY="4" markerWidth="7" '
        'markerHeight="7" orient="auto"><path d="M0 0 8 4 0 8z" fill="#5b6b7b"/></marker></defs>',
        f'<rect width="{right - left:.0f}" height="{height:.0f}" rx="8" fill="#ffffff"/>',
    ]
    for way in ways.values():
        points = []
        for node in way:
            at = y(level_of(node))
            if node != way[0]:
                points.append((x(node), at - (2 if node == way[-1] else 0)))
            if node != way[-1]:
                points.append((x(node), at + BOX_HEIGHT))
        path = f"M{points[0][0]:.0f} {points[0][1]:.0f}"
        for (x0, y0), (x1, y1) in zip(points, points[1:]):
            bend = (y1 - y0) / 2
            path += f" C{x0:.0f} {y0 + bend:.0f} {x1:.0f} {y1 - bend:.0f} {x1:.0f} {y1:.0f}"
        parts.append(f'<path d="{path}" fill="none" stroke="#5b6b7b" marker-end="url(#tip)"/>')
    for name in sorted(level):
        fill, border, dash = "#dcebfa", "#1779c4", ""
        if name in INTERNAL:
            fill, border = "#f1f3f5", "#8896a5"
        if name in OUTSIDE:
            fill, border, dash = "#ffffff", "#8896a5", ' stroke-dasharray="5 3"'
        parts.append(
            f'<rect x="{x(name) - BOX_WIDTH / 2:.0f}" y="{y(level[name]):.0f}" width="{BOX_WIDTH}" '
            f'height="{BOX_HEIGHT}" rx="6" fill="{fill}" stroke="{border}"{dash}/>')
        parts.append(
            f'<text x="{x(name):.0f}" y="{y(level[name]) + 22:.0f}" text-anchor="middle" '
            f'fill="#1f2d3a">{name}</text>')
    return "\n".join(parts + ["</svg>"]) + "\n"


def main():
    known = known_families()
    for name in known:
        if name in reached(known, name):
            around = sorted(other for other in known[name] if name in reached(known, other))
            sys.exit(f"house: {name} knows {', '.join(around)} in a circle")
    picture = draw(known)
    if sys.argv[1:] == ["--check"]:
        if not PICTURE.exists() or PICTURE.read_text() != picture:
            sys.exit("house: docs/house.svg is not up to date: run docs/site/house.py")
    elif not sys.argv[1:]:
        PICTURE.write_text(picture)
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main()
