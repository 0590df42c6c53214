#!/usr/bin/env python3
"""recipe.py RECIPE TREE LIBDIR [absent]: holds a recipe's FILES against what was installed below TREE.

Every installed file is claimed by exactly one pattern, and every pattern claims a file. With
`absent`, TREE was installed without the substitute: the patterns of its packages claim nothing.
"""

import fnmatch
import os
import re
import sys

DIRECTORIES = {"bindir": "/usr/bin", "datadir": "/usr/share", "includedir": "/usr/include",
               "docdir": "/usr/share/doc", "mandir": "/usr/share/man"}


def read_patterns(recipe):
    """Pairs of package and pattern, of each FILES assignment."""
    with open(recipe, encoding="utf-8") as file:
        text = file.read().replace("\\\n", " ")
    patterns = []
    for package, value in re.findall(r'^FILES:(\S+) = "([^"]*)"', text, re.MULTILINE):
        for pattern in value.split():
            pattern = re.sub(r"\$\{(\w+)\}", lambda name: DIRECTORIES[name[1]], pattern)
            patterns.append((package, pattern))
    return patterns


def installed_files(tree):
    for folder, _, names in os.walk(tree):
        for name in names:
            yield "/" + os.path.relpath(os.path.join(folder, name), tree)


def claims(pattern, path):
    """As BitBake does: a pattern that is a folder claims what is in it; * stops at a slash."""
    parts, wanted = path.split("/"), pattern.split("/")
    return len(parts) >= len(wanted) and all(map(fnmatch.fnmatchcase, parts, wanted))


def main(recipe, tree, libdir, substitute_is_absent):
    DIRECTORIES["libdir"] = "/usr/" + libdir
    patterns = read_patterns(recipe)
    used = set()
    faults = []
    if not patterns:
        faults.append(f"{recipe} has no FILES")
    for path in sorted(installed_files(tree)):
        claimants = [entry for entry in patterns if claims(entry[1], path)]
        used.update(claimants)
        if len(claimants) != 1:
            faults.append(f"{path} is claimed by {len(claimants)} patterns: {claimants}")
    for entry in patterns:
        is_wanted = not (substitute_is_absent and entry[0].startswith("zor-debug"))
        if entry[1].endswith("/page") and os.environ.get("TEVALON_PACKAGES_WITHOUT_PAGE"):
            is_wanted = entry in used  # Nothing could be bundled here.
        if (entry in used) != is_wanted:
            faults.append(f"the pattern {entry} claims {'no' if is_wanted else 'a'} file")
    for fault in faults:
        print(f"recipe: {fault}", file=sys.stderr)
    if not faults:
        print(f"recipe: {len(used)} patterns claim every file of {os.path.basename(tree)} once")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2], sys.argv[3], sys.argv[4:] == ["absent"]))
