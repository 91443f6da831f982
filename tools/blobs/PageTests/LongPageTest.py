"""Tests of the page with recordings as long as a day's work, in a headless browser. Nothing is timed here; see Benchmark.py.

Usage: LongPageTest.py <blobs> <folder of recordings> <browser>
"""

import pathlib
import sys
import unittest

import LongRecording
from PageFixture import HELPERS, BrowserTest

BrowserTest.use(*sys.argv[1:4])


class LongPageTest:
    """For each size, with one page for all tests. A test leaves the page as it finds it."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.source = pathlib.Path(cls.folder.name, "long.jsonl")
        cls.count = LongRecording.write(cls.examples, cls.exchanges, cls.source)
        cls.path = cls.make(cls(), cls.source)
        cls.sizes = (cls.path.stat().st_size, cls.source.stat().st_size)
        cls.source.unlink()
        cls.browser.open(cls.path)
        cls.browser.evaluate(HELPERS)
        cls.first = cls.count - 2 * cls.exchanges - cls.exchanges // 500  # Blobs before the traffic

    def setUp(self):
        self.run_in_page("""
            element("reset").click();
            await frame();
            await frame();
            if (columns.sorted !== 0 || columns.isDescending) {
              columns.list[0].button.click();
            }
            page.select(noBlob);
            page.showAll();""")
        self.browser.wait_until("page.progress === 1")

    def rows_at(self, row):
        return self.run_in_page(f"""
            table.scrollTo({row});
            return [...element("rows").rows].map(row => [...row.cells].map(cell => cell.textContent));""")

    def finish_filter(self):
        self.browser.wait_until("page.progress === 1")
        return self.run_in_page("return [...page.chosen.subarray(0, 5)].map(blob => recording.blobs.number[blob]);")

    def test_is_no_larger_than_the_recording(self):
        self.assertLess(self.sizes[0], self.sizes[1])

    def test_has_all_rows_in_order(self):
        text = f"{self.count:,} of {self.count:,} Blobs"
        self.assertEqual(text, self.browser.evaluate('element("count").textContent'))
        self.assertGreaterEqual(self.browser.evaluate("recording.spans.begin.length"), self.exchanges)
        for top in (0, 1, self.count // 3, self.count // 2 + 1, self.count - 100):
            rows = self.rows_at(top)
            self.assertEqual([str(number) for number in range(top + 1, top + 1 + len(rows))], [row[0] for row in rows])
        rows = self.rows_at(self.count)
        self.assertEqual(str(self.count), rows[-1][0])

    def test_rows_are_those_of_the_traffic(self):
        # Exchange number n of the traffic, unless log lines are among them.
        for exchange in (1, 10, 499, 600, 12345, self.exchanges - 2):
            place = self.first + 2 * exchange + exchange // 500
            question, answer = self.rows_at(place)[:2] if place < self.count - 40 else self.rows_at(self.count)[-5:-3]
            token = f"token=0x{exchange:08X}"
            self.assertIn(token, question[6])
            self.assertIn(token, answer[6])
            self.assertEqual(["EchoRequest", "EchoReply"] if exchange % 10 == 0 else ["ReadMemory", "ReadMemoryResult"],
                             [question[3], answer[3]])
            self.assertEqual(question[5], answer[5])

    def test_scrolls_by_wheel_and_by_the_bar(self):
        top = "table.top"
        self.run_in_page("table.scrollTo(0);")
        self.browser.wheel(*self.run_in_page('return centre(element("list"));'), 220)
        self.browser.wait_until(top + " === 10")
        self.run_in_page('element("list").scrollTop = table.scrollRoom() / 2;')
        self.browser.wait_until(f"Math.abs({top} - {self.count} / 2) < {self.count} / 100")
        self.run_in_page('element("list").scrollTop = 1e9;')
        self.browser.wait_until(f'[...element("rows").rows].some(row => row.cells[0].textContent === "{self.count}")')

    def test_draws_density(self):
        # The traffic comes in rounds of 5,000 exchanges, with half a second between them.
        found = self.run_in_page("""
            const row = timeline.blobRows[0];
            const { time } = recording.blobs;
            let gap = -1;
            for (let i = 100000; gap < 0; ++i) {
              gap = time[i + 1] - time[i] > 0.4 ? i : -1;
            }
            const begin = time[gap] - 1;
            page.show(begin, time[gap] + 1.4);
            const columnsOf = seconds => timeline.densityOf(row.all).filter(({ x }) =>
              Math.abs(x - timeline.xOf(seconds)) < 20);
            const y = middleOf(row);
            const busy = time[gap] - 0.3;
            const idle = time[gap] + 0.25;
            const requests = recording.rows.find(candidate => recording.tracks[candidate.track].name === "requests");
            const yOfRequests = middleOf(requests) - 2;
            const sum = timeline.densityOf(row.all).reduce((total, { count }) => total + count, 0);
            const inView = [...time].filter((seconds, i) => recording.blobs.track[i] === row.track &&
              seconds >= page.view.begin && seconds <= page.view.end).length;
            return { sum, inView, busy: columnsOf(busy).length, idle: columnsOf(idle).length,
                     colours: [colourAt(timeline.xOf(busy), y), colourAt(timeline.xOf(idle), y),
                               colourAt(timeline.xOf(idle), row.top + 1)],
                     spans: [colourAt(timeline.xOf(busy), yOfRequests), colourAt(timeline.xOf(idle), yOfRequests)] };""")
        self.assertGreater(found["sum"], 5000)
        self.assertEqual(found["inView"], found["sum"])
        self.assertGreater(found["busy"], 35)
        self.assertEqual(0, found["idle"])
        self.assertNotEqual(found["colours"][0], found["colours"][1])
        self.assertEqual(found["colours"][1], found["colours"][2])
        self.assertNotEqual(*found["spans"])

    def test_selects_by_a_click_into_density(self):
        middle = self.count // 2
        x, y = self.run_in_page(f"return placeOfBlob({middle});")
        self.browser.move(x, y)
        self.assertRegex(self.browser.evaluate('element("tip").textContent'), r"nearest of [\d,]+ at this place")
        self.browser.click(x, y)
        found = self.run_in_page(f"""
            const {{ time, track }} = recording.blobs;
            const row = element("rows").querySelector(".selected");
            return {{ distance: Math.abs(time[page.selected] - time[{middle}]), pixel: timeline.timeAt(1) - timeline.timeAt(0),
                      isSameRow: track[page.selected] === track[{middle}], number: Number(row.cells[0].textContent),
                      selected: page.selected }};""")
        self.assertTrue(found["isSameRow"])
        self.assertLessEqual(found["distance"], found["pixel"])
        self.assertEqual(found["selected"] + 1, found["number"])

    def test_jumps_to_the_answer_and_back(self):
        place = self.first + 2 * 1000 + 2
        self.run_in_page(f'page.select({place}); element("list").focus();')
        self.browser.key("Enter")
        self.assertEqual(place + 1, self.browser.evaluate("page.selected"))
        self.browser.key("Enter")
        self.assertEqual(place, self.browser.evaluate("page.selected"))

    def test_sorts_by_latency(self):
        found = self.run_in_page("""
            columns.list[5].button.click();
            columns.list[5].button.click();
            const { latency } = recording.blobs;
            let isSorted = true;
            for (let i = 1; i < page.chosen.length; ++i) {
              isSorted = isSorted && latency[page.chosen[i - 1]] >= latency[page.chosen[i]];
            }
            return { isSorted, count: page.chosen.length, distinct: new Set(page.chosen).size,
                     most: latency.reduce((most, one) => Math.max(most, one)) - latency[page.chosen[0]] };""")
        self.assertEqual({"isSorted": True, "count": self.count, "distinct": self.count, "most": 0}, found)

    def test_filters_by_fields(self):
        errors = self.exchanges // 5000
        self.run_in_page('set("expression", "level = error and text ~ frame");')
        self.finish_filter()
        self.assertEqual(f"{errors:,} of {self.count:,} Blobs", self.browser.evaluate('element("count").textContent'))
        self.run_in_page(f'set("expression", "token = {self.exchanges - 3}");')
        place = self.first + 2 * (self.exchanges - 3) + (self.exchanges - 3) // 500
        self.assertEqual([place + 1, place + 2], self.finish_filter())
        self.run_in_page('set("expression", "type = EchoReply and blob > 1000 and latency > 4ms");')
        self.finish_filter()
        found = self.run_in_page("""
            const { type, latency, number } = recording.blobs;
            let expected = 0;
            for (let i = 0; i < type.length; ++i) {
              expected += type[i] === 75 && number[i] > 1000 && latency[i] > 0.004 ? 1 : 0;
            }
            return [expected, page.chosen.length];""")
        self.assertEqual(found[0], found[1])
        self.assertGreater(found[0], 5)

    def test_searches_text_without_stopping_everything_else(self):
        self.run_in_page('set("text", "frame 7 took");')
        self.assertRegex(self.browser.evaluate('element("count").textContent'), r" Blobs, \d+ % searched$")
        # The page is alive meanwhile: a row can be selected, another search takes the place of this one.
        self.browser.click(*self.run_in_page('return place(timeline.labelWidth + 300, middleOf(timeline.rows[0]));'))
        self.run_in_page('set("text", "FRAME 12 took");')
        place = self.first + 2 * 500 * 13 + 13
        self.assertEqual([place], self.finish_filter())
        self.assertEqual(1, self.browser.evaluate('element("rows").rows.length'))

    def test_shows_only_what_the_timeline_shows(self):
        found = self.run_in_page("""
            const { time } = recording.blobs;
            page.show(time[200000], time[200300]);
            element("visible").click();
            while (page.progress < 1) {
              await frame();
            }
            const numbers = [...page.chosen].map(blob => recording.blobs.number[blob]);
            element("visible").click();
            return [numbers[0], numbers.length];""")
        self.assertEqual([200001, 301], found)


class Page300000(LongPageTest, BrowserTest):
    exchanges = 150_000


class Page1000000(LongPageTest, BrowserTest):
    exchanges = 500_000


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]], verbosity=2)
