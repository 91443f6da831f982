"""What the tests of the page share: a browser with the page of a recording open, and functions within the page."""

import json
import pathlib
import struct
import subprocess
import tempfile
import unittest

from Browser import Browser

# What the tests use within the page. Events are delivered as they would be to a user.
HELPERS = """
function set(id, value) {
  element(id).value = value;
  element(id).dispatchEvent(new Event("input", { bubbles: true }));
}
function numbers() { // of all rows of the table, by scrolling through it
  const found = [];
  for (let top = 0; top < page.chosen.length; top = found.length) {
    table.scrollTo(top);
    found.push(...[...element("rows").rows].slice(top - table.top).map(row => Number(row.cells[0].textContent)));
  }
  table.scrollTo(0);
  return found;
}
function blobNamed(name) { return recording.blobs.type.findIndex(type => typeName(type) === name); }
function spanNamed(name) { return recording.spans.name.findIndex(string => recording.strings[string] === name); }
function rowOfSpan(span) { return recording.rows.find(row => span >= row.first && span < row.first + row.count); }
function place(x, y) { // of the timeline, in the window
  const box = timeline.canvas.getBoundingClientRect();
  return [box.left + x, box.top + y];
}
function middleOf(row) { return row.top + timeline.rowHeight / 2; }
function placeOfBlob(blob) {
  return place(timeline.xOf(recording.blobs.time[blob]), middleOf(timeline.rowOf(recording.blobs.track[blob], 0, 0)));
}
function placeOfSpan(span) {
  return place(timeline.xOf((recording.spans.begin[span] + spanEnd(span)) / 2), middleOf(rowOfSpan(span)));
}
function centre(shown) {
  const box = shown.getBoundingClientRect();
  return [box.left + box.width / 2, box.top + box.height / 2];
}
function colourAt(x, y) {
  return [...timeline.canvas.getContext("2d").getImageData(x, y, 1, 1).data].slice(0, 3).join();
}
function fieldRow(name) {
  return [...element("blob").querySelectorAll(".fields tbody tr")].find(row => row.cells[0].textContent === name);
}
function markedBytes() {
  return [...element("blob").querySelectorAll(".dump div > .marked")].map(byte => byte.textContent).join(" ");
}
function frame() { return new Promise(resolve => requestAnimationFrame(() => setTimeout(resolve))); }
"""


class BrowserTest(unittest.TestCase):
    """`use` is to be called before the tests run."""

    @classmethod
    def use(cls, blobs, examples, browser):
        cls.blobs = blobs
        cls.examples = pathlib.Path(examples)
        cls.program = browser
        cls.reload = str(cls.examples / "reload.jsonl")
        cls.crash = str(cls.examples / "crash.jsonl")

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.browser = Browser(cls.program, cls.folder.name)

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()
        cls.folder.cleanup()

    def tearDown(self):
        self.assertEqual([], self.browser.faults)

    def run_blobs(self, *arguments):
        run = subprocess.run([self.blobs, *arguments], capture_output=True, text=True, encoding="utf-8", timeout=900)
        self.assertEqual("", run.stderr)
        self.assertEqual(0, run.returncode)
        return run.stdout

    def make(self, source=None, *arguments):
        path = pathlib.Path(self.folder.name, "page.html")
        self.run_blobs("html", str(source or self.reload), "--output", str(path), "--force", *arguments)
        return path

    def open(self, source=None, *arguments):
        self.browser.open(self.make(source, *arguments))
        self.browser.evaluate(HELPERS)

    def run_in_page(self, statements):
        return self.browser.run(statements)

    def listed(self, *filters, source=None):
        """The numbers of the Blobs that the command lists."""
        lines = self.run_blobs("list", str(source or self.reload), *filters).splitlines()[1:]
        return [int(line.split()[0]) for line in lines]

    def numbers(self):
        return self.browser.evaluate("numbers()")

    def recorded(self, *lines):
        """A recording with these Blobs: (direction, type, payload)."""
        path = pathlib.Path(self.folder.name, "made.jsonl")
        first = pathlib.Path(self.reload).read_text(encoding="utf-8").splitlines(keepends=True)[0]
        with path.open("w", encoding="utf-8") as file:
            file.write(first)
            for number, (direction, kind, payload) in enumerate(lines, 1):
                header = struct.pack("<II", len(payload), kind)
                file.write(json.dumps({"blob": number, "time": number / 1000, "host": 7, "direction": direction,
                                       "bytes": (header + payload).hex()}) + "\n")
        return path
