#!/usr/bin/python3
"""Shows that tests find mistakes: plants each of a suite's in a copy of the tree.

    planted.py ROOT FOLDER faults|ends|fuzz|soak [NAME...]

Builds the copy in FOLDER with each patch in turn, and fails unless each is found: one of faults by
faults.py, one of ends by the test that its first line names, one of fuzz by the target that its first
line names, from the corpus in the tree and within a minute, or by readers.py; one of soak by the step
that its first line names, within a minute.
"""

import os
import re
import shutil
import subprocess
import sys
import time

# Of the half hour that a step of ./run soak takes.
HOURS_OF_A_MINUTE = 4 / 30


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


def find_by_faults(tree, build, _patch):
    """The first failure that faults.py reports, or None."""
    must("cmake", "--build", build, "--target", "faults_program")
    result = run(sys.executable, "-B", os.path.join(tree, "tests/faults/faults.py"), "--first",
                 build)
    if result.returncode == 0:
        return None
    lines = [line.strip() for line in result.stdout.splitlines()]
    return lines[0] + " ... " + lines[2] if len(lines) > 2 else " ".join(lines)


def find_by_fuzzing(tree, build, patch):
    """What the target says of the input that it does not stand, or None."""
    with open(patch, encoding="utf-8") as file:
        target = re.match(r"Found by (\w+)\.", file.read())[1]
    if target == "readers":
        result = run(sys.executable, "-B", os.path.join(tree, "fuzz/readers.py"), "--seconds=60")
        told = re.search(r"^mutation \d+", result.stdout, re.M)
        return told and told[0]
    must("cmake", "--build", build, "--target", f"fuzz_{target}")
    # With nothing that an earlier run has learnt.
    for kept in "corpora", "found":
        shutil.rmtree(os.path.join(build, "fuzz", kept), ignore_errors=True)
    result = run(sys.executable, "-B", os.path.join(tree, "fuzz/fuzz.py"), build, "--seconds=60",
                 target)
    if f"fuzz: failed: {target}" not in result.stdout:
        return None
    told = re.search(r"^not as expected: .*|^SUMMARY: .*", result.stdout, re.M)
    executions = re.search(r"([\d,]+) executions", result.stdout)
    return f"{told[0]}, after {executions[1]} executions" if told and executions else None


def find_by_test(_tree, build, patch):
    """The test that fails or hangs, or None."""
    with open(patch, encoding="utf-8") as file:
        test = re.match(r"Found by (\w+\.\w+)", file.read())[1]
    must("cmake", "--build", build, "--target", "forked_child_test", "fork_at_locks_test",
         "cancellation", "static_module_test", "exhaustion_test", "interruption_test")
    result = run("ctest", "--test-dir", build, "-R", f"^{re.escape(test)}$", "--timeout", "100")
    if "No tests were found" in result.stdout:
        sys.exit(f"planted: no test {test}")
    return test if result.returncode != 0 else None


def find_by_soak(tree, build, patch):
    """What the step says, or None."""
    with open(patch, encoding="utf-8") as file:
        step = re.match(r"Found by the step ([\w-]+)\.", file.read())[1]
    program, _, preset = step.partition("-")
    must("cmake", "--build", build, "--target", "endurance")
    if program == "stress":
        build = configured(tree, preset)
        must("cmake", "--build", build, "--target", "stress")
    result = run(sys.executable, "-B", os.path.join(tree, "tests/soak/soak.py"), f"--only={step}",
                 f"--hours={HOURS_OF_A_MINUTE}", os.path.dirname(build))
    if f"soak: {step} failed" not in result.stdout:
        return None
    told = re.search(r"^(endurance|stress): .*|^SUMMARY: .*|.* WRONG$", result.stdout, re.M)
    said = " ".join(told[0].split()) if told else "died"
    return f"{step}: {said}"


def configured(tree, preset):
    build = os.path.join(tree, "build", preset)
    if not os.path.exists(os.path.join(build, "build.ninja")):
        must("cmake", "--preset", preset, cwd=tree)
    return build


def main():
    root, folder, suite, *wanted = sys.argv[1:]
    find = {"faults": find_by_faults, "ends": find_by_test, "fuzz": find_by_fuzzing,
            "soak": find_by_soak}[suite]
    preset = "fuzz" if suite == "fuzz" else "dev"
    patches = os.path.join(root, "fuzz" if suite == "fuzz" else f"tests/{suite}", "planted")
    names = sorted(name[:-6] for name in os.listdir(patches) if name.endswith(".patch"))
    tree = os.path.join(folder, "tree")
    missed = []
    for name in names:
        if wanted and name not in wanted:
            continue
        patch = os.path.join(patches, name + ".patch")
        copy_tree(root, tree)
        must("patch", "-p1", "--batch", "--input", patch, cwd=tree)
        build = configured(tree, preset)
        begin = time.monotonic()
        found = find(tree, build, patch)
        if found is None:
            missed.append(name)
        print(f"planted: {name}: {found or 'NOT FOUND'} ({time.monotonic() - begin:.0f} s)",
              flush=True)
    if missed:
        sys.exit(f"planted: not found: {' '.join(missed)}")


if __name__ == "__main__":
    main()
