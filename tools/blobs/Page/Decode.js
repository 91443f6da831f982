// Reads payloads by the tables of fields, as the command does.

/// The longest text of a field or a summary that is shown.
const longestText = 2000;

class Decoder {
  constructor(payload) {
    this.payload = payload;
    this.end = payload.length;
    this.view = new DataView(payload.buffer, payload.byteOffset, payload.length);
  }

  /// Unsigned; a BigInt where a number isn't exact.
  numberAt(offset, size) {
    switch (size) {
    case 1: return this.view.getUint8(offset);
    case 2: return this.view.getUint16(offset, true);
    case 4: return this.view.getUint32(offset, true);
    default: {
      const high = this.view.getUint32(offset + 4, true);
      return high < 0x200000 ? high * 4294967296 + this.view.getUint32(offset, true) : this.view.getBigUint64(offset, true);
    }
    }
  }

  record(layout, base) {
    return layout.fields.map(field => this.field(field, base));
  }

  field(layout, base) {
    const field = this.element(layout.name, layout.kind, base + layout.offset, layout.size);
    field.values = layout.values;
    if (field.offset + layout.size > this.end) {
      field.size = Math.max(0, this.end - field.offset);
      field.problem = "the payload ends before its end";
      return field;
    }
    const inPlace = Decoder.inPlace[layout.kind];
    const referred = Decoder.referred[layout.kind];
    if (inPlace !== undefined) {
      inPlace.call(this, field, layout);
    } else if (referred !== undefined) {
      const distance = this.numberAt(field.offset, 4);
      if (distance === 0) {
        field.isAbsent = true;
      } else if (distance > this.end - field.offset) {
        field.problem = Decoder.outside;
      } else {
        field.itemOffset = field.offset + distance;
        referred.call(this, field, layout, base);
      }
    }
    return field;
  }

  element(name, kind, offset, size) {
    return { name, kind, offset, size, itemOffset: offset, itemSize: 0, number: 0, text: "", values: {}, isAbsent: false,
      problem: "", children: [] };
  }

  textAt(offset, size, unitSize) {
    const bytes = this.payload.subarray(offset, offset + size);
    return (unitSize === 2 ? Decoder.utf16 : Decoder.utf8).decode(bytes);
  }

  fail(field, problem) {
    field.problem = problem;
    field.itemOffset = field.offset;
    field.itemSize = 0;
    field.children = [];
  }

  inlineText(field, unitSize) {
    const length = this.numberAt(field.offset, 4);
    if (length > Math.floor((field.size - 4) / unitSize)) {
      field.problem = "the length " + length + " exceeds the string's capacity";
    } else {
      field.text = this.textAt(field.offset + 4, length * unitSize, unitSize);
    }
  }

  text(field, unitSize) {
    for (let i = field.itemOffset; i + unitSize <= this.end; i += unitSize) {
      if (this.payload[i] === 0 && (unitSize === 1 || this.payload[i + 1] === 0)) {
        field.itemSize = i + unitSize - field.itemOffset;
        field.text = this.textAt(field.itemOffset, i - field.itemOffset, unitSize);
        return;
      }
    }
    this.fail(field, "the string has no terminator");
  }

  /// The product of the factors; infinite if one is missing.
  countOf(layout, base) {
    let count = 1;
    for (const factor of layout.factors) {
      const offset = base + factor.offset;
      count *= offset + factor.size > this.end ? Infinity : Number(this.numberAt(offset, factor.size));
    }
    return layout.constant !== 0 ? layout.constant : Number.isNaN(count) ? Infinity : count;
  }

  arrayCount(field) {
    return this.numberAt(field.offset + 4, 4);
  }

  take(field, count, elementSize) {
    if (count > Math.floor((this.end - field.itemOffset) / elementSize)) {
      this.fail(field, Decoder.outside);
      return false;
    }
    field.itemSize = count * elementSize;
    return true;
  }

  numbers(field, count, kind) {
    if (this.take(field, count, 8)) {
      for (let i = 0; i < count; ++i) {
        const element = this.element("[" + i + "]", kind, field.itemOffset + i * 8, 8);
        element.number = this.numberAt(element.offset, 8);
        field.children.push(element);
      }
    }
  }

  strings(field) {
    const count = this.arrayCount(field);
    let textSize = 0;
    if (this.take(field, count, 4)) {
      for (let i = 0; i < count; ++i) {
        const element = this.field({ name: "[" + i + "]", offset: 0, size: 4, kind: "ANSI string", values: {} },
          field.itemOffset + i * 4);
        field.children.push(element);
        textSize += element.itemSize;
        if (textSize > this.end) {
          this.fail(field, "its strings are longer than the payload");
          return;
        }
      }
    }
  }

  records(field, layout) {
    const elements = recording.records[layout.elements];
    const count = this.arrayCount(field);
    if (this.take(field, count, elements.size)) {
      for (let i = 0; i < count; ++i) {
        const element = this.element("[" + i + "]", "record", field.itemOffset + i * elements.size, elements.size);
        element.children = this.record(elements, element.offset);
        field.children.push(element);
      }
    }
  }
}

Decoder.outside = "refers to data outside of the payload";
Decoder.utf8 = new TextDecoder("utf-8", { ignoreBOM: true });
Decoder.utf16 = new TextDecoder("utf-16le", { ignoreBOM: true });

/// How fields of a kind are read: from their own bytes, or from the data that they refer to.
Decoder.inPlace = {
  "flag"(field) { field.number = this.numberAt(field.offset, field.size); },
  "number"(field) { field.number = this.numberAt(field.offset, field.size); },
  "signed number"(field) { field.number = this.view.getInt32(field.offset, true); },
  "hexadecimal"(field) { field.number = this.numberAt(field.offset, field.size); },
  "address"(field) { field.number = this.numberAt(field.offset, field.size); },
  "inline ANSI string"(field) { this.inlineText(field, 1); },
  "inline UTF-16 string"(field) { this.inlineText(field, 2); },
  "record"(field, layout) { field.children = this.record(recording.records[layout.elements], field.offset); },
};
Decoder.referred = {
  "ANSI string"(field) { this.text(field, 1); },
  "UTF-16 string"(field) { this.text(field, 2); },
  "data"(field, layout, base) {
    if (this.take(field, this.countOf(layout, base), 1) && layout.elements !== null) {
      field.children = this.record(recording.records[layout.elements], field.itemOffset);
    }
  },
  "addresses"(field, layout, base) { this.numbers(field, this.countOf(layout, base), "address"); },
  "numbers"(field) { this.numbers(field, this.arrayCount(field), "number"); },
  "strings"(field) { this.strings(field); },
  "records"(field, layout) { this.records(field, layout); },
};

function fieldsOf(blob) {
  const type = recording.typeOf.get(recording.blobs.type[blob]);
  const decoder = new Decoder(payloadOf(blob));
  if (type !== undefined && type.record !== null) {
    return decoder.record(recording.records[type.record], 0);
  }
  return decoder.end === 0 ? [] : [decoder.element("payload", "bytes", 0, decoder.end)];
}

// ---- values as text ----

const hexOf = bytes => Array.from(bytes, byte => byte.toString(16).padStart(2, "0")).join("");
const plural = (count, one) => count + " " + one + (count === 1 ? "" : "s");

function bytesText(payload, offset, size) {
  const most = 32;
  const shown = hexOf(payload.subarray(offset, offset + Math.min(size, most)));
  return size <= most ? shown : shown + "... (" + plural(size, "byte") + ")";
}

function numberText(field) {
  let text = String(field.number);
  if (field.kind === "hexadecimal" || field.kind === "address") {
    const digits = field.kind === "address" ? 8 : Math.min(8, field.size * 2);
    text = "0x" + field.number.toString(16).toUpperCase().padStart(digits, "0");
  }
  const name = field.values[String(field.number)];
  return name === undefined ? text : text + " (" + name + ")";
}

function fieldText(field, payload) {
  if (field.problem !== "") {
    return "(" + field.problem + ")";
  }
  if (field.isAbsent) {
    return "none";
  }
  switch (field.kind) {
  case "flag": case "number": case "signed number": case "hexadecimal": case "address":
    return numberText(field);
  case "inline ANSI string": case "inline UTF-16 string": case "ANSI string": case "UTF-16 string":
    return JSON.stringify(field.text);
  case "record":
    return "{" + fieldSummary(field.children, payload) + "}";
  case "data":
    return field.children.length === 0 ? bytesText(payload, field.itemOffset, field.itemSize)
      : "{" + fieldSummary(field.children, payload) + "}";
  case "addresses":
    return field.children.length === 1 ? fieldText(field.children[0], payload) : field.children.length + " addresses";
  case "numbers": case "strings": case "records":
    return plural(field.children.length, field.kind.slice(0, -1));
  default:
    return bytesText(payload, field.offset, field.size);
  }
}

const isWorthSeeing = field => field.kind !== "padding" && field.kind !== "bytes" && !field.isAbsent;

function fieldSummary(fields, payload) {
  return fields.filter(isWorthSeeing).map(field => field.name + "=" + fieldText(field, payload)).join(" ");
}

/// The fields at a path such as "record.code"; of a list, those of each of its elements.
function fieldsAt(fields, path) {
  const [name, ...rest] = path;
  const field = fields.find(candidate => candidate.name === name);
  if (field === undefined || field.isAbsent) {
    return [];
  }
  if (rest.length === 0) {
    return [field];
  }
  return field.kind === "records" ? field.children.flatMap(element => fieldsAt(element.children, rest))
    : fieldsAt(field.children, rest);
}

/// The key fields of a Blob's type, then the others. Strings of key fields that are longer than `longestKey`, such as
/// paths, lose their beginning.
function summaryOf(blob, longestKey = Infinity) {
  const payload = payloadOf(blob);
  const fields = fieldsOf(blob);
  const type = recording.typeOf.get(recording.blobs.type[blob]);
  if (type === undefined) {
    return fields.length === 0 ? "" : "payload=" + fieldText(fields[0], payload);
  }
  const ending = field => (field.text.length <= longestKey ? field : { ...field, text: "..." + field.text.slice(3 - longestKey) });
  const keys = type.keys.map(key => ({ key, found: fieldsAt(fields, key.split(".")) }))
    .filter(({ found }) => found.length > 0)
    .map(({ key, found }) => key + "=" + found.map(field => fieldText(ending(field), payload)).join(", "));
  const others = fieldSummary(fields.filter(field => !type.keys.includes(field.name)), payload);
  return [...keys, ...(others === "" ? [] : [others])].join(" ");
}
