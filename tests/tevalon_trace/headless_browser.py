"""A headless Chromium that is told what to do through a pipe, by the DevTools protocol.

Nothing but Python's own library: the protocol is JSON documents, each ended by a zero byte, on the
file descriptors 3 and 4.
"""

import base64
import json
import os
import shutil
import subprocess
import tempfile
import time

PROGRAMS = ("chromium", "chromium-browser", "google-chrome")
PATIENCE_S = 60  # Turns a hang into a failure.


def program():
    """The browser's path; None where there is none."""
    return next(filter(None, map(shutil.which, PROGRAMS)), None)


class BrowserError(Exception):
    """What the browser, or a page's script, complains of."""


class Browser:
    """One page. Closes with its context."""

    def __init__(self):
        self._profile = tempfile.mkdtemp(prefix="trace-page.")
        to_read, self._to = os.pipe()
        self._from, to_write = os.pipe()

        def give_descriptors():
            read_end, write_end = os.dup(to_read), os.dup(to_write)  # Out of the way of 3 and 4.
            os.dup2(read_end, 3)
            os.dup2(write_end, 4)

        self._process = subprocess.Popen(
            [program(), "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
             "--disable-dev-shm-usage", "--no-first-run", "--disable-background-networking",
             f"--user-data-dir={self._profile}", "--remote-debugging-pipe", "about:blank"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            preexec_fn=give_descriptors, close_fds=False)
        os.close(to_read)
        os.close(to_write)
        self._unread = b""
        self._number = 0
        self._session = None
        self.errors = []
        target = self._call("Target.createTarget", url="about:blank")["targetId"]
        self._session = self._call("Target.attachToTarget", targetId=target,
                                   flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log"):
            self._call(f"{domain}.enable")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        os.close(self._to)
        self._process.terminate()
        self._process.wait()
        os.close(self._from)
        shutil.rmtree(self._profile, ignore_errors=True)

    def _read(self):
        while b"\0" not in self._unread:
            piece = os.read(self._from, 1 << 20)
            if not piece:
                raise BrowserError("the browser has ended")
            self._unread += piece
        raw, self._unread = self._unread.split(b"\0", 1)
        return json.loads(raw)

    def _call(self, method, **parameters):
        self._number += 1
        message = {"id": self._number, "method": method, "params": parameters}
        if self._session is not None:
            message["sessionId"] = self._session
        os.write(self._to, json.dumps(message).encode() + b"\0")
        while True:
            answer = self._read()
            if answer.get("id") == self._number:
                if "error" in answer:
                    raise BrowserError(f"{method}: {answer['error']}")
                return answer["result"]
            self._note(answer)

    def _note(self, event):
        if event.get("method") == "Runtime.exceptionThrown":
            details = event["params"]["exceptionDetails"]
            self.errors.append(details.get("exception", {}).get("description", details["text"]))
        elif (event.get("method") == "Log.entryAdded" and
              event["params"]["entry"]["level"] == "error"):
            self.errors.append(event["params"]["entry"]["text"])

    def screen(self, width, height, is_dark=False):
        self._call("Emulation.setDeviceMetricsOverride", width=width, height=height,
                   deviceScaleFactor=1, mobile=width < 600)
        self._call("Emulation.setTouchEmulationEnabled", enabled=width < 600)
        self._call("Emulation.setEmulatedMedia", features=[
            {"name": "prefers-color-scheme", "value": "dark" if is_dark else "light"}])

    def open(self, path):
        """Returns when the page says that it is ready, and has been drawn.

        (seconds of the processors that it took, seconds).
        """
        begun, used = time.monotonic(), self.processor_seconds()
        self._call("Page.navigate", url="file://" + path)
        self.until("document.documentElement?.dataset.state")
        self.frame()
        return self.processor_seconds() - used, time.monotonic() - begun

    def processor_seconds(self):
        """What all processes of the browser have used of the processors so far."""
        parents, ticks = {}, {}
        for name in filter(str.isdigit, os.listdir("/proc")):
            try:
                with open(f"/proc/{name}/stat", encoding="utf-8", errors="replace") as file:
                    fields = file.read().rpartition(")")[2].split()
            except OSError:  # It has ended meanwhile.
                continue
            parents[int(name)] = int(fields[1])
            ticks[int(name)] = int(fields[11]) + int(fields[12])

        def is_ours(process):
            while process in parents and process != self._process.pid:
                process = parents[process]
            return process == self._process.pid
        return sum(ticks[each] for each in ticks if is_ours(each)) / os.sysconf("SC_CLK_TCK")

    def evaluate(self, expression):
        result = self._call("Runtime.evaluate", expression=expression, returnByValue=True,
                            awaitPromise=True)
        if "exceptionDetails" in result:
            details = result["exceptionDetails"]
            raise BrowserError(details.get("exception", {}).get("description", details["text"]))
        return result["result"].get("value")

    def until(self, expression):
        """Waits until it is true, and returns what it is."""
        end = time.monotonic() + PATIENCE_S
        while time.monotonic() < end:
            value = self.evaluate(expression)
            if value:
                return value
            self.frame()
        raise BrowserError(f"never true: {expression}; {self.errors}")

    def frame(self):
        """Until the page has been drawn again, and what it does right after that is done."""
        self.evaluate("new Promise((done) => requestAnimationFrame(() => "
                      "requestAnimationFrame(() => setTimeout(done, 40))))")

    def move(self, x, y):
        self._call("Input.dispatchMouseEvent", type="mouseMoved", x=x, y=y)
        self.frame()

    def click(self, x, y):
        self.move(x, y)
        for what in ("mousePressed", "mouseReleased"):
            self._call("Input.dispatchMouseEvent", type=what, x=x, y=y, button="left",
                       clickCount=1)
        self.frame()

    def drag(self, x, y, to_x, to_y):
        self.move(x, y)
        self._call("Input.dispatchMouseEvent", type="mousePressed", x=x, y=y, button="left",
                   clickCount=1)
        self._call("Input.dispatchMouseEvent", type="mouseMoved", x=to_x, y=to_y, button="left",
                   buttons=1)
        self._call("Input.dispatchMouseEvent", type="mouseReleased", x=to_x, y=to_y, button="left",
                   clickCount=1)
        self.frame()

    def wheel(self, x, y, delta, with_ctrl=False):
        self._call("Input.dispatchMouseEvent", type="mouseWheel", x=x, y=y, deltaX=0, deltaY=delta,
                   modifiers=2 if with_ctrl else 0)
        self.frame()

    def touch_drag(self, x, y, to_x, to_y):
        self._call("Input.dispatchTouchEvent", type="touchStart", touchPoints=[{"x": x, "y": y}])
        self._call("Input.dispatchTouchEvent", type="touchMove",
                   touchPoints=[{"x": (x + to_x) / 2, "y": (y + to_y) / 2}])
        self._call("Input.dispatchTouchEvent", type="touchMove",
                   touchPoints=[{"x": to_x, "y": to_y}])
        self._call("Input.dispatchTouchEvent", type="touchEnd", touchPoints=[])
        self.frame()

    def key(self, key, text=None):
        self._call("Input.dispatchKeyEvent", type="keyDown", key=key,
                   **({"text": text} if text is not None else {}))
        self._call("Input.dispatchKeyEvent", type="keyUp", key=key)
        self.frame()

    def type(self, text):
        self._call("Input.insertText", text=text)
        self.frame()

    def screenshot(self, path):
        data = self._call("Page.captureScreenshot", format="png")["data"]
        with open(path, "wb") as file:
            file.write(base64.b64decode(data))
