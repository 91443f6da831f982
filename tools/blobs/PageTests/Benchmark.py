"""Measures the page with long recordings in a headless browser: how long it takes to open, and each action until its
picture is there.

Usage: Benchmark.py <blobs> <folder of recordings> <browser> [--pictures <folder>] [--exchanges <n>,<n>...]
"""

import argparse
import pathlib
import statistics
import subprocess
import tempfile
import time

import LongRecording
from Browser import Browser
from PageFixture import HELPERS

# Each is done several times; `i` counts them.
ACTIONS = (
    ("zoom in", "zoom(0.5, page.view.begin + (page.view.end - page.view.begin) * 0.6);"),
    ("move", "move(0.1);"),
    ("show all", "page.showAll();"),
    ("describe what is under the mouse", "showTip(500 + i, 40);"),
    ("click into the timeline", "clickTimeline(400 + 40 * i, 35);"),
    ("click beside, which moves the table", "clickTimeline(400 + 40 * i, 60);"),
    ("scroll", "table.scrollTo(Math.floor(recording.blobs.time.length * i / 7));"),
    ("select the next", "table.step(1);"),
    ("jump to the answer", "page.select(5000 + i); jumpToPartner();"),
    ("sort by seconds", "columns.list[1].button.click();"),
    ("sort by type", "columns.list[3].button.click();"),
    ("sort by latency", "columns.list[5].button.click();"),
    ("filter by type", "set('type', ['25', '74'][i % 2]);"),
    ("filter by direction", "set('type', ''); set('direction', ['from', 'to'][i % 2]);"),
    ("filter by time", "set('direction', ''); set('to', String(20 + i));"),
    ("filter: latency > 4ms", "set('to', ''); set('expression', 'latency > ' + (4 + i) + 'ms');"),
    ("filter: token = N (first rows)", "set('expression', 'token = ' + (1000 + i));"),
    ("search a text (first rows)", "set('expression', ''); set('text', 'frame ' + i);"),
    ("all filters off", "element('reset').click();"),
)
TIMES = 6

MEASURE = """

window.measure = async (body, i) => {
  const begin = performance.now();
  // Asked for first, so that it doesn't wait for what the action does after its first picture.
  const drawn = new Promise(resolve => requestAnimationFrame(() => setTimeout(resolve)));
  new Function("i", body)(i);
  await drawn;
  return performance.now() - begin;
};
"""


def processor_seconds(browser):
    """Of the page's main thread: unlike the time by the clock, it is nearly the same on a busy machine."""
    metrics = browser.call("Performance.getMetrics")["metrics"]
    return next(metric["value"] for metric in metrics if metric["name"] == "TaskDuration")


def measure(browser):
    rows = []
    for name, body in ACTIONS:
        values = []
        before = processor_seconds(browser)
        for i in range(TIMES):
            values.append(browser.run(f"return measure({body!r}, {i});"))
        used = (processor_seconds(browser) - before) / TIMES
        browser.wait_until("page.progress === 1")
        rows.append((name, statistics.median(values), max(values), used * 1e3))
    return rows


def search_times(browser):
    rows = []
    for name, body in (("token = N", "set('expression', 'token = 77');"), ("a text", "set('expression', ''); set('text', 'frame 7 ');")):
        begin = time.monotonic()
        browser.run(body)
        browser.wait_until("page.progress === 1")
        rows.append((f"until all is searched for {name}", time.monotonic() - begin))
    browser.run("element('reset').click();")
    return rows


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("blobs")
    parser.add_argument("examples", type=pathlib.Path)
    parser.add_argument("browser")
    parser.add_argument("--pictures", type=pathlib.Path)
    parser.add_argument("--exchanges", default="150000,500000")
    arguments = parser.parse_args()
    for exchanges in map(int, arguments.exchanges.split(",")):
        with tempfile.TemporaryDirectory() as folder:
            source = pathlib.Path(folder, "recording.jsonl")
            page = pathlib.Path(folder, "page.html")
            count = LongRecording.write(arguments.examples, exchanges, source)
            begin = time.monotonic()
            subprocess.run([arguments.blobs, "html", str(source), "--output", str(page)], check=True)
            print(f"{count:,} Blobs; recording {source.stat().st_size / 1e6:.1f} MB, page {page.stat().st_size / 1e6:.1f} MB, "
                  f"made in {time.monotonic() - begin:.1f} s")
            source.unlink()
            browser = Browser(arguments.browser, folder)
            try:
                print(f"  opens in {', '.join(f'{browser.open(page):.2f}' for _ in range(3))} s")
                browser.evaluate(HELPERS + MEASURE)
                browser.call("Performance.enable", timeDomain="threadTicks")
                if arguments.pictures:
                    browser.screenshot(arguments.pictures / f"page-{count}.png")
                for name, median, most, used in measure(browser):
                    print(f"  {name:<38} median {median:6.1f} ms, at most {most:6.1f} ms, {used:6.1f} ms of the processor")
                for name, seconds in search_times(browser):
                    print(f"  {name:<38} {seconds:6.1f} s")
                if arguments.pictures:
                    browser.run("page.select(5000); set('expression', 'type ~ memory and latency > 4ms'); zoom(0.3, 60);")
                    browser.wait_until("page.progress === 1")
                    browser.screenshot(arguments.pictures / f"page-{count}-filtered.png")
            finally:
                browser.close()


main()
