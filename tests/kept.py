"""What was done, kept in a file, so that a run of hours goes on where another was broken off."""

import hashlib
import json


def digest(*paths):
    total = hashlib.sha256()
    for path in paths:
        total.update(path.read_bytes())
    return total.hexdigest()[:16]


class Kept:
    """What was said of each thing that was done, and of which programs. Without a path for this run
    alone."""

    def __init__(self, path):
        self.path = path
        self.done = {}
        self.read()

    def read(self):
        if self.path and self.path.exists():
            self.done.update(json.loads(self.path.read_text(encoding="utf-8")))

    def add(self, name, key, text):
        self.read()  # Another run may have added to it meanwhile.
        self.done[name] = {"key": key, "said": text}
        if self.path:
            unfinished = self.path.with_suffix(".new")
            unfinished.write_text(json.dumps(self.done, indent=1), encoding="utf-8")
            unfinished.replace(self.path)

    def said(self, name, key):
        """None where it was not done, or by other programs."""
        entry = self.done.get(name)
        return entry["said"] if entry and entry["key"] == key else None
