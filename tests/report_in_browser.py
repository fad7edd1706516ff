"""nuvik-replay's HTML report of a log, checked as XML, against the tool's JSON, and in headless Chromium.

usage: report_in_browser.py NUVIK_REPLAY LOG OUTPUT_DIR [REPLAY ARGUMENTS...]

Writes OUTPUT_DIR/report.html and OUTPUT_DIR/report.png. Fails on a page that is not well-formed XML, that would
fetch anything, whose summary table differs from --format json of the same run, on a console message of level
error in the browser, or on an empty figure: an <svg> of zero size or whose marks draw nothing. Exits 77 (skipped)
after the checks that need no browser when Chromium is absent.
"""
import base64
import fcntl
import json
import os
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

SKIPPED = 77
XHTML = "{http://www.w3.org/1999/xhtml}"
SVG = "{http://www.w3.org/2000/svg}"
MEASURES = [("map", 4), ("recallAt5", 4), ("hitAt1", 4), ("hitAt3", 4), ("mrrAt5", 4), ("ndcgAt5", 4),
            ("microsPerLaunch", 2)]
CHROMIUM_FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                  "--disable-background-networking", "--disable-component-update", "--disable-sync",
                  "--remote-debugging-pipe"]
PAGE_WIDTH = 1280
# Each <svg>: its size and how many of its marks (shapes in a g.marks) have an extent.
FIGURES = """Array.from(document.querySelectorAll('svg')).map(svg => {
  const box = svg.getBoundingClientRect();
  const marks = Array.from(svg.querySelectorAll('g.marks *')).filter(mark => {
    const extent = mark.getBBox();
    return extent.width > 0 || extent.height > 0;
  });
  return {width: box.width, height: box.height, marks: marks.length};
})"""


def fail(message):
    print(f"FAILED: {message}", file=sys.stderr)
    sys.exit(1)


def cell_text(cell):
    return "".join(cell.itertext()).strip()


def check_page(path, results):
    """The page as XML: nothing fetched, and the summary table is the JSON's numbers."""
    try:
        root = ElementTree.parse(path).getroot()
    except ElementTree.ParseError as error:
        fail(f"{path} is not well-formed XML: {error}")
    for element in root.iter():
        if element.tag in (XHTML + "script", SVG + "script", XHTML + "img", XHTML + "link", SVG + "image"):
            fail(f"the page holds a <{element.tag.split('}')[1]}>")
        for name, value in element.attrib.items():
            if name.split("}")[-1] in ("href", "src") and not value.startswith("#"):
                fail(f"the page refers to {value!r}")
    text = open(path, encoding="utf-8").read()
    if "NaN" in text or "nan<" in text or ">inf" in text:
        fail("the page prints a NaN or an infinity")

    table = root.find(f".//{XHTML}table[@id='summary-table']")
    if table is None:
        fail("no summary table")
    rows = table.findall(XHTML + "tr")[1:]
    if len(rows) != len(results):
        fail(f"the summary table has {len(rows)} runs, the JSON {len(results)}")
    for row, result in zip(rows, results):
        cells = row.findall(XHTML + "td")
        shown = [cell_text(cells[0]), cell_text(cells[1]).replace(",", ""), cell_text(cells[2]).replace(",", "")]
        expected = [result["name"], str(result["users"]), str(result["launches"])]
        for cell, (key, decimals) in zip(cells[3:], MEASURES):
            value = cell.find(XHTML + "span")
            shown.append(value.text if value is not None else None)
            expected.append("\u2013" if result.get(key) is None else f"{result[key]:.{decimals}f}")
        if shown != expected:
            fail(f"summary row {shown} differs from the JSON's {expected}")


class DevTools:
    """Chromium's DevTools protocol over the pipe of --remote-debugging-pipe: NUL-terminated JSON messages."""

    def __init__(self, chromium, profile):
        to_browser, self._commands = os.pipe()
        self._replies, from_browser = os.pipe()
        # The child's descriptors 3 and 4, copied from above 4 so that the copies are new, inheritable ones;
        # every other descriptor of this process closes on exec.
        ends = [fcntl.fcntl(fd, fcntl.F_DUPFD_CLOEXEC, 10) for fd in (to_browser, from_browser)]
        for fd in (to_browser, from_browser):
            os.close(fd)

        def pipe_ends():
            os.dup2(ends[0], 3)
            os.dup2(ends[1], 4)

        self._process = subprocess.Popen([chromium, *CHROMIUM_FLAGS, f"--user-data-dir={profile}", "about:blank"],
                                         preexec_fn=pipe_ends, close_fds=False, stdout=subprocess.DEVNULL,
                                         stderr=subprocess.DEVNULL)
        for fd in ends:
            os.close(fd)
        self._buffer = b""
        self._next_id = 0
        self.events = []

    def send(self, method, session=None, **params):
        self._next_id += 1
        message = {"id": self._next_id, "method": method, "params": params}
        if session:
            message["sessionId"] = session
        os.write(self._commands, json.dumps(message).encode() + b"\0")
        while True:
            reply = self._read()
            if reply.get("id") == self._next_id:
                if "error" in reply:
                    fail(f"{method}: {reply['error']}")
                return reply.get("result", {})
            self.events.append(reply)

    def wait_for(self, method):
        while not any(event.get("method") == method for event in self.events):
            self.events.append(self._read())

    def _read(self):
        while b"\0" not in self._buffer:
            chunk = os.read(self._replies, 1 << 20)
            if not chunk:
                fail("Chromium closed the DevTools pipe")
            self._buffer += chunk
        message, self._buffer = self._buffer.split(b"\0", 1)
        return json.loads(message)

    def close(self):
        try:
            self.send("Browser.close")
        finally:
            self._process.wait(timeout=30)
            os.close(self._commands)
            os.close(self._replies)


def console_errors(events):
    errors = []
    for event in events:
        method, params = event.get("method"), event.get("params", {})
        if method == "Runtime.exceptionThrown":
            errors.append(params["exceptionDetails"].get("text", "exception"))
        elif method == "Runtime.consoleAPICalled" and params.get("type") in ("error", "assert"):
            errors.append(" ".join(str(arg.get("value", arg.get("description"))) for arg in params.get("args", [])))
        elif method == "Log.entryAdded" and params["entry"].get("level") == "error":
            errors.append(params["entry"].get("text", ""))
    return errors


def check_in_browser(chromium, page, screenshot):
    """Renders the page; fails on a console error or an empty figure; writes a full-page screenshot."""
    with tempfile.TemporaryDirectory(prefix="nuvik-chromium-") as profile:
        browser = DevTools(chromium, profile)
        try:
            target = browser.send("Target.createTarget", url="about:blank")["targetId"]
            session = browser.send("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
            for domain in ("Page", "Runtime", "Log"):
                browser.send(f"{domain}.enable", session)
            browser.send("Emulation.setDeviceMetricsOverride", session, width=PAGE_WIDTH, height=900,
                         deviceScaleFactor=1, mobile=False)
            browser.send("Page.navigate", session, url="file://" + os.path.abspath(page))
            browser.wait_for("Page.loadEventFired")
            figures = browser.send("Runtime.evaluate", session, expression=FIGURES, returnByValue=True)
            figures = figures["result"]["value"]
            height = browser.send("Runtime.evaluate", session, expression="document.documentElement.scrollHeight",
                                  returnByValue=True)["result"]["value"]
            browser.send("Emulation.setDeviceMetricsOverride", session, width=PAGE_WIDTH, height=height,
                         deviceScaleFactor=1, mobile=False)
            image = browser.send("Page.captureScreenshot", session, format="png")["data"]
            errors = console_errors(browser.events)
        finally:
            browser.close()
    with open(screenshot, "wb") as out:
        out.write(base64.b64decode(image))
    if errors:
        fail("console errors: " + "; ".join(errors))
    if not figures:
        fail("the page has no figure")
    for index, figure in enumerate(figures):
        if figure["width"] <= 0 or figure["height"] <= 0 or figure["marks"] == 0:
            fail(f"figure {index + 1} of {len(figures)} is empty: {figure}")
    print(f"{len(figures)} figures drawn; screenshot {screenshot} ({PAGE_WIDTH}x{height})")


def main(argv):
    if len(argv) < 4:
        print(__doc__, file=sys.stderr)
        return 2
    replay, log, output = argv[1:4]
    page = os.path.join(output, "report.html")
    run = subprocess.run([replay, log, *argv[4:], "--format", "json", "--report", page], capture_output=True,
                         text=True)
    if run.returncode != 0:
        fail(f"nuvik-replay exited with {run.returncode}: {run.stderr}")
    check_page(page, json.loads(run.stdout)["results"])
    print(f"{page}: well-formed, fetches nothing, summary table equals the JSON ({os.path.getsize(page)} bytes)")

    chromium = os.environ.get("NUVIK_CHROMIUM") or shutil.which("chromium") or shutil.which("chromium-browser")
    if not chromium:
        print("SKIPPED: the browser check needs Chromium (Debian's package 'chromium'); the page was not rendered")
        return SKIPPED
    check_in_browser(chromium, page, os.path.join(output, "report.png"))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
