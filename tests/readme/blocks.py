#!/usr/bin/env python3
"""blocks.py BUILD: runs what README.md tells to type, in a copy of the tree whose build folder is BUILD.

Each line of an indented block is a command. It is run as it stands, or as COMMANDS says; one that is
not known here is a failure, so that a new one gets its test.
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
TURNED_OFF = "The set is turned off."


def run(tree, command, **environment):
    """All that it writes."""
    # A machine that has every package: nothing is installed by a test.
    variables = dict(os.environ, PATH=f"{tree}/programs:{os.environ['PATH']}", **environment)
    for name in [name for name in variables if name.startswith("ZOR_DEBUG")]:
        del variables[name]
    result = subprocess.run(["bash", "-c", command], cwd=tree, env=variables, text=True, check=False,
                            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if result.returncode != 0:
        sys.exit(f"blocks: '{command}' ended with {result.returncode}:\n{result.stdout}")
    return result.stdout


def expect(is_right, command, output):
    if not is_right:
        sys.exit(f"blocks: '{command}' wrote something else:\n{output}")


def demo(tree, command):
    expect(TURNED_OFF in run(tree, command), command, "")


def demo_with_log(tree, command):
    output = run(tree, command)
    expect(re.search(r"^\[ *\d+\.\d+\] \[\d+ tv_browser\] \[TRACE -> ", output, re.M), command, output)


def demo_of_a_deadlock(tree, command):
    output = run(tree, command)
    expect("who waits for whom:\n  circle: module 40 'op_app_host' ->" in output, command, output)


def suite(_, command):
    ci = (ROOT / ".ci/run").read_text()
    expect(f"\n{command}\n" in ci, command, "not what the CI runs:\n" + ci)


def build(tree, command):
    """Configured whole, and one library built."""
    folder = f"{tree}/build/own"
    command = command.replace("cmake --preset release", f"cmake --preset release -B {folder}")
    run(tree, command.replace("--preset release", "--preset release", 1)
        .replace("cmake --build --preset release", f"cmake --build {folder} --target zor-debug"))
    expect(os.path.exists(f"{folder}/platform/zor_debug/libzor-debug.so"), command, "no library")


def install(tree, command):
    run(tree, command.replace("~", str(tree)))
    package = list((tree / "tevalon").rglob("tevalon-base-config.cmake"))
    expect(len(package) == 1, command, str(package))


def record(tree, command):
    """The next command's recording: of the session that is played here."""
    tools = f"{tree}/build/release/tools"
    here = re.sub(r"LD_PRELOAD=\S+", f"LD_PRELOAD={tools}/record_preload/libtevalon-record.so", command)
    here = re.sub(r" tv_browser$", " build/release/examples/tv_browser/tv_browser --session="
                  "examples/tv_browser/sessions/evening.session", here)
    expect(here.count(str(tree)) == 1 and "--session" in here, command, here)
    run(tree, here, TEVALON_RECORD_FILE=f"{tree}/recording")


def summarise(tree, command):
    tool = f"{tree}/build/release/tools/tevalon_trace/tevalon-trace"
    here = re.sub(r"^tevalon-trace", tool, command)
    here = re.sub(r"/tmp/tevalon-recording\.\d+$", f"{tree}/recording", here)
    output = run(tree, here)
    expect("overruns of watched operations:" in output or "slowest handlers" in output, command, output)


COMMANDS = [
    (r"\./run demo$", demo),
    (r"\./run test$", suite),
    (r"ZOR_DEBUG=debug ZOR_DEBUG_PREFIX=time,thread \./run demo --log$", demo_with_log),
    (r"LD_PRELOAD=\S+libtevalon-record\.so tv_browser$", record),
    (r"tevalon-trace --summary \S+$", summarise),
    (r"\./run demo --session=\S+deadlock\.session$", demo_of_a_deadlock),
    (r"cmake --preset release && cmake --build --preset release$", build),
    (r"cmake --install build/release --prefix ~/tevalon$", install),
]


def commands():
    """Of README's indented blocks; fenced ones are programs, which have a test of their own."""
    text = re.sub(r"^```.*?^```$", "", (ROOT / "README.md").read_text(), flags=re.S | re.M)
    for line in text.splitlines():
        if line.startswith("    "):
            yield line.strip().partition("  #")[0].rstrip()


def make_tree(tree, build_folder):
    for entry in ROOT.iterdir():
        if entry.name not in ("build", "run", ".git"):
            (tree / entry.name).symlink_to(entry)
    (tree / "run").write_bytes((ROOT / "run").read_bytes())
    (tree / "run").chmod(0o755)
    (tree / "build").mkdir()
    (tree / "build/release").symlink_to(build_folder)
    (tree / "programs").mkdir()
    (tree / "programs/dpkg-query").write_text("#!/bin/sh\necho 'ii '\n")
    (tree / "programs/dpkg-query").chmod(0o755)


def main():
    count = 0
    with tempfile.TemporaryDirectory() as folder:
        tree = pathlib.Path(folder)
        make_tree(tree, pathlib.Path(sys.argv[1]).resolve())
        for command in commands():
            action = next((action for pattern, action in COMMANDS if re.match(pattern, command)), None)
            if action is None:
                sys.exit(f"blocks: README.md has a command that nothing tests: '{command}'")
            action(tree, command)
            count += 1
    if count < len(COMMANDS):
        sys.exit(f"blocks: README.md has only {count} commands; {len(COMMANDS)} are known here")
    print(f"blocks: {count} commands")


if __name__ == "__main__":
    main()
