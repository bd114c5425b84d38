// What the page keeps of each request: a row of numbers. 100,000 of them take about 10 MB.

export const KINDS = ["login", "message", "other"];

const COLUMNS = {
  time: Float64Array, lat: Float64Array, lon: Float64Array, accuracy: Float32Array,
  status: Uint16Array, kind: Uint8Array, good: Uint8Array, present: Uint8Array, packed: Uint32Array, unpacked: Uint32Array,
  micros: Float32Array, device: Uint32Array, bundle: Uint32Array, reason: Uint32Array, warnings: Uint32Array,
  fault: Uint32Array,
};

/** Texts that occur again and again, by number; 0 is for none. */
class Texts {
  constructor() {
    this.list = [null];
    this.numbers = new Map([[null, 0]]);
  }

  number(text) {
    const known = this.numbers.get(text ?? null);
    if (known !== undefined) return known;
    this.numbers.set(text, this.list.length);
    return this.list.push(text) - 1;
  }
}

export class Records {
  constructor() {
    this.clear();
  }

  clear() {
    this.origin = 0;  // the lowest id that there is room for
    this.capacity = 0;
    this.size = 0;
    this.first = Infinity;
    this.last = 0;
    this.texts = { device: new Texts(), bundle: new Texts(), reason: new Texts(), warnings: new Texts(), fault: new Texts() };
    this.counts = { all: 0, good: 0, bad: 0, warned: 0 };
    this.devices = new Map();  // by device and bundle: what the list of devices shows
    for (const [name, Type] of Object.entries(COLUMNS)) this[name] = new Type(0);
  }

  /** Takes a summary: of a new request, or what else is known of one by now. */
  put(summary) {
    const known = this.has(summary.id);
    if (known) this.count(summary.id, -1);
    else this.reserve(summary.id);
    const at = summary.id - this.origin;
    this.time[at] = summary.time;
    this.lat[at] = summary.lat ?? NaN;
    this.lon[at] = summary.lon ?? NaN;
    this.accuracy[at] = summary.horizontalAccuracy ?? NaN;
    this.status[at] = summary.status;
    this.kind[at] = Math.max(0, KINDS.indexOf(summary.kind));
    this.good[at] = summary.outcome === "good" ? 1 : 0;
    this.packed[at] = summary.packedSize;
    this.unpacked[at] = summary.unpackedSize;
    const { receive, work, send } = summary.microseconds;
    this.micros[at] = receive + work + send;
    for (const name of ["device", "bundle", "reason", "fault"]) this[name][at] = this.texts[name].number(summary[name]);
    this.warnings[at] = this.texts.warnings.number(summary.warnings.length ? summary.warnings.join("; ") : null);
    this.count(summary.id, 1);
    if (known) return;
    this.present[at] = 1;
    this.size += 1;
    this.first = Math.min(this.first, summary.id);
    this.last = Math.max(this.last, summary.id);
    if (summary.device) this.addToDevice(summary);
  }

  /** Adds a request to the counts, or takes it away. */
  count(id, by) {
    const at = id - this.origin;
    this.counts.all += by;
    this.counts[this.good[at] ? "good" : "bad"] += by;
    if (this.warnings[at]) this.counts.warned += by;
  }

  addToDevice({ id, device, bundle, time, outcome }) {
    const key = `${device}\n${bundle ?? ""}`;
    const known = this.devices.get(key) ?? { device, bundle, last: time, firstId: id, lastId: id, messages: 0, refused: 0 };
    known.last = Math.max(known.last, time);
    known.firstId = Math.min(known.firstId, id);
    known.lastId = Math.max(known.lastId, id);
    known.messages += 1;
    known.refused += outcome === "bad" ? 1 : 0;
    this.devices.set(key, known);
  }

  has(id) {
    return this.present[id - this.origin] === 1;
  }

  text(name, id) {
    return this.texts[name].list[this[name][id - this.origin]];
  }

  /** Makes room for that id, on either side. */
  reserve(id) {
    if (this.capacity && id >= this.origin && id < this.origin + this.capacity) return;
    const low = this.size ? Math.min(this.first, id) : id;
    const high = this.size ? Math.max(this.last, id) : id;
    const span = high - low + 1;
    const slack = Math.max(1024, Math.ceil(span / 2));
    // Ids begin with 1, and older ones come in only while the page loads: there is never room needed below that.
    const origin = Math.max(1, id === low ? low - slack : low);
    const capacity = high + slack - origin + 1;
    for (const [name, Type] of Object.entries(COLUMNS)) {
      const column = new Type(capacity);
      if (this.size) column.set(this[name].subarray(this.first - this.origin, this.last - this.origin + 1), this.first - origin);
      this[name] = column;
    }
    this.origin = origin;
    this.capacity = capacity;
  }
}

/** The ids that a filter lets through, in their order. */
export class View {
  constructor(records) {
    this.records = records;
    this.ids = new Uint32Array(1024);
    this.length = 0;
    this.filter = { outcome: "", kind: "", device: "", bundle: "", text: "" };
    this.found = null;  // the ids that the program found the text in; null while none is searched for
  }

  matcher() {
    const { records, filter, found } = this;
    const { texts } = records;
    const kind = filter.kind ? KINDS.indexOf(filter.kind) : -1;
    const device = filter.device ? texts.device.numbers.get(filter.device) ?? -1 : 0;
    const bundle = filter.bundle ? texts.bundle.numbers.get(filter.bundle) ?? -1 : 0;
    return (id) => {
      const at = id - records.origin;
      return (kind < 0 || records.kind[at] === kind) &&
        (!device || records.device[at] === device) &&
        (!bundle || records.bundle[at] === bundle) &&
        (filter.outcome !== "good" || records.good[at] === 1) &&
        (filter.outcome !== "bad" || records.good[at] === 0) &&
        (filter.outcome !== "warned" || records.warnings[at] !== 0) &&
        (!found || found.has(id));
    };
  }

  push(id) {
    if (this.length === this.ids.length) {
      const larger = new Uint32Array(this.length * 2);
      larger.set(this.ids);
      this.ids = larger;
    }
    this.ids[this.length++] = id;
  }

  rebuild() {
    this.length = 0;
    const { records } = this;
    const matches = this.matcher();
    for (let id = records.first; id <= records.last; ++id) {
      if (records.present[id - records.origin] && matches(id)) this.push(id);
    }
  }

  /** Where that id stands, or -1. */
  indexOf(id) {
    let low = 0;
    let high = this.length - 1;
    while (low <= high) {
      const middle = (low + high) >> 1;
      if (this.ids[middle] === id) return middle;
      if (this.ids[middle] < id) low = middle + 1;
      else high = middle - 1;
    }
    return -1;
  }
}
