// The table of requests: as many rows as fit, whatever the number of requests. The newest stands on top.

import { el, setText, visible } from "./dom.js";
import { clock, count, day, metres, micro, place, short, size } from "./format.js";
import { KINDS } from "./records.js";

const HEIGHT = { wide: 28, narrow: 52 };
const MAXIMUM = 15e6;  // what every browser lays out, in pixels
const COLUMNS = ["time", "id", "kind", "status", "device", "bundle", "what", "size", "wire"];
const LOGIN = KINDS.indexOf("login");
const TITLES = ["Time", "No.", "Kind", "Status", "Device", "Application", "What", "Size", "On the wire"];

export class List {
  constructor(host, view, onSelect) {
    this.view = view;
    this.onSelect = onSelect;
    this.selected = 0;
    this.rows = new Map();  // by the place of what they show
    this.free = [];
    this.known = 0;
    this.narrow = matchMedia("(max-width: 700px)");
    this.head = el("div", { class: "row head", role: "row", "aria-rowindex": 1 },
      TITLES.map((title, at) => el("span", { role: "columnheader", class: `c-${COLUMNS[at]}` }, title)));
    this.spacer = el("div", { class: "spacer", role: "rowgroup" });
    this.box = el("div", {
      class: "rows", role: "grid", tabindex: 0, "aria-label": "Requests, the newest first", "aria-colcount": COLUMNS.length,
    }, this.head, this.spacer);
    this.newer = el("button", { class: "newer", hidden: true, onclick: () => this.toTop() });
    this.empty = el("p", { class: "note", hidden: true }, "No request matches the filter.");
    host.append(this.box, this.newer, this.empty);
    this.box.addEventListener("scroll", () => this.scrolled(), { passive: true });
    this.box.addEventListener("keydown", (event) => this.key(event));
    this.spacer.addEventListener("click", (event) => {
      const row = event.target.closest(".row");
      if (row) this.select(Number(row.dataset.id));
    });
    new ResizeObserver(() => this.draw()).observe(this.box);
    this.narrow.addEventListener("change", () => this.refresh());
  }

  get height() {
    return this.narrow.matches ? HEIGHT.narrow : HEIGHT.wide;
  }

  /** The view has other contents now. `same` says that it only grew at its new end. */
  refresh(same = false) {
    const total = this.view.length * this.height;
    this.spacer.style.height = `${Math.min(total, MAXIMUM)}px`;
    const more = this.view.length - this.known;
    if (same && more > 0 && this.box.scrollTop > 4 && total <= MAXIMUM) {
      this.box.scrollTop += more * this.height;
      this.behind = (this.behind ?? 0) + more;
    }
    this.known = this.view.length;
    this.box.setAttribute("aria-rowcount", this.view.length + 1);
    this.empty.hidden = this.view.length > 0 || this.view.records.size === 0;
    this.draw(true);
  }

  scrolled() {
    if (this.box.scrollTop <= 4) this.behind = 0;
    this.draw();
  }

  toTop() {
    this.box.scrollTop = 0;
    this.box.focus({ preventScroll: true });
  }

  /** Where the spacer would stand, were it as high as all rows; the same as it is, as long as those fit. */
  get shift() {
    const total = this.view.length * this.height;
    if (total <= MAXIMUM) return 0;
    const room = this.box.clientHeight - this.height;
    return (this.box.scrollTop / (MAXIMUM - room)) * (total - MAXIMUM);
  }

  draw(anew = false) {
    this.newer.hidden = !this.behind;
    if (this.behind) setText(this.newer, `${count(this.behind)} newer ↑`);
    const { height, shift } = this;
    const top = this.box.scrollTop + shift;
    const first = Math.max(0, Math.floor(top / height) - 8);
    const last = Math.min(this.view.length, Math.ceil((top + this.box.clientHeight) / height) + 8);
    for (const [at, row] of this.rows) {
      if (at < first || at >= last) {
        this.rows.delete(at);
        this.free.push(row);
      }
    }
    for (let at = first; at < last; ++at) {
      let row = this.rows.get(at);
      const fresh = !row;
      if (fresh) {
        row = this.free.pop() ?? this.make();
        this.rows.set(at, row);
      }
      row.hidden = false;
      row.style.transform = `translateY(${at * height - shift}px)`;
      if (anew || fresh) this.fill(row, at);
    }
    for (const row of this.free) row.hidden = true;
    this.mark();
  }

  make() {
    const row = el("div", { class: "row", role: "row" }, COLUMNS.map((name) => el("span", { role: "gridcell", class: `c-${name}` })));
    this.spacer.append(row);
    return row;
  }

  fill(row, at) {
    const id = this.view.ids[this.view.length - 1 - at];
    const { records } = this.view;
    const index = id - records.origin;
    row.dataset.id = id;
    row.id = `row-${id}`;
    row.setAttribute("aria-rowindex", at + 2);
    const good = records.good[index] === 1;
    const warnings = records.text("warnings", id);
    row.className = `row${good ? "" : " bad"}${warnings ? " warned" : ""}`;
    const device = records.text("device", id);
    const bundle = records.text("bundle", id);
    const [time, number, kind, status, who, application, what, bytes, wire] = row.children;
    setText(time, clock(records.time[index]));
    time.title = `${day(records.time[index])} ${clock(records.time[index])}`;
    setText(number, String(id));
    setText(kind, KINDS[records.kind[index]]);
    setText(status, records.status[index] ? String(records.status[index]) : "—");
    setText(who, device ? visible(short(device)) : "");
    who.title = device ?? "";
    setText(application, bundle ? visible(bundle) : "");
    const parts = [records.text("fault", id), records.text("reason", id), warnings].filter(Boolean);
    if (!parts.length && !Number.isNaN(records.lat[index])) {
      parts.push(place(records.lat[index], records.lon[index]) +
        (Number.isNaN(records.accuracy[index]) ? "" : ` ± ${metres(records.accuracy[index])}`));
    }
    if (!parts.length && records.kind[index] === LOGIN) parts.push("asks for an access token");
    setText(what, visible(parts.join(" · ")).slice(0, 400));
    what.classList.toggle("fault", records.fault[index] !== 0);
    setText(bytes, size(records.packed[index]));
    bytes.title = `${size(records.unpacked[index])} unpacked`;
    setText(wire, micro(records.micros[index]));
  }

  mark() {
    let active = "";
    for (const row of this.rows.values()) {
      const selected = Number(row.dataset.id) === this.selected;
      row.setAttribute("aria-selected", selected);
      if (selected) active = row.id;
    }
    if (active) this.box.setAttribute("aria-activedescendant", active);
    else this.box.removeAttribute("aria-activedescendant");
  }

  /** Selects a request, and brings it into sight; 0 for none. `quiet` where the caller shows it already. */
  select(id, quiet = false) {
    this.selected = id;
    const at = id ? this.view.indexOf(id) : -1;
    if (at >= 0) {
      const place = (this.view.length - 1 - at) * this.height - this.shift;
      const room = this.box.clientHeight - this.head.offsetHeight - this.height;
      if (place < this.box.scrollTop) this.box.scrollTop = place;
      else if (place > this.box.scrollTop + room) this.box.scrollTop = place - room;
    }
    this.draw();
    if (!quiet) this.onSelect(id);
  }

  /** Selects the one that is so many rows below. */
  move(by) {
    const { view } = this;
    if (!view.length) return;
    const at = this.selected ? view.indexOf(this.selected) : -1;
    const row = at < 0 ? 0 : Math.min(view.length - 1, Math.max(0, view.length - 1 - at + by));
    this.select(view.ids[view.length - 1 - row]);
  }

  key(event) {
    if (event.altKey || event.ctrlKey || event.metaKey) return;
    const page = Math.max(1, Math.floor(this.box.clientHeight / this.height) - 2);
    const by = { ArrowDown: 1, ArrowUp: -1, j: 1, k: -1, PageDown: page, PageUp: -page, Home: -Infinity, End: Infinity }[event.key];
    if (by !== undefined) this.move(by);
    else if (event.key === "Enter" && this.selected) this.onSelect(this.selected, true);
    else return;
    event.preventDefault();
    event.stopPropagation();
  }
}
