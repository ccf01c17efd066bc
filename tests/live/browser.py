"""A headless Chromium, told what to do over its DevTools pipe."""

import base64
import json
import os
import select
import shutil
import signal
import subprocess
import tempfile
import time

PATIENCE_S = 60.0  # of anything that comes by itself: machines are slow and busy


class PageError(Exception):
    """A script that the page was given threw."""


class Browser:
    """One browser with one page. What the page says on its console is kept in `said`."""

    def __init__(self, width=1280, height=900):
        self._profile = tempfile.mkdtemp()
        to_browser, self._out = os.pipe()
        self._in, from_browser = os.pipe()
        # The browser reads from descriptor 3 and writes to 4. The copies keep clear of both numbers.
        high = [os.dup(one) for one in (to_browser, from_browser)]
        while min(high) < 5:
            high = [os.dup(one) for one in high]

        def place():
            os.setsid()  # its own group: all of its processes end with it
            os.dup2(high[0], 3)
            os.dup2(high[1], 4)

        self._process = subprocess.Popen(
            ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--remote-debugging-pipe",
             "--disable-background-networking", "--disable-component-update", "--disable-sync", "--no-first-run",
             "--proxy-server=127.0.0.1:9", "--proxy-bypass-list=127.0.0.1", "--hide-scrollbars",
             f"--window-size={width},{height}", f"--user-data-dir={self._profile}", "about:blank"],
            preexec_fn=place, close_fds=True, pass_fds=(3, 4), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL)
        for one in {to_browser, from_browser, *high}:
            os.close(one)
        self._number = 0
        self._received = b""
        self._session = None
        self.said = []
        self.requests = []
        pages = self.call("Target.getTargets")["targetInfos"]
        target = next(one["targetId"] for one in pages if one["type"] == "page")
        self._session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.call(domain + ".enable")
        self.size(width, height)

    def close(self):
        """Ends the browser with all its processes."""
        try:
            os.killpg(self._process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self._process.wait()
        os.close(self._out)
        os.close(self._in)
        shutil.rmtree(self._profile, ignore_errors=True)

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        self.close()

    def _message(self):
        end = self._received.find(b"\0")
        while end < 0:
            if not select.select([self._in], [], [], PATIENCE_S)[0]:
                raise TimeoutError("the browser says nothing")
            some = os.read(self._in, 1 << 20)
            if not some:
                raise EOFError("the browser has ended")
            end = some.find(b"\0")
            end = end if end < 0 else end + len(self._received)
            self._received += some
        message, self._received = self._received[:end], self._received[end + 1:]
        return json.loads(message)

    def _heard(self, message):
        method, values = message.get("method"), message.get("params", {})
        if method == "Runtime.consoleAPICalled" and values["type"] in ("error", "warning", "assert"):
            self.said.append(" ".join(str(one.get("value", one.get("description"))) for one in values["args"]))
        elif method == "Runtime.exceptionThrown":
            details = values["exceptionDetails"]
            self.said.append(details.get("exception", {}).get("description", details["text"]))
        elif method == "Log.entryAdded" and values["entry"]["source"] in ("security", "javascript", "violation"):
            self.said.append(values["entry"]["text"])
        elif method == "Network.requestWillBeSent":
            self.requests.append(values["request"]["url"])

    def call(self, method, **values):
        """A command of the protocol. Returns its result; PageError where it is refused."""
        self._number += 1
        command = {"id": self._number, "method": method, "params": values}
        if self._session:
            command["sessionId"] = self._session
        data = json.dumps(command).encode() + b"\0"
        while data:
            data = data[os.write(self._out, data):]
        while True:
            message = self._message()
            if message.get("id") != self._number:
                self._heard(message)
            elif "error" in message:
                raise PageError(f"{method}: {message['error']}")
            else:
                return message["result"]

    def size(self, width, height):
        """Size of the page's view [CSS pixels]."""
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)

    def media(self, **features):
        """What the user prefers: prefers_color_scheme="dark"."""
        self.call("Emulation.setEmulatedMedia",
                  features=[{"name": name.replace("_", "-"), "value": value} for name, value in features.items()])

    def go(self, address):
        self.call("Page.navigate", url=address)

    def run(self, script):
        """The value of an expression in the page; a promise is waited for."""
        result = self.call("Runtime.evaluate", expression=script, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in result:
            details = result["exceptionDetails"]
            raise PageError(details.get("exception", {}).get("description", details["text"]))
        return result["result"].get("value")

    def wait(self, script, why=""):
        """Until an expression is true. Returns its value."""
        until = time.monotonic() + PATIENCE_S
        while True:
            try:
                value = self.run(script)
            except PageError:
                value = None  # the page is just being loaded
            if value:
                return value
            if time.monotonic() > until:
                raise TimeoutError(f"{why or script}: did not come; complaint {self.text('#complaint')!r}, "
                                   f"console {self.said}")
            time.sleep(0.05)

    def text(self, selector):
        """What an element says, or None."""
        return self.run(f"document.querySelector({json.dumps(selector)})?.textContent ?? null")

    def wait_text(self, selector, part):
        return self.wait(f"document.querySelector({json.dumps(selector)})?.textContent.includes({json.dumps(part)})",
                         f"{selector} says {part!r}")

    def place(self, selector):
        """Middle of an element, scrolled into view."""
        box = self.run(f"""(() => {{ const one = document.querySelector({json.dumps(selector)});
            one.scrollIntoView({{block: 'center', behavior: 'instant'}}); const box = one.getBoundingClientRect();
            return [box.x, box.y, box.width, box.height]; }})()""")
        return box

    def click(self, selector):
        """As a mouse does it: whatever lies on top is hit."""
        x, y, width, height = self.place(selector)
        for kind in ("mousePressed", "mouseReleased"):
            self.call("Input.dispatchMouseEvent", type=kind, x=x + width / 2, y=y + height / 2, button="left",
                      clickCount=1)

    def hover(self, x, y):
        self.call("Input.dispatchMouseEvent", type="mouseMoved", x=x, y=y)

    def key(self, key, code=None, text=None, modifiers=0):
        values = {"key": key, "code": code or key, "modifiers": modifiers}
        codes = {"Tab": 9, "Enter": 13, " ": 32, "ArrowLeft": 37, "ArrowUp": 38, "ArrowRight": 39, "ArrowDown": 40}
        values["windowsVirtualKeyCode"] = codes.get(key, 0)
        if text:
            values["text"] = text
        self.call("Input.dispatchKeyEvent", type="keyDown" if text else "rawKeyDown", **values)
        self.call("Input.dispatchKeyEvent", type="keyUp", **{k: v for k, v in values.items() if k != "text"})

    def shot(self, path, whole=False):
        """The page as a PNG file."""
        data = self.call("Page.captureScreenshot", format="png", captureBeyondViewport=whole,
                         **({"clip": self._whole()} if whole else {}))["data"]
        with open(path, "wb") as file:
            file.write(base64.b64decode(data))

    def _whole(self):
        size = self.call("Page.getLayoutMetrics")["cssContentSize"]
        return {"x": 0, "y": 0, "width": size["width"], "height": size["height"], "scale": 1}
