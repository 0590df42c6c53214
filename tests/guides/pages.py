#!/usr/bin/env python3
"""Holds the pages in docs/ and the programs in examples/ against each other.

usage: pages.py check           every block that begins with a file's first line is that file; every
                                file of examples/guides, getting_started and tested_module is on a page;
                                every test that a page names exists
       pages.py write           writes the files into their blocks
       pages.py run PROGRAM FILE   runs the commands `$ ...` of the blocks that call PROGRAM, which is
                                built as FILE, and compares what they print

A block of code is a file when its first line names one: `// events.cpp: ...`, `# CMakeLists.txt: ...`.
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDERS = ("examples/guides", "examples/getting_started", "examples/tested_module",
           "cmake/toolchains")
WHOLE_FOLDERS = FOLDERS[:3]
BLOCK = re.compile(r"^```(\w+)\n(.*?)^```$", re.S | re.M)


def pages():
    return sorted((ROOT / "docs").glob("*.md"))


def file_of(block):
    name = re.match(r"(?://|#) ([\w.]+\.\w+): ", block)
    if not name:
        return None
    files = [ROOT / folder / name[1] for folder in FOLDERS if (ROOT / folder / name[1]).exists()]
    # Several folders may have a file of that name: it is the one that begins as the block does.
    begins = [path for path in files
              if path.read_text().splitlines()[0] == block.splitlines()[0]]
    return (begins or files or [None])[0]


def filled(page, shown):
    """The page with each file in its block; adds the files to `shown`."""
    def fill(found):
        path = file_of(found[2])
        if path is None:
            return found[0]
        shown.add(path)
        return f"```{found[1]}\n{path.read_text()}```"
    return BLOCK.sub(fill, page.read_text())


def tests():
    """The names of all suites, and of all tests as SUITE.NAME."""
    names = set()
    for path in (ROOT / "tests").rglob("*"):
        if path.suffix == ".cpp":
            for suite, name in re.findall(r"^(?:TYPED_)?TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)",
                                          path.read_text(), re.M):
                names |= {suite, f"{suite}.{name}"}
        elif path.name == "CMakeLists.txt":
            for suite, name in re.findall(r"NAME (\w+Test)\.(\w+)", path.read_text()):
                names |= {suite, f"{suite}.{name}"}
    return names


def unknown_tests():
    known = tests()
    for page in pages():
        for name in re.findall(r"`(\w+Test(?:\.\w+)?)`", page.read_text()):
            if name not in known:
                yield f"{page.name} names a test that is not there: {name}"


def check():
    shown, faults = set(), list(unknown_tests())
    for page in pages():
        if filled(page, shown) != page.read_text():
            faults.append(f"{page.name} shows another version of a file: run tests/guides/pages.py write")
    for folder in WHOLE_FOLDERS:
        for path in sorted((ROOT / folder).iterdir()):
            if path not in shown and not (folder.endswith("guides") and path.name == "CMakeLists.txt"):
                faults.append(f"no page shows {folder}/{path.name}")
    return faults


def write():
    for page in pages():
        page.write_text(filled(page, set()))
    return []


def commands(program):
    """Pairs of command and output, of the blocks that call it."""
    for page in pages():
        for language, block in BLOCK.findall(page.read_text()):
            first, _, output = block.partition("\n")
            if language == "text" and re.match(rf"\$ .*(\./|build/){program}\b", first):
                yield first[2:], output


def run(program, path):
    faults, count = [], 0
    for command, output in commands(program):
        count += 1
        with tempfile.TemporaryDirectory() as folder:
            os.mkdir(f"{folder}/build")
            for link in (program, f"build/{program}"):
                os.symlink(os.path.abspath(path), f"{folder}/{link}")
            environment = {name: value for name, value in os.environ.items()
                           if not name.startswith("ZOR_DEBUG")}
            result = subprocess.run(["sh", "-c", command], cwd=folder, env=environment, text=True,
                                    stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
        if result.returncode != 0 or result.stdout != output:
            faults.append(f"'{command}' ended with {result.returncode} and printed\n{result.stdout}"
                          f"---- the page says\n{output}---- standard error\n{result.stderr}")
    if count == 0:
        faults.append(f"no page runs {program}")
    return faults


def main():
    actions = {("check", 0): check, ("write", 0): write, ("run", 2): run}
    action = actions.get((sys.argv[1] if len(sys.argv) > 1 else "", len(sys.argv) - 2))
    if action is None:
        sys.exit(__doc__)
    faults = action(*sys.argv[2:])
    for fault in faults:
        print(f"pages: {fault}", file=sys.stderr)
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main()
