"""A browser without a window: Chromium, by its DevTools protocol over two pipes."""
import base64
import json
import os
import pathlib
import select
import shutil
import subprocess
import tempfile
import time

PROGRAMS = ("chromium", "chromium-browser", "google-chrome")


class CannotRun(Exception):
    """Why there is no browser."""


class Browser:
    """One browser with one page. Everything that the page asks for is in `requests`, what it logs in
    `messages`, and `loads` counts how often it was loaded."""

    def __init__(self):
        program = next(filter(None, map(shutil.which, PROGRAMS)), None)
        if program is None:
            raise CannotRun("there is no Chromium")
        self.profile = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        to_browser, self.write_end = os.pipe()
        self.read_end, from_browser = os.pipe()
        self.process = subprocess.Popen(
            ["sh", "-c", f'exec "$@" 3<&{to_browser} 4>&{from_browser}', "sh", program, "--headless",
             "--remote-debugging-pipe", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
             "--hide-scrollbars", "--force-color-profile=srgb", f"--user-data-dir={self.profile.name}"],
            pass_fds=(to_browser, from_browser), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(to_browser)
        os.close(from_browser)
        self.unread, self.session, self.last_id = b"", None, 0
        self.requests, self.messages, self.loads = [], [], 0
        self.wanted = self.shown = None  # addresses
        try:
            target = self.call("Target.createTarget", url="about:blank")["targetId"]
        except (OSError, EOFError) as error:
            self.close()
            raise CannotRun(f"{program} cannot be started") from error
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Network", "Runtime", "Log"):
            self.call(domain + ".enable")

    def close(self):
        self.process.kill()
        self.process.wait()
        os.close(self.write_end)
        os.close(self.read_end)
        self.profile.cleanup()

    def call(self, method, **parameters):
        """The result of a method of the protocol."""
        self.last_id += 1
        message = {"id": self.last_id, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.write_end, json.dumps(message).encode() + b"\0")
        while True:
            answer = self.take(30)
            if answer.get("id") == self.last_id:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']['message']}")
                return answer["result"]

    def take(self, seconds):
        """The next message of the browser."""
        end = time.monotonic() + seconds
        while b"\0" not in self.unread:
            if not select.select([self.read_end], [], [], max(0, end - time.monotonic()))[0]:
                raise TimeoutError("the browser does not answer")
            part = os.read(self.read_end, 1 << 20)
            if not part:
                raise EOFError("the browser has ended")
            self.unread += part
        text, self.unread = self.unread.split(b"\0", 1)
        message = json.loads(text)
        self.note(message.get("method"), message.get("params"))
        return message

    def note(self, method, parameters):
        if method == "Network.requestWillBeSent":
            self.requests.append(parameters["request"]["url"])
        elif method == "Page.frameNavigated":
            self.shown = parameters["frame"]["url"]
        elif method == "Page.loadEventFired" and self.shown == self.wanted:
            self.loads += 1
        elif method in ("Runtime.consoleAPICalled", "Runtime.exceptionThrown", "Log.entryAdded"):
            self.messages.append(json.dumps(parameters))

    def size(self, width, height):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                  mobile=False)

    def open(self, path):
        """Opens the page in a file and waits until it is loaded."""
        self.wanted = pathlib.Path(path).resolve().as_uri()
        self.requests, self.messages, self.loads, self.shown = [], [], 0, None
        self.call("Page.navigate", url=self.wanted)
        self.wait(lambda: self.loads > 0, "the page to be loaded")

    def wait(self, condition, what, seconds=10):
        end = time.monotonic() + seconds
        while not condition():
            if time.monotonic() > end:
                raise TimeoutError(f"waited in vain for {what}")
            try:
                self.take(0.05)
            except TimeoutError:
                pass

    def evaluate(self, script):
        """The value of a JavaScript expression on the page. A page that is just being loaded again
        has no place for it, so it is tried again."""
        for _ in range(20):
            try:
                result = self.call("Runtime.evaluate", expression=script, returnByValue=True)
            except RuntimeError:
                continue
            if "exceptionDetails" not in result:
                return result["result"].get("value")
        raise RuntimeError(f"{script}: {result['exceptionDetails']}")

    def screenshot(self, path):
        data = self.call("Page.captureScreenshot", format="png")["data"]
        pathlib.Path(path).write_bytes(base64.b64decode(data))
