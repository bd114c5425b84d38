// How the map is drawn: land and sea, the names of countries, degrees, tracks.

import { girth, latOf, lonOf, x, y } from "./world.js";

const STEPS = [0.0001, 0.0002, 0.0005, 0.001, 0.002, 0.005, 0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 30];  // degrees
const LENGTHS = [0, 1, 2, 3, 4, 5, 6].flatMap((power) => [1, 2, 5].map((one) => one * 10 ** power));  // metres
const MOST_CIRCLES = 1000;
const LONGEST = 1e6;  // of all lines between positions, in pixels; what is older has dots only

export const TRACKS = 6;  // colours for them

/** One picture of the map: `map` has `centre`, `scale`, `at`, `world`, `tracks` and `selected`. */
export function drawMap(canvas, map, colours) {
  new Picture(canvas, map, colours).all();
}

class Picture {
  constructor({ pen, width, height }, map, colours) {
    Object.assign(this, { pen, width, height, map, colours });
    const { x: left, y: top } = map.at(0, 0);
    this.px = (value) => (value - left) * map.scale;
    this.py = (value) => (value - top) * map.scale;
    this.taken = new Uint8Array(width * height);  // pixels that have a dot
    this.circles = 0;
  }

  all() {
    const { pen, width, height, colours, px, py } = this;
    pen.fillStyle = colours.sea;
    pen.fillRect(0, 0, width, height);
    const seen = (line) => px(line.east) >= 0 && px(line.west) <= width && py(line.south) >= 0 && py(line.north) <= height;
    const trace = (lines) => {
      pen.beginPath();
      for (const { points, ...line } of lines) {
        if (!seen(line)) continue;
        pen.moveTo(px(points[0]), py(points[1]));
        for (let index = 2; index < points.length; index += 2) pen.lineTo(px(points[index]), py(points[index + 1]));
      }
    };
    const { world } = this.map;
    if (world) {
      trace(world.coasts);
      pen.fillStyle = colours.land;
      pen.fill("evenodd");
      pen.strokeStyle = colours.border;
      pen.lineWidth = 0.75;
      pen.stroke();
      trace(world.borders);
      pen.stroke();
      this.names();
    }
    this.grid();
    this.map.tracks.forEach((track, at) => this.track(track, colours[`track-${(at % TRACKS) + 1}`]));
    this.bar();
  }

  names() {
    const { pen, width, height, colours, px, py } = this;
    pen.fillStyle = colours.muted;
    pen.textAlign = "center";
    pen.textBaseline = "middle";
    const most = Math.log2(this.map.scale / 400) + 1;
    const taken = [];
    for (const { x: nx, y: ny, rank, text } of [...this.map.world.names].sort((one, other) => one.rank - other.rank)) {
      const [at, down] = [px(nx), py(ny)];
      if (rank > most || at < 0 || at > width || down < 0 || down > height) continue;
      const half = text.length * 3.4;
      if (taken.some(([x0, y0, x1]) => at - half < x1 && at + half > x0 && Math.abs(down - y0) < 14)) continue;
      taken.push([at - half, down, at + half]);
      pen.fillText(text, at, down);
    }
  }

  /** Of longitudes and latitudes. */
  grid() {
    const { pen, width, height, colours, px, py } = this;
    const wanted = (90 / this.map.scale) * 360;
    const step = STEPS.find((one) => one >= wanted) ?? STEPS.at(-1);
    const digits = Math.max(0, -Math.floor(Math.log10(step)));
    const [northWest, southEast] = [this.map.at(0, 0), this.map.at(width, height)];
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

  track(track, colour) {
    const { pen, width, height, colours, px, py, taken } = this;
    pen.fillStyle = pen.strokeStyle = colour;
    this.circlesOf(track);
    pen.globalAlpha = 0.8;
    pen.lineWidth = 1.5;
    let left = LONGEST / this.map.tracks.length;
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
    const chosen = track.ids.indexOf(this.map.selected);
    this.ring(px(track.x[end]), py(track.y[end]), 6, colour);
    if (chosen >= 0) this.ring(px(track.x[chosen]), py(track.y[chosen]), 10, colours.text);
  }

  /** Of the latest positions. */
  circlesOf(track) {
    const { pen, width, height, px, py } = this;
    for (let index = track.ids.length - 1; index >= 0 && this.circles < MOST_CIRCLES; --index) {
      const radius = (track.radius[index] / girth(track.lat[index])) * this.map.scale;
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

  ring(cx, cy, radius, colour) {
    const { pen } = this;
    pen.strokeStyle = colour;
    pen.lineWidth = 2;
    pen.beginPath();
    pen.arc(cx, cy, radius, 0, 7);
    pen.stroke();
    pen.lineWidth = 1;
  }

  /** How long a kilometre is. */
  bar() {
    const { pen, width, height, colours } = this;
    const perPixel = girth(latOf(this.map.centre.y)) / this.map.scale;
    const length = LENGTHS.findLast((one) => one / perPixel <= 120) ?? 1;
    const long = length / perPixel;
    pen.fillStyle = colours.text;
    pen.fillRect(width - long - 12, height - 30, long, 2);
    pen.textAlign = "right";
    pen.fillText(length < 1000 ? `${length} m` : `${length / 1000} km`, width - 12, height - 38);
  }
}
