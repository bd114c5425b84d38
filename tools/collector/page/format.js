// Numbers and times as the page shows them.

const whole = new Intl.NumberFormat("en");
const two = (number) => String(number).padStart(2, "0");

export const count = (number) => whole.format(number);

export function clock(time, parts = 3) {
  const date = new Date(time);
  const text = `${two(date.getHours())}:${two(date.getMinutes())}`;
  if (parts < 2) return text;
  const seconds = `${text}:${two(date.getSeconds())}`;
  return parts < 3 ? seconds : `${seconds}.${String(date.getMilliseconds()).padStart(3, "0")}`;
}

export function day(time) {
  const date = new Date(time);
  return `${date.getFullYear()}-${two(date.getMonth() + 1)}-${two(date.getDate())}`;
}

/** With the day, unless it is today's. */
export const moment = (time, parts) =>
  (day(time) === day(Date.now()) ? "" : `${day(time)} `) + clock(time, parts);

export function size(bytes) {
  if (bytes < 1000) return `${bytes} B`;
  if (bytes < 1e6) return `${(bytes / 1000).toFixed(bytes < 1e4 ? 2 : 1)} kB`;
  return `${(bytes / 1e6).toFixed(2)} MB`;
}

export function micro(microseconds) {
  if (microseconds < 1000) return `${Math.round(microseconds)} µs`;
  if (microseconds < 1e6) return `${(microseconds / 1000).toFixed(microseconds < 1e4 ? 2 : 1)} ms`;
  return `${(microseconds / 1e6).toFixed(2)} s`;
}

/** A stretch of time from milliseconds: "12 s", "9 min 58 s", "3 h 5 min". */
export function stretch(milliseconds) {
  const seconds = Math.round(Math.abs(milliseconds) / 1000);
  if (Math.abs(milliseconds) < 9950) return `${(Math.abs(milliseconds) / 1000).toFixed(1)} s`;
  if (seconds < 60) return `${seconds} s`;
  if (seconds < 3600) return `${Math.floor(seconds / 60)} min${seconds % 60 ? ` ${seconds % 60} s` : ""}`;
  if (seconds < 172800) return `${Math.floor(seconds / 3600)} h ${Math.floor((seconds % 3600) / 60)} min`;
  return `${Math.floor(seconds / 86400)} days`;
}

/** The same of whole seconds. */
export const stretchOfSeconds = (seconds) => stretch(seconds * 1000).replace(".0 s", " s");

export function ago(time) {
  const seconds = Math.floor((Date.now() - time) / 1000);
  return seconds < 1 ? "now" : `${stretchOfSeconds(seconds)} ago`;
}

export const place = (lat, lon) => `${lat.toFixed(5)}, ${lon.toFixed(5)}`;

export const metres = (length) => (length < 10000 ? `${Math.round(length)} m` : `${(length / 1000).toFixed(0)} km`);

/** The beginning of an identifier, enough to tell devices apart. */
export const short = (identifier) => (identifier.length > 13 ? `${identifier.slice(0, 8)}…` : identifier);
