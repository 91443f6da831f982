// Filter expressions, such as: type = ReadMemory and (latency > 5ms or token = 0x10)

class ExpressionError extends Error {}

/// The fields that every Blob has. Numbers are compared; `text` is for = and ~ with a word.
const commonFields = {
  blob: { number: blob => recording.blobs.number[blob] },
  time: { number: blob => recording.blobs.time[blob] },
  size: { number: blob => recording.blobs.size[blob] },
  latency: { number: blob => (recording.blobs.latency[blob] < 0 ? NaN : recording.blobs.latency[blob]) },
  host: { number: hostOf },
  type: { number: blob => recording.blobs.type[blob], text: nameOf },
  direction: { text: blob => (recording.blobs.fromAgent[blob] ? "from" : "to") },
};
const commonTests = {
  failed: blob => recording.blobs.failure[blob] !== 0,
  answered: blob => recording.blobs.latency[blob] >= 0,
};

const numericComparisons = {
  "=": (left, right) => left == right, // also between a number and a BigInt
  "!=": (left, right) => left != right && !Number.isNaN(left),
  "<": (left, right) => left < right, "<=": (left, right) => left <= right,
  ">": (left, right) => left > right, ">=": (left, right) => left >= right,
};

/// The comparisons of a string with a word, both in lower case.
const textComparisons = {
  "=": (text, word) => text === word, "!=": (text, word) => text !== word,
  "~": (text, word) => text.includes(word), "!~": (text, word) => !text.includes(word),
};

function numberFrom(word) {
  const units = { "": 1, s: 1, ms: 1e-3, us: 1e-6, "\u00b5s": 1e-6 };
  const decimal = /^(-?\d+(?:\.\d+)?)(s|ms|us|\u00b5s|)$/i.exec(word);
  if (/^0x[0-9a-f]+$/i.test(word) || (decimal !== null && /^\d{16,}$/.test(word))) {
    const exact = BigInt(word);
    return exact > BigInt(Number.MAX_SAFE_INTEGER) ? exact : Number(exact);
  }
  return decimal === null ? null : Number(decimal[1]) * units[decimal[2].toLowerCase()];
}

/// All paths of fields within a record, each a list of names in lower case and the field of the record itself.
function pathsIn(record) {
  return recording.records[record].fields.filter(field => field.kind !== "padding").flatMap(field => {
    const inner = field.elements === null ? [] : pathsIn(field.elements);
    return [{ names: [field.name], field }, ...inner.map(path => ({ names: [field.name, ...path.names], field }))];
  });
}

/// For each type that has fields of this name, their paths.
function pathsByType(wanted) {
  const found = new Map();
  for (const type of recording.types.filter(candidate => candidate.record !== null)) {
    const paths = pathsIn(type.record).filter(({ names }) => {
      const path = "." + names.join(".").toLowerCase();
      return path.endsWith("." + wanted.toLowerCase());
    });
    if (paths.length > 0) {
      found.set(type.type, paths);
    }
  }
  return found;
}

function passesField(field, payload, comparison, word, number) {
  if (field.isAbsent || field.problem !== "") {
    return field.isAbsent && word === "none" && comparison === "=";
  }
  const asText = textComparisons[comparison];
  const asNumber = numericComparisons[comparison];
  switch (field.kind) {
  case "flag": case "number": case "signed number": case "hexadecimal": case "address":
    if (number !== null && asNumber !== undefined) {
      return asNumber(field.number, number);
    }
    return asText !== undefined && asText((field.values[String(field.number)] || "").toLowerCase(), word);
  case "inline ANSI string": case "inline UTF-16 string": case "ANSI string": case "UTF-16 string":
    // The list shows backslashes doubled; both ways of writing them are accepted.
    return asText !== undefined &&
      (asText(field.text.toLowerCase(), word) || (!comparison.startsWith("!") &&
        asText(field.text.toLowerCase(), word.replaceAll("\\\\", "\\"))));
  case "bytes": case "data":
    if (field.children.length === 0) {
      const [offset, size] = field.kind === "bytes" ? [field.offset, field.size] : [field.itemOffset, field.itemSize];
      return asText !== undefined && asText(hexOf(payload.subarray(offset, offset + size)), word);
    }
    return false;
  default: // a list
    return number !== null && asNumber !== undefined && asNumber(field.children.length, number);
  }
}

/// A parser that descends by precedence. Each of its functions returns a predicate over Blobs.
class ExpressionParser {
  constructor(text) {
    this.text = text;
    this.tokens = [...text.matchAll(/"([^"]*)"?|<=|>=|!=|!~|==|&&|\|\||[=<>~()!]|[^\s"<>=~()!&|]+|\S/g)];
    this.next = 0;
  }

  parse() {
    const predicate = this.either();
    if (this.token() !== undefined) {
      this.fail("Expected \"and\", \"or\" or the end");
    }
    return predicate;
  }

  token() {
    return this.tokens[this.next] === undefined ? undefined : this.tokens[this.next][0];
  }

  fail(expected) {
    const found = this.token();
    throw new ExpressionError(expected + (found === undefined ? " at the end." :
      ", not \"" + found + "\" (character " + (this.tokens[this.next].index + 1) + ")."));
  }

  accept(...words) {
    const token = this.token();
    const isAccepted = token !== undefined && words.includes(token.toLowerCase());
    this.next += isAccepted ? 1 : 0;
    return isAccepted;
  }

  either() {
    let left = this.both();
    while (this.accept("or", "||")) {
      const [first, second] = [left, this.both()];
      left = blob => first(blob) || second(blob);
    }
    return left;
  }

  both() {
    let left = this.inverse();
    while (this.accept("and", "&&")) {
      const [first, second] = [left, this.inverse()];
      left = blob => first(blob) && second(blob);
    }
    return left;
  }

  inverse() {
    if (this.accept("not", "!")) {
      const inner = this.inverse();
      return blob => !inner(blob);
    }
    if (this.accept("(")) {
      const inner = this.either();
      if (!this.accept(")")) {
        this.fail("Expected \")\"");
      }
      return inner;
    }
    return this.comparison();
  }

  comparison() {
    const name = this.token();
    if (name === undefined || !/^[\w.]+$/.test(name)) {
      this.fail("Expected the name of a field");
    }
    ++this.next;
    if (commonTests[name.toLowerCase()] !== undefined) {
      return commonTests[name.toLowerCase()];
    }
    const comparison = this.token() === "==" ? "=" : this.token();
    if (numericComparisons[comparison] === undefined && textComparisons[comparison] === undefined) {
      this.fail("Expected a comparison (= != < <= > >= ~ !~) after \"" + name + "\"");
    }
    ++this.next;
    if (this.token() === undefined || /^[=<>~()!&|]/.test(this.token())) {
      this.fail("Expected a value after \"" + comparison + "\"");
    }
    const [token, quoted] = this.tokens[this.next++];
    if (quoted !== undefined && (token.length < 2 || !token.endsWith("\""))) {
      throw new ExpressionError("The string " + token + " has no closing quote.");
    }
    const word = (quoted === undefined ? token : quoted).toLowerCase();
    return this.predicate(name, comparison, word, quoted === undefined ? numberFrom(word) : null);
  }

  predicate(name, comparison, word, number) {
    const isOrder = textComparisons[comparison] === undefined;
    if (isOrder && number === null) {
      throw new ExpressionError("\"" + word + "\" isn't a number, which \"" + comparison + "\" compares with.");
    }
    const common = commonFields[name.toLowerCase()];
    if (common !== undefined) {
      return this.commonPredicate(name.toLowerCase(), common, comparison, word, number);
    }
    const paths = pathsByType(name);
    if (paths.size === 0) {
      throw new ExpressionError("No Blob has a field \"" + name + "\". All have " +
        [...Object.keys(commonFields), ...Object.keys(commonTests)].join(", ") + ".");
    }
    return blob => {
      const ofType = paths.get(recording.blobs.type[blob]);
      if (ofType === undefined) {
        return false;
      }
      const payload = payloadOf(blob);
      const decoder = new Decoder(payload);
      return ofType.some(({ names, field }) => fieldsAt([decoder.field(field, 0)], names)
        .some(found => passesField(found, payload, comparison, word, number)));
    };
  }

  commonPredicate(name, common, comparison, word, number) {
    const isNumeric = number !== null && common.number !== undefined && numericComparisons[comparison] !== undefined;
    if (isNumeric) {
      const compare = numericComparisons[comparison];
      return blob => compare(common.number(blob), number);
    }
    const compare = textComparisons[comparison];
    if (common.text === undefined || compare === undefined) {
      throw new ExpressionError("\"" + name + "\" can't be compared with \"" + word + "\" by \"" + comparison + "\".");
    }
    const plain = name === "direction" ? word.replace(/[- ].*$/, "") : word; // "from-agent" as for the command
    const isExact = comparison === "=" || comparison === "!=";
    const known = name === "type" ? recording.types.map(type => type.name.toLowerCase()) : ["from", "to"];
    if (isExact && !known.includes(plain)) {
      throw new ExpressionError("There is no " + name + " \"" + word + "\".");
    }
    return blob => compare(common.text(blob).toLowerCase(), plain);
  }
}

/// A predicate over Blobs. Throws an ExpressionError with a sentence.
const predicateFrom = expression => new ExpressionParser(expression).parse();
