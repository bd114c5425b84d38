// How a device's line of time is drawn.

import { STANDS_OUT, below } from "./cadence.js";
import { clock, day } from "./format.js";

const STEPS = [1, 5, 10, 30, 60, 300, 600, 1800, 3600, 7200, 21600, 43200, 86400, 172800, 604800, 2592000];

const COLOURS = ["text", "muted", "line", "faint", "accent", "bad", "warn", "panel", "land", "sea", "border",
  "track-1", "track-2", "track-3", "track-4", "track-5", "track-6"];
const dark = matchMedia("(prefers-color-scheme: dark)");
let mixed = null;

/** The colours of the style sheet, for a canvas. */
export function palette() {
  const theme = document.documentElement.dataset.theme ?? (dark.matches ? "dark" : "light");
  if (mixed?.theme === theme) return mixed;
  const probe = document.createElement("span");
  document.body.append(probe);
  mixed = { theme };
  for (const name of COLOURS) {
    probe.style.color = `var(--${name})`;
    mixed[name] = getComputedStyle(probe).color;
  }
  probe.remove();
  return mixed;
}

/** The canvas as large as it is shown, and its pen. */
export function prepared(canvas) {
  const ratio = devicePixelRatio || 1;
  const width = canvas.clientWidth;
  const height = canvas.clientHeight;
  if (canvas.width !== Math.round(width * ratio) || canvas.height !== Math.round(height * ratio)) {
    canvas.width = Math.round(width * ratio);
    canvas.height = Math.round(height * ratio);
  }
  const pen = canvas.getContext("2d");
  pen.setTransform(ratio, 0, 0, ratio, 0, 0);
  pen.clearRect(0, 0, width, height);
  pen.font = "11px system-ui, sans-serif";
  return { pen, width, height };
}

function stepsOf(from, to, width) {
  const step = STEPS.find((seconds) => ((to - from) / 1000 / seconds) * 72 <= width) ?? STEPS.at(-1);
  const zone = new Date(from).getTimezoneOffset() * 60000;
  const times = [];
  for (let time = Math.ceil((from - zone) / step / 1000) * step * 1000 + zone; time <= to; time += step * 1000) times.push(time);
  return { step, times };
}

export function drawAxis({ pen, width, height }, from, to, colours) {
  const { step, times } = stepsOf(from, to, width);
  pen.fillStyle = colours.muted;
  pen.textAlign = "center";
  pen.textBaseline = "middle";
  for (const time of times) {
    const x = ((time - from) / (to - from)) * width;
    if (x < 24 || x > width - 24) continue;
    pen.fillText(step >= 86400 ? day(time).slice(5) : clock(time, step < 60 ? 2 : 1), x, height / 2);
  }
}

export function drawLane({ pen, width, height }, lane, from, to, now, colours, selected) {
  const scale = width / (to - from);
  const at = (time) => (time - from) * scale;
  const middle = Math.round(height * 0.42);
  pen.fillStyle = colours.faint;
  for (const time of stepsOf(from, to, width).times) pen.fillRect(Math.round(at(time)), 0, 1, height);
  pen.fillStyle = colours.line;
  pen.fillRect(0, middle, width, 1);
  if (now >= from && now <= to) {
    pen.fillStyle = colours.accent;
    pen.fillRect(Math.round(at(now)), 0, 1, height);
  }
  const { tokens, logins, marks, due } = lane.course;
  drawTokens(pen, tokens, at, width, height - 7, now, colours);
  for (const login of logins) {
    const x = at(login.time);
    if (x < -4 || x > width + 4) continue;
    pen.fillStyle = login.good ? colours.accent : colours.bad;
    pen.fillRect(Math.round(x) - 1, middle - 11, 2, height - middle + 6);
    if (login.id === selected) ring(pen, x, middle, colours);
  }
  let last = {};
  for (let index = below(lane.markTimes, from - 1); index < marks.length && marks[index].time <= to; ++index) {
    const mark = marks[index];
    const x = Math.round(at(mark.time));
    const sign = mark.state + (mark.refused ? "!" : "");
    if (last[sign] === x && mark.id !== selected) continue;  // already there
    last[sign] = x;
    if (mark.state === "late") {
      pen.fillStyle = colours.warn;
      pen.fillRect(at(mark.time - mark.off), middle - 1, Math.max(1, mark.off * scale), 3);
    }
    drawMark(pen, mark, x + 0.5, middle + 0.5, colours);
    if (mark.id && mark.id === selected) ring(pen, x, middle, colours);
  }
  if (due && due >= from && due <= to && due >= now) {
    pen.strokeStyle = colours.muted;
    pen.beginPath();
    pen.arc(at(due), middle + 0.5, 4, 0, 7);
    pen.stroke();
  }
}

function drawTokens(pen, tokens, at, width, y, now, colours) {
  for (const { from, to, refused } of tokens) {
    const start = Math.max(0, at(from));
    const end = Math.min(width, at(to ?? now));
    if (end < 0 || start > width) continue;
    pen.globalAlpha = 0.45;
    pen.fillStyle = colours.accent;
    pen.fillRect(start, y, Math.max(1, end - start), 3);
    pen.globalAlpha = 1;
    if (refused && at(to) <= width) {
      pen.fillStyle = colours.bad;
      pen.fillRect(end - 1, y - 4, 2, 9);
    }
  }
}

function ring(pen, x, y, colours) {
  pen.strokeStyle = colours.accent;
  pen.lineWidth = 2;
  pen.beginPath();
  pen.arc(x, y, 10, 0, 7);
  pen.stroke();
  pen.lineWidth = 1;
}

/** Shapes differ, so that no one needs to tell the colours apart. */
function drawMark(pen, { state, refused }, x, y, colours) {
  const colour = state === "late" ? colours.warn : STANDS_OUT.has(state) || refused ? colours.bad : colours.text;
  pen.fillStyle = colour;
  pen.strokeStyle = colour;
  pen.beginPath();
  if (state === "first" || state === "return") {
    pen.moveTo(x, y - 6);
    pen.lineTo(x + 5, y + 4);
    pen.lineTo(x - 5, y + 4);
    pen.fill();
  } else if (state === "background") {
    pen.moveTo(x, y + 6);
    pen.lineTo(x + 5, y - 4);
    pen.lineTo(x - 5, y - 4);
    pen.fill();
  } else if (state === "missing" || state === "overdue") {
    pen.moveTo(x, y - 7);
    pen.lineTo(x + 7, y);
    pen.lineTo(x, y + 7);
    pen.lineTo(x - 7, y);
    pen.closePath();
    pen.fillStyle = colours.panel;
    pen.fill();
    pen.lineWidth = 2;
    pen.stroke();
    pen.lineWidth = 1;
  } else if (state === "unexpected") {
    pen.lineWidth = 2.5;
    pen.moveTo(x - 5, y - 5);
    pen.lineTo(x + 5, y + 5);
    pen.moveTo(x + 5, y - 5);
    pen.lineTo(x - 5, y + 5);
    pen.stroke();
    pen.lineWidth = 1;
  } else {
    pen.arc(x, y, 3.5, 0, 7);
    pen.fill();
  }
  if (refused) pen.strokeRect(x - 8, y - 8, 16, 16);
}
