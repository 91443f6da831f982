// The table of the Blobs that pass the filter. Only the rows that are visible exist.

const table = {
  list: element("list"),
  rowHeight: 22,
  mostPixels: 8e6, // of the scrolled area; browsers have limits of some ten million
  top: 0,          // the first visible row

  prepare() {
    table.list.addEventListener("scroll", () => {
      const room = table.scrollRoom();
      const top = room === 0 ? 0 : Math.round(table.list.scrollTop / room * table.lastTop());
      // A row is a few pixels of a long table: what has set the position knows it better.
      if (Math.abs(table.list.scrollTop - table.expected) >= 1) {
        table.top = top;
        table.draw();
      }
    });
    table.list.addEventListener("wheel", event => {
      if (table.lastTop() * table.rowHeight > table.mostPixels && event.deltaX === 0) {
        event.preventDefault();
        table.scrollTo(table.top + Math.sign(event.deltaY) * Math.max(1, Math.round(Math.abs(event.deltaY) / table.rowHeight)));
      }
    }, { passive: false });
    element("rows").addEventListener("click", event => {
      const row = event.target.closest("tr");
      if (row !== null) {
        page.select(row.blob);
      }
    });
    new ResizeObserver(() => table.fill()).observe(table.list);
  },

  pageSize() {
    const heads = element("heads").offsetHeight;
    return Math.max(1, Math.floor((table.list.clientHeight - heads) / table.rowHeight));
  },
  lastTop: () => Math.max(0, page.chosen.length - table.pageSize()),
  scrollRoom: () => Math.max(0, table.list.scrollHeight - table.list.clientHeight),

  /// After a change of the Blobs that pass the filter.
  fill() {
    const heads = element("heads").offsetHeight;
    const rows = Math.min(table.mostPixels, page.chosen.length * table.rowHeight);
    element("listSizer").style.height = heads + rows + "px";
    const all = recording.blobs.time.length.toLocaleString("en");
    element("count").textContent = page.chosen.length.toLocaleString("en") + " of " + all + " Blobs" +
      (page.progress < 1 ? ", " + Math.floor(page.progress * 100) + " % searched" : "");
    table.list.setAttribute("aria-rowcount", page.chosen.length);
    table.scrollTo(table.top);
  },

  scrollTo(row) {
    table.top = Math.max(0, Math.min(row, table.lastTop()));
    const last = table.lastTop();
    table.list.scrollTop = last === 0 ? 0 : table.top / last * table.scrollRoom();
    table.expected = table.list.scrollTop;
    table.draw();
  },

  draw() {
    const body = element("rows");
    const count = Math.min(table.pageSize() + 1, page.chosen.length - table.top);
    while (body.rows.length > count) {
      body.deleteRow(-1);
    }
    while (body.rows.length < count) {
      body.append(make("tr", "", ...columns.list.map(column => make("td", column.kind))));
    }
    for (let i = 0; i < count; ++i) {
      table.drawRow(body.rows[i], page.chosen[table.top + i], table.top + i);
    }
  },

  drawRow(row, blob, place) {
    const failure = recording.blobs.failure[blob];
    row.blob = blob;
    row.className = (blob === page.selected ? "selected " : "") +
      (page.selected !== noBlob && blob === partnerOf(page.selected) ? "partner " : "") + (failure === 0 ? "" : "failed");
    row.title = failure === 0 ? "" : recording.failures[failure];
    row.setAttribute("aria-rowindex", place + 1);
    row.setAttribute("aria-selected", String(blob === page.selected));
    columns.list.forEach((column, i) => {
      row.cells[i].textContent = column.text(blob);
    });
    const way = row.cells[2];
    way.className = "way " + (recording.blobs.fromAgent[blob] ? "from" : "to");
    way.title = directionText(blob);
  },

  /// Makes a Blob visible; if the filter hides it, its place.
  reveal(blob) {
    const row = page.chosen.indexOf(blob);
    if (row < 0 && blob !== noBlob) {
      table.revealTime(recording.blobs.time[blob]);
    } else if (row >= 0 && (row < table.top || row >= table.top + table.pageSize())) {
      table.scrollTo(row - Math.floor(table.pageSize() / 2));
    } else {
      table.draw();
    }
  },

  /// Moves to the row whose time is nearest, wherever the order has it.
  revealTime(time) {
    let nearest = 0;
    let least = Infinity;
    for (let row = 0; row < page.chosen.length; ++row) {
      const distance = Math.abs(recording.blobs.time[page.chosen[row]] - time);
      if (distance < least) {
        nearest = row;
        least = distance;
      }
    }
    table.scrollTo(nearest - Math.floor(table.pageSize() / 2));
  },

  /// Selects another row, so many further down.
  step(distance) {
    const last = page.chosen.length - 1;
    const row = Math.max(0, Math.min(page.chosen.indexOf(page.selected) + distance, last));
    if (last >= 0) {
      page.select(page.chosen[row]);
    }
  },
};
