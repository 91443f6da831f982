// The selected Blob: its fields and its bytes, of which those that belong together are marked together.

const details = {
  bytesInLine: 16,
  mostBytes: 2048,   // that are shown at once
  mostElements: 64,  // of a list, until more are asked for
  elements: 64,
  begin: 0,          // the first byte that is shown
  fields: [],        // {field, row}, outer ones first
  bytes: [],         // the elements of the bytes that are shown
  characters: [],

  show() {
    const place = element("blob");
    const blob = page.selected;
    document.querySelector("main").classList.toggle("empty", blob === noBlob);
    if (blob === noBlob) {
      place.replaceChildren(make("p", "", "Select a Blob to see its fields and its bytes."));
      return;
    }
    if (blob !== details.blob) {
      details.blob = blob;
      details.elements = details.mostElements;
      details.begin = 0;
      place.scrollTop = 0;
    }
    const { number, time, size, type, failure } = recording.blobs;
    const rows = make("tbody");
    details.fields = [];
    details.addRows(rows, fieldsOf(blob), payloadOf(blob), 0);
    const head = make("tr", "", ...["Field", "Value", "Kind"].map(text => make("th", "", text)));
    const about = make("p", "", "Blob " + number[blob] + ", " + directionText(blob) + " of process " + hostOf(blob) + ", at " +
      time[blob].toFixed(6) + " s, " + plural(size[blob], "payload byte"));
    if (failure[blob] !== 0) {
      about.append(make("span", "failure", recording.failures[failure[blob]]));
    }
    place.replaceChildren(make("h2", "", nameOf(blob) + " (" + type[blob] + ")"), about, ...details.partner(blob),
      ...(details.fields.length === 0 ? [] : [make("table", "fields", make("thead", "", head), rows)]), make("div", "dump"));
    details.showBytes();
  },

  /// The way to the question or the answer.
  partner(blob) {
    const partner = partnerOf(blob);
    const latency = recording.blobs.latency[blob];
    if (partner === noBlob) {
      return latency < 0 ? [] : [make("p", "", "Latency " + durationText(latency) + "; its other end isn't in this page.")];
    }
    const { time, number } = recording.blobs;
    const isAnswered = number[partner] > number[blob];
    const button = make("button", "", (isAnswered ? "Go to the answer, " : "Go to the question, ") + nameOf(partner) + " " + number[partner]);
    button.id = "partner";
    button.title = "Enter, in the table or the timeline";
    button.addEventListener("click", jumpToPartner);
    return [make("p", "", button, " " + durationText(Math.abs(time[partner] - time[blob])) + (isAnswered ? " later" : " before"))];
  },

  addRows(rows, fields, payload, depth) {
    let count = 0;
    for (const field of fields.filter(candidate => candidate.kind !== "padding")) {
      if (depth > 0 && ++count > details.elements) {
        const more = make("button", "", fields.length - details.elements + " more");
        more.addEventListener("click", () => {
          details.elements *= 16;
          details.show();
        });
        rows.append(make("tr", "", make("td", "", more)));
        return;
      }
      const name = make("td", "", field.name);
      name.style.paddingLeft = 8 + depth * 12 + "px";
      const isRecord = field.kind === "record" && field.problem === "";
      const value = make("td", field.problem === "" ? "" : "failure", isRecord ? "" : fieldText(field, payload).slice(0, longestText));
      const row = make("tr", "", name, value, make("td", "kind", field.kind));
      row.tabIndex = 0;
      row.addEventListener("mouseenter", () => details.mark(field));
      row.addEventListener("focus", () => details.mark(field));
      row.addEventListener("click", () => details.showBytesOf(field));
      row.addEventListener("mouseleave", () => details.mark(null));
      details.fields.push({ field, row });
      rows.append(row);
      details.addRows(rows, field.children, payload, depth + 1);
    }
  },

  // ---- bytes ----

  showBytes() {
    const payload = payloadOf(page.selected);
    const end = Math.min(payload.length, details.begin + details.mostBytes);
    const place = element("blob").querySelector(".dump");
    details.bytes = [];
    details.characters = [];
    const lines = [];
    for (let offset = details.begin; offset < end; offset += details.bytesInLine) {
      lines.push(details.line(payload, offset, Math.min(end, offset + details.bytesInLine)));
    }
    place.replaceChildren(...details.pager(payload.length), ...lines);
  },

  line(payload, begin, end) {
    const line = make("div", "", begin.toString(16).padStart(6, "0") + "  ");
    const characters = make("span", "characters");
    for (let i = begin; i < begin + details.bytesInLine; ++i) {
      const gap = i - begin === 7 ? "  " : " ";
      if (i >= end) {
        line.append("  " + gap);
        continue;
      }
      const byte = make("b", "", payload[i].toString(16).padStart(2, "0"));
      const isPlain = payload[i] >= 0x20 && payload[i] < 0x7F;
      const character = make("b", "", isPlain ? String.fromCharCode(payload[i]) : "\u00b7");
      for (const shown of [byte, character]) {
        shown.addEventListener("mouseenter", () => details.mark(details.fieldOf(i)));
        shown.addEventListener("mouseleave", () => details.mark(null));
      }
      details.bytes.push(byte);
      details.characters.push(character);
      line.append(byte, gap);
      characters.append(character);
    }
    line.append(" ", characters);
    return line;
  },

  /// For payloads that aren't shown as a whole.
  pager(size) {
    if (size <= details.mostBytes) {
      return [];
    }
    const button = (text, begin) => {
      const made = make("button", "", text);
      made.disabled = begin < 0 || begin >= size;
      made.addEventListener("click", () => {
        details.begin = begin;
        details.showBytes();
      });
      return made;
    };
    const end = Math.min(size, details.begin + details.mostBytes);
    return [make("p", "", button("\u25c0", details.begin - details.mostBytes), button("\u25b6", details.begin + details.mostBytes),
      " bytes " + details.begin.toLocaleString("en") + " to " + (end - 1).toLocaleString("en") + " of " + size.toLocaleString("en"))];
  },

  showBytesOf(field) {
    const offset = field.itemSize > 0 ? field.itemOffset : field.offset;
    details.begin = Math.floor(offset / details.mostBytes) * details.mostBytes;
    details.showBytes();
    details.mark(field);
    const byte = details.bytes[offset - details.begin];
    if (byte !== undefined) {
      byte.scrollIntoView({ block: "nearest" });
    }
  },

  /// The innermost field that has a byte, its own or of its data.
  fieldOf(offset) {
    const has = (begin, size) => offset >= begin && offset < begin + size;
    const found = details.fields.filter(({ field }) => has(field.offset, field.size) || has(field.itemOffset, field.itemSize));
    return found.length === 0 ? null : found[found.length - 1].field;
  },

  /// Marks a field and its bytes, and no others.
  mark(field) {
    element("blob").querySelectorAll(".marked").forEach(marked => marked.classList.remove("marked"));
    if (field === null) {
      return;
    }
    const entry = details.fields.find(candidate => candidate.field === field);
    entry.row.classList.add("marked");
    for (const [begin, size] of [[field.offset, field.size], [field.itemOffset, field.itemSize]]) {
      const last = Math.min(begin + size - details.begin, details.bytes.length);
      for (let i = Math.max(0, begin - details.begin); i < last; ++i) {
        details.bytes[i].classList.add("marked");
        details.characters[i].classList.add("marked");
      }
    }
  },
};
