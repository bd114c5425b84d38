// What a message's keys mean, and what has changed between two messages.

import { clock, day, metres, stretch } from "./format.js";

/** The keys by groups, in the order of docs/message-reference.md. */
export const GROUPS = [
  ["Device", ["deviceCategory", "make", "model", "platform", "osVersion", "name", "userAgent", "ifa", "dnt", "languages"]],
  ["Carrier", ["carrierCode", "radioAccessTechnology", "carrierName"]],
  ["Location", ["lat", "lon", "horizontalAccuracy", "altitude", "verticalAccuracy", "country", "state", "city", "zip", "tzOffset"]],
  ["Connection", ["connectionType"]],
  ["Application", ["bundleId", "asn"]],
  ["Library", ["sdkName", "sdkVer", "ips", "id", "eventTime"]],
];
const OTHERS = "Not in the reference";
const EVERY_TIME = new Set(["id", "eventTime"]);  // another in each message

/** What stands beside a value, or null. */
export function remark(key, value, received) {
  if (key === "dnt") return value === 1 ? "asked not to be tracked" : null;
  if (typeof value !== "number" || !Number.isFinite(value)) return null;
  if (key === "lat") return Math.abs(value) > 90 ? "no latitude" : value < 0 ? "° south" : "° north";
  if (key === "lon") return Math.abs(value) > 180 ? "no longitude" : value < 0 ? "° west" : "° east";
  if (key === "horizontalAccuracy") return `within ${metres(value)}`;
  if (key === "altitude") return "m above the sea";
  if (key === "verticalAccuracy") return value < 0 ? "the altitude says nothing" : "m";
  if (key === "tzOffset") {
    const minutes = Math.round(Math.abs(value) / 60);
    return `UTC${value < 0 ? "−" : "+"}${Math.floor(minutes / 60)}:${String(minutes % 60).padStart(2, "0")}`;
  }
  if (key === "eventTime" && Math.abs(value) < 8.64e15) {
    const late = received - value;
    return `${day(value)} ${clock(value, 2)}, ${stretch(late)} ${late < 0 ? "after it came" : "before it came"}`;
  }
  return null;
}

export const written = (value) => (typeof value === "string" ? value : JSON.stringify(value));

/**
 * Groups of {key, value, before, change}: change is "added", "changed", "removed", "new" (a key that is another in each
 * message) or null. Without a message before, all are null.
 */
export function table(message, before) {
  const known = new Set(GROUPS.flatMap(([, keys]) => keys));
  const all = new Set([...Object.keys(message), ...(before ? Object.keys(before) : [])]);
  const others = [...all].filter((key) => !known.has(key));
  return [...GROUPS, [OTHERS, others]]
    .map(([title, keys]) => [title, keys.filter((key) => all.has(key)).map((key) => row(key, message, before))])
    .filter(([, rows]) => rows.length);
}

function row(key, message, before) {
  const here = Object.hasOwn(message, key);
  const there = before ? Object.hasOwn(before, key) : false;
  let change = null;
  if (before) {
    if (here && !there) change = "added";
    else if (!here) change = "removed";
    else if (JSON.stringify(message[key]) !== JSON.stringify(before[key])) change = EVERY_TIME.has(key) ? "new" : "changed";
  }
  return { key, value: here ? message[key] : undefined, before: there ? before[key] : undefined, change };
}

/** The JSON text with line breaks, every number and text as it was sent; null if that does not look like JSON text. */
export function indented(text) {
  try {
    JSON.parse(text);
  } catch {
    return null;
  }
  let result = "";
  let depth = 0;
  const tokens = text.match(/"(?:[^"\\]|\\.)*"|[[\]{},:]|[^\s[\]{},:"]+/gs) ?? [];
  tokens.forEach((token, at) => {
    const opens = token === "[" || token === "{";
    if (opens && (tokens[at + 1] === "]" || tokens[at + 1] === "}")) result += token;
    else if (opens) result += `${token}\n${"  ".repeat(++depth)}`;
    else if (token === "]" || token === "}") {
      const empty = tokens[at - 1] === "[" || tokens[at - 1] === "{";
      result += empty ? token : `\n${"  ".repeat(--depth)}${token}`;
    } else if (token === ",") result += `,\n${"  ".repeat(depth)}`;
    else if (token === ":") result += ": ";
    else result += token;
  });
  return result;
}
