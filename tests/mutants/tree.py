"""The files of the source tree, and what is said to whoever runs this."""
import hashlib
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
HERE = pathlib.Path(__file__).resolve().parent


def fail(text):
    sys.exit(f"mutants: {text}")


def say(text):
    print(f"mutants: {text}", flush=True)


def digest_of(names):
    total = hashlib.sha256()
    for name in sorted(names):
        total.update(name.encode() + b"\0")
        total.update((ROOT / name).read_bytes())
    return total.hexdigest()[:16]


def tracked():
    listed = subprocess.run(["git", "-C", ROOT, "ls-files", "-z", "--cached", "--others",
                             "--exclude-standard"], check=True, stdout=subprocess.PIPE).stdout
    return [name for name in listed.decode().split("\0") if name and (ROOT / name).is_file()]


def write_if_changed(path, data):
    if not path.exists() or path.read_bytes() != data:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)
