// What the mouse and the keys do, and the start.

function tipText(found) {
  if (found.blob) {
    const blob = found.blob;
    return blob.number + "  " + blob.name + ", " + directionText(blob) + "\n" + blob.time.toFixed(6) + " s, " +
      blob.size + " bytes\n" + blob.summary.slice(0, 300);
  }
  const span = found.span;
  const width = span.end - span.begin;
  return span.name + "\n" + timeText(width, width || 1e-6) + ", from " + span.begin.toFixed(6) + " s" +
    (span.detail === "" ? "" : "\n" + span.detail);
}

function showTip(x, y) {
  const found = timeline.at(x, y);
  const tip = element("tip");
  tip.hidden = found === null;
  if (found !== null) {
    tip.textContent = tipText(found);
    const top = timeline.canvas.offsetTop + y + 16;
    tip.style.left = Math.max(0, Math.min(x + 14, timeline.width - tip.offsetWidth - 4)) + "px";
    tip.style.top = top + "px";
  }
}

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
  if (page.chosen.length > 0) {
    const times = page.chosen.map(blob => blob.time);
    const begin = Math.min(...times);
    const margin = (Math.max(...times) - begin) * 0.05 + 1e-5;
    page.show(begin - margin, Math.max(...times) + margin);
  }
}

function selectNext(step) {
  const next = page.chosen[page.chosen.indexOf(page.selected) + step];
  if (next !== undefined) {
    page.select(next);
  }
}

function listenToTimeline() {
  const canvas = timeline.canvas;
  let drag = null;
  canvas.addEventListener("wheel", event => {
    if (!event.shiftKey) {
      event.preventDefault();
      zoom(event.deltaY > 0 ? 1.25 : 0.8, timeline.timeAt(Math.max(event.offsetX, timeline.labelWidth)));
    }
  }, { passive: false });
  canvas.addEventListener("mousedown", event => {
    drag = { x: event.offsetX, view: page.view, isMoved: false };
  });
  window.addEventListener("mouseup", () => { drag = null; });
  canvas.addEventListener("mousemove", event => {
    if (drag !== null && (drag.isMoved || Math.abs(event.offsetX - drag.x) > 3)) {
      const { begin, end } = drag.view;
      const distance = (drag.x - event.offsetX) / (timeline.width - timeline.labelWidth) * (end - begin);
      drag.isMoved = true;
      page.show(begin + distance, end + distance);
      element("tip").hidden = true;
    } else {
      showTip(event.offsetX, event.offsetY);
    }
  });
  canvas.addEventListener("mouseleave", () => { element("tip").hidden = true; });
  canvas.addEventListener("mouseup", event => {
    const found = timeline.at(event.offsetX, event.offsetY);
    if (found !== null && (drag === null || !drag.isMoved)) {
      page.select(found.blob || recording.blobs.find(blob => blob.number === found.span.first) || page.selected);
    }
  });
  canvas.addEventListener("dblclick", event => {
    const found = timeline.at(event.offsetX, event.offsetY);
    if (found !== null && found.span) {
      const margin = (found.span.end - found.span.begin) * 0.05 + 1e-5;
      page.show(found.span.begin - margin, found.span.end + margin);
    } else {
      page.showAll();
    }
  });
  const keys = {
    "+": () => zoom(0.8, middle()), "-": () => zoom(1.25, middle()), "0": page.showAll, "f": zoomToChosen,
    "ArrowLeft": () => move(-0.1), "ArrowRight": () => move(0.1),
    "ArrowUp": () => selectNext(-1), "ArrowDown": () => selectNext(1),
  };
  canvas.addEventListener("keydown", event => {
    if (keys[event.key] !== undefined) {
      event.preventDefault();
      keys[event.key]();
    }
  });
}

function fillTypes() {
  const counts = new Map();
  recording.blobs.forEach(blob => counts.set(blob.type, (counts.get(blob.type) || 0) + 1));
  const option = (value, text) => {
    const made = make("option", "", text);
    made.value = value;
    return made;
  };
  const names = new Map(recording.blobs.map(blob => [blob.type, blob.name]));
  element("type").append(option("", "all"), ...[...names].sort((left, right) => left[1].localeCompare(right[1]))
    .map(([type, name]) => option(String(type), name + " (" + counts.get(type) + ")")));
}

function listenToFilter() {
  element("filter").addEventListener("input", applyFilter);
  element("filter").addEventListener("submit", event => event.preventDefault());
  element("filter").addEventListener("reset", () => setTimeout(applyFilter));
  element("more").addEventListener("click", () => {
    table.isWhole = true;
    table.fill();
  });
  element("zoomIn").addEventListener("click", () => zoom(0.5, middle()));
  element("zoomOut").addEventListener("click", () => zoom(2, middle()));
  element("zoomAll").addEventListener("click", page.showAll);
  element("zoomChosen").addEventListener("click", zoomToChosen);
}

function start() {
  element("title").textContent = recording.title;
  const hosts = [...new Set(recording.blobs.map(blob => blob.host))];
  element("about").textContent = recording.blobs.length + " Blobs in " + lastTime.toFixed(3) + " s between host " +
    hosts.join(", ") + " and Bridge " + recording.bridge + ", from " + recording.startedAt + " on" +
    (recording.isCut ? "; its last line has no end" : "");
  fillTypes();
  timeline.layOut();
  page.listeners.push(what => {
    if (what === "filter") {
      table.isWhole = false;
      table.fill();
    }
    if (what === "selection") {
      table.mark();
      table.showBlob();
    }
    if (what === "view" && element("visible").checked) {
      applyFilter();
    } else {
      timeline.draw();
    }
  });
  listenToTimeline();
  listenToFilter();
  window.addEventListener("resize", timeline.draw);
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", timeline.draw);
  applyFilter();
  table.showBlob();
  page.showAll();
}

start();
