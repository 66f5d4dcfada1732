"""A headless Chromium, driven over its DevTools pipe with nothing but the standard library.

The browser gets an empty profile of its own and no network is asked for. What a page logs, throws
or requests is kept, so that a test can say that there was nothing.
"""

import json
import os
import queue
import shutil
import subprocess
import tempfile
import threading
import time

PROGRAMS = ("chromium-headless-shell", "chromium")
FLAGS = (
    "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
    "--disable-background-networking", "--disable-component-update", "--disable-sync",
    "--disable-extensions", "--hide-scrollbars", "--force-color-profile=srgb",
    "--remote-debugging-pipe",
)
COMMAND_SECONDS = 60


def find_program():
    """The browser's path; TIV_CHROMIUM goes before what is installed. None when there is none."""
    named = os.environ.get("TIV_CHROMIUM")
    return named or next(filter(None, map(shutil.which, PROGRAMS)), None)


class BrowserError(Exception):
    """The browser refused a command or went away."""


class Browser:
    """One browser process; close it, or use it in a with statement."""

    def __init__(self, program=None):
        self.profile = tempfile.mkdtemp(prefix="tiv_browser_")
        from_test, self.to_browser = os.pipe()
        self.from_browser, to_test = os.pipe()
        command = [program or find_program(), *FLAGS, f"--user-data-dir={self.profile}"]
        # The browser reads commands from descriptor 3 and answers on descriptor 4.
        self.process = subprocess.Popen(
            ["sh", "-c", f'exec "$@" 3<&{from_test} 4>&{to_test}', "sh", *command],
            pass_fds=(from_test, to_test), stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(from_test)
        os.close(to_test)
        self.answers, self.events = {}, queue.Queue()
        self.changed, self.number, self.gone = threading.Condition(), 0, False
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()

    def __enter__(self):
        return self

    def __exit__(self, *reason):
        self.close()

    def close(self):
        os.close(self.to_browser)
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.reader.join()
        os.close(self.from_browser)
        shutil.rmtree(self.profile, ignore_errors=True)

    def _read(self):
        """Messages are JSON texts that end with a zero byte."""
        pending = b""
        while True:
            data = os.read(self.from_browser, 1 << 20)
            if not data:
                break
            *messages, pending = (pending + data).split(b"\0")
            for text in messages:
                self._take(json.loads(text))
        with self.changed:
            self.gone = True
            self.changed.notify_all()

    def _take(self, message):
        if "id" in message:
            with self.changed:
                self.answers[message["id"]] = message
                self.changed.notify_all()
        else:
            self.events.put(message)

    def send(self, method, session=None, **params):
        """Sends a command and returns its result."""
        self.number += 1
        message = {"id": self.number, "method": method, "params": params}
        if session:
            message["sessionId"] = session
        os.write(self.to_browser, json.dumps(message).encode() + b"\0")
        with self.changed:
            self.changed.wait_for(lambda: self.number in self.answers or self.gone, COMMAND_SECONDS)
            answer = self.answers.pop(self.number, None)
        if answer is None:
            raise BrowserError(f"{method}: the browser gave no answer")
        if "error" in answer:
            raise BrowserError(f"{method}: {answer['error'].get('message')}")
        return answer["result"]

    def open(self, url, **options):
        return Page(self, url, **options)


class Page:
    """One tab. `problems` lists what a flawless page has none of: errors and requests."""

    def __init__(self, browser, url, width=1280, height=900, dark=False, wait=True):
        self.browser, self.url, self.problems, self.requests = browser, url, [], []
        target = browser.send("Target.createTarget", url="about:blank")["targetId"]
        self.session = browser.send("Target.attachToTarget", targetId=target,
                                    flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Network", "Log"):
            self.send(f"{domain}.enable")
        self.resize(width, height)
        self.send("Emulation.setTimezoneOverride", timezoneId="UTC")
        self.send("Emulation.setEmulatedMedia", features=[
            {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])
        self.send("Page.navigate", url=url)
        if wait:
            self.wait_until_ready()

    def send(self, method, **params):
        return self.browser.send(method, self.session, **params)

    def resize(self, width, height):
        self.send("Emulation.setDeviceMetricsOverride", width=width, height=height,
                  deviceScaleFactor=1, mobile=False)

    def wait_until_ready(self, seconds=30):
        """Waits for the page's own word: returns what data-error holds, or an empty text."""
        self.wait_for("document.body && (document.body.hasAttribute('data-ready') ||"
                      " document.body.hasAttribute('data-error'))", seconds)
        return self.run("document.body.getAttribute('data-error') || ''")

    def wait_for(self, expression, seconds=10):
        deadline = time.monotonic() + seconds
        while not self.run(expression):
            if time.monotonic() > deadline:
                raise BrowserError(f"never came true: {expression}")
            time.sleep(0.02)

    def run(self, expression):
        """Evaluates JavaScript, a promise too, and returns its value."""
        result = self.send("Runtime.evaluate", expression=expression, returnByValue=True,
                           awaitPromise=True)
        if "exceptionDetails" in result:
            raise BrowserError(str(result["exceptionDetails"].get("exception", result)))
        return result["result"].get("value")

    def settle(self):
        """Waits until what was asked for has been painted."""
        self.run("new Promise(done => requestAnimationFrame(() => requestAnimationFrame(done)))")

    def collect(self):
        """Sorts what the browser reported since the last call into problems and requests."""
        self.run("0")
        while not self.browser.events.empty():
            event = self.browser.events.get()
            method, params = event.get("method"), event.get("params", {})
            if event.get("sessionId") != self.session:
                continue
            if method == "Runtime.exceptionThrown":
                self.problems.append(str(params["exceptionDetails"]))
            elif method == "Runtime.consoleAPICalled" and params["type"] in ("error", "warning"):
                self.problems.append(str(params["args"]))
            elif method == "Log.entryAdded" and params["entry"]["level"] in ("error", "warning"):
                self.problems.append(params["entry"]["text"])
            elif method == "Network.requestWillBeSent" and params["request"]["url"] != self.url:
                self.requests.append(params["request"]["url"])
        return self

    def mouse(self, kind, x, y, **more):
        self.send("Input.dispatchMouseEvent", type=kind, x=x, y=y, **more)

    def click(self, x, y, count=1, modifiers=0):
        for number in range(1, count + 1):
            for kind in ("mousePressed", "mouseReleased"):
                self.mouse(kind, x, y, button="left", clickCount=number, modifiers=modifiers)
        self.settle()

    def drag(self, start, end, modifiers=0):
        self.mouse("mouseMoved", *start)
        self.mouse("mousePressed", *start, button="left", clickCount=1, modifiers=modifiers)
        for part in (0.5, 1.0):
            self.mouse("mouseMoved", start[0] + part * (end[0] - start[0]),
                       start[1] + part * (end[1] - start[1]), button="left", buttons=1,
                       modifiers=modifiers)
        self.mouse("mouseReleased", *end, button="left", clickCount=1, modifiers=modifiers)
        self.settle()

    def key(self, name):
        """Presses a key on the page; a character or a name such as ArrowLeft."""
        text = {"text": name} if len(name) == 1 else {}
        self.send("Input.dispatchKeyEvent", type="keyDown", key=name, **text)
        self.send("Input.dispatchKeyEvent", type="keyUp", key=name)
        self.settle()

    def type(self, selector, text):
        """Replaces the text of an input, as typing does."""
        self.run(f"(() => {{ const e = document.querySelector({json.dumps(selector)}); e.focus();"
                 " e.select(); })()")
        self.send("Input.insertText", text=text)
        self.settle()

    def box(self, selector, index=0):
        """(left, top, width, height) of an element after it was scrolled into view."""
        return tuple(self.run(
            f"(() => {{ const e = document.querySelectorAll({json.dumps(selector)})[{index}];"
            " e.scrollIntoView({block: 'center'}); const r = e.getBoundingClientRect();"
            " return [r.left, r.top, r.width, r.height]; })()"))

    def screenshot(self, full=False):
        """PNG, base64."""
        return self.send("Page.captureScreenshot", format="png", captureBeyondViewport=full)["data"]
