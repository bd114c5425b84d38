// The track of positions, with the circles of their accuracy.

import { el, keyed, setText, shown, visible } from "./dom.js";
import { clock, count, metres, place, short } from "./format.js";
import { palette, prepared } from "./lane.js";
import { girth, latOf, lonOf, unpacked, x, y } from "./world.js";

const NEAREST = 4e8;  // pixels for the whole map: 10 cm each
const MOST_CIRCLES = 1000;
const LONGEST = 1e6;  // of all lines between positions, in pixels; what is older has dots only
const TRACKS = 6;

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
      (this.off ? `, and ${count(this.off)} that are nowhere on Earth` : "") + ". Arrow keys move it, plus and minus zoom, n and b go along the track.");
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
    return { x: this.centre.x + (px - this.canvas.clientWidth / 2) / this.scale, y: this.centre.y + (py - this.canvas.clientHeight / 2) / this.scale };
  }

  draw() {
    this.drawing ??= requestAnimationFrame(() => {
      this.drawing = null;
      if (!this.host.hidden && this.canvas.clientWidth) this.paint();
    });
  }

  paint() {
    const { pen, width, height } = prepared(this.canvas);
    const colours = palette();
    const left = this.centre.x - width / 2 / this.scale;
    const top = this.centre.y - height / 2 / this.scale;
    const { scale } = this;
    const px = (value) => (value - left) * scale;
    const py = (value) => (value - top) * scale;
    pen.fillStyle = colours.sea;
    pen.fillRect(0, 0, width, height);
    const seen = (line) => line.east >= left && line.west <= left + width / scale && line.south >= top && line.north <= top + height / scale;
    const trace = (lines) => {
      pen.beginPath();
      for (const { points, ...line } of lines) {
        if (!seen(line)) continue;
        pen.moveTo(px(points[0]), py(points[1]));
        for (let index = 2; index < points.length; index += 2) pen.lineTo(px(points[index]), py(points[index + 1]));
      }
    };
    if (this.world) {
      trace(this.world.coasts);
      pen.fillStyle = colours.land;
      pen.fill("evenodd");
      pen.strokeStyle = colours.border;
      pen.lineWidth = 0.75;
      pen.stroke();
      trace(this.world.borders);
      pen.stroke();
      this.paintNames(pen, px, py, width, height, colours);
    }
    this.paintGrid(pen, px, py, width, height, colours);
    this.paintTracks(pen, px, py, width, height, colours);
    this.paintScale(pen, width, height, colours);
    this.host.dataset.scale = scale;
    this.host.dataset.world = this.world ? "drawn" : "";
    setText(this.where, `${place(latOf(this.centre.y), lonOf(this.centre.x))} · `);
  }

  paintNames(pen, px, py, width, height, colours) {
    pen.fillStyle = colours.muted;
    pen.textAlign = "center";
    pen.textBaseline = "middle";
    const most = Math.log2(this.scale / 400) + 1;
    const taken = [];
    for (const { x: nx, y: ny, rank, text } of [...this.world.names].sort((one, other) => one.rank - other.rank)) {
      const [at, down] = [px(nx), py(ny)];
      if (rank > most || at < 0 || at > width || down < 0 || down > height) continue;
      const half = text.length * 3.4;
      if (taken.some(([x0, y0, x1]) => at - half < x1 && at + half > x0 && Math.abs(down - y0) < 14)) continue;
      taken.push([at - half, down, at + half]);
      pen.fillText(text, at, down);
    }
  }

  paintGrid(pen, px, py, width, height, colours) {
    const wanted = (90 / this.scale) * 360;
    const step = [0.0001, 0.0002, 0.0005, 0.001, 0.002, 0.005, 0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 30].find((one) => one >= wanted) ?? 30;
    const digits = Math.max(0, -Math.floor(Math.log10(step)));
    const [northWest, southEast] = [this.at(0, 0), this.at(width, height)];
    pen.fillStyle = colours.border;
    pen.globalAlpha = 0.35;
    const each = (from, to, act) => {
      for (let number = Math.ceil(from / step); number * step <= to; ++number) act(number * step);
    };
    const labels = [];
    each(Math.max(-180, lonOf(northWest.x)), Math.min(180, lonOf(southEast.x)), (lon) => {
      pen.fillRect(Math.round(px(x(lon))), 0, 1, height);
      labels.push([`${Math.abs(lon).toFixed(digits)}°${lon < 0 ? "W" : lon > 0 ? "E" : ""}`, px(x(lon)) + 3, 9]);
    });
    each(Math.max(-85, latOf(southEast.y)), Math.min(85, latOf(northWest.y)), (lat) => {
      pen.fillRect(0, Math.round(py(y(lat))), width, 1);
      labels.push([`${Math.abs(lat).toFixed(digits)}°${lat < 0 ? "S" : lat > 0 ? "N" : ""}`, 4, py(y(lat)) - 6]);
    });
    pen.globalAlpha = 1;
    pen.fillStyle = colours.muted;
    pen.textAlign = "left";
    pen.textBaseline = "middle";
    for (const label of labels) if (label[2] === 9 ? label[1] > 20 : label[2] > 20) pen.fillText(...label);
  }

  paintTracks(pen, px, py, width, height, colours) {
    const taken = new Uint8Array(width * height);  // pixels that have a dot
    this.circles = 0;
    this.tracks.forEach((track, at) => {
      pen.fillStyle = pen.strokeStyle = colours[`track-${(at % TRACKS) + 1}`];
      this.paintCircles(pen, track, px, py, width, height);
      pen.globalAlpha = 0.8;
      pen.lineWidth = 1.5;
      let left = LONGEST / this.tracks.length;
      let [lastX, lastY] = [Infinity, Infinity];
      const dots = [];
      pen.beginPath();
      for (let index = track.x.length - 1; index >= 0; --index) {
        const [cx, cy] = [px(track.x[index]), py(track.y[index])];
        const length = Math.abs(cx - lastX) + Math.abs(cy - lastY);
        if (length < 2 && index > 0) continue;
        if (lastX === Infinity || left < 0) {
          pen.moveTo(cx, cy);
        } else {
          pen.lineTo(cx, cy);
          left -= Math.min(length, width + height);
        }
        [lastX, lastY] = [cx, cy];
        const pixel = Math.floor(cy) * width + Math.floor(cx);
        if (cx < 0 || cx >= width || cy < 0 || cy >= height || taken[pixel]) continue;
        taken[pixel] = 1;
        dots.push(cx, cy);
      }
      pen.stroke();
      pen.globalAlpha = 1;
      const small = dots.length > 4000;
      for (let index = 0; index < dots.length; index += 2) {
        if (small) {
          pen.fillRect(dots[index] - 1.5, dots[index + 1] - 1.5, 3, 3);
          continue;
        }
        pen.beginPath();
        pen.arc(dots[index], dots[index + 1], 3, 0, 7);
        pen.fill();
      }
      const end = track.ids.length - 1;
      const chosen = track.ids.indexOf(this.selected);
      this.ring(pen, px(track.x[end]), py(track.y[end]), 6, pen.fillStyle);
      if (chosen >= 0) this.ring(pen, px(track.x[chosen]), py(track.y[chosen]), 10, colours.text);
    });
  }

  /** Of the latest positions. */
  paintCircles(pen, track, px, py, width, height) {
    for (let index = track.ids.length - 1; index >= 0 && this.circles < MOST_CIRCLES; --index) {
      const radius = (track.radius[index] / girth(track.lat[index])) * this.scale;
      const [cx, cy] = [px(track.x[index]), py(track.y[index])];
      if (!(radius > 3) || cx < -radius || cx > width + radius || cy < -radius || cy > height + radius) continue;
      pen.beginPath();
      pen.arc(cx, cy, radius, 0, 7);
      pen.globalAlpha = 0.1;
      pen.fill();
      pen.globalAlpha = 0.45;
      pen.stroke();
      this.circles += 1;
    }
  }

  ring(pen, cx, cy, radius, colour) {
    pen.strokeStyle = colour;
    pen.lineWidth = 2;
    pen.beginPath();
    pen.arc(cx, cy, radius, 0, 7);
    pen.stroke();
    pen.lineWidth = 1;
  }

  paintScale(pen, width, height, colours) {
    const perPixel = girth(latOf(this.centre.y)) / this.scale;
    const length = [1, 2, 5].flatMap((one) => Array.from({ length: 8 }, (_, power) => one * 10 ** power)).sort((one, other) => one - other)
      .findLast((one) => one / perPixel <= 120) ?? 1;
    const bar = length / perPixel;
    pen.fillStyle = colours.text;
    pen.fillRect(width - bar - 12, height - 30, bar, 2);
    pen.textAlign = "right";
    pen.fillText(length < 1000 ? `${length} m` : `${length / 1000} km`, width - 12, height - 38);
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
      ArrowLeft: () => this.pan(-60, 0), ArrowRight: () => this.pan(60, 0), ArrowUp: () => this.pan(0, -60), ArrowDown: () => this.pan(0, 60),
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
