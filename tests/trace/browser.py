"""A headless browser, driven by its DevTools protocol through a pair of pipes."""

import base64
import json
import os
import shutil
import subprocess
import tempfile
import time

PROGRAMS = ("chromium-headless-shell", "chromium")


def find():
    """The browser's program, or None."""
    return next((path for path in map(shutil.which, PROGRAMS) if path), None)


class Browser:
    """One page, without network. `complaints` and `requests` are those since the last open()."""

    def __init__(self):
        self._folder = tempfile.TemporaryDirectory(prefix="corvid-browser-")
        child_in, self._to = os.pipe()
        self._from, child_out = os.pipe()
        # The browser reads its descriptor 3 and writes its 4.
        script = f'exec "$0" "$@" 3<&{child_in} 4>&{child_out}'
        self._process = subprocess.Popen(
            ["bash", "-c", script, find(), "--headless", "--no-sandbox", "--disable-gpu",
             "--remote-debugging-pipe", f"--user-data-dir={self._folder.name}", "about:blank"],
            pass_fds=(child_in, child_out), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL)
        os.close(child_in)
        os.close(child_out)
        self._received = b""
        self._last = 0
        self._session = None
        self._events = []
        self.complaints = []
        self.requests = []
        target = next(info for info in self.send("Target.getTargets")["targetInfos"]
                      if info["type"] == "page")
        self._session = self.send("Target.attachToTarget", targetId=target["targetId"],
                                  flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.send(f"{domain}.enable")
        self.send("Network.emulateNetworkConditions", offline=True, latency=0,
                  downloadThroughput=-1, uploadThroughput=-1)
        self.screen()

    def send(self, method, **parameters):
        """Calls a method of the protocol and returns its result."""
        self._last += 1
        message = {"id": self._last, "method": method, "params": parameters}
        if self._session:
            message["sessionId"] = self._session
        os.write(self._to, json.dumps(message).encode() + b"\0")
        while True:
            answer = self._next()
            if answer.get("id") == self._last:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']['message']}")
                return answer["result"]
            self._note(answer)

    def _next(self):
        while b"\0" not in self._received:
            chunk = os.read(self._from, 1 << 16)
            if not chunk:
                raise RuntimeError("the browser has ended")
            self._received += chunk
        line, _, self._received = self._received.partition(b"\0")
        return json.loads(line)

    def _note(self, event):
        method, parameters = event.get("method"), event.get("params", {})
        if method == "Runtime.exceptionThrown":
            details = parameters["exceptionDetails"]
            self.complaints.append(details.get("exception", {}).get("description")
                                   or details["text"])
        elif method == "Runtime.consoleAPICalled" and parameters["type"] in ("error", "warning"):
            self.complaints.append(str([value.get("value") for value in parameters["args"]]))
        elif method == "Log.entryAdded" and parameters["entry"]["level"] in ("error", "warning"):
            self.complaints.append(parameters["entry"]["text"])
        elif method == "Network.requestWillBeSent":
            self.requests.append(parameters["request"]["url"])
        self._events.append(method)

    def screen(self, width=1280, height=900, dark=False):
        self.send("Emulation.setDeviceMetricsOverride", width=width, height=height,
                  deviceScaleFactor=1, mobile=False)
        self.color_scheme("dark" if dark else "light")

    def open(self, path, fragment=""):
        """Loads a file and waits until it is drawn. Returns the seconds that took."""
        # A page that differs by its fragment only would not be loaded again.
        self.send("Page.navigate", url="about:blank")
        self.complaints, self.requests, self._events = [], [], []
        begin = time.monotonic()
        self.send("Page.navigate", url=f"file://{path}{fragment}")
        while "Page.loadEventFired" not in self._events:
            self._note(self._next())
        self.settle()
        return time.monotonic() - begin

    def run(self, expression):
        """The value of a JavaScript expression; a promise is waited for."""
        answer = self.send("Runtime.evaluate", expression=expression, returnByValue=True,
                           awaitPromise=True)
        if "exceptionDetails" in answer:
            raise RuntimeError(answer["exceptionDetails"]["exception"]["description"])
        return answer["result"].get("value")

    def settle(self):
        """Waits until two frames have been drawn."""
        self.run("new Promise((done) => requestAnimationFrame(() => "
                 "requestAnimationFrame(() => done(1))))")

    def mouse(self, kind, x, y, **more):
        self.send("Input.dispatchMouseEvent", type=kind, x=x, y=y, **more)

    def drag(self, start, end, **more):
        self.mouse("mousePressed", *start, button="left", clickCount=1, **more)
        for share in (0.25, 0.5, 0.75, 1):
            self.mouse("mouseMoved", start[0] + (end[0] - start[0]) * share,
                       start[1] + (end[1] - start[1]) * share, button="left", buttons=1, **more)
        self.mouse("mouseReleased", *end, button="left", clickCount=1, **more)
        self.settle()

    def click(self, x, y, count=1):
        for number in range(1, count + 1):
            self.mouse("mousePressed", x, y, button="left", clickCount=number)
            self.mouse("mouseReleased", x, y, button="left", clickCount=number)
        self.settle()

    def key(self, key):
        self.send("Input.dispatchKeyEvent", type="keyDown", key=key,
                  **({"text": key} if len(key) == 1 else {}))
        self.send("Input.dispatchKeyEvent", type="keyUp", key=key)
        self.settle()

    def color_scheme(self, scheme):
        self.send("Emulation.setEmulatedMedia",
                  features=[{"name": "prefers-color-scheme", "value": scheme}])

    def picture(self, path):
        """Writes what is on the screen as PNG."""
        shot = self.send("Page.captureScreenshot", format="png")
        with open(path, "wb") as file:
            file.write(base64.b64decode(shot["data"]))

    def close(self):
        try:
            self._session = None
            self.send("Browser.close")
        except (RuntimeError, OSError):
            pass
        os.close(self._to)
        os.close(self._from)
        self._process.wait()
        self._folder.cleanup()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()
