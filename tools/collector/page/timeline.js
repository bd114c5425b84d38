// Each device's reports on a line of time.

import { STANDS_OUT, STATES, below, cadence, lanesOfLogins } from "./cadence.js";
import { el, keyed, setText, shown, visible } from "./dom.js";
import { clock, count, day, moment, short, stretch, stretchOfSeconds } from "./format.js";
import { KINDS } from "./records.js";
import { drawAxis, drawLane, palette, prepared } from "./lane.js";

const LOGIN = KINDS.indexOf("login");
const SPANS = [[60, "1 min"], [600, "10 min"], [3600, "1 h"], [21600, "6 h"], [86400, "24 h"], [0, "All"]];
const SIGNS = [["first", "▲", "5 s after start or return"], ["regular", "●", "every 600 s"],
  ["background", "▼", "entering the background"], ["late", "●", "late"], ["missing", "◇", "missing"],
  ["unexpected", "✕", "unexpected"], ["refused", "□", "refused"], ["login", "│", "login, and its token's life"]];
const MOST_LANES = 60;
const MOST_FINDINGS = 200;

export class Timeline {
  constructor(host, view, onSelect) {
    this.host = host;
    this.view = view;
    this.onSelect = onSelect;
    this.span = 3600;
    this.until = null;  // the right end; null follows the time
    this.lanes = [];
    this.selected = 0;
    this.spans = el("div", { class: "segments", role: "group", "aria-label": "How much time is shown" },
      SPANS.map(([seconds, title]) => el("button", {
        "aria-pressed": String(seconds === this.span), "data-seconds": seconds, onclick: () => this.choose(seconds),
      }, title)));
    this.follow = el("button", { onclick: () => { this.until = null; this.draw(); } }, "Now");
    this.where = el("span", { class: "where" });
    this.axis = el("canvas", { class: "axis", "aria-hidden": "true" });
    this.rows = el("div", {});
    this.note = el("p", { class: "note" });
    this.box = el("div", { class: "lanes" }, this.rows, this.note);
    this.findings = el("ol", { class: "findings" });
    this.findingsTitle = el("h2", {}, "What stands out");
    host.append(
      el("div", { class: "tools" }, this.spans, this.follow, this.where),
      el("p", { class: "legend" }, SIGNS.map(([state, sign, title]) =>
        el("span", { class: `key ${state}` }, el("i", { "aria-hidden": "true" }, sign), ` ${title}`))),
      this.axis, this.box, this.findingsTitle, this.findings);
    this.box.addEventListener("wheel", (event) => this.wheel(event), { passive: false });
    new ResizeObserver(() => !this.host.hidden && this.draw()).observe(this.box);
    setInterval(() => !this.host.hidden && !document.hidden && this.tick(), 1000);
  }

  choose(seconds) {
    this.span = seconds;
    for (const button of this.spans.children) button.setAttribute("aria-pressed", String(Number(button.dataset.seconds) === seconds));
    this.draw();
  }

  tick() {
    if (this.held) return;
    this.compute();
    this.draw();
  }

  /** Of what the filter lets through; logins always belong to it. */
  refresh(held) {
    this.held = held;
    if (this.host.hidden) return;
    this.collect();
    this.compute();
    this.draw();
  }

  collect() {
    const { records, filter } = this.view;
    const lanes = new Map();
    const logins = [];
    for (let id = records.first; id <= records.last; ++id) {
      if (!records.has(id)) continue;
      const at = id - records.origin;
      const event = {
        id, time: records.time[at], login: records.kind[at] === LOGIN, good: records.good[at] === 1, status: records.status[at],
      };
      if (event.login) {
        logins.push(event);
      } else if (records.device[at]) {
        const key = records.device[at] * 65536 + records.bundle[at];
        if (!lanes.has(key)) lanes.set(key, { device: records.text("device", id), bundle: records.text("bundle", id), events: [] });
        lanes.get(key).events.push(event);
      }
    }
    let list = [...lanes.values()];
    for (const lane of list) {
      lane.events.sort((one, other) => one.time - other.time);
      lane.times = Float64Array.from(lane.events, ({ time }) => time);
      lane.logins = [];
    }
    const homeless = [];
    const owners = lanesOfLogins(logins.map(({ time }) => time), list);
    logins.forEach((login, at) => (owners[at] < 0 ? homeless : list[owners[at]].logins).push(login));
    for (const lane of list) {
      lane.events = [...lane.logins, ...lane.events].sort((one, other) => one.time - other.time || one.id - other.id);
    }
    list = list.filter(({ device, bundle }) =>
      (!filter.device || filter.device === device) && (!filter.bundle || filter.bundle === bundle));
    list.sort((one, other) => other.events.at(-1).time - one.events.at(-1).time);
    this.hiddenLanes = Math.max(0, list.length - MOST_LANES);
    this.lanes = list.slice(0, MOST_LANES).sort((one, other) => one.events[0].id - other.events[0].id);
    if (homeless.length && !filter.device && !filter.bundle) this.lanes.push({ device: null, bundle: null, events: homeless });
    this.build();
  }

  /** The lanes' elements; those that are there already stay. */
  build() {
    keyed(this.rows, this.lanes, ({ device, bundle }) => `${device}\n${bundle}`, (lane) => this.make(lane), (row, lane) => {
      row.lane = lane;
      lane.summary = row.firstChild.lastChild;
      lane.canvas = row.lastChild;
    });
    this.note.hidden = this.lanes.length > 0 && !this.hiddenLanes;
    setText(this.note, this.lanes.length
      ? `${count(this.hiddenLanes)} more devices: choose one by the filter.`
      : "No device has reported yet.");
  }

  make({ device, bundle }) {
    const canvas = el("canvas", { tabindex: 0, role: "img" });
    const row = el("div", { class: "lane" },
      el("div", { class: "lane-label" },
        device ? el("b", { title: visible(device) }, shown(short(device))) : el("b", {}, "Logins"),
        el("span", {}, bundle ? shown(bundle) : device ? "" : "that no report followed"), el("small", {})),
      canvas);
    canvas.addEventListener("click", (event) => this.pick(row.lane, event));
    canvas.addEventListener("mousemove", (event) => this.hover(row.lane, event));
    canvas.addEventListener("keydown", (event) => this.key(row.lane, event));
    this.drag(canvas);
    return row;
  }

  compute() {
    const now = this.held ?? Date.now();
    const found = [];
    for (const lane of this.lanes) {
      lane.course = cadence(lane.events, now);
      lane.markTimes = Float64Array.from(lane.course.marks, ({ time }) => time);
      if (!lane.device) continue;
      const numbers = {};
      for (const mark of lane.course.marks) {
        const out = STANDS_OUT.has(mark.state);
        if (out || mark.refused) found.push({ lane, mark });
        if (out) numbers[mark.state] = (numbers[mark.state] ?? 0) + 1;
        if (mark.refused) numbers.refused = (numbers.refused ?? 0) + 1;
      }
      const said = ["late", "missing", "overdue", "unexpected", "refused"].filter((state) => numbers[state])
        .map((state) => `${count(numbers[state])} ${state}`);
      const { due } = lane.course;
      const next = due && due > now ? `, next in ${stretchOfSeconds(Math.ceil((due - now) / 1000))}` : "";
      lane.summary.className = said.length ? "out" : "";
      setText(lane.summary, (said.join(", ") || "as due") + next);
      lane.canvas.setAttribute("aria-label", visible(`${lane.device}: ${count(lane.events.length)} logins and reports, ` +
        `${said.join(", ") || "all as due"}. Arrow keys go from one to the next.`));
    }
    found.sort((one, other) => other.mark.time - one.mark.time);
    const sign = found.map(({ lane, mark }) => `${lane.device}${mark.time}${mark.state}`).slice(0, MOST_FINDINGS).join();
    if (sign !== this.sign) this.list(found);
    this.sign = sign;
  }

  list(found) {
    setText(this.findingsTitle, found.length ? `What stands out: ${count(found.length)}` : "Nothing stands out");
    this.findings.replaceChildren(...found.slice(0, MOST_FINDINGS).map(({ lane, mark }) => el("li", {},
      el("button", { class: mark.state, onclick: () => { this.reveal(mark.time); if (mark.id) this.onSelect(mark.id); } },
        el("time", {}, moment(mark.time, 2)), el("span", {}, shown(short(lane.device))), el("span", {}, this.sentence(mark))))));
  }

  sentence(mark) {
    const refused = mark.refused ? `refused with ${mark.status}` : "";
    if (mark.state === "missing") return "a report is missing that was due";
    if (mark.state === "overdue") return "a report is overdue; or the application has ended";
    if (mark.state === "late") return [`late by ${stretch(mark.off)}`, refused].filter(Boolean).join(", ");
    if (mark.state === "unexpected") return ["unexpected: it fits no part of the cadence", refused].filter(Boolean).join(", ");
    return [refused, STATES[mark.state]].filter(Boolean).join(", ");
  }

  reveal(time) {
    const { from, to } = this.range();
    if (time < from || time > to) this.until = time + (to - from) / 2;
    this.draw();
  }

  range() {
    const now = this.held ?? Date.now();
    if (this.span === 0) {
      const first = Math.min(...this.lanes.map(({ events }) => events[0].time), now - 10000);
      return { from: first - (now - first) * 0.02, to: now + (now - first) * 0.02 };
    }
    const to = this.until ?? now + this.span * 40;
    return { from: to - this.span * 1000, to };
  }

  draw() {
    if (this.host.hidden) return;
    const { from, to } = this.range();
    const colours = palette();
    this.follow.disabled = this.until === null || this.span === 0;
    setText(this.where, `${day(from)} ${clock(from, 2)} to ${day(from) === day(to) ? "" : `${day(to)} `}${clock(to, 2)}`);
    drawAxis(prepared(this.axis), from, to, colours);
    for (const lane of this.lanes) drawLane(prepared(lane.canvas), lane, from, to, this.held ?? Date.now(), colours, this.selected);
  }

  select(id) {
    this.selected = id;
    const lane = this.lanes.find(({ events }) => events.some((event) => event.id === id));
    if (lane) this.reveal(lane.events.find((event) => event.id === id).time);
    else this.draw();
  }

  nearest(lane, event) {
    const { from, to } = this.range();
    const scale = (to - from) / lane.canvas.clientWidth;
    const time = from + event.offsetX * scale;
    const place = below(lane.markTimes, time);
    const all = [...lane.course.logins, ...lane.course.marks.slice(Math.max(0, place - 4), place + 4)];
    const best = all.reduce((one, other) => (!one || Math.abs(other.time - time) < Math.abs(one.time - time) ? other : one), null);
    return best && Math.abs(best.time - time) < 10 * scale ? best : null;
  }

  pick(lane, event) {
    const mark = this.nearest(lane, event);
    if (mark?.id && !this.dragged) this.onSelect(mark.id);
  }

  hover(lane, event) {
    const mark = this.nearest(lane, event);
    const what = mark && (mark.what ? `login, ${mark.what}${mark.good ? "" : ", failed"}` : this.sentence(mark));
    lane.canvas.title = mark ? `${clock(mark.time)} ${what}` : "";
  }

  key(lane, event) {
    const step = { ArrowRight: 1, ArrowLeft: -1 }[event.key];
    const zoom = { "+": -1, "=": -1, "-": 1, 0: SPANS.length }[event.key];
    if (step) {
      const at = lane.events.findIndex(({ id }) => id === this.selected);
      const next = at < 0 ? lane.events.at(-1) : lane.events[Math.min(lane.events.length - 1, Math.max(0, at + step))];
      this.onSelect(next.id);
    } else if (zoom) {
      this.zoom(zoom);
    } else {
      return;
    }
    event.preventDefault();
    event.stopPropagation();
  }

  zoom(by) {
    const at = SPANS.findIndex(([seconds]) => seconds === this.span);
    this.choose(SPANS[Math.min(SPANS.length - 1, Math.max(0, at + by))][0]);
  }

  wheel(event) {
    if (!event.ctrlKey && Math.abs(event.deltaX) <= Math.abs(event.deltaY)) return;
    event.preventDefault();
    if (event.ctrlKey) this.zoom(Math.sign(event.deltaY));
    else this.pan(event.deltaX);
  }

  pan(pixels) {
    if (this.span === 0) return;
    const { from, to } = this.range();
    const width = this.lanes[0]?.canvas.clientWidth ?? 1;
    const until = to + (pixels / width) * (to - from);
    this.until = until >= Date.now() + this.span * 40 ? null : until;
    this.draw();
  }

  drag(canvas) {
    canvas.addEventListener("pointerdown", (down) => {
      let last = down.clientX;
      this.dragged = false;
      const move = (event) => {
        if (Math.abs(event.clientX - down.clientX) > 4) this.dragged = true;
        this.pan(last - event.clientX);
        last = event.clientX;
      };
      const up = () => {
        removeEventListener("pointermove", move);
        removeEventListener("pointerup", up);
        removeEventListener("pointercancel", up);
      };
      addEventListener("pointermove", move);
      addEventListener("pointerup", up);
      addEventListener("pointercancel", up);
    });
  }
}
