// The table of all Blobs that pass the filter, and the fields of the one that is selected.

const table = {
  mostRows: 500,
  isWhole: false,
  rowOfBlob: new Map(),

  fill() {
    const shown = table.isWhole ? page.chosen : page.chosen.slice(0, table.mostRows);
    table.rowOfBlob.clear();
    element("rows").replaceChildren(...shown.map(blob => {
      const row = make("tr", "",
        make("td", "", String(blob.number)), make("td", "", blob.time.toFixed(6)),
        make("td", blob.fromAgent ? "from" : "to", blob.fromAgent ? "\u2190" : "\u2192"),
        make("td", "", blob.name), make("td", "", String(blob.size)), make("td", "", blob.summary));
      row.cells[2].title = directionText(blob);
      row.addEventListener("click", () => page.select(blob));
      table.rowOfBlob.set(blob, row);
      return row;
    }));
    element("more").hidden = shown.length === page.chosen.length;
    element("more").textContent = "Show the other " + (page.chosen.length - shown.length);
    element("count").textContent = page.chosen.length + " of " + recording.blobs.length + " Blobs";
    table.mark();
  },

  mark() {
    element("rows").querySelectorAll(".selected").forEach(row => row.classList.remove("selected"));
    const row = table.rowOfBlob.get(page.selected);
    if (row !== undefined) {
      row.classList.add("selected");
      row.scrollIntoView({ block: "nearest" });
    }
  },

  /// Bytes of a payload, as far as the page has them, in lines of eight after their offset.
  bytesText(blob, offset, size) {
    const most = 16;
    const digits = blob.bytes.slice(offset * 2, (offset + Math.min(size, most)) * 2);
    const lines = (digits.match(/.{1,16}/g) || []).map(line => line.match(/../g).join(" "));
    const place = offset.toString(16).padStart(4, "0") + "  ";
    return place + lines.join("\n" + " ".repeat(place.length)) + (size > digits.length / 2 ? " ..." : "");
  },

  fieldRow(blob, [depth, name, kind, offset, size, itemOffset, itemSize, value]) {
    const nameCell = make("td", "", name);
    nameCell.style.paddingLeft = 8 + depth * 12 + "px";
    const bytes = make("td", "bytes", kind === "" || kind === "record" ? "" : table.bytesText(blob, offset, size));
    if (itemSize > 0) {
      bytes.append("\n" + table.bytesText(blob, itemOffset, itemSize));
    }
    const isShown = kind === "bytes" && size <= 16;
    return make("tr", "", nameCell, make("td", "kind", kind), bytes, make("td", "", isShown ? "" : value));
  },

  showBlob() {
    const blob = page.selected;
    if (blob === null) {
      element("blob").replaceChildren(make("p", "", "Select a Blob to see its fields beside its bytes."));
      return;
    }
    const head = make("tr", "", ...["Field", "Kind", "Bytes", "Value"].map(text => make("th", "", text)));
    const body = make("tbody", "", ...blob.fields.map(field => table.fieldRow(blob, field)));
    element("blob").replaceChildren(
      make("h2", "", blob.name + " (" + blob.type + ")"),
      make("p", "", "Blob " + blob.number + ", " + directionText(blob) + " of process " + blob.host + ", at " +
        blob.time.toFixed(6) + " s, " + blob.size + " payload bytes"),
      make("table", "fields", make("thead", "", head), body));
    element("blob").scrollTop = 0;
  },
};
