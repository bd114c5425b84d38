// Elements and texts. Whatever comes from a request becomes a text node, and nothing else.

const UNSEEN = new RegExp("[\\u0000-\\u001f\\u007f-\\u009f\\u00ad\\u061c\\u115f\\u1160\\u17b4\\u17b5\\u180b-\\u180e\\u200b-\\u200f" +
  "\\u2028-\\u202e\\u2060-\\u206f\\ufeff\\ufff9-\\ufffb\\ud800-\\udfff\\u{e0000}-\\u{e007f}]", "gu");

/** An element with those attributes, and children that are elements or texts. `on...` are listeners, `class` is one. */
export function el(name, attributes = {}, ...children) {
  const element = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (value === undefined || value === null || value === false) continue;
    if (key.startsWith("on")) element.addEventListener(key.slice(2), value);
    else element.setAttribute(key, value === true ? "" : value);
  }
  element.append(...children.flat(Infinity).filter((child) => child !== null && child !== undefined && child !== false));
  return element;
}

export const byId = (id) => document.getElementById(id);

/** The text with what would be unseen, or turn the reading direction, written as JSON writes it. */
export function visible(text) {
  return text.replace(UNSEEN, (found) => `\\u${found.codePointAt(0).toString(16).padStart(4, "0")}`);
}

/** The same as nodes, in which what was unseen is marked. A line break stays one where `lines` asks for it. */
export function shown(text, lines = false) {
  const nodes = document.createDocumentFragment();
  let at = 0;
  for (const found of text.matchAll(UNSEEN)) {
    if (lines && found[0] === "\n") continue;
    nodes.append(text.slice(at, found.index), el("span", { class: "escape" }, visible(found[0])));
    at = found.index + found[0].length;
  }
  nodes.append(text.slice(at));
  return nodes;
}

const kept = new WeakMap();  // of each host, its children by their keys

/**
 * Makes the children of a host those of the items: `make(item)` makes one, `update(element, item)` fills it. Children stay
 * the elements that they are, so that neither the focus nor a click that has begun is lost when something comes.
 */
export function keyed(host, items, keyOf, make, update) {
  const before = kept.get(host) ?? new Map();
  const now = new Map();
  for (const item of items) {
    const key = keyOf(item);
    const element = before.get(key) ?? make(item);
    update(element, item);
    now.set(key, element);
  }
  kept.set(host, now);
  const wanted = [...now.values()];
  if (wanted.length === host.childNodes.length && wanted.every((element, at) => host.childNodes[at] === element)) return;
  const focused = host.contains(document.activeElement) ? document.activeElement : null;
  host.replaceChildren(...wanted);
  if (focused?.isConnected) focused.focus({ preventScroll: true });
}

/** Sets the text of an element, if it is another one. */
export function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

/** Tells users of screen readers, too. */
export function say(text) {
  byId("said").textContent = text;
}

export async function copy(text, button) {
  const label = button.textContent;
  try {
    await navigator.clipboard.writeText(text);
    button.textContent = "Copied";
    say("Copied");
  } catch {
    const area = el("textarea", { class: "unseen" });
    area.value = text;
    document.body.append(area);
    area.select();
    button.textContent = document.execCommand("copy") ? "Copied" : "Not copied";
    area.remove();
    button.focus();
  }
  setTimeout(() => (button.textContent = label), 1500);
}
