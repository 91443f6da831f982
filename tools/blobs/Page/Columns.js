// The columns of the table: what they show, their order by a click on their heads, their widths by the edges of these.

/// Calls `resize` with the distance in pixels by which an edge is dragged, or moved with the arrow keys.
function listenToEdge(edge, resize) {
  let last = null;
  edge.tabIndex = 0;
  edge.setAttribute("role", "separator");
  edge.setAttribute("aria-orientation", "vertical");
  edge.addEventListener("mousedown", event => {
    last = event.clientX;
    event.preventDefault();
  });
  window.addEventListener("mousemove", event => {
    if (last !== null) {
      resize(event.clientX - last);
      last = event.clientX;
    }
  });
  window.addEventListener("mouseup", () => { last = null; });
  edge.addEventListener("click", event => event.stopPropagation());
  edge.addEventListener("keydown", event => {
    if (event.key === "ArrowLeft" || event.key === "ArrowRight") {
      resize(event.key === "ArrowLeft" ? -8 : 8);
      event.preventDefault();
      event.stopPropagation();
    }
  });
}

const columns = {
  least: 24, // pixels

  // `key` gives the whole numbers by which a column is sorted, -1 for what is last; it is missing where nothing is sorted.
  list: [
    { name: "Blob", width: 74, kind: "number", text: blob => recording.blobs.number[blob], key: blob => blob },
    { name: "Seconds", width: 92, kind: "number", text: blob => recording.blobs.time[blob].toFixed(6), key: blob => blob },
    { name: "", label: "Direction", width: 26, kind: "way", text: blob => (recording.blobs.fromAgent[blob] ? "\u2190" : "\u2192"), key: blob => recording.blobs.fromAgent[blob] },
    { name: "Type", width: 150, kind: "type", text: nameOf, key: blob => columns.rankOfType.get(recording.blobs.type[blob]) },
    { name: "Bytes", width: 62, kind: "number", text: blob => recording.blobs.size[blob], key: blob => recording.blobs.size[blob] },
    { name: "Latency", width: 88, kind: "number", text: blob => (recording.blobs.latency[blob] < 0 ? "" : durationText(recording.blobs.latency[blob])),
      key: blob => (recording.blobs.latency[blob] < 0 ? -1 : Math.min(Math.round(recording.blobs.latency[blob] * 1e6), 0xFFFFFFFE)) },
    { name: "Fields", width: 0, kind: "fields", text: blob => summaryOf(blob, 60).slice(0, longestText) },
  ],
  sorted: 0,
  isDescending: false,

  fill() {
    columns.rankOfType = new Map([...new Set(recording.blobs.type)]
      .sort((left, right) => typeName(left).localeCompare(typeName(right))).map((type, rank) => [type, rank]));
    columns.list.forEach((column, i) => {
      column.col = make("col");
      const label = column.label || column.name;
      const edge = make("span", "edge");
      edge.setAttribute("aria-label", "Width of " + label);
      listenToEdge(edge, distance => {
        column.width = Math.max(columns.least, (column.width || column.head.offsetWidth) + distance);
        columns.setWidths();
      });
      column.head = make("th", column.kind);
      column.head.scope = "col";
      if (column.key === undefined) {
        column.head.append(column.name);
      } else {
        column.button = make("button", "sort", column.name);
        column.button.setAttribute("aria-label", label);
        column.button.title = "Sort by " + label.toLowerCase();
        column.button.addEventListener("click", () => columns.sortBy(i));
        column.head.append(column.button);
      }
      column.head.append(edge);
    });
    element("cols").append(...columns.list.map(column => column.col));
    element("heads").append(...columns.list.map(column => column.head));
    columns.setWidths();
    columns.mark();
  },

  setWidths() {
    const rest = 160; // of the last column at least, until it gets a width of its own
    columns.list.forEach(column => { column.col.style.width = column.width === 0 ? "" : column.width + "px"; });
    const sum = columns.list.reduce((total, column) => total + (column.width || rest), 0);
    const isFixed = columns.list.every(column => column.width !== 0);
    element("table").style.minWidth = sum + "px";
    element("table").style.width = isFixed ? sum + "px" : "100%";
  },

  sortBy(i) {
    columns.isDescending = i === columns.sorted && !columns.isDescending;
    columns.sorted = i;
    columns.mark();
    applyOrder();
  },

  mark() {
    columns.list.forEach((column, i) => {
      const isSorted = i === columns.sorted;
      column.head.setAttribute("aria-sort", !isSorted ? "none" : columns.isDescending ? "descending" : "ascending");
    });
  },

  /// All Blobs by the chosen column. Those without a latency are last either way.
  order() {
    const column = columns.list[columns.sorted];
    if (column.order === undefined) {
      columns.sort(column);
    }
    if (!columns.isDescending) {
      return column.order;
    }
    const order = column.order.slice();
    order.subarray(0, column.known).reverse();
    return order;
  },

  sort(column) {
    const none = 0xFFFFFFFF;
    const keys = new Uint32Array(recording.blobs.time.length);
    column.known = 0;
    for (let blob = 0; blob < keys.length; ++blob) {
      const key = column.key(blob);
      keys[blob] = key < 0 ? none : key;
      column.known += key < 0 ? 0 : 1;
    }
    column.order = column.name === "Seconds" ? timeline.byTime : sortedBy(keys);
  },
};
