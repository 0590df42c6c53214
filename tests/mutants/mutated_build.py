"""A copy of the tree with all mutants in it, built."""
import dataclasses
import json
import os
import pickle
import re
import subprocess

import edits
from sites import find_sites, number_mutants
from tree import HERE, ROOT, digest_of, fail, say, tracked, write_if_changed

MUTATED = ("src/", "pubinc/")
SOURCES_OF_TESTS = ("tests/", "explore/", "testkit/", "examples/", "tools/", "platform/")
# What only compiles, and these mutants' own tests.
LEFT_OUT_FOLDERS = ("tests/headers/CMakeLists.txt", "tests/mutants/CMakeLists.txt")
# Macros that declare what ends with the scope that they stand in.
DECLARING = re.compile(r"BLOG_TRACE_SCOPE\(")


class Build:
    """A copy of the tree with all mutants in it, built."""

    def __init__(self, folder):
        self.folder = folder
        self.tree = folder / "source"
        self.names = tracked()
        self.library = [name for name in self.names if name.startswith(MUTATED) and
                        name.endswith((".cpp", ".h"))]
        self.digest = digest_of(self.library + ["tests/mutants/edits.py", "tests/mutants/sites.py"])
        self.tests_digest = digest_of([name for name in self.names
                                       if name.startswith(SOURCES_OF_TESTS) and
                                       not name.startswith("tests/mutants/")])
        self.dropped_file = folder / "dropped.json"
        self.dropped = set()
        if self.dropped_file.exists():
            known = json.loads(self.dropped_file.read_text())
            if known["digest"] == self.digest:
                self.dropped = set(known["numbers"])
        self.spans = {}

    def find(self):
        cache = self.folder / "sites.pickle"
        known = pickle.loads(cache.read_bytes()) if cache.exists() else {}
        if known.get("digest") != self.digest:
            say("looking for mutants")
            sites, texts = find_sites(self.library)
            known = {"digest": self.digest, "sites": sites, "texts": texts}
            cache.write_bytes(pickle.dumps(known))
        self.sites, self.texts = known["sites"], known["texts"]
        self.entries = number_mutants(self.sites, self.texts)
        self.dropped |= {entry.number for entry in self.entries if DECLARING.match(entry.original)}

    def drop(self, numbers):
        self.dropped |= set(numbers)
        self.dropped_file.write_text(json.dumps({"digest": self.digest,
                                                 "numbers": sorted(self.dropped)}))

    def write(self):
        for name in self.names:
            data = (ROOT / name).read_bytes()
            if name in self.sites:
                data = self.mutated(name)
            elif name in LEFT_OUT_FOLDERS:
                data = b""
            write_if_changed(self.tree / name, data)
        wanted = {str(self.tree / name) for name in self.names}
        for path in self.tree.rglob("*"):
            if path.is_file() and str(path) not in wanted:
                path.unlink()

    def mutated(self, name):
        sites = []
        for site in self.sites[name]:
            kept = [mutant for mutant in site.mutants if mutant.number not in self.dropped]
            sites.append(dataclasses.replace(site, mutants=kept))
        text, spans = edits.rendered(self.texts[name], sites)
        self.spans[name] = (text, spans)
        return text.encode("latin-1")

    def wrong_ones(self, output):
        """Which mutants the compiler's errors are about: the innermost around each."""
        wrong = set()
        place = re.compile(r"\b" + self.tree.name + r"/([\w/.]+):(\d+):(\d+):")
        lines = output.splitlines()
        for index, line in enumerate(lines):
            if ": error:" not in line and ": note:" not in line and "required from" not in line:
                continue
            if ": error:" not in line and wrong:
                continue
            found = place.search(line)
            if not found and ": error:" in line:
                # In a header of somebody else: what it was used by stands before.
                for earlier in reversed(lines[max(0, index - 30):index]):
                    found = place.search(earlier)
                    if found and found[1] in self.spans:
                        break
            if not found or found[1] not in self.spans:
                continue
            text, spans = self.spans[found[1]]
            start = sum(len(part) + 1 for part in text.split("\n")[:int(found[2]) - 1])
            position = start + int(found[3]) - 1
            around = [(end - begin, numbers) for begin, end, numbers in spans
                      if begin <= position < end]
            if around:
                wrong |= set(min(around)[1])
            else:
                line_end = text.find("\n", start)
                wrong |= {number for begin, end, numbers in spans
                          if begin < line_end and end > start for number in numbers}
        return wrong

    def configure(self, name, *options):
        folder = self.folder / name
        if not (folder / "build.ninja").exists():
            say(f"configuring {name}")
            include = HERE / "mutant.h"
            self.must("cmake", "--preset", "dev", "-B", str(folder), "-DTEVALON_BASE_STRICT=OFF",
                      "-DCMAKE_CXX_FLAGS_DEBUG=-g1", "-DTEVALON_BASE_INSTALL=OFF",
                      f"-DCMAKE_CXX_FLAGS=-include {include} -w -Wno-narrowing", *options)
        return folder

    def must(self, *command):
        result = subprocess.run(command, cwd=self.tree, text=True, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, check=False)
        if result.returncode != 0:
            fail(f"{' '.join(command)} fails:\n{result.stdout[-4000:]}")

    def build(self, folder, *targets):
        """Until it compiles: a mutant that does not is left out."""
        say(f"building {folder.name} {' '.join(targets)}")
        while True:
            command = ["cmake", "--build", str(folder), "--parallel", str(os.cpu_count())]
            result = subprocess.run(command + (["--target", *targets] if targets else []) +
                                    ["--", "-k", "0"], text=True, stdout=subprocess.PIPE,
                                    stderr=subprocess.STDOUT, check=False)
            if result.returncode == 0:
                return
            wrong = self.wrong_ones(result.stdout) - self.dropped
            if not wrong:
                (self.folder / "build.log").write_text(result.stdout)
                fail(f"the build fails, and not for a mutant: see {self.folder}/build.log")
            say(f"{len(wrong)} mutants do not compile")
            self.drop(wrong)
            self.write()
