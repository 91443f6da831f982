// What is shown of the recording, what the user does, and the start.

const page = {
  view: { begin: 0, end: 1 },  // seconds that the timeline shows
  selected: noBlob,
  mask: new Uint8Array(0),     // for each Blob, whether it passes the filter
  chosen: new Uint32Array(0),  // those that pass, in the table's order
  isAllChosen: true,
  progress: 1,                 // how much of the recording the filter has seen
  order: new Uint32Array(0),   // all Blobs in the table's order

  select(blob) {
    page.selected = blob;
    const time = recording.blobs.time[blob];
    const { begin, end } = page.view;
    if (blob !== noBlob && (time < begin || time > end)) {
      page.show(time - (end - begin) / 2, time + (end - begin) / 2);
    }
    table.reveal(blob);
    details.show();
    timeline.draw();
  },

  show(begin, end) {
    const least = 1e-6;
    const most = recording.lastTime * 1.1 + 1e-3;
    const width = Math.min(Math.max(end - begin, least), most);
    const first = Math.min(Math.max((begin + end - width) / 2, -most * 0.05), most - width);
    page.view = { begin: first, end: first + width };
    timeline.draw();
    if (element("visible").checked) {
      applyFilter();
    }
  },

  showAll() {
    page.show(-recording.lastTime * 0.02, recording.lastTime * 1.03 + 1e-5);
  },
};

// ---- the filter ----

/// The conditions that are set, the cheap ones first.
function conditions() {
  const { time, type, fromAgent } = recording.blobs;
  const number = id => (element(id).value === "" ? null : Number(element(id).value));
  const found = [];
  const wantedType = element("type").value;
  const direction = element("direction").value;
  const [from, to] = [number("from"), number("to")];
  const text = element("text").value.toLowerCase();
  const expression = element("expression").value;
  if (wantedType !== "") {
    const wanted = Number(wantedType);
    found.push(blob => type[blob] === wanted);
  }
  if (direction !== "") {
    const wanted = direction === "from" ? 1 : 0;
    found.push(blob => fromAgent[blob] === wanted);
  }
  if (from !== null) {
    found.push(blob => time[blob] >= from);
  }
  if (to !== null) {
    found.push(blob => time[blob] <= to);
  }
  if (element("visible").checked) {
    const { begin, end } = page.view;
    found.push(blob => time[blob] >= begin && time[blob] <= end);
  }
  if (expression.trim() !== "") {
    found.push(predicateFrom(expression));
  }
  if (text !== "") {
    found.push(blob => (nameOf(blob) + " " + summaryOf(blob)).toLowerCase().includes(text));
  }
  return found;
}

function readConditions() {
  element("error").textContent = "";
  element("expression").removeAttribute("aria-invalid");
  try {
    return conditions();
  } catch (error) {
    if (!(error instanceof ExpressionError)) {
      throw error;
    }
    element("error").textContent = error.message;
    element("expression").setAttribute("aria-invalid", "true");
    return null;
  }
}

function showChosen(chosen, progress) {
  page.chosen = chosen;
  page.progress = progress;
  table.fill();
  timeline.choose();
  timeline.draw();
}

let filterRun = 0;

/// Filters in slices of time: what needs the fields of a million Blobs takes seconds, in which the page stays alive
/// and shows what was found so far. A wrong expression leaves everything as it is.
async function applyFilter() {
  const tests = readConditions();
  if (tests === null) {
    return;
  }
  const run = ++filterRun;
  const count = page.order.length;
  const order = page.order;
  page.mask = new Uint8Array(count);
  page.isAllChosen = tests.length === 0;
  if (page.isAllChosen) {
    page.mask.fill(1);
    showChosen(order, 1);
    return;
  }
  const slice = 25; // milliseconds
  let isFirst = true;
  const chosen = new Uint32Array(count);
  let found = 0;
  let start = performance.now();
  for (let i = 0; i < count; ++i) {
    const blob = order[i];
    let isPassing = true;
    for (let k = 0; isPassing && k < tests.length; ++k) {
      isPassing = tests[k](blob);
    }
    if (isPassing) {
      page.mask[blob] = 1;
      chosen[found++] = blob;
    }
    if (i % 64 === 63 && performance.now() - start > slice) {
      showChosen(chosen.subarray(0, found), (i + 1) / count);
      await (isFirst ? nextFrame() : nextTask());
      isFirst = false;
      if (run !== filterRun) {
        return;
      }
      start = performance.now();
    }
  }
  showChosen(chosen.subarray(0, found), 1);
}

/// The Blobs that pass in another order of the table.
function applyOrder() {
  page.order = columns.order();
  if (page.progress < 1) {
    applyFilter();
  } else {
    let found = 0;
    const chosen = new Uint32Array(page.chosen.length);
    for (let i = 0; i < page.order.length; ++i) {
      if (page.mask[page.order[i]] !== 0) {
        chosen[found++] = page.order[i];
      }
    }
    page.chosen = chosen; // the same Blobs, so that the timeline stays
    table.fill();
  }
}

// ---- moving ----

function zoom(factor, centre) {
  const { begin, end } = page.view;
  page.show(centre - (centre - begin) * factor, centre + (end - centre) * factor);
}

const middle = () => (page.view.begin + page.view.end) / 2;

function move(part) {
  const width = page.view.end - page.view.begin;
  page.show(page.view.begin + width * part, page.view.end + width * part);
}

function zoomToChosen() {
  let begin = Infinity;
  let end = -Infinity;
  for (const blob of page.chosen) {
    begin = Math.min(begin, recording.blobs.time[blob]);
    end = Math.max(end, recording.blobs.time[blob]);
  }
  if (end >= begin) {
    const margin = (end - begin) * 0.05 + 1e-5;
    page.show(begin - margin, end + margin);
  }
}

function jumpToPartner() {
  if (page.selected !== noBlob && partnerOf(page.selected) !== noBlob) {
    page.select(partnerOf(page.selected));
  }
}

/// Keys of the timeline and of the table.
const keys = {
  "+": () => zoom(0.8, middle()), "-": () => zoom(1.25, middle()), "0": page.showAll, "f": zoomToChosen,
  "ArrowUp": () => table.step(-1), "ArrowDown": () => table.step(1),
  "PageUp": () => table.step(-table.pageSize()), "PageDown": () => table.step(table.pageSize()),
  "Home": () => table.step(-Infinity), "End": () => table.step(Infinity),
  "Enter": jumpToPartner, "Escape": () => page.select(noBlob), "/": () => element("expression").focus(),
};

function listenToKeys(target, more) {
  const all = { ...keys, ...more };
  target.addEventListener("keydown", event => {
    if (all[event.key] !== undefined && !event.ctrlKey && !event.altKey && !event.metaKey) {
      event.preventDefault();
      all[event.key]();
    }
  });
}

// ---- the start ----

function fillTypes() {
  const counts = new Map();
  for (const type of recording.blobs.type) {
    counts.set(type, (counts.get(type) || 0) + 1);
  }
  const option = (value, text) => {
    const made = make("option", "", text);
    made.value = value;
    return made;
  };
  element("type").append(option("", "all"), ...[...counts].map(([type, count]) => ({ type, count, name: typeName(type) }))
    .sort((left, right) => left.name.localeCompare(right.name))
    .map(({ type, count, name }) => option(String(type), name + " (" + count.toLocaleString("en") + ")")));
}

function listenToFilter() {
  element("filter").addEventListener("input", applyFilter);
  element("filter").addEventListener("submit", event => event.preventDefault());
  element("filter").addEventListener("reset", () => setTimeout(applyFilter));
  element("expression").addEventListener("keydown", event => {
    if (event.key === "Enter" || event.key === "Escape") {
      element("list").focus();
    }
  });
  listenToEdge(element("splitter"), distance => {
    const width = element("blob").offsetWidth - distance;
    const pane = Math.max(columns.least, Math.min(width, window.innerWidth - 200));
    element("blob").style.setProperty("--pane", pane + "px");
  });
  element("zoomIn").addEventListener("click", () => zoom(0.5, middle()));
  element("zoomOut").addEventListener("click", () => zoom(2, middle()));
  element("zoomAll").addEventListener("click", page.showAll);
  element("zoomChosen").addEventListener("click", zoomToChosen);
}

function describe() {
  const count = recording.blobs.time.length;
  const hosts = [...new Set(recording.tracks.map(track => track.host))];
  element("title").textContent = recording.title;
  element("about").textContent = count.toLocaleString("en") + " Blobs in " + recording.lastTime.toFixed(3) +
    " s between host " + hosts.join(", ") + " and Bridge " + recording.bridge + ", recorded from " + recording.startedAt +
    (recording.isCut ? "; its last line has no end" : "");
}

async function start() {
  await openRecording();
  describe();
  fillTypes();
  timeline.layOut();
  columns.fill();
  table.prepare();
  page.order = columns.order();
  listenToFilter();
  listenToTimeline();
  listenToKeys(timeline.canvas, { "ArrowLeft": () => move(-0.1), "ArrowRight": () => move(0.1) });
  listenToKeys(element("list"), {});
  applyFilter();
  details.show();
  page.showAll();
  document.body.removeAttribute("aria-busy");
}

start().catch(error => {
  element("about").textContent = "This page can't be opened here: " + error.message;
  throw error;
});
