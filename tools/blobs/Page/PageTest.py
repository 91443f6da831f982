"""Tests of the page in a headless browser, with the recording of a live reload.

Usage: PageTest.py <blobs> <recording> <browser>

Each test opens a copy of the page with a script of its own after the page's: it operates the page as a user does, by
values and events, and leaves what it finds in an element that is read out of the browser's final document.
"""

import html
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

blobs, recording, browser = sys.argv[1:4]

BEFORE = """<script>
window.faults = [];
window.addEventListener("error", event => faults.push(String(event.message)));
document.addEventListener("securitypolicyviolation", event => faults.push("blocked: " + event.blockedURI));
</script>
"""

# Events are delivered as they would be to a user; `found` is what the test gets.
BEHIND = """<script>
const found = {};
const set = (id, value) => {
  element(id).value = value;
  element(id).dispatchEvent(new Event("input", { bubbles: true }));
};
const numbers = () => [...element("rows").rows].map(row => Number(row.cells[0].textContent));
const point = (type, x, y, more = {}) => {
  const box = timeline.canvas.getBoundingClientRect();
  timeline.canvas.dispatchEvent(new MouseEvent(type, { bubbles: true, cancelable: true,
    clientX: box.left + x, clientY: box.top + y, ...more }));
};
const wheel = (x, y, deltaY) => {
  const box = timeline.canvas.getBoundingClientRect();
  timeline.canvas.dispatchEvent(new WheelEvent("wheel", { bubbles: true, cancelable: true, deltaY,
    clientX: box.left + x, clientY: box.top + y }));
};
const key = name => timeline.canvas.dispatchEvent(new KeyboardEvent("keydown", { key: name, cancelable: true }));
const middleOf = row => row.top + timeline.rowHeight / 2;
const spanNamed = name => recording.spans.find(span => span.name === name);
const rowOfSpan = span => timeline.rowOf(span.track, span.lane, span.depth);
async function work() {
%s
}
function leave() {
  const result = document.createElement("pre");
  result.id = "found";
  result.textContent = JSON.stringify({ ...found, faults: window.faults });
  document.body.append(result);
}
work().catch(error => faults.push(String(error.stack))).then(() => setTimeout(leave));
</script>
"""


class PageTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def run_blobs(self, *arguments):
        run = subprocess.run([blobs, *arguments], capture_output=True, text=True, timeout=60)
        self.assertEqual("", run.stderr)
        self.assertEqual(0, run.returncode)
        return run.stdout

    def page(self, source=recording, *arguments):
        path = pathlib.Path(self.folder.name, "page.html")
        self.run_blobs("html", str(source), "--output", str(path), "--force", *arguments)
        return path.read_text(encoding="utf-8")

    def browse(self, page):
        """The document as the browser has it in the end."""
        path = pathlib.Path(self.folder.name, "worked.html")
        path.write_text(page, encoding="utf-8")
        run = subprocess.run(
            [browser, "--no-sandbox", "--disable-gpu", "--window-size=1280,900", "--virtual-time-budget=5000",
             f"--user-data-dir={self.folder.name}/profile", "--dump-dom", path.as_uri()],
            capture_output=True, text=True, timeout=120, env={**os.environ, "HOME": self.folder.name})
        self.assertEqual(0, run.returncode, run.stderr)
        return run.stdout

    def work(self, script, page=None):
        """What the script has put into `found`; fails if anything on the page went wrong."""
        page = (page or self.page()).replace("<style>", BEFORE + "<style>", 1)
        document = self.browse(page.replace("</body>", BEHIND % script + "</body>"))
        result = re.search(r'<pre id="found">(.*?)</pre>', document, re.S)
        self.assertIsNotNone(result, document[-2000:])
        found = json.loads(html.unescape(result.group(1)))
        self.assertEqual([], found.pop("faults"))
        return found

    def listed(self, *filters):
        """The numbers of the Blobs that the command lists."""
        lines = self.run_blobs("list", recording, *filters).splitlines()[1:]
        return [int(line.split()[0]) for line in lines]

    def test_lists_all_blobs_at_first(self):
        found = self.work("""
            found.numbers = numbers();
            found.title = element("title").textContent;
            found.count = element("count").textContent;
            found.about = element("about").textContent;""")
        everything = self.listed()
        self.assertEqual(everything, found["numbers"])
        self.assertEqual("reload.jsonl", found["title"])
        self.assertEqual(f"{len(everything)} of {len(everything)} Blobs", found["count"])
        self.assertIn("host 260", found["about"])

    def test_filters_by_type(self):
        found = self.work("""
            const option = [...element("type").options].find(one => one.textContent.startsWith("DecrementLatch"));
            found.option = option.textContent;
            set("type", option.value);
            found.numbers = numbers();
            found.count = element("count").textContent;""")
        expected = self.listed("--type", "DecrementLatch")
        self.assertGreater(len(expected), 1)
        self.assertEqual(expected, found["numbers"])
        self.assertEqual(f"DecrementLatch ({len(expected)})", found["option"])
        self.assertEqual(f"{len(expected)} of {len(self.listed())} Blobs", found["count"])

    def test_filters_by_direction_and_time(self):
        found = self.work("""
            set("direction", "from");
            found.from = numbers();
            set("direction", "to");
            set("from", "0.9");
            set("to", "1.5");
            found.to = numbers();""")
        self.assertEqual(self.listed("--direction", "from-agent"), found["from"])
        expected = self.listed("--direction", "to-agent", "--from", "0.9", "--to", "1.5")
        self.assertGreater(len(expected), 1)
        self.assertEqual(expected, found["to"])

    def test_filters_by_text_and_goes_back_to_everything(self):
        found = self.work("""
            set("text", "failed TO load");
            found.numbers = numbers();
            found.type = element("rows").rows[0].cells[3].textContent;
            set("text", "no such text anywhere");
            found.none = numbers();
            element("reset").click();
            await new Promise(resolve => setTimeout(resolve)); // a form is reset after its event
            found.all = numbers().length;""")
        self.assertEqual(1, len(found["numbers"]))
        self.assertEqual("LogNarrow", found["type"])
        self.assertEqual([], found["none"])
        self.assertEqual(len(self.listed()), found["all"])

    def test_filters_to_what_the_timeline_shows(self):
        found = self.work("""
            element("visible").click();
            page.show(0.9, 1.5);
            found.numbers = numbers();""")
        self.assertEqual(self.listed("--from", "0.9", "--to", "1.5"), found["numbers"])

    def test_shows_the_fields_of_a_blob_beside_its_bytes(self):
        found = self.work("""
            set("type", [...element("type").options].find(one => one.textContent.startsWith("WriteMemory")).value);
            element("rows").rows[0].click();
            found.head = element("blob").querySelector("h2").textContent;
            found.fields = [...element("blob").querySelectorAll("tbody tr")].map(row =>
              [...row.cells].map(cell => cell.innerText));
            found.selected = element("rows").rows[0].className;""")
        self.assertEqual("WriteMemory (27)", found["head"])
        self.assertEqual("selected", found["selected"])
        names = [row[0] for row in found["fields"]]
        self.assertEqual(["unread00", "elementSize", "elementCount", "addresses", "[0]", "data"], names)
        self.assertEqual(["elementSize", "number", "0008  05 00 00 00 00 00 00 00", "5"], found["fields"][1])
        self.assertRegex(found["fields"][5][2], r"^001c  0c 00 00 00\n0028  e9( [0-9a-f]{2}){4}$")

    def test_tells_what_is_under_the_mouse(self):
        found = self.work("""
            const span = spanNamed("reload 1");
            const y = middleOf(rowOfSpan(span));
            point("mousemove", timeline.xOf((span.begin + span.end) / 2), y);
            found.isHidden = element("tip").hidden;
            found.span = element("tip").textContent;
            const blob = recording.blobs.find(one => one.name === "PatchLoaded");
            point("mousemove", timeline.xOf(blob.time), middleOf(timeline.rowOf(blob.track, 0, 0)));
            found.blob = element("tip").textContent;
            point("mousemove", timeline.xOf(0.25), y);
            found.isHiddenAgain = element("tip").hidden;""")
        self.assertFalse(found["isHidden"])
        self.assertTrue(found["span"].startswith("reload 1\n"), found["span"])
        self.assertIn("from the Agent", found["blob"])
        self.assertTrue(found["isHiddenAgain"])

    def test_zooms_and_moves(self):
        found = self.work("""
            const width = () => page.view.end - page.view.begin;
            found.all = width();
            const x = Math.round(timeline.xOf(1)); // events have whole pixels
            found.before = timeline.timeAt(x);
            for (let i = 0; i < 10; ++i) {
              wheel(x, 60, -100);
            }
            found.near = width();
            found.stays = timeline.timeAt(x);
            point("mousedown", 600, 60);
            point("mousemove", 500, 60);
            point("mouseup", 500, 60);
            found.moved = timeline.timeAt(x) - found.stays;
            found.expected = 100 / (timeline.width - timeline.labelWidth) * found.near;
            key("0");
            found.back = width();
            key("+");
            found.byKey = width();
            const span = spanNamed("reload 2");
            key("0");
            point("dblclick", timeline.xOf((span.begin + span.end) / 2), middleOf(rowOfSpan(span)));
            found.onSpan = [page.view.begin <= span.begin, page.view.end >= span.end, width() < found.all / 2];""")
        self.assertAlmostEqual(found["all"] * 0.8 ** 10, found["near"])
        self.assertAlmostEqual(found["before"], found["stays"], 9)
        self.assertAlmostEqual(found["expected"], found["moved"], 6)
        self.assertAlmostEqual(found["all"], found["back"])
        self.assertAlmostEqual(found["all"] * 0.8, found["byKey"])
        self.assertEqual([True, True, True], found["onSpan"])

    def test_selects_by_a_click_on_the_timeline_and_by_keys(self):
        found = self.work("""
            const blob = recording.blobs.find(one => one.name === "LogNarrow");
            page.show(blob.time - 0.001, blob.time + 0.001);
            const at = [timeline.xOf(blob.time), middleOf(timeline.rowOf(blob.track, 0, 0))];
            point("mousedown", ...at);
            point("mouseup", ...at);
            found.head = element("blob").querySelector("h2").textContent;
            key("ArrowDown");
            found.next = page.selected.number - blob.number;""")
        self.assertEqual("LogNarrow (10)", found["head"])
        self.assertEqual(1, found["next"])

    def test_draws_blobs_and_spans(self):
        found = self.work("""
            page.show(0.4, 1.1);
            const pen = timeline.canvas.getContext("2d");
            const colourAt = (x, y) => [...pen.getImageData(x, y, 1, 1).data].slice(0, 3);
            const span = spanNamed("reload 1");
            const y = middleOf(rowOfSpan(span)) - 6;
            found.inside = colourAt(timeline.xOf((span.begin + span.end) / 2), y);
            found.outside = colourAt(timeline.xOf(span.begin) - 20, y);
            const blob = recording.blobs.find(one => one.name === "Reload");
            found.blob = colourAt(timeline.xOf(blob.time), middleOf(timeline.rowOf(blob.track, 0, 0)));""")
        self.assertNotEqual(found["inside"], found["outside"])
        self.assertNotEqual(found["blob"], found["outside"])
        self.assertNotEqual(found["blob"], found["inside"])

    def test_asks_for_nothing_outside_of_itself(self):
        page = self.page()
        self.assertIn("default-src 'none'", page)
        self.assertIsNone(re.search(r'\b(src|href)\s*=|@import|url\(|https?:', page.split('id="data"')[0]))
        # The browser itself blocks requests: one that somebody adds is reported by the page.
        with self.assertRaisesRegex(AssertionError, "blocked"):
            self.work("""
                const image = new Image();
                const refused = new Promise(resolve => {
                  document.addEventListener("securitypolicyviolation", resolve);
                });
                image.src = "https://example.invalid/x.png";
                await refused;""", page)

    def test_shows_text_as_text(self):
        lines = pathlib.Path(recording).read_text(encoding="utf-8").splitlines(keepends=True)
        text = b"</script><img src=x onerror=faults.push(1)>\0"
        payload = (2).to_bytes(4, "little") + (4).to_bytes(4, "little") + text
        line = {"blob": 1, "time": 0.5, "host": 7, "direction": "fromAgent",
                "bytes": (len(payload).to_bytes(4, "little") + (10).to_bytes(4, "little") + payload).hex()}
        source = pathlib.Path(self.folder.name, "a<b>&c.jsonl")
        source.write_text(lines[0] + json.dumps(line) + "\n", encoding="utf-8")
        found = self.work("""
            element("rows").rows[0].click();
            found.images = document.images.length;
            found.title = document.title;
            found.fields = element("rows").rows[0].cells[5].textContent;""", self.page(source))
        self.assertEqual(0, found["images"])
        self.assertEqual("a<b>&c.jsonl", found["title"])
        self.assertEqual('level=2 (Info) text="</script><img src=x onerror=faults.push(1)>"', found["fields"])

    def test_stays_usable_without_any_blob(self):
        lines = pathlib.Path(recording).read_text(encoding="utf-8").splitlines(keepends=True)
        source = pathlib.Path(self.folder.name, "empty.jsonl")
        source.write_text(lines[0], encoding="utf-8")
        found = self.work("""
            element("zoomIn").click();
            element("zoomChosen").click();
            key("ArrowDown");
            found.count = element("count").textContent;""", self.page(source))
        self.assertEqual("0 of 0 Blobs", found["count"])

    def test_shows_long_recordings_in_parts(self):
        lines = pathlib.Path(recording).read_text(encoding="utf-8").splitlines(keepends=True)
        source = pathlib.Path(self.folder.name, "long.jsonl")
        with source.open("w", encoding="utf-8") as file:
            file.write(lines[0])
            for number in range(1, 1201):
                file.write(json.dumps({"blob": number, "time": number / 1000, "host": 7, "direction": "toAgent",
                                       "bytes": "0000000029000000"}) + "\n")
        found = self.work("""
            found.first = numbers().length;
            found.more = element("more").textContent;
            element("more").click();
            found.all = numbers().length;
            found.isHidden = element("more").hidden;""", self.page(source))
        self.assertEqual({"first": 500, "more": "Show the other 700", "all": 1200, "isHidden": True}, found)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
