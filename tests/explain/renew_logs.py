#!/usr/bin/env python3
"""Makes the logs in tests/explain/logs anew, by running the faulty set and the demo.

usage: renew_logs.py BUILD    the folder of a build with the targets faulty_set and tv_browser
"""

import os
import subprocess
import sys
from pathlib import Path

HERE = Path(__file__).parent
SESSIONS = HERE.parents[1] / "examples/tv_browser/sessions"

# What a set or a desk shows differs: each fault is looked for in another kind of log.
LOGS = {
    "no-receiver": ("debug", ""),
    "unregister-hangs": ("debug", "wall,thread"),
    "timer-stop-hangs": ("debug", "time,thread"),
    "task-hangs": ("debug", "thread,time"),
    "watch-overrun": ("info", "time"),
    "threads-exhausted": ("debug", "thread"),
    "descriptors-exhausted": ("error", ""),
    "pipe-closed": ("error", "time,thread"),
    "mutex-misused": ("debug", "wall,time,level,module,thread"),
    "zero-period": ("errors-only", "wall,level"),
    "no-workers": ("error", ""),
    "handler-twice": ("debug", "time"),
    "folder-not-empty": ("debug", ""),
}
DEMOS = {
    "evening": ("debug", "wall,level,module,thread"),
    "trouble": ("debug", "time,level,thread"),
}

# A scheduler whose pipe is gone writes as fast as it can.
MOST_LINES = 700


def keep(name, command, levels, prefix):
    environment = dict(os.environ, ZOR_DEBUG=levels, ZOR_DEBUG_PREFIX=prefix, ZOR_DEBUG_FILE="")
    with open(os.devnull, "rb") as nothing:
        result = subprocess.run(command, env=environment, stdin=nothing, stderr=subprocess.PIPE,
                                stdout=subprocess.DEVNULL, check=True)
    lines = result.stderr.splitlines(keepends=True)
    (HERE / "logs" / f"{name}.log").write_bytes(b"".join(lines[:MOST_LINES]))
    print(f"{name}: {min(len(lines), MOST_LINES)} lines")


def main(build):
    for name, (levels, prefix) in LOGS.items():
        keep(name, [build / "tests/explain/faulty_set", name], levels, prefix)
    for name, (levels, prefix) in DEMOS.items():
        keep(name, [build / "examples/tv_browser/tv_browser",
                    f"--session={SESSIONS / name}.session"], levels, prefix)


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(Path(sys.argv[1]))
