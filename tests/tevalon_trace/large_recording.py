#!/usr/bin/python3
"""large_recording.py COUNT FILE: writes a recording of COUNT records of several threads.

The records are of requests as a process's modules exchange them: for measuring tevalon-trace.
"""

import sys

from made_recording import EVENT, MODULE, MadeRecording, halves, text, word


def make(count):
    recording = MadeRecording(block_bytes=2**18)
    threads = 8
    for number in range(threads):
        recording.thread(number + 1, 5000 + number, f"Evt:{number}")
        recording.name(MODULE, number, f"module {number}")
    for number in range(20):
        recording.name(EVENT, number, f"event {number}")
    added = 0
    ns = 0
    while added < count:
        sender = added // 12 % threads
        target = (sender + 1) % threads
        event_type = added // 12 % 20
        event = 0x7f0000001000 + 0x100 * (added // 12 % 50)
        ns += 5000
        steps = (
            (sender, 1, word(event) + halves(event_type, sender)),
            (sender, 2, word(event) + halves(event_type, sender) + halves(target)),
            (sender, 3, word(event) + halves(event_type, sender) + halves(target, 1)),
            (sender, 8, word(event) + halves(event_type, 800)),
            (target, 5, word(event) + halves(event_type, sender) + halves(target)),
            (target, 30, text("look up")),
            (target, 15, word(0x5500) + word(10**8) + text("launch")),
            (target, 16, word(0x5500)),
            (target, 31, text("look up")),
            (target, 7, word(event) + halves(event_type, 0)),
            (target, 6, word(event) + halves(event_type, sender) + halves(target)),
            (sender, 32, word(added) + text("frames")),
        )
        for thread, kind, content in steps[:count - added]:
            ns += 300
            recording.add(ns, thread + 1, kind, content)
            added += 1
    return recording


if __name__ == "__main__":
    make(int(sys.argv[1])).write(sys.argv[2])
