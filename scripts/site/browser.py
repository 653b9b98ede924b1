#!/usr/bin/env python3
"""Opens the pages in headless Chromium: at the width of a desk and of a phone, light and dark.

Every guide and some pages of the reference have to come without script errors, without a request
that leaves the folder, without a page that is wider than its window, and with contrasts of 4.5 to 1
(3 to 1 for large text). The search has to find something, and the first press of Tab the link to
the text. Screenshots are kept to be looked at.

usage: browser.py SITE SHOTS
"""
import base64
import json
import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

HERE = Path(__file__).resolve().parent
WIDTHS = {"desk": 1280, "phone": 390}
OTHERS = ("reference/index", "reference/ZLock", "reference/ZException", "reference/ZLCString",
          "reference/ZTypedValues", "reference/ZPropertiesImpl", "reference/zproperties_c",
          "man/index", "man/zprop.1")
TALLEST = 6000


class Browser:
    """Chromium, spoken to by the DevTools protocol over two pipes."""

    def __init__(self):
        self.folder = tempfile.mkdtemp(prefix="zfc-site-")
        there_read, here_write = os.pipe()
        here_read, there_write = os.pipe()
        # Descriptors 3 and 4 are those that Chromium knows.
        command = ["sh", "-c", f'exec "$@" 3<&{there_read} 4>&{there_write}', "sh", "chromium",
                   "--headless=new", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
                   "--disable-dev-shm-usage", "--no-first-run", "--disable-background-networking",
                   f"--user-data-dir={self.folder}", "--remote-debugging-pipe", "about:blank"]
        self.process = subprocess.Popen(command, pass_fds=(there_read, there_write),
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(there_read)
        os.close(there_write)
        self.out, self.into = os.fdopen(here_write, "wb"), os.fdopen(here_read, "rb")
        self.number, self.session, self.events, self.rest = 0, None, [], b""
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target,
                                 flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.call(f"{domain}.enable")

    def close(self):
        self.out.close()
        self.process.terminate()
        self.process.wait()
        shutil.rmtree(self.folder, ignore_errors=True)

    def read(self):
        while b"\0" not in self.rest:
            block = os.read(self.into.fileno(), 1 << 20)
            if not block:
                sys.exit("the browser has gone")
            self.rest += block
        message, _, self.rest = self.rest.partition(b"\0")
        return json.loads(message)

    def call(self, method, **parameters):
        self.number += 1
        request = {"id": self.number, "method": method, "params": parameters}
        if self.session:
            request["sessionId"] = self.session
        self.out.write(json.dumps(request).encode() + b"\0")
        self.out.flush()
        while True:
            answer = self.read()
            if answer.get("id") == self.number:
                if "error" in answer:
                    sys.exit(f"{method}: {answer['error']['message']}")
                return answer["result"]
            self.events.append(answer)

    def open(self, page, width, scheme):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=900,
                  deviceScaleFactor=1, mobile=width < 600)
        self.call("Emulation.setEmulatedMedia",
                  features=[{"name": "prefers-color-scheme", "value": scheme}])
        self.events = []
        self.call("Page.navigate", url=page.as_uri())
        while not any(event.get("method") == "Page.loadEventFired" for event in self.events):
            self.events.append(self.read())

    def evaluate(self, code):
        answer = self.call("Runtime.evaluate", expression=code, returnByValue=True)
        if "exceptionDetails" in answer:
            return [f"script: {answer['exceptionDetails']['text']}"]
        return answer["result"].get("value")

    def press(self, key, code):
        for kind in ("keyDown", "keyUp"):
            self.call("Input.dispatchKeyEvent", type=kind, key=key, code=key,
                      windowsVirtualKeyCode=code)

    def errors(self):
        """What the page's scripts and requests did wrong since it was opened."""
        found = []
        for event in self.events:
            kind, told = event.get("method"), event.get("params", {})
            if kind == "Runtime.exceptionThrown":
                found.append(f"script: {told['exceptionDetails'].get('text')}")
            if kind == "Log.entryAdded" and told["entry"]["level"] == "error":
                found.append(f"log: {told['entry']['text']}")
            if kind == "Network.requestWillBeSent":
                url = told["request"]["url"]
                if not url.startswith(("file:", "data:")):
                    found.append(f"asks for {url}")
        return found

    def shoot(self, file):
        size = self.call("Page.getLayoutMetrics")["cssContentSize"]
        clip = {"x": 0, "y": 0, "width": size["width"], "height": min(size["height"], TALLEST),
                "scale": 1}
        shot = self.call("Page.captureScreenshot", format="png", captureBeyondViewport=True,
                         clip=clip)
        file.write_bytes(base64.b64decode(shot["data"]))


def try_out(browser, site):
    """The search and the keyboard, on one page."""
    browser.open(site / "index.html", 1280, "light")
    browser.press("Tab", 9)
    skips = browser.evaluate("document.activeElement.className === 'skip' && "
                             "document.activeElement.getBoundingClientRect().left >= 0")
    type_in = ("{ const box = document.getElementById('wanted'); box.value = 'readlock';"
               " box.dispatchEvent(new Event('input')); }")
    browser.evaluate(type_in)
    finds = browser.evaluate("[...document.querySelectorAll('#found a')].some("
                             "(link) => link.getAttribute('href').includes('reference/'))")
    browser.open(site / "index.html", 390, "light")
    browser.evaluate(type_in)
    fits = browser.evaluate("[...document.querySelectorAll('#found, #found *')].every("
                            "(one) => one.getBoundingClientRect().right <= innerWidth)")
    return ([] if skips else ["index.html: Tab does not lead to the link to the text"]) + (
        [] if finds else ["index.html: the search does not find readLock()"]) + (
        [] if fits else ["index.html: what the search finds is wider than a phone"])


def look(browser, site, shots):
    pages = [*sorted(site.glob("*.html")), *(site / f"{name}.html" for name in OTHERS)]
    judge, complaints = (HERE / "look.js").read_text(), try_out(browser, site)
    for page in pages:
        for form, width in WIDTHS.items():
            for scheme in ("light", "dark"):
                browser.open(page, width, scheme)
                wrong = browser.evaluate(judge) + browser.errors()
                place = f"{page.relative_to(site)}, {form}, {scheme}"
                complaints += [f"{place}: {one}" for one in wrong]
                name = page.relative_to(site).as_posix()[:-5].replace("/", "-")
                browser.shoot(shots / f"{name}-{form}-{scheme}.png")
    return len(pages), complaints


def main():
    site, shots = Path(sys.argv[1]).resolve(), Path(sys.argv[2])
    shutil.rmtree(shots, ignore_errors=True)
    shots.mkdir(parents=True)
    browser = Browser()
    try:
        count, complaints = look(browser, site, shots)
    finally:
        browser.close()
    print("\n".join(complaints + [f"browser: {count} pages, {len(complaints)} complaints"]))
    sys.exit(1 if complaints else 0)


main()
