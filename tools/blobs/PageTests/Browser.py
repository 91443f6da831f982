"""A headless browser that opens pages and is operated by events of its own, through its debugging pipe."""

import base64
import json
import os
import pathlib
import subprocess
import time


class Failure(Exception):
    """An error within the page, or a command that the browser refuses."""


class Browser:
    def __init__(self, program, folder, size=(1280, 900)):
        commands, self.commands = os.pipe()
        self.events, events = os.pipe()

        def hand_down():
            # The browser reads commands from 3 and writes to 4; first out of the way of these numbers.
            copies = [os.dup(commands), os.dup(events)]
            high = [os.dup2(copy, 10 + i) for i, copy in enumerate(copies)]
            os.dup2(high[0], 3)
            os.dup2(high[1], 4)

        self.process = subprocess.Popen(
            [program, "--no-sandbox", "--disable-gpu", "--remote-debugging-pipe", f"--user-data-dir={folder}/profile",
             f"--window-size={size[0]},{size[1]}", "--force-device-scale-factor=1", "about:blank"],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, close_fds=False, preexec_fn=hand_down,
            env={**os.environ, "HOME": str(folder)})
        os.close(commands)
        os.close(events)
        self.folder = pathlib.Path(folder)
        self.size = size
        self.buffer = b""
        self.next = 0
        self.session = None
        self.faults = []
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log"):
            self.call(domain + ".enable")
        self.call("Emulation.setDeviceMetricsOverride", width=size[0], height=size[1], deviceScaleFactor=1, mobile=False)

    def close(self):
        os.close(self.commands)
        try:
            self.process.wait(20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        os.close(self.events)

    def receive(self):
        while b"\0" not in self.buffer:
            more = os.read(self.events, 1 << 20)
            if not more:
                raise Failure("The browser has ended.")
            self.buffer += more
        message, self.buffer = self.buffer.split(b"\0", 1)
        message = json.loads(message)
        if message.get("method") == "Runtime.exceptionThrown":
            details = message["params"]["exceptionDetails"]
            self.faults.append(details.get("exception", {}).get("description", details["text"]))
        elif message.get("method") == "Log.entryAdded" and message["params"]["entry"]["level"] == "error":
            self.faults.append(message["params"]["entry"]["text"])
        return message

    def call(self, method, **parameters):
        self.next += 1
        command = {"id": self.next, "method": method, "params": parameters}
        if self.session is not None:
            command["sessionId"] = self.session
        os.write(self.commands, json.dumps(command).encode() + b"\0")
        while True:
            message = self.receive()
            if message.get("id") == self.next:
                if "error" in message:
                    raise Failure(method + ": " + message["error"]["message"])
                return message["result"]

    def evaluate(self, script):
        """The value of an expression; of what a promise gives."""
        result = self.call("Runtime.evaluate", expression=script, awaitPromise=True, returnByValue=True)
        if "exceptionDetails" in result:
            details = result["exceptionDetails"]
            raise Failure(details.get("exception", {}).get("description", details["text"]))
        return result["result"].get("value")

    def run(self, statements):
        """What a function with these statements returns."""
        return self.evaluate("(async () => {" + statements + "\n})()")

    def wait_until(self, condition, seconds=300):
        end = time.monotonic() + seconds
        while not self.evaluate(condition):
            if time.monotonic() > end:
                raise Failure("It never becomes true: " + condition)
            time.sleep(0.01)

    def open(self, path):
        """Opens a page and waits until it shows its recording. Returns the seconds that this took."""
        self.faults = []
        start = time.monotonic()
        self.call("Page.navigate", url=pathlib.Path(path).resolve().as_uri())
        self.wait_until("document.readyState === 'complete' && document.body !== null && "
                        "!document.body.hasAttribute('aria-busy')")
        return time.monotonic() - start

    def screenshot(self, path):
        image = self.call("Page.captureScreenshot", format="png")["data"]
        pathlib.Path(path).write_bytes(base64.b64decode(image))

    # ---- as a user ----

    def mouse(self, kind, x, y, **more):
        self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, **more)

    def move(self, x, y):
        self.mouse("mouseMoved", x, y)

    def click(self, x, y, count=1):
        self.move(x, y)
        for i in range(count):
            self.mouse("mousePressed", x, y, button="left", clickCount=i + 1)
            self.mouse("mouseReleased", x, y, button="left", clickCount=i + 1)

    def drag(self, begin, end):
        self.move(*begin)
        self.mouse("mousePressed", *begin, button="left", clickCount=1)
        self.mouse("mouseMoved", *end, button="left")
        self.mouse("mouseReleased", *end, button="left", clickCount=1)

    def wheel(self, x, y, distance):
        self.mouse("mouseWheel", x, y, deltaX=0, deltaY=distance)

    def key(self, name, text=""):
        more = {"text": text or (name if len(name) == 1 else "")}
        if name == "Enter":
            more["text"] = "\r"
        self.call("Input.dispatchKeyEvent", type="keyDown", key=name, **{k: v for k, v in more.items() if v})
        self.call("Input.dispatchKeyEvent", type="keyUp", key=name)

    def type(self, text):
        self.call("Input.insertText", text=text)
