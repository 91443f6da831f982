"""Tests of the page in a headless browser, with recordings of a live reload and of exceptions.

Usage: PageTest.py <blobs> <folder of recordings> <browser>
"""

import json
import random
import re
import struct
import sys
import unittest

from PageFixture import BrowserTest

BrowserTest.use(*sys.argv[1:4])


class PageTest(BrowserTest):
    def test_lists_all_blobs_at_first(self):
        self.open()
        everything = self.listed()
        self.assertEqual(everything, self.numbers())
        found = self.run_in_page("""
            return { title: element("title").textContent, count: element("count").textContent,
                     about: element("about").textContent };""")
        self.assertEqual("reload.jsonl", found["title"])
        self.assertEqual(f"{len(everything)} of {len(everything)} Blobs", found["count"])
        self.assertIn("host 260", found["about"])

    def test_decodes_fields_as_the_command_does(self):
        dice = random.Random(7)
        invented = []
        for kind in [*range(80), 0xFFFFFFFF]:
            for size in (0, 3, 8, 40, 200, 3000):
                # Small numbers, so that many fields refer to something, and ASCII, of which any byte is valid UTF-8.
                payload = bytes(dice.choice((0, 0, 0, 0, 1, 2, 4, 8, 16, 32, 65, 97)) for _ in range(size))
                invented.append((dice.choice(("fromAgent", "toAgent")), kind, payload))
        for source in (self.reload, self.crash, str(self.recorded(*invented))):
            self.open(source)
            begin = 68  # of the fields in a line
            expected = [line[begin:].rstrip() for line in self.run_blobs("list", source, "--whole").splitlines()[1:]]
            found = self.run_in_page("return [...recording.blobs.time.keys()].map(blob => summaryOf(blob).trimEnd());")
            self.assertGreater(len([text for text in expected if "=" in text]), len(expected) / 3)
            self.assertEqual(expected, found)

    def test_filters_by_type(self):
        self.open()
        found = self.run_in_page("""
            const option = [...element("type").options].find(one => one.textContent.startsWith("DecrementLatch"));
            set("type", option.value);
            return { option: option.textContent, numbers: numbers(), count: element("count").textContent };""")
        expected = self.listed("--type", "DecrementLatch")
        self.assertGreater(len(expected), 1)
        self.assertEqual(expected, found["numbers"])
        self.assertEqual(f"DecrementLatch ({len(expected)})", found["option"])
        self.assertEqual(f"{len(expected)} of {len(self.listed())} Blobs", found["count"])

    def test_filters_by_direction_and_time(self):
        self.open()
        found = self.run_in_page("""
            set("direction", "from");
            const from = numbers();
            set("direction", "to");
            set("from", "0.9");
            set("to", "1.5");
            return { from, to: numbers() };""")
        self.assertEqual(self.listed("--direction", "from-agent"), found["from"])
        expected = self.listed("--direction", "to-agent", "--from", "0.9", "--to", "1.5")
        self.assertGreater(len(expected), 1)
        self.assertEqual(expected, found["to"])

    def test_filters_by_text_and_resets_all_filters(self):
        self.open()
        found = self.run_in_page("""
            const found = {};
            set("text", "failed TO load");
            found.numbers = numbers();
            found.type = element("rows").rows[0].cells[3].textContent;
            set("text", "no such text anywhere");
            found.none = numbers();
            set("expression", "size > 1000000");
            element("reset").click();
            await frame(); // a form is reset after its event
            found.all = numbers().length;
            return found;""")
        self.assertEqual(1, len(found["numbers"]))
        self.assertEqual("LogNarrow", found["type"])
        self.assertEqual([], found["none"])
        self.assertEqual(len(self.listed()), found["all"])

    def test_filters_to_what_the_timeline_shows(self):
        self.open()
        found = self.run_in_page("""
            element("visible").click();
            page.show(0.9, 1.5);
            return numbers();""")
        self.assertEqual(self.listed("--from", "0.9", "--to", "1.5"), found)

    def test_shows_the_fields_of_a_blob_and_its_bytes(self):
        self.open()
        found = self.run_in_page("""
            set("type", [...element("type").options].find(one => one.textContent.startsWith("WriteMemory")).value);
            element("rows").rows[0].click();
            return { head: element("blob").querySelector("h2").textContent, selected: element("rows").rows[0].className,
                     fields: [...element("blob").querySelectorAll("tbody tr")].map(row => [...row.cells].map(cell => cell.innerText)),
                     dump: [...element("blob").querySelectorAll(".dump div")].map(line => line.textContent) };""")
        self.assertEqual("WriteMemory (27)", found["head"])
        self.assertIn("selected", found["selected"].split())
        names = [row[0] for row in found["fields"]]
        self.assertEqual(["unread00", "elementSize", "elementCount", "addresses", "[0]", "data"], names)
        self.assertEqual(["elementSize", "5", "number"], found["fields"][1])
        self.assertRegex(found["fields"][5][1], r"^e9[0-9a-f]{8}$")
        self.assertEqual(3, len(found["dump"]))
        self.assertTrue(found["dump"][0].startswith("000000  00 00 00 00 00 00 00 00  05 00 00 00 00 00 00 00  "), found["dump"])
        self.assertRegex(found["dump"][2], r"^000020  40 1b 40 00 00 00 00 00  e9( [0-9a-f]{2}){4} +@\u00b7@")

    def test_marks_fields_and_their_bytes_together(self):
        self.open()
        self.run_in_page('page.select(blobNamed("WriteMemory"));')
        self.browser.move(*self.run_in_page('return centre(fieldRow("elementSize"));'))
        self.assertEqual("05 00 00 00 00 00 00 00", self.browser.evaluate("markedBytes()"))
        # A field that refers to data: its own bytes, and those of the data.
        self.browser.move(*self.run_in_page('return centre(fieldRow("data"));'))
        self.assertRegex(self.browser.evaluate("markedBytes()"), r"^0c 00 00 00 e9( [0-9a-f]{2}){4}$")
        # And the reverse: a byte marks its innermost field.
        for position, name in ((8, "elementSize"), (0x20, "[0]"), (0x28, "data")):
            self.browser.move(*self.run_in_page(f"return centre(details.bytes[{position}]);"))
            marked = self.run_in_page('return [...element("blob").querySelectorAll(".fields .marked")].map(row => row.cells[0].textContent);')
            self.assertEqual([name], marked)
        # The keyboard does the same.
        self.run_in_page('fieldRow("elementCount").focus();')
        self.assertEqual("01 00 00 00 00 00 00 00", self.browser.evaluate("markedBytes()"))

    def test_shows_long_payloads_and_lists_in_parts(self):
        data = bytes(i & 0xFF for i in range(10000))
        result = struct.pack("<QIIQ", len(data), 16, 0, 7) + data
        addresses = struct.pack("<QQQIIQ", 0, 1, 500, 16, 0, 7) + struct.pack("<500Q", *range(500))
        self.open(self.recorded(("fromAgent", 26, result), ("toAgent", 25, addresses)))
        found = self.run_in_page("""
            const found = {};
            page.select(0);
            found.first = details.bytes.length;
            found.text = element("blob").querySelector(".dump p").textContent;
            fieldRow("data").click();
            element("blob").querySelectorAll(".dump button")[1].click();
            found.second = element("blob").querySelector(".dump div").textContent.slice(0, 30);
            found.back = !element("blob").querySelectorAll(".dump button")[0].disabled;
            page.select(1);
            const rows = () => [...element("blob").querySelectorAll(".fields tbody tr")];
            found.rows = rows().length;
            found.more = rows()[68].textContent;
            rows()[68].querySelector("button").click();
            found.all = rows().length;
            found.last = rows()[503].textContent;
            return found;""")
        self.assertEqual(2048, found["first"])
        self.assertIn("bytes 0 to 2,047 of 10,024", found["text"])
        self.assertEqual("000800  e8 e9 ea eb ec ed ee e", found["second"])
        self.assertTrue(found["back"])
        self.assertEqual(["436 more", 505], [found["more"], found["all"]])
        self.assertEqual("[499]0x000001F3address", found["last"])

    def test_describes_what_is_under_the_mouse(self):
        self.open()
        self.browser.move(*self.run_in_page('return placeOfSpan(spanNamed("reload 1"));'))
        found = self.run_in_page('return { isHidden: element("tip").hidden, text: element("tip").textContent };')
        self.assertFalse(found["isHidden"])
        self.assertTrue(found["text"].startswith("reload 1\n"), found["text"])
        self.browser.move(*self.run_in_page('return placeOfBlob(blobNamed("PatchLoaded"));'))
        self.assertIn("from the Agent", self.browser.evaluate('element("tip").textContent'))
        self.browser.move(*self.run_in_page('return place(timeline.xOf(0.25), middleOf(rowOfSpan(spanNamed("reload 1"))));'))
        self.assertTrue(self.browser.evaluate('element("tip").hidden'))

    def test_zooms_and_moves(self):
        self.open()
        self.run_in_page("window.width = () => page.view.end - page.view.begin;")
        before = self.run_in_page("""
            const x = Math.round(timeline.xOf(1)); // events have whole pixels
            return { x, place: place(x, 60), width: width(), time: timeline.timeAt(x) };""")
        for _ in range(10):
            self.browser.wheel(*before["place"], -100)
        self.browser.wait_until(f"width() < {before['width'] * 0.8 ** 9.5}")
        near = self.run_in_page(f"return {{ width: width(), time: timeline.timeAt({before['x']}) }};")
        self.assertAlmostEqual(before["width"] * 0.8 ** 10, near["width"])
        self.assertAlmostEqual(before["time"], near["time"], 9)
        left, top = self.run_in_page("return place(0, 0);")
        self.browser.drag((left + 600, top + 60), (left + 500, top + 60))
        moved = self.run_in_page(f"""
            return {{ distance: timeline.timeAt({before['x']}),
                      expected: 100 / (timeline.width - timeline.labelWidth) * width() }};""")
        self.assertAlmostEqual(moved["expected"], moved["distance"] - near["time"], 6)
        self.run_in_page("timeline.canvas.focus();")
        self.browser.key("0")
        self.assertAlmostEqual(before["width"], self.browser.evaluate("width()"))
        self.browser.key("+")
        self.assertAlmostEqual(before["width"] * 0.8, self.browser.evaluate("width()"))
        self.browser.key("0")
        self.browser.click(*self.run_in_page('return placeOfSpan(spanNamed("reload 2"));'), count=2)
        self.assertEqual([True, True, True], self.run_in_page(f"""
            const span = spanNamed("reload 2");
            return [page.view.begin <= recording.spans.begin[span], page.view.end >= spanEnd(span), width() < {before["width"]} / 2];"""))

    def test_selects_by_a_click_on_the_timeline_and_by_keys(self):
        self.open()
        self.browser.click(*self.run_in_page("""
            const blob = blobNamed("LogNarrow");
            page.show(recording.blobs.time[blob] - 0.001, recording.blobs.time[blob] + 0.001);
            timeline.canvas.focus();
            return placeOfBlob(blob);"""))
        self.assertEqual("LogNarrow (10)", self.browser.evaluate('element("blob").querySelector("h2").textContent'))
        self.browser.key("ArrowDown")
        self.assertEqual(1, self.run_in_page('return page.selected - blobNamed("LogNarrow");'))

    def test_moves_the_table_by_a_click_on_the_timeline(self):
        self.open(self.recorded(*[("toAgent", 41, b"")] * 1200))
        shown = """
            const rows = [...element("rows").rows].map(row => Number(row.cells[0].textContent));
            return [rows[0], rows[rows.length - 2]];"""
        # On a Blob: it is selected and in view.
        self.browser.click(*self.run_in_page("page.show(0.79, 0.81); return placeOfBlob(799);"))
        first, last = self.run_in_page(shown)
        self.assertTrue(first <= 800 <= last, (first, last))
        self.assertEqual("800", self.run_in_page('return element("rows").querySelector(".selected").cells[0].textContent;'))
        # Beside: the table shows that time, and the selection stays.
        self.browser.click(*self.run_in_page("page.show(0.34, 0.36); return place(timeline.xOf(0.3505), middleOf(timeline.rows[0]));"))
        first, last = self.run_in_page(shown)
        self.assertTrue(first <= 350 <= last, (first, last))
        self.assertEqual(799, self.browser.evaluate("page.selected"))

    def test_draws_blobs_and_spans(self):
        self.open()
        found = self.run_in_page("""
            page.show(0.4, 1.1);
            const span = spanNamed("reload 1");
            const y = middleOf(rowOfSpan(span)) - 6;
            const blob = blobNamed("Reload");
            return { inside: colourAt(timeline.xOf((recording.spans.begin[span] + spanEnd(span)) / 2), y),
                     outside: colourAt(timeline.xOf(recording.spans.begin[span]) - 20, y),
                     blob: colourAt(timeline.xOf(recording.blobs.time[blob]), middleOf(timeline.rowOf(recording.blobs.track[blob], 0, 0))) };""")
        self.assertNotEqual(found["inside"], found["outside"])
        self.assertNotEqual(found["blob"], found["outside"])
        self.assertNotEqual(found["blob"], found["inside"])

    def test_asks_for_nothing_outside_of_itself(self):
        path = self.make()
        page = path.read_text(encoding="utf-8")
        self.assertIn("default-src 'none'", page)
        rest = re.sub(r'<script type="text/plain" class="data">[A-Za-z0-9+/=]+</script>', "", page)
        self.assertLess(len(rest), len(page))
        self.assertIsNone(re.search(r'\b(src|href)\s*=|@import|url\(|https?:', rest))
        # The browser itself blocks requests: one that somebody adds is reported.
        self.open()
        self.run_in_page("""
            const image = new Image();
            const refused = new Promise(resolve => document.addEventListener("securitypolicyviolation", resolve));
            image.src = "https://example.invalid/x.png";
            await refused;""")
        self.browser.wait_until("1")
        self.assertIn("Content Security Policy", " ".join(self.browser.faults))
        self.browser.faults = []

    def test_shows_text_as_text(self):
        text = b"</script><img src=x onerror=faults.push(1)>\0"
        made = self.recorded(("fromAgent", 10, struct.pack("<II", 2, 4) + text))
        source = made.rename(made.with_name("a<b>&c.jsonl"))
        self.open(source)
        found = self.run_in_page("""
            element("rows").rows[0].click();
            return { images: document.images.length, title: document.title, fields: element("rows").rows[0].cells[6].textContent };""")
        self.assertEqual(0, found["images"])
        self.assertEqual("a<b>&c.jsonl", found["title"])
        self.assertEqual('level=2 (Info) text="</script><img src=x onerror=faults.push(1)>"', found["fields"])

    def test_stays_usable_without_any_blob(self):
        self.open(self.recorded())
        self.run_in_page('element("zoomIn").click(); element("zoomChosen").click(); timeline.canvas.focus();')
        for name in ("ArrowDown", "End", "Enter", "Escape"):
            self.browser.key(name)
        for column in range(6):
            self.run_in_page(f"columns.list[{column}].button.click();")
        self.assertEqual("0 of 0 Blobs", self.browser.evaluate('element("count").textContent'))

    def test_has_only_the_visible_rows_of_a_long_recording(self):
        self.open(self.recorded(*[("toAgent", 41, b"")] * 1200))
        found = self.run_in_page('return { count: element("count").textContent, rows: element("rows").rows.length };')
        self.assertEqual("1,200 of 1,200 Blobs", found["count"])
        self.assertLess(found["rows"], 60)
        self.assertEqual(list(range(1, 1201)), self.numbers())
        # By the mouse.
        first = 'Number(element("rows").rows[0].cells[0].textContent)'
        self.browser.wheel(*self.run_in_page('return centre(element("list"));'), 2200)
        self.browser.wait_until(first + " > 90")
        self.run_in_page('element("list").scrollTop = 1e9;')
        self.browser.wait_until('[...element("rows").rows].some(row => row.cells[0].textContent === "1200")')

    def test_keeps_the_same_blob_selected_over_filters(self):
        self.open()
        found = self.run_in_page("""
            page.select(blobNamed("PatchLoaded"));
            set("direction", "from");
            const shown = element("rows").querySelector(".selected") !== null || numbers().includes(recording.blobs.number[page.selected]);
            set("direction", "");
            return [shown, element("blob").querySelector("h2").textContent];""")
        self.assertEqual([True, "PatchLoaded (18)"], found)


class ExpressionTest(BrowserTest):
    def filtered(self, expression):
        return self.run_in_page(f"""
            set("expression", {json.dumps(expression)});
            return {{ numbers: numbers(), error: element("error").textContent,
                      isInvalid: element("expression").getAttribute("aria-invalid") }};""")

    def expect(self, expected, expression):
        self.assertGreater(len(expected), 0, expression)
        self.assertEqual({"numbers": expected, "error": "", "isInvalid": None}, self.filtered(expression), expression)

    def test_compares_what_all_blobs_have(self):
        self.open()
        self.expect(self.listed("--type", "ReadMemory"), "type = readmemory")
        self.expect(self.listed("--type", "ReadMemory"), "TYPE == 25")
        self.expect(self.listed("--type", "ReadMemory,ReadMemoryResult,WriteMemory"), "type ~ memory")
        self.expect(self.listed("--direction", "from-agent"), "direction = from-agent")
        self.expect(self.listed("--direction", "to-agent"), "not direction = from")
        self.expect(self.listed("--from", "0.9", "--to", "1.5"), "time >= 900ms && time <= 1.5s")
        self.expect(self.listed("--type", "DecrementLatch,LoadPatchWindows"), "type = DecrementLatch or type = LoadPatchWindows")
        self.expect([1, 2], "blob < 3")
        self.expect(self.listed(), "host = 260")
        sizes = {int(line.split()[0]): int(line.split()[4]) for line in self.run_blobs("list", self.reload).splitlines()[1:]}
        self.expect([number for number, size in sizes.items() if size > 200], "size > 200")
        self.expect([number for number, size in sizes.items() if size > 200 or size == 8], "size > 0xC8 || size = 8")

    def test_compares_latencies_and_failures(self):
        self.open()
        found = self.run_in_page("""
            const { number, latency, failure } = recording.blobs;
            const where = test => [...number.keys()].filter(test).map(blob => number[blob]);
            return { slow: where(blob => latency[blob] > 0.003), failed: where(blob => failure[blob] !== 0),
                     none: where(blob => latency[blob] < 0) };""")
        self.expect(found["slow"], "latency > 3ms")
        self.expect(found["slow"], "latency > 3000us and answered")
        self.expect(found["none"], "not answered")
        self.expect(found["failed"], "failed")
        self.assertEqual(1, len(found["failed"]))

    def test_compares_fields(self):
        self.open()
        self.expect(self.listed("--type", "EchoRequest,EchoReply")[:2], "token = 0x48454C4450415453 and blob < 30")
        self.expect(self.listed("--type", "LogNarrow"), "level = error")
        self.expect(self.listed("--type", "LogNarrow"), "level >= 4")
        self.expect(self.listed("--type", "LogNarrow"), 'text ~ "Failed to load"')
        self.expect(self.listed("--type", "EnableModules"), "modules > 2 and modules.path ~ windows")
        self.expect([14, 15], 'patchPath ~ "\\\\1.dll"')
        self.expect([14, 15], 'patchPath ~ "\\1.dll"')
        self.expect(self.listed("--type", "WriteMemory"), "data ~ e9 and type = WriteMemory")
        self.expect(self.listed("--type", "RegisterAgent"), 'agentType = "default agent"')

    def test_compares_fields_of_records(self):
        self.open(self.crash)
        exceptions = self.listed("--type", "HandleExceptionWindows", source=self.crash)
        self.expect(exceptions[1:], "record.code = 0xC0000005")
        self.expect(exceptions[1:], "record.code = EXCEPTION_ACCESS_VIOLATION")
        self.expect(exceptions, "failed")
        self.expect(exceptions[:1], "code != 0xC0000005")

    def test_says_what_is_wrong_and_keeps_the_rows(self):
        self.open()
        kept = self.filtered("type = ReadMemory")["numbers"]
        for expression, error in (
                ("type =", 'Expected a value after "=" at the end.'),
                ("size 5", 'Expected a comparison (= != < <= > >= ~ !~) after "size", not "5" (character 6).'),
                ("size > 5 and", "Expected the name of a field at the end."),
                ("(size > 5", 'Expected ")" at the end.'),
                ("size > 5 )", 'Expected "and", "or" or the end, not ")" (character 10).'),
                ("= 5", 'Expected the name of a field, not "=" (character 1).'),
                ("size > many", '"many" isn\'t a number, which ">" compares with.'),
                ("type = NoSuchBlob", 'There is no type "nosuchblob".'),
                ("direction = left", 'There is no direction "left".'),
                ("size ~ 5", '"size" can\'t be compared with "5" by "~".'),
                ('text ~ "open', 'The string "open has no closing quote.'),
                ("colour = 5", 'No Blob has a field "colour". All have blob, time, size, latency, host, type, direction, '
                               "failed, answered.")):
            self.assertEqual({"numbers": kept, "error": error, "isInvalid": "true"}, self.filtered(expression), expression)
        self.expect(self.listed(), "size >= 0")


class TableTest(BrowserTest):
    COLUMNS = """
        const shown = i => { // the texts of a column, of all rows
          const texts = [];
          for (let top = 0; top < page.chosen.length; top = texts.length) {
            table.scrollTo(top);
            texts.push(...[...element("rows").rows].slice(top - table.top).map(row => row.cells[i].textContent));
          }
          return texts;
        };
        """

    def test_sorts_by_each_column(self):
        self.open()
        for column, name in enumerate(("Blob", "Seconds", "Direction", "Type", "Bytes")):
            found = self.run_in_page(self.COLUMNS + f"""
                const up = columns.sorted !== {column} && (columns.list[{column}].button.click(), 0) || shown({column});
                const mark = columns.list[{column}].head.getAttribute("aria-sort");
                columns.list[{column}].button.click();
                return {{ up, mark, down: shown({column}), downMark: columns.list[{column}].head.getAttribute("aria-sort"),
                          numbers: shown(0).length }};""")
            key = (lambda text: text.lower()) if name == "Type" else (lambda text: {"\u2192": 0, "\u2190": 1}[text]) \
                if name == "Direction" else float
            self.assertEqual(sorted(found["up"], key=key), found["up"], name)
            self.assertEqual(found["up"][::-1], found["down"], name)
            self.assertEqual(("ascending", "descending"), (found["mark"], found["downMark"]))
            self.assertEqual(52, found["numbers"])

    def test_sorts_by_latency_with_the_others_last(self):
        self.open()
        found = self.run_in_page("""
            const latencies = () => [...page.chosen].map(blob => recording.blobs.latency[blob]);
            columns.list[5].button.click();
            const up = latencies();
            columns.list[5].button.click();
            const down = latencies();
            set("expression", "type ~ memory");
            return { up, down, chosen: latencies(), text: element("rows").rows[0].cells[5].textContent };""")
        known = sorted(latency for latency in found["up"] if latency >= 0)
        self.assertGreater(len(known), 10)
        self.assertEqual(known, found["up"][:len(known)])
        self.assertEqual(known[::-1], found["down"][:len(known)])
        slowest = [latency for latency in found["chosen"] if latency >= 0]
        self.assertEqual(sorted(slowest, reverse=True), slowest)
        self.assertRegex(found["text"], r"^\d+(\.\d+)? (\u00b5s|ms|s)$")

    def test_latency_lasts_from_question_to_answer(self):
        self.open()
        found = self.run_in_page("""
            const { number, time, latency, partner } = recording.blobs;
            return [...number.keys()].filter(blob => partner[blob] !== 0).map(blob =>
              [nameOf(blob), nameOf(partnerOf(blob)), Math.abs(time[blob] - time[partnerOf(blob)]) - latency[blob],
               partnerOf(partnerOf(blob)) === blob]);""")
        for name, partner, difference, isMutual in found:
            self.assertAlmostEqual(0, difference, 9)
            self.assertTrue(isMutual)
        self.assertEqual({("ReadMemory", "ReadMemoryResult"), ("EchoRequest", "EchoReply"), ("RequestReload", "Reload"),
                          ("LoadPatchWindows", "PatchLoaded"), ("LoadPatchWindows", "LogNarrow"), ("EnableModules", "DecrementLatch")},
                         {(name, partner) for i, (name, partner, *_) in enumerate(found)} &
                         {("ReadMemory", "ReadMemoryResult"), ("EchoRequest", "EchoReply"), ("RequestReload", "Reload"),
                          ("LoadPatchWindows", "PatchLoaded"), ("LoadPatchWindows", "LogNarrow"), ("EnableModules", "DecrementLatch")})

    def test_jumps_from_question_to_answer_and_back(self):
        self.open()
        self.run_in_page('page.select(blobNamed("ReadMemory"));')
        self.assertRegex(self.browser.evaluate('element("partner").textContent'), r"^Go to the answer, ReadMemoryResult \d+$")
        self.assertEqual(1, self.browser.evaluate('element("rows").querySelectorAll(".partner").length'))
        self.browser.click(*self.run_in_page('return centre(element("partner"));'))
        self.assertEqual("ReadMemoryResult (26)", self.browser.evaluate('element("blob").querySelector("h2").textContent'))
        self.assertRegex(self.browser.evaluate('element("partner").textContent'), r"^Go to the question, ReadMemory \d+$")
        self.run_in_page('element("list").focus();')
        self.browser.key("Enter")
        self.assertEqual("ReadMemory (25)", self.browser.evaluate('element("blob").querySelector("h2").textContent'))

    def test_jumps_to_an_answer_that_the_filter_hides(self):
        self.open()
        found = self.run_in_page("""
            set("direction", "to");
            page.select(blobNamed("ReadMemory"));
            element("partner").click();
            return [element("blob").querySelector("h2").textContent, element("rows").querySelectorAll(".selected").length];""")
        self.assertEqual(["ReadMemoryResult (26)", 0], found)

    def test_is_operated_by_keys(self):
        self.open(self.recorded(*[("toAgent", 41, b"")] * 1200))
        self.run_in_page('element("list").focus();')
        page_size = self.browser.evaluate("table.pageSize()")
        for name, number in (("ArrowDown", 1), ("ArrowDown", 2), ("PageDown", 2 + page_size), ("ArrowUp", 1 + page_size),
                             ("End", 1200), ("ArrowDown", 1200), ("PageUp", 1200 - page_size), ("Home", 1), ("ArrowUp", 1)):
            self.browser.key(name)
            found = self.run_in_page("""
                await frame();
                const row = element("rows").querySelector(".selected");
                const box = row.getBoundingClientRect();
                return [Number(row.cells[0].textContent), box.bottom <= window.innerHeight, row.getAttribute("aria-selected")];""")
            self.assertEqual([number, True, "true"], found, name)
            page_size = self.browser.evaluate("table.pageSize()") if name == "ArrowDown" else page_size
        self.browser.key("/")
        self.browser.type("blob = 7")
        self.assertEqual([7], self.numbers())
        self.browser.key("Enter")
        self.browser.key("ArrowDown")
        self.assertEqual(6, self.browser.evaluate("page.selected"))
        self.browser.key("Escape")
        self.assertEqual(-1, self.browser.evaluate("page.selected"))

    def test_columns_have_the_width_that_they_get(self):
        self.open()
        width = "columns.list[3].head.offsetWidth"
        before = self.browser.evaluate(width)
        x, y = self.run_in_page('return centre(columns.list[3].head.querySelector(".edge"));')
        self.browser.drag((x, y), (x + 70, y))
        self.assertEqual(before + 70, self.browser.evaluate(width))
        self.assertEqual(0, self.browser.evaluate("columns.sorted"))
        self.run_in_page('columns.list[3].head.querySelector(".edge").focus();')
        self.browser.key("ArrowLeft")
        self.assertEqual(before + 62, self.browser.evaluate(width))
        self.run_in_page("page.select(0);")
        list_width = 'element("list").offsetWidth'
        before = self.browser.evaluate(list_width)
        x, y = self.run_in_page('return centre(element("splitter"));')
        self.browser.drag((x, y), (x - 100, y))
        self.assertEqual(before - 100, self.browser.evaluate(list_width))

    def test_marks_failures(self):
        self.open()
        found = self.run_in_page("""
            const blob = blobNamed("LogNarrow");
            const { time, track } = recording.blobs;
            page.show(time[blob] - 0.01, time[blob] + 0.01);
            page.select(blob);
            const row = element("rows").querySelector(".selected");
            const top = timeline.rowOf(track[blob], 0, 0).top;
            const ordinary = blobNamed("PatchLoaded");
            const mark = colourAt(timeline.xOf(time[blob]), top + 2);
            page.select(noBlob);
            page.show(time[ordinary] - 0.001, time[ordinary] + 0.001);
            return { row: row.className, title: row.title, pane: element("blob").textContent, mark,
                     other: colourAt(timeline.xOf(time[ordinary]), top + 2), failed: document.querySelectorAll("#rows .failed").length };""")
        self.assertIn("failed", found["row"].split())
        self.assertEqual("logged error", found["title"])
        self.assertEqual("200,16,46", found["mark"])
        self.assertNotEqual(found["mark"], found["other"])

    def test_values_are_legible_in_a_window_of_1280_pixels(self):
        for source in (self.reload, self.crash):
            self.open(source)
            found = self.run_in_page("""
                const narrow = [];
                for (let blob = 0; blob < recording.blobs.time.length; ++blob) {
                  page.select(blob);
                  const pane = element("blob");
                  const value = pane.querySelector(".fields tbody td:nth-child(2)");
                  const width = value === null ? 1000 : value.offsetWidth;
                  if (pane.scrollWidth > pane.clientWidth || width < 250) {
                    narrow.push([nameOf(blob), pane.scrollWidth, pane.clientWidth, width]);
                  }
                }
                page.select(noBlob);
                return { narrow, fields: columns.list[6].head.offsetWidth };""")
            self.assertEqual([], found["narrow"])
            self.assertGreater(found["fields"], 500)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
