// The track of positions, with the circles of their accuracy.

import { el, keyed, setText, shown, visible } from "./dom.js";
import { clock, count, metres, place, short } from "./format.js";
import { palette, prepared } from "./lane.js";
import { TRACKS, drawMap } from "./mapdraw.js";
import { girth, latOf, lonOf, unpacked, x, y } from "./world.js";

const NEAREST = 4e8;  // pixels for the whole map: 10 cm each

export class TrackMap {
  constructor(host, view, onSelect) {
    this.host = host;
    this.view = view;
    this.onSelect = onSelect;
    this.tracks = [];
    this.centre = { x: x(10), y: y(30) };
    this.scale = 0;  // pixels for the whole map's width
    this.fitted = true;
    this.selected = 0;
    this.canvas = el("canvas", { tabindex: 0, role: "img", "aria-label": "Map" });
    this.legend = el("ul", { class: "tracks", "aria-label": "Devices on the map" });
    this.where = el("span", { class: "where" });
    host.append(this.canvas,
      el("div", { class: "map-tools" },
        el("button", { "aria-label": "Nearer", onclick: () => this.zoom(2) }, "+"),
        el("button", { "aria-label": "Farther", onclick: () => this.zoom(0.5) }, "−"),
        el("button", { title: "All positions (0)", onclick: () => this.fit() }, "Fit")),
      this.legend,
      el("p", { class: "credit" }, this.where, "Coasts and borders: Natural Earth, to about 2 km"));
    this.canvas.addEventListener("wheel", (event) => {
      event.preventDefault();
      this.zoom(Math.exp(-event.deltaY * (event.deltaMode ? 0.05 : 0.002)), event.offsetX, event.offsetY);
    }, { passive: false });
    this.canvas.addEventListener("keydown", (event) => this.key(event));
    this.canvas.addEventListener("mousemove", (event) => this.hover(event));
    this.canvas.addEventListener("dblclick", (event) => this.zoom(2, event.offsetX, event.offsetY));
    this.drag();
    new ResizeObserver(() => this.resized()).observe(this.canvas);
  }

  async load() {
    if (this.loading) return;
    this.loading = true;
    const answer = await fetch("world.bin");
    if (!answer.ok) return;
    this.world = unpacked(await answer.arrayBuffer());
    this.draw();
  }

  resized() {
    if (this.fitted) this.fit();
    else this.draw();
  }

  refresh() {
    if (this.host.hidden) return;
    this.load();
    this.collect();
    if (this.fitted) this.fit();
    else this.draw();
  }

  collect() {
    const { records, ids, length } = this.view;
    const tracks = new Map();
    this.off = 0;
    for (let at = 0; at < length; ++at) {
      const index = ids[at] - records.origin;
      const lat = records.lat[index];
      const lon = records.lon[index];
      if (Number.isNaN(lat) || Number.isNaN(lon)) continue;
      if (Math.abs(lat) > 90 || Math.abs(lon) > 180) {
        this.off += 1;
        continue;
      }
      const device = records.text("device", ids[at]) ?? "";
      if (!tracks.has(device)) tracks.set(device, { device, ids: [], x: [], y: [], lat: [], radius: [] });
      const track = tracks.get(device);
      track.ids.push(ids[at]);
      track.x.push(x(lon));
      track.y.push(y(lat));
      track.lat.push(lat);
      track.radius.push(records.accuracy[index]);
    }
    this.tracks = [...tracks.values()];
    const total = this.tracks.reduce((sum, track) => sum + track.ids.length, 0);
    this.canvas.setAttribute("aria-label", `Map: ${count(total)} positions of ${count(this.tracks.length)} devices` +
      (this.off ? `, and ${count(this.off)} that are nowhere on Earth` : "") +
      ". Arrow keys move it, plus and minus zoom, n and b go along the track.");
    const lines = this.tracks.slice(0, 12).map((track, at) => ({ key: `${at} ${track.device}`, at, track }));
    const note = [this.off ? `${count(this.off)} nowhere on Earth` : "", total ? "" : "No position yet"].filter(Boolean).join(". ");
    if (note) lines.push({ key: "note" });
    keyed(this.legend, lines, ({ key }) => key, (line) => this.make(line), (row, { track }) => {
      if (!track) {
        setText(row, note);
        return;
      }
      const radius = track.radius.at(-1);
      setText(row.firstChild.lastChild, ` ${count(track.ids.length)}, last at ${place(track.lat.at(-1), lonOf(track.x.at(-1)))}` +
        (Number.isNaN(radius) ? "" : ` ± ${metres(radius)}`));
    });
  }

  make({ track, at }) {
    if (!track) return el("li", { class: "note" });
    const button = el("button", { class: `track-${(at % TRACKS) + 1}`, title: visible(track.device) },
      el("i", { "aria-hidden": "true" }, "●"), el("b", {}, shown(short(track.device))), el("span", {}));
    button.addEventListener("click", () => {
      const now = this.tracks.find(({ device }) => device === track.device);
      if (now) this.onSelect(now.ids.at(-1));
    });
    return el("li", {}, button);
  }

  fit() {
    this.fitted = true;
    const { clientWidth: width, clientHeight: height } = this.canvas;
    if (!width) return;
    const box = { west: 1, east: 0, north: 1, south: 0 };
    for (const track of this.tracks) {
      track.x.forEach((at, index) => {
        const radius = (Number.isFinite(track.radius[index]) ? Math.min(track.radius[index], 1e6) : 0) / girth(track.lat[index]);
        box.west = Math.min(box.west, at - radius);
        box.east = Math.max(box.east, at + radius);
        box.north = Math.min(box.north, track.y[index] - radius);
        box.south = Math.max(box.south, track.y[index] + radius);
      });
    }
    const smallest = Math.max(width, height / 1.6) ;
    if (!this.tracks.length) {
      Object.assign(this, { centre: { x: 0.53, y: 0.42 }, scale: smallest });
    } else {
      this.centre = { x: (box.west + box.east) / 2, y: (box.north + box.south) / 2 };
      const scale = Math.min(width / Math.max(box.east - box.west, 1e-9), height / Math.max(box.south - box.north, 1e-9)) * 0.8;
      this.scale = Math.max(smallest * 0.5, Math.min(scale, 4e6));  // with something around it to tell the place by
    }
    this.draw();
  }

  zoom(factor, px = this.canvas.clientWidth / 2, py = this.canvas.clientHeight / 2) {
    const before = this.at(px, py);
    this.scale = Math.max(200, Math.min(NEAREST, this.scale * factor));
    const after = this.at(px, py);
    this.centre.x += before.x - after.x;
    this.centre.y += before.y - after.y;
    this.moved();
  }

  pan(px, py) {
    this.centre.x += px / this.scale;
    this.centre.y += py / this.scale;
    this.moved();
  }

  moved() {
    this.fitted = false;
    this.centre.x = Math.max(0, Math.min(1, this.centre.x));
    this.centre.y = Math.max(0, Math.min(1, this.centre.y));
    this.draw();
  }

  at(px, py) {
    const { clientWidth: width, clientHeight: height } = this.canvas;
    return { x: this.centre.x + (px - width / 2) / this.scale, y: this.centre.y + (py - height / 2) / this.scale };
  }

  draw() {
    this.drawing ??= requestAnimationFrame(() => {
      this.drawing = null;
      if (!this.host.hidden && this.canvas.clientWidth) this.paint();
    });
  }

  paint() {
    drawMap(prepared(this.canvas), this, palette());
    this.host.dataset.scale = this.scale;
    this.host.dataset.world = this.world ? "drawn" : "";
    setText(this.where, `${place(latOf(this.centre.y), lonOf(this.centre.x))} · `);
  }

  nearest(event) {
    const { x: ex, y: ey } = this.at(event.offsetX, event.offsetY);
    let best = 14 / this.scale;
    let id = 0;
    for (const track of this.tracks) {
      for (let at = track.ids.length - 1; at >= 0; --at) {
        const distance = Math.hypot(track.x[at] - ex, track.y[at] - ey);
        if (distance < best) [best, id] = [distance, track.ids[at]];
      }
    }
    return id;
  }

  hover(event) {
    if (event.buttons) return;
    const id = this.nearest(event);
    this.canvas.style.cursor = id ? "pointer" : "grab";
    this.canvas.title = id ? `no. ${id}, ${clock(this.view.records.time[id - this.view.records.origin], 2)}` : "";
  }

  select(id) {
    this.selected = id;
    const track = this.tracks.find(({ ids }) => ids.includes(id));
    if (track && !this.host.hidden) {
      const at = track.ids.indexOf(id);
      const [cx, cy] = [track.x[at], track.y[at]];
      const { x: west, y: north } = this.at(0, 0);
      const { x: east, y: south } = this.at(this.canvas.clientWidth, this.canvas.clientHeight);
      if (cx < west || cx > east || cy < north || cy > south) {
        this.centre = { x: cx, y: cy };
        this.fitted = false;
      }
    }
    this.draw();
  }

  /** Selects the position before or after the selected one. */
  along(by) {
    const track = this.tracks.find(({ ids }) => ids.includes(this.selected)) ?? this.tracks[0];
    if (!track) return;
    const at = track.ids.indexOf(this.selected);
    this.onSelect(track.ids[at < 0 ? track.ids.length - 1 : Math.min(track.ids.length - 1, Math.max(0, at + by))]);
  }

  key(event) {
    if (event.altKey || event.ctrlKey || event.metaKey) return;
    const act = {
      ArrowLeft: () => this.pan(-60, 0), ArrowRight: () => this.pan(60, 0),
      ArrowUp: () => this.pan(0, -60), ArrowDown: () => this.pan(0, 60),
      "+": () => this.zoom(2), "=": () => this.zoom(2), "-": () => this.zoom(0.5), 0: () => this.fit(),
      n: () => this.along(1), b: () => this.along(-1),
    }[event.key];
    if (!act) return;
    act();
    event.preventDefault();
    event.stopPropagation();
  }

  drag() {
    const pointers = new Map();
    let travelled = 0;
    this.canvas.addEventListener("pointerdown", (event) => {
      if (!pointers.size) travelled = 0;
      pointers.set(event.pointerId, event);
      this.canvas.setPointerCapture(event.pointerId);
    });
    this.canvas.addEventListener("pointermove", (event) => {
      const before = pointers.get(event.pointerId);
      if (!before) return;
      const others = [...pointers.values()].filter(({ pointerId }) => pointerId !== event.pointerId);
      pointers.set(event.pointerId, event);
      travelled += Math.abs(event.clientX - before.clientX) + Math.abs(event.clientY - before.clientY);
      if (others.length) {
        const [other] = others;
        const distance = (one) => Math.max(1, Math.hypot(one.clientX - other.clientX, one.clientY - other.clientY));
        this.zoom(distance(event) / distance(before), (event.offsetX + other.offsetX) / 2, (event.offsetY + other.offsetY) / 2);
      } else if (travelled > 4) {
        this.pan(before.clientX - event.clientX, before.clientY - event.clientY);
      }
    });
    const up = (event) => {
      if (pointers.delete(event.pointerId) && event.type === "pointerup" && travelled <= 4) {
        const id = this.nearest(event);
        if (id) this.onSelect(id);
      }
    };
    this.canvas.addEventListener("pointerup", up);
    this.canvas.addEventListener("pointercancel", up);
  }
}
