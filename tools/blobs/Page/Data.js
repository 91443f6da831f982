"use strict";

// The recording in columns of numbers. A Blob is an index into them, -1 for none; so is a span.

const element = id => document.getElementById(id);
const recording = {};
const noBlob = -1;

/// Makes an element with a class and texts or elements in it.
function make(tag, className, ...children) {
  const made = document.createElement(tag);
  if (className) {
    made.className = className;
  }
  made.append(...children);
  return made;
}

/// Ends the current task, so that the browser can draw and handle events.
const nextTask = () => new Promise(resolve => setTimeout(resolve));

/// Ends the current task until the browser has drawn, or for 50 ms in a tab that isn't drawn.
const nextFrame = () => new Promise(resolve => {
  requestAnimationFrame(() => setTimeout(resolve));
  setTimeout(resolve, 50);
});

function bytesFromBase64(text) {
  if (Uint8Array.fromBase64) {
    return Uint8Array.fromBase64(text);
  }
  const characters = atob(text);
  const bytes = new Uint8Array(characters.length);
  for (let i = 0; i < bytes.length; ++i) {
    bytes[i] = characters.charCodeAt(i);
  }
  return bytes;
}

/// The bytes that the page holds, inflated.
async function readData() {
  const parts = [...document.querySelectorAll("script.data")];
  const inflated = new Response(new ReadableStream({
    pull(controller) {
      const part = parts.shift();
      if (part === undefined) {
        controller.close();
      } else {
        controller.enqueue(bytesFromBase64(part.textContent));
        part.remove();
      }
    },
  }).pipeThrough(new DecompressionStream("deflate")));
  return inflated.arrayBuffer();
}

/// Reads what `MakePageData` has written.
class DataReader {
  constructor(buffer) {
    this.buffer = buffer;
    const size = new DataView(buffer).getUint32(0, true);
    this.description = JSON.parse(new TextDecoder().decode(new Uint8Array(buffer, 4, size)));
    this.position = 4 + size;
  }

  column(Numbers, count) {
    this.position = Math.ceil(this.position / 8) * 8;
    const column = new Numbers(this.buffer, this.position, count);
    this.position += column.byteLength;
    return column;
  }

  /// Numbers that are stored as differences, divided by `unit`.
  sums(count, unit = 1) {
    const column = this.column(Float64Array, count);
    let sum = 0;
    for (let i = 0; i < count; ++i) {
      sum += column[i];
      column[i] = sum / unit;
    }
    return column;
  }

  /// Microseconds as seconds; -1 stays.
  seconds(count) {
    const column = this.column(Float64Array, count);
    for (let i = 0; i < count; ++i) {
      column[i] = column[i] < 0 ? -1 : column[i] / 1e6;
    }
    return column;
  }
}

async function openRecording() {
  const data = new DataReader(await readData());
  const { blobCount, spanCount, payloadSize } = data.description;
  Object.assign(recording, data.description);
  recording.typeOf = new Map(recording.types.map(type => [type.type, type]));
  recording.blobs = {
    number: data.sums(blobCount),
    time: data.sums(blobCount, 1e6),
    latency: data.seconds(blobCount),              // -1 for none
    type: data.column(Uint32Array, blobCount),
    size: data.column(Uint32Array, blobCount),     // of the payload
    track: data.column(Uint32Array, blobCount),
    partner: data.column(Uint32Array, blobCount),  // the place of the question or the answer, from 1; 0 for none
    fromAgent: data.column(Uint8Array, blobCount),
    failure: data.column(Uint8Array, blobCount),   // an index into `recording.failures`
  };
  recording.spans = {
    begin: data.sums(spanCount, 1e6),
    duration: data.seconds(spanCount),
    first: data.column(Uint32Array, spanCount),    // the place of its first Blob, from 1; 0 if it isn't here
    last: data.column(Uint32Array, spanCount),
    name: data.column(Uint32Array, spanCount),     // an index into `recording.strings`
    detail: data.column(Uint32Array, spanCount),
    isOpen: data.column(Uint8Array, spanCount),
  };
  const offset = new Float64Array(blobCount + 1);
  for (let i = 0; i < blobCount; ++i) {
    offset[i + 1] = offset[i] + recording.blobs.size[i];
  }
  recording.blobs.offset = offset;                 // of the payload among all
  recording.payloads = data.column(Uint8Array, payloadSize);
  recording.lastTime = 0;
  for (let i = 0; i < blobCount; ++i) {
    recording.lastTime = Math.max(recording.lastTime, recording.blobs.time[i]);
  }
  for (let i = 0; i < spanCount; ++i) {
    recording.lastTime = Math.max(recording.lastTime, recording.spans.begin[i] + recording.spans.duration[i]);
  }
}

function typeName(number) {
  const type = recording.typeOf.get(number);
  return type === undefined ? "Blob " + number : type.name;
}

const nameOf = blob => typeName(recording.blobs.type[blob]);
const hostOf = blob => recording.tracks[recording.blobs.track[blob]].host;
const directionText = blob => (recording.blobs.fromAgent[blob] ? "from the Agent" : "to the Agent");
const partnerOf = blob => recording.blobs.partner[blob] - 1;
const payloadOf = blob => recording.payloads.subarray(recording.blobs.offset[blob], recording.blobs.offset[blob + 1]);
const spanName = span => recording.strings[recording.spans.name[span]];
const spanDetail = span => recording.strings[recording.spans.detail[span]];
const spanEnd = span => recording.spans.begin[span] + recording.spans.duration[span];

/// The first index in [low, high) for which `isPast` is true, where it stays true from then on; `high` if none.
function search(low, high, isPast) {
  while (low < high) {
    const middle = (low + high) >>> 1;
    if (isPast(middle)) {
      high = middle;
    } else {
      low = middle + 1;
    }
  }
  return low;
}

/// Indices in the order of their keys, in a Uint32Array, or in a Float64Array of numbers from 0; equal ones stay in their
/// order. (A radix sort of the bits, which are in the same order as such numbers: a comparing sort of a million takes half
/// a second.)
function sortedBy(keys) {
  const count = keys.length;
  const digits = keys.BYTES_PER_ELEMENT / 2;
  const bits = new Uint16Array(keys.buffer, keys.byteOffset, count * digits);
  let order = new Uint32Array(count);
  let next = new Uint32Array(count);
  for (let i = 0; i < count; ++i) {
    order[i] = i;
  }
  for (let digit = 0; digit < digits; ++digit) {
    const starts = new Uint32Array(65537);
    for (let i = digit; i < bits.length; i += digits) {
      ++starts[bits[i] + 1];
    }
    if (count > 0 && starts[bits[digit] + 1] === count) {
      continue; // all have the same digit
    }
    for (let i = 0; i < 65536; ++i) {
      starts[i + 1] += starts[i];
    }
    for (let i = 0; i < count; ++i) {
      const index = order[i];
      next[starts[bits[index * digits + digit]]++] = index;
    }
    [order, next] = [next, order];
  }
  return order;
}

/// "1.234567 s", "12.3 ms": as many digits as a chart of that width can tell apart.
function timeText(seconds, width) {
  const unit = width < 2e-3 ? { factor: 1e6, name: "\u00b5s" } : width < 2 ? { factor: 1e3, name: "ms" } : { factor: 1, name: "s" };
  const digits = Math.max(0, Math.min(3, Math.ceil(2 - Math.log10(width * unit.factor))));
  return (seconds * unit.factor).toFixed(digits) + " " + unit.name;
}

/// "431 us" with the Greek letter, "1.25 ms": three digits at most.
function durationText(seconds) {
  const unit = seconds < 1e-3 ? { factor: 1e6, name: "\u00b5s" } : seconds < 1 ? { factor: 1e3, name: "ms" } : { factor: 1, name: "s" };
  const number = seconds * unit.factor;
  return number.toFixed(unit.factor === 1e6 || number >= 100 ? 0 : number >= 10 ? 1 : 2) + " " + unit.name;
}
