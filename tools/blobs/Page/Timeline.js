// The chart: a row for the Blobs of a track, one for each lane and depth of its spans. What shares a column of pixels is
// drawn as density.

const timeline = {
  canvas: element("canvas"),
  scroller: element("scroller"),
  labelWidth: 210,
  axisHeight: 24,
  rowHeight: 20,
  rows: [],     // {track, lane, depth, top}; of spans also {first, count, isMixed}
  blobRows: [], // those of Blobs: {..., all, failed, chosen}, each {times, blobs} in the order of the times
  width: 0,
  height: 0,

  layOut() {
    const { track, time } = recording.blobs;
    timeline.byTime = sortedBy(time);
    timeline.blobRows = [...new Set(track)].map(number => ({ track: number, lane: 0, depth: 0 }));
    timeline.rows = [...timeline.blobRows, ...recording.rows].sort((left, right) =>
      left.track - right.track || left.lane - right.lane || left.depth - right.depth);
    timeline.rows.forEach((row, i) => { row.top = timeline.axisHeight + i * timeline.rowHeight; });
    timeline.collect("all", new Uint8Array(track.length).fill(1));
    timeline.collect("failed", recording.blobs.failure);
    timeline.choose();
    const { duration } = recording.spans;
    timeline.busy = new Float64Array(duration.length + 1); // seconds of all spans up to each
    for (let i = 0; i < duration.length; ++i) {
      timeline.busy[i + 1] = timeline.busy[i] + duration[i];
    }
    const total = timeline.axisHeight + timeline.rows.length * timeline.rowHeight + 4;
    element("sizer").style.height = total + "px";
  },

  /// Sorts those Blobs by row and time whose number in `wanted` isn't 0.
  collect(name, wanted) {
    const { track, time } = recording.blobs;
    const counts = new Uint32Array(recording.tracks.length);
    for (let blob = 0; blob < track.length; ++blob) {
      if (wanted[blob] !== 0) {
        ++counts[track[blob]];
      }
    }
    const times = [];
    const blobs = [];
    for (const row of timeline.blobRows) {
      const count = counts[row.track];
      times[row.track] = new Float64Array(count);
      blobs[row.track] = new Uint32Array(count);
      row[name] = { times: times[row.track], blobs: blobs[row.track] };
    }
    counts.fill(0);
    const order = timeline.byTime;
    for (let i = 0; i < order.length; ++i) {
      const blob = order[i];
      if (wanted[blob] !== 0) {
        const place = counts[track[blob]]++;
        times[track[blob]][place] = time[blob];
        blobs[track[blob]][place] = blob;
      }
    }
  },

  /// Follows the filter.
  choose() {
    if (page.isAllChosen) {
      timeline.blobRows.forEach(row => { row.chosen = row.all; });
    } else {
      timeline.collect("chosen", page.mask);
    }
  },

  rowOf(track, lane, depth) {
    return timeline.rows.find(row => row.track === track && row.lane === lane && row.depth === depth);
  },
  xOf(seconds) {
    const { begin, end } = page.view;
    return timeline.labelWidth + (seconds - begin) / (end - begin) * (timeline.width - timeline.labelWidth);
  },
  timeAt(x) {
    const { begin, end } = page.view;
    return begin + (x - timeline.labelWidth) / (timeline.width - timeline.labelWidth) * (end - begin);
  },

  draw() {
    const canvas = timeline.canvas;
    const scale = window.devicePixelRatio || 1;
    timeline.width = timeline.scroller.clientWidth;
    timeline.height = timeline.scroller.clientHeight;
    canvas.style.height = timeline.height + "px";
    canvas.width = timeline.width * scale;
    canvas.height = timeline.height * scale;
    const style = getComputedStyle(document.documentElement);
    const colours = new Map();
    const colour = name => {
      if (!colours.has(name)) {
        colours.set(name, style.getPropertyValue("--" + name).trim());
      }
      return colours.get(name);
    };
    const pen = canvas.getContext("2d");
    pen.scale(scale, scale);
    pen.font = "12px system-ui, sans-serif";
    pen.textBaseline = "middle";
    timeline.clipped(pen, 0, timeline.axisHeight, () => {
      pen.translate(0, -timeline.scroller.scrollTop);
      timeline.drawLabels(pen, colour);
      timeline.clipped(pen, timeline.labelWidth, 0, () => timeline.drawContent(pen, colour));
    });
    timeline.clipped(pen, timeline.labelWidth, 0, () => timeline.drawAxis(pen, colour));
    const { begin, end } = page.view;
    element("range").textContent = timeText(begin, end - begin) + " to " + timeText(end, end - begin);
  },

  /// Calls a function that draws nothing above or to the left of a point.
  clipped(pen, left, top, draw) {
    pen.save();
    pen.beginPath();
    pen.rect(left, top, timeline.width - left, 1e6);
    pen.clip();
    draw();
    pen.restore();
  },

  visibleRows() {
    const top = timeline.scroller.scrollTop;
    return timeline.rows.filter(row => row.top + timeline.rowHeight > top && row.top < top + timeline.height);
  },

  drawLabels(pen, colour) {
    const severalHosts = new Set(recording.tracks.map(track => track.host)).size > 1;
    let last = null;
    for (const row of timeline.visibleRows()) {
      if (row.track % 2 === 0) {
        pen.fillStyle = colour("band");
        pen.fillRect(0, row.top, timeline.width, timeline.rowHeight);
      }
      if (row.track !== last || row.isMixed) {
        last = row.track;
        const track = recording.tracks[row.track];
        const host = severalHosts ? track.host + ": " : "";
        const name = row.isMixed ? "  more at the same time" : host + track.name + (track.thread ? " " + track.thread : "");
        pen.fillStyle = colour(row.isMixed ? "faint" : "ink");
        pen.fillText(name, 8, row.top + timeline.rowHeight / 2, timeline.labelWidth - 14);
      }
    }
    pen.fillStyle = colour("line");
    pen.fillRect(timeline.labelWidth - 1, 0, 1, 1e6);
  },

  drawAxis(pen, colour) {
    const { begin, end } = page.view;
    const rough = (end - begin) / Math.max(2, (timeline.width - timeline.labelWidth) / 110);
    const power = 10 ** Math.floor(Math.log10(rough));
    const step = [1, 2, 5, 10].map(n => n * power).find(n => n >= rough);
    for (let i = Math.ceil(begin / step); i * step <= end; ++i) {
      const x = timeline.xOf(i * step);
      pen.fillStyle = colour("line");
      pen.fillRect(x, timeline.axisHeight - 6, 1, timeline.height);
      pen.fillStyle = colour("faint");
      pen.fillText(timeText(i * step, end - begin), x + 3, timeline.axisHeight / 2);
    }
  },

  drawContent(pen, colour) {
    for (const row of timeline.visibleRows()) {
      if (row.all === undefined) {
        timeline.drawSpans(pen, colour, row);
        continue;
      }
      const isFromAgent = row.all.blobs.length > 0 && recording.blobs.fromAgent[row.all.blobs[0]] !== 0;
      pen.fillStyle = colour(isFromAgent ? "from" : "to");
      if (row.chosen !== row.all) {
        pen.globalAlpha = 0.2;
        timeline.drawDensity(pen, row, row.all);
        pen.globalAlpha = 1;
      }
      timeline.drawDensity(pen, row, row.chosen);
      pen.fillStyle = colour("failed");
      for (const { x } of timeline.densityOf(row.failed)) {
        pen.fillRect(x - 1.5, row.top + 1, 3, 5);
      }
    }
    timeline.drawSelection(pen, colour);
  },

  /// The columns of pixels in which sorted Blobs are, with their counts.
  densityOf({ times }) {
    const columns = [];
    const { begin, end } = page.view;
    const past = search(0, times.length, i => times[i] > end);
    for (let i = search(0, past, k => times[k] >= begin); i < past;) {
      const x = Math.round(timeline.xOf(times[i]));
      const limit = timeline.timeAt(x + 0.5);
      const next = Math.max(i + 1, search(i, past, k => times[k] >= limit));
      columns.push({ x, count: next - i });
      i = next;
    }
    return columns;
  },

  drawDensity(pen, row, sorted) {
    const columns = timeline.densityOf(sorted);
    const most = columns.reduce((largest, { count }) => Math.max(largest, count), 1);
    const whole = timeline.rowHeight - 6;
    for (const { x, count } of columns) {
      const height = most === 1 ? whole : whole * (0.45 + 0.55 * Math.log(count) / Math.log(most));
      pen.fillRect(x - 1, row.top + (timeline.rowHeight - height) / 2, 2, height);
    }
  },

  drawSpans(pen, colour, row) {
    const { begin } = recording.spans;
    const past = search(row.first, row.first + row.count, i => begin[i] > page.view.end);
    // Spans of a row don't overlap, so that one at most reaches into the view from before.
    const reaching = search(row.first, past, i => begin[i] >= page.view.begin) - 1;
    for (let i = Math.max(row.first, reaching); i < past;) {
      const x = timeline.xOf(begin[i]);
      if (timeline.xOf(spanEnd(i)) - x >= 3 && !row.isMixed) {
        timeline.drawSpan(pen, colour, row, i++);
        continue;
      }
      const limit = timeline.timeAt(Math.floor(x) + 1);
      const next = Math.max(i + 1, search(i, past, k => begin[k] >= limit));
      // The last of a column can be long.
      const end = next - i > 1 && !row.isMixed && timeline.xOf(spanEnd(next - 1)) - x >= 3 ? next - 1 : next;
      const isSingle = end - i === 1 && !row.isMixed;
      const busy = (timeline.busy[end] - timeline.busy[i]) / (limit - timeline.timeAt(Math.floor(x)));
      const height = (timeline.rowHeight - 4) * (isSingle ? 1 : 0.3 + 0.7 * Math.min(1, busy));
      pen.fillStyle = colour(timeline.isFailed(i) ? "failed" : "edge");
      pen.fillRect(Math.floor(x), row.top + (timeline.rowHeight - height) / 2, isSingle ? 2 : 1, height);
      i = end;
    }
  },

  isFailed: span => spanDetail(span) === "failed",

  drawSpan(pen, colour, row, span) {
    const left = Math.max(timeline.xOf(recording.spans.begin[span]), timeline.labelWidth - 2);
    const right = Math.min(timeline.xOf(spanEnd(span)), timeline.width + 2);
    if (right <= left) {
      return;
    }
    const isOpen = recording.spans.isOpen[span] !== 0;
    pen.fillStyle = colour(isOpen || timeline.isFailed(span) ? "open" : row.depth % 2 === 0 ? "span" : "inner");
    pen.fillRect(left, row.top + 2, right - left, timeline.rowHeight - 4);
    pen.strokeStyle = colour(timeline.isFailed(span) ? "failed" : "edge");
    pen.strokeRect(left + 0.5, row.top + 2.5, right - left - 1, timeline.rowHeight - 5);
    if (right - left > 24) {
      pen.save();
      pen.beginPath();
      pen.rect(left, row.top, right - left - 3, timeline.rowHeight);
      pen.clip();
      pen.fillStyle = colour("spanInk");
      pen.fillText(spanName(span), left + 5, row.top + timeline.rowHeight / 2);
      pen.restore();
    }
  },

  /// A frame around the selected Blob, and a line to its question or answer.
  drawSelection(pen, colour) {
    if (page.selected === noBlob) {
      return;
    }
    const place = blob => {
      const row = timeline.blobRows.find(candidate => candidate.track === recording.blobs.track[blob]);
      return { x: timeline.xOf(recording.blobs.time[blob]), top: row.top };
    };
    pen.strokeStyle = colour("ink");
    const { x, top } = place(page.selected);
    pen.strokeRect(Math.round(x) - 3.5, top + 1.5, 7, timeline.rowHeight - 3);
    if (partnerOf(page.selected) !== noBlob) {
      const other = place(partnerOf(page.selected));
      const isDown = other.top > top;
      pen.beginPath();
      pen.moveTo(x, top + (isDown ? timeline.rowHeight - 1.5 : 1.5));
      pen.lineTo(other.x, other.top + (isDown ? 3 : timeline.rowHeight - 3));
      pen.stroke();
    }
  },

  /// What is at a point of the canvas: {blob, count} with how many share its column, {span}, or null.
  at(x, y) {
    const contentY = y + timeline.scroller.scrollTop;
    const row = timeline.rows.find(candidate => contentY >= candidate.top && contentY < candidate.top + timeline.rowHeight);
    if (row === undefined || x < timeline.labelWidth || y < timeline.axisHeight) {
      return null;
    }
    return row.all === undefined ? timeline.spanAt(row, x) : timeline.blobAt(row, x);
  },

  blobAt(row, x) {
    const { times, blobs } = row.chosen;
    const reach = 5;
    const distance = i => Math.abs(timeline.xOf(times[i]) - x);
    const after = search(0, times.length, i => timeline.xOf(times[i]) >= x);
    const nearest = [after - 1, after].filter(i => i >= 0 && i < times.length && distance(i) <= reach)
      .sort((left, right) => distance(left) - distance(right))[0];
    if (nearest === undefined) {
      return null;
    }
    const centre = Math.round(timeline.xOf(times[nearest]));
    const begin = search(0, times.length, i => times[i] >= timeline.timeAt(centre - 0.5));
    const end = search(begin, times.length, i => times[i] >= timeline.timeAt(centre + 0.5));
    return { blob: blobs[nearest], count: Math.max(1, end - begin) };
  },

  spanAt(row, x) {
    const { begin } = recording.spans;
    const span = search(row.first, row.first + row.count, i => timeline.xOf(begin[i]) > x + 1) - 1;
    const isThere = span >= row.first &&
      x <= Math.max(timeline.xOf(spanEnd(span)), timeline.xOf(begin[span]) + 2) + 1;
    return isThere ? { span } : null;
  },
};

// ---- the mouse ----

function tipText(found) {
  if (found.span === undefined) {
    const { blob, count } = found;
    return recording.blobs.number[blob] + "  " + nameOf(blob) + ", " + directionText(blob) + "\n" +
      recording.blobs.time[blob].toFixed(6) + " s, " + recording.blobs.size[blob] + " bytes\n" +
      (recording.blobs.failure[blob] === 0 ? "" : recording.failures[recording.blobs.failure[blob]] + "\n") +
      summaryOf(blob).slice(0, 300) + (count > 1 ? "\nnearest of " + count.toLocaleString("en") + " at this place" : "");
  }
  const { span } = found;
  return spanName(span) + "\n" + durationText(recording.spans.duration[span]) + ", from " +
    recording.spans.begin[span].toFixed(6) + " s" + (spanDetail(span) === "" ? "" : "\n" + spanDetail(span));
}

function showTip(x, y) {
  const found = timeline.at(x, y);
  const tip = element("tip");
  tip.hidden = found === null;
  if (found !== null) {
    tip.textContent = tipText(found);
    tip.style.left = Math.max(0, Math.min(x + 14, timeline.width - tip.offsetWidth - 4)) + "px";
    tip.style.top = timeline.scroller.offsetTop + y + 16 + "px";
  }
}

/// A click selects a Blob, or the first one of a span; anywhere else it moves the table to that time.
function clickTimeline(x, y) {
  const found = timeline.at(x, y);
  if (found === null) {
    table.revealTime(timeline.timeAt(Math.max(x, timeline.labelWidth)));
  } else if (found.span === undefined) {
    page.select(found.blob);
  } else if (recording.spans.first[found.span] !== 0) {
    page.select(recording.spans.first[found.span] - 1);
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
    if (drag !== null && !drag.isMoved) {
      clickTimeline(event.offsetX, event.offsetY);
    }
  });
  canvas.addEventListener("dblclick", event => {
    const found = timeline.at(event.offsetX, event.offsetY);
    if (found !== null && found.span !== undefined) {
      const { begin, duration } = recording.spans;
      const margin = duration[found.span] * 0.05 + 1e-5;
      page.show(begin[found.span] - margin, spanEnd(found.span) + margin);
    } else {
      page.showAll();
    }
  });
  timeline.scroller.addEventListener("scroll", timeline.draw);
  new ResizeObserver(timeline.draw).observe(timeline.scroller);
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", timeline.draw);
}
