"use strict";

// What was recorded, and what of it is wanted. Each part of the page registers what is to be called on a change.

const recording = JSON.parse(document.getElementById("data").textContent);
const element = id => document.getElementById(id);

const lastTime = Math.max(0, ...recording.blobs.map(blob => blob.time), ...recording.spans.map(span => span.end));

const page = {
  view: { begin: 0, end: 1 }, // seconds that the timeline shows
  selected: null,             // a Blob
  chosen: [],                 // the Blobs that pass the filter
  listeners: [],
  changed(what) {
    for (const listener of page.listeners) {
      listener(what);
    }
  },
  select(blob) {
    page.selected = blob;
    page.changed("selection");
  },
  show(begin, end) {
    const least = 1e-6;
    const most = lastTime * 1.1 + 1e-3;
    const width = Math.min(Math.max(end - begin, least), most);
    const first = Math.min(Math.max((begin + end - width) / 2, -most * 0.05), most - width);
    page.view = { begin: first, end: first + width };
    page.changed("view");
  },
  showAll() {
    page.show(-lastTime * 0.02, lastTime * 1.03 + 1e-5);
  },
};

const filterText = blob => (blob.name + " " + blob.summary).toLowerCase();

function passes(blob) {
  const wanted = element("text").value.toLowerCase();
  const type = element("type").value;
  const direction = element("direction").value;
  const number = id => (element(id).value === "" ? null : Number(element(id).value));
  const from = number("from");
  const to = number("to");
  return (type === "" || String(blob.type) === type) &&
    (direction === "" || (direction === "from") === blob.fromAgent) &&
    (from === null || blob.time >= from) && (to === null || blob.time <= to) &&
    (!element("visible").checked || (blob.time >= page.view.begin && blob.time <= page.view.end)) &&
    (wanted === "" || filterText(blob).includes(wanted));
}

function applyFilter() {
  page.chosen = recording.blobs.filter(passes);
  page.changed("filter");
}

/// "1.234567 s", "12.3 ms": as many digits as a picture of that width can tell apart.
function timeText(seconds, width) {
  const unit = width < 2e-3 ? { factor: 1e6, name: "\u00b5s" } : width < 2 ? { factor: 1e3, name: "ms" } : { factor: 1, name: "s" };
  const digits = Math.max(0, Math.min(3, Math.ceil(2 - Math.log10(width * unit.factor))));
  return (seconds * unit.factor).toFixed(digits) + " " + unit.name;
}

const directionText = blob => (blob.fromAgent ? "from the Agent" : "to the Agent");

/// Makes an element with a class and texts or elements in it.
function make(tag, className, ...children) {
  const made = document.createElement(tag);
  if (className) {
    made.className = className;
  }
  made.append(...children);
  return made;
}
