"""What was found so far, and what nobody can find."""
import json
import re
import threading

from tree import HERE, fail


class Equivalent:
    """equivalent.txt: paragraphs of file, function, original, mutated and reason; with the text of the
    line where a function has several of the kind, and with several pairs of original and mutated, or
    several mutated of one original, where the reason is the same. "*" is any file, any function."""

    FIELDS = {"file", "function", "original", "mutated", "reason"}

    def __init__(self, path):
        self.paragraphs = []
        for number, paragraph in enumerate(re.split(r"\n\s*\n", path.read_text())):
            lines = [line for line in paragraph.splitlines() if line and not line.startswith("#")]
            if lines:
                self.paragraphs += self.read(lines, f"{path}: paragraph {number + 1}")

    def read(self, lines, where):
        """The same fields for each pair."""
        fields, pairs = {}, []
        for line in lines:
            name, _, text = line.partition(": ")
            if name == "mutated":
                if "original" not in fields:
                    fail(f"{where} has what becomes of nothing")
                pairs.append((fields["original"], text))
            elif name in fields and name != "original":
                fail(f"{where} has a second {name}")
            fields[name] = text
        if set(fields) - {"line"} != self.FIELDS:
            fail(f"{where} lacks a field, or has one too many")
        return [{**fields, "original": original, "mutated": mutated} for original, mutated in pairs]

    @staticmethod
    def fits(fields, entry):
        return (fields["original"], fields["mutated"]) == \
            (entry.original, entry.mutated or "(nothing)") and \
            fields["file"] in ("*", entry.file) and fields["function"] in ("*", entry.function) and \
            fields.get("line", entry.text) == entry.text

    def reason(self, entry):
        return next((fields["reason"] for fields in self.paragraphs if self.fits(fields, entry)), None)

    def unknown(self, entries):
        """Those that fit no mutant of the sources, or several without saying so."""
        counts = [(fields, sum(self.fits(fields, entry) for entry in entries))
                  for fields in self.paragraphs]
        return [fields for fields, count in counts
                if count == 0 or count > 1 and "*" not in (fields["file"], fields["function"])]


class Found:
    """found.txt: for each file, as it was then, which of its mutants a test has found. What is found
    once counts until the file changes: tests are added, and seldom taken away."""

    HEADING = ("# Which mutants tests have found: a file, what its contents were, and its mutants counted\n"
               "# from 1. Written by mutants.py --note; a file that has changed begins anew.\n")

    def __init__(self, path):
        self.path = path
        self.by_file = {}
        for line in path.read_text().splitlines() if path.exists() else ():
            if line and not line.startswith("#"):
                name, digest, *ranges = line.split()
                self.by_file[name] = (digest, set(self.spread(ranges)))

    @staticmethod
    def spread(ranges):
        for part in ranges:
            first, _, last = part.partition("-")
            yield from range(int(first), int(last or first) + 1)

    @staticmethod
    def packed(places):
        runs = []
        for place in sorted(places):
            if runs and place == runs[-1][1] + 1:
                runs[-1][1] = place
            else:
                runs.append([place, place])
        return " ".join(str(first) if first == last else f"{first}-{last}" for first, last in runs)

    def has(self, entry):
        digest, places = self.by_file.get(entry.file, ("", ()))
        return digest == entry.digest and entry.place in places

    def add(self, entry):
        digest, places = self.by_file.get(entry.file, ("", set()))
        if digest != entry.digest:
            places = set()
        self.by_file[entry.file] = (entry.digest, places | {entry.place})

    def write(self, names):
        """Of files that there are."""
        self.path.write_text(self.HEADING + "".join(
            f"{name} {digest} {self.packed(places)}\n"
            for name, (digest, places) in sorted(self.by_file.items()) if name in names))


class Results:
    """What was found so far: of each file as it is now."""

    def __init__(self, folder, tests_digest, means, found):
        self.means = sorted(means)  # What a survivor is tried by besides the tests.
        self.path = folder / "results.jsonl"
        self.tests_digest = tests_digest
        self.found = found
        self.known = {}
        self.lock = threading.Lock()
        if self.path.exists():
            for line in self.path.read_text().splitlines():
                item = json.loads(line)
                self.known[item["key"]] = item

    @staticmethod
    def key(entry):
        return f"{entry.file} {entry.digest} {entry.place}"

    def is_found(self, entry):
        item = self.known.get(self.key(entry))
        return bool(item and item["found"]) or self.found.has(entry)

    def is_tried(self, entry):
        if self.is_found(entry):
            return True
        item = self.known.get(self.key(entry))
        return item is not None and item["tests"] == self.tests_digest and \
            set(self.means) <= set(item["means"])

    def put(self, entry, found, seconds):
        item = {"key": self.key(entry), "found": found, "seconds": round(seconds, 1),
                "tests": self.tests_digest, "means": self.means}
        with self.lock:
            self.known[item["key"]] = item
            with open(self.path, "a", encoding="utf-8") as file:
                file.write(json.dumps(item) + "\n")

    def note(self, entries):
        """All that was found of the entries, in found.txt."""
        for entry in entries:
            if self.is_found(entry):
                self.found.add(entry)
        self.found.write({entry.file for entry in entries})
