// The picture: a row for each track, or for each depth of its spans. Blobs are strokes, spans are bars.

const timeline = {
  canvas: element("canvas"),
  labelWidth: 210,
  axisHeight: 24,
  rowHeight: 20,
  rows: [], // {track, lane, depth, top}
  width: 0,

  /// One row for the Blobs of a track, and as many for its spans as they need.
  layOut() {
    const wanted = new Map();
    const want = (track, lane, depth) => wanted.set([track, lane, depth].map(n => String(n).padStart(6, "0")).join(), { track, lane, depth });
    recording.blobs.forEach(blob => want(blob.track, 0, 0));
    recording.spans.forEach(span => want(span.track, span.lane, span.depth));
    timeline.rows = [...wanted.keys()].sort().map(key => wanted.get(key));
    timeline.rows.forEach((row, i) => { row.top = timeline.axisHeight + i * timeline.rowHeight; });
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
    const height = timeline.axisHeight + timeline.rows.length * timeline.rowHeight + 4;
    timeline.width = canvas.clientWidth;
    canvas.style.height = height + "px";
    canvas.width = timeline.width * scale;
    canvas.height = height * scale;
    const style = getComputedStyle(document.documentElement);
    const colour = name => style.getPropertyValue("--" + name).trim();
    const pen = canvas.getContext("2d");
    pen.scale(scale, scale);
    pen.font = "12px system-ui, sans-serif";
    pen.textBaseline = "middle";
    timeline.drawRows(pen, colour, height);
    pen.save();
    pen.beginPath();
    pen.rect(timeline.labelWidth, 0, timeline.width, height);
    pen.clip();
    timeline.drawAxis(pen, colour, height);
    recording.spans.forEach(span => timeline.drawSpan(pen, colour, span));
    timeline.drawBlobs(pen, colour);
    pen.restore();
    const { begin, end } = page.view;
    element("range").textContent = timeText(begin, end - begin) + " to " + timeText(end, end - begin);
  },

  drawRows(pen, colour, height) {
    const severalHosts = new Set(recording.tracks.map(track => track.host)).size > 1;
    let last = null;
    for (const row of timeline.rows) {
      if (row.track % 2 === 0) {
        pen.fillStyle = colour("band");
        pen.fillRect(0, row.top, timeline.width, timeline.rowHeight);
      }
      if (row.track !== last) {
        last = row.track;
        const track = recording.tracks[row.track];
        const host = severalHosts ? track.host + ": " : "";
        pen.fillStyle = colour("ink");
        pen.fillText(host + track.name + (track.thread ? " " + track.thread : ""), 8, row.top + timeline.rowHeight / 2, timeline.labelWidth - 14);
      }
    }
    pen.fillStyle = colour("line");
    pen.fillRect(timeline.labelWidth - 1, 0, 1, height);
  },

  drawAxis(pen, colour, height) {
    const { begin, end } = page.view;
    const rough = (end - begin) / Math.max(2, (timeline.width - timeline.labelWidth) / 110);
    const power = 10 ** Math.floor(Math.log10(rough));
    const step = [1, 2, 5, 10].map(n => n * power).find(n => n >= rough);
    for (let i = Math.ceil(begin / step); i * step <= end; ++i) {
      const x = timeline.xOf(i * step);
      pen.fillStyle = colour("line");
      pen.fillRect(x, timeline.axisHeight - 6, 1, height);
      pen.fillStyle = colour("faint");
      pen.fillText(timeText(i * step, end - begin), x + 3, timeline.axisHeight / 2);
    }
  },

  drawSpan(pen, colour, span) {
    const row = timeline.rowOf(span.track, span.lane, span.depth);
    const left = Math.max(timeline.xOf(span.begin), timeline.labelWidth - 2);
    const right = Math.min(Math.max(timeline.xOf(span.end), timeline.xOf(span.begin) + 2), timeline.width + 2);
    if (right <= left) {
      return;
    }
    const isNarrow = right - left < 8;
    pen.fillStyle = colour(isNarrow ? "edge" : span.last === 0 ? "open" : span.depth % 2 === 0 ? "span" : "inner");
    pen.fillRect(left, row.top + 2, right - left, timeline.rowHeight - 4);
    if (!isNarrow) {
      pen.strokeStyle = colour("edge");
      pen.strokeRect(left + 0.5, row.top + 2.5, right - left - 1, timeline.rowHeight - 5);
    }
    if (right - left > 24) {
      pen.save();
      pen.beginPath();
      pen.rect(left, row.top, right - left - 3, timeline.rowHeight);
      pen.clip();
      pen.fillStyle = colour("spanInk");
      pen.fillText(span.name, left + 5, row.top + timeline.rowHeight / 2);
      pen.restore();
    }
  },

  drawBlobs(pen, colour) {
    const chosen = new Set(page.chosen);
    for (const blob of recording.blobs) {
      const x = timeline.xOf(blob.time);
      const row = timeline.rowOf(blob.track, 0, 0);
      pen.globalAlpha = chosen.has(blob) ? 1 : 0.15;
      pen.fillStyle = colour(blob.fromAgent ? "from" : "to");
      pen.fillRect(x - 1, row.top + 3, 2, timeline.rowHeight - 6);
      if (blob === page.selected) {
        pen.globalAlpha = 1;
        pen.strokeStyle = colour("ink");
        pen.strokeRect(x - 3.5, row.top + 1.5, 7, timeline.rowHeight - 3);
      }
    }
    pen.globalAlpha = 1;
  },

  /// What lies under a point of the picture: {blob}, {span} or null.
  at(x, y) {
    const row = timeline.rows.find(candidate => y >= candidate.top && y < candidate.top + timeline.rowHeight);
    if (row === undefined || x < timeline.labelWidth) {
      return null;
    }
    const reach = 5;
    const near = page.chosen.filter(blob => blob.track === row.track && row.lane === 0 && row.depth === 0)
      .map(blob => ({ blob, distance: Math.abs(timeline.xOf(blob.time) - x) }))
      .filter(candidate => candidate.distance <= reach)
      .sort((left, right) => left.distance - right.distance);
    if (near.length > 0) {
      return { blob: near[0].blob };
    }
    const span = recording.spans.find(candidate => candidate.track === row.track && candidate.lane === row.lane &&
      candidate.depth === row.depth && x >= timeline.xOf(candidate.begin) - 1 &&
      x <= Math.max(timeline.xOf(candidate.end), timeline.xOf(candidate.begin) + 2) + 1);
    return span === undefined ? null : { span };
  },
};
