#!/usr/bin/python3
"""Shows that faults.py finds mistakes: plants each of planted/*.patch in a copy of the tree.

    planted.py ROOT FOLDER [NAME...]

Builds the copy in FOLDER with each patch in turn, and fails unless each makes faults.py fail.
"""

import os
import shutil
import subprocess
import sys
import time


def run(*command, **options):
    return subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          check=False, **options)


def must(*command, **options):
    result = run(*command, **options)
    if result.returncode != 0:
        sys.exit(f"planted: {' '.join(command)} fails:\n{result.stdout}")


def copy_tree(root, tree):
    """What git knows of, as it is now; what has not changed keeps its time, for the build."""
    listed = subprocess.run(["git", "-C", root, "ls-files", "-z"], check=True,
                            stdout=subprocess.PIPE).stdout.decode().split("\0")
    for name in filter(None, listed):
        source, target = os.path.join(root, name), os.path.join(tree, name)
        if not os.path.exists(source):
            continue
        with open(source, "rb") as file:
            content = file.read()
        if os.path.exists(target):
            with open(target, "rb") as file:
                if file.read() == content:
                    continue
        os.makedirs(os.path.dirname(target), exist_ok=True)
        shutil.copy2(source, target)
        os.utime(target)


def find(tree, build):
    """The first failure that faults.py reports, or None."""
    must("cmake", "--build", build, "--target", "faults_program")
    result = run(sys.executable, "-B", os.path.join(tree, "tests/faults/faults.py"), "--first",
                 build)
    if result.returncode == 0:
        return None
    lines = [line.strip() for line in result.stdout.splitlines()]
    return lines[0] + " ... " + lines[2] if len(lines) > 2 else " ".join(lines)


def main():
    root, folder, *wanted = sys.argv[1:]
    patches = os.path.join(root, "tests/faults/planted")
    names = sorted(name[:-6] for name in os.listdir(patches) if name.endswith(".patch"))
    tree = os.path.join(folder, "tree")
    build = os.path.join(tree, "build/dev")
    missed = []
    for name in names:
        if wanted and name not in wanted:
            continue
        copy_tree(root, tree)
        must("patch", "-p1", "--batch", "--input", os.path.join(patches, name + ".patch"), cwd=tree)
        if not os.path.exists(os.path.join(build, "build.ninja")):
            must("cmake", "--preset", "dev", cwd=tree)
        begin = time.monotonic()
        found = find(tree, build)
        if found is None:
            missed.append(name)
        print(f"planted: {name}: {found or 'NOT FOUND'} ({time.monotonic() - begin:.0f} s)",
              flush=True)
    if missed:
        sys.exit(f"planted: not found: {' '.join(missed)}")


if __name__ == "__main__":
    main()
