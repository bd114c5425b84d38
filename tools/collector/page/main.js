// The page: what has come, what comes, and which part of it is shown.

import { api, listen, query } from "./api.js";
import { Detail } from "./detail.js";
import { Devices } from "./devices.js";
import { byId, copy, el, say, setText, shown, visible } from "./dom.js";
import { Faults } from "./faults.js";
import { count } from "./format.js";
import { List } from "./list.js";
import { Loading } from "./loading.js";
import { TrackMap } from "./map.js";
import { phoneSteps } from "./phone.js";
import { Records, View } from "./records.js";
import { Search } from "./search.js";
import { Timeline } from "./timeline.js";

const VIEWS = ["requests", "timeline", "map", "faults"];
const OUTCOMES = ["", "good", "bad", "warned"];
const THEMES = { auto: "Auto", dark: "Dark", light: "Light" };

const records = new Records();
const view = new View(records);
let status = { next: [], service: "", caFile: "" };
let current = "requests";
let pausedAt = null;
let waiting = 0;  // came while paused
let fresh = [];  // came since the last frame
let changed = false;  // more is known of one that came before
let frame = 0;
let soon = 0;
let wantedId = 0;  // which the address asks for

const detail = new Detail(byId("detail"), () => status, {
  onClose: () => { select(0); byId("list").firstChild.focus({ preventScroll: true }); },
  onShow: (where, record) => {
    if (where === "request") { select(record.id); return; }
    (where === "map" ? trackMap : timeline).select(record.id);
    choose(where);
  },
});
const list = new List(byId("list"), view, (id, into) => {
  select(id, true);
  if (into) byId("detail").focus();
});
const timeline = new Timeline(byId("view-timeline"), view, (id) => select(id));
const trackMap = new TrackMap(byId("view-map"), view, (id) => select(id));
const faults = new Faults(byId("view-faults"), records);
const search = new Search(view, rebuild);
const loading = new Loading(records, { rebuild, arrived, reset, first: restoreSelection });
const devices = new Devices(byId("devices"), records, (chosen) => setFilter(chosen));

function select(id, byList = false) {
  if (!byList) list.select(id, true);
  timeline.selected = id;
  trackMap.selected = id;
  if (current === "timeline") timeline.select(id);
  if (current === "map") trackMap.select(id);
  document.body.classList.toggle("with-detail", id > 0);
  detail.show(id);
  remember();
}

// What comes

function arrived(summary) {
  if (records.has(summary.id)) {
    records.put(summary);
    changed = true;
    if (detail.id === summary.id) detail.show(summary.id);
  } else {
    records.put(summary);
    fresh.push(summary.id);
    if (pausedAt !== null) waiting += 1;
  }
  frame ||= requestAnimationFrame(flush);
  later();
}

/** Into the list, once for all that came within a frame. */
function flush() {
  frame = 0;
  showState();
  if (pausedAt !== null) return;
  const ids = fresh;
  fresh = [];
  if (view.filter.text) {
    if (changed) rebuild();
    search.goOn();
    return;
  }
  const matches = view.matcher();
  let inOrder = !changed;
  changed = false;
  for (const id of ids) {
    if (!matches(id)) continue;
    if (view.length && id < view.ids[view.length - 1]) inOrder = false;
    else view.push(id);
  }
  if (!inOrder) view.rebuild();
  list.refresh(true);
}

/** Into what is dearer to draw, twice a second at most. */
function later() {
  soon ||= setTimeout(() => {
    soon = 0;
    devices.refresh(view.filter);
    offer("device", [...records.devices.values()].map(({ device }) => device), "Every device");
    offer("bundle", [...records.devices.values()].map(({ bundle }) => bundle).filter(Boolean), "Every application");
    showState();
    if (pausedAt === null) refreshView();
  }, 500);
}

function refreshView() {
  if (current === "timeline") timeline.refresh(pausedAt);
  if (current === "map") trackMap.refresh();
}

function offer(id, values, all) {
  const host = byId(id);
  const wanted = [...new Set(values)].sort().slice(0, 500);
  if (view.filter[id] && !wanted.includes(view.filter[id])) wanted.push(view.filter[id]);
  if (host.options.length === wanted.length + 1 && wanted.every((value, at) => host.options[at + 1].value === value)) return;
  host.replaceChildren(el("option", { value: "" }, all), ...wanted.map((value) => el("option", { value }, visible(value))));
  host.value = view.filter[id];
}

function showState() {
  for (const [name, number] of Object.entries(records.counts)) setText(byId(`count-${name}`), count(number));
  const { link = "wait" } = document.body.dataset;
  const text = { live: loading.isDone ? "Live" : "Loading", lost: "Not reached; trying again", wait: "Connecting" }[link];
  setText(byId("live-text"), pausedAt === null ? text : `Paused${waiting ? `, ${count(waiting)} new` : ""}`);
  byId("welcome").hidden = records.size > 0 || !loading.isDone;
  byId("list").hidden = !byId("welcome").hidden;
  document.title = records.counts.bad ? `(${count(records.counts.bad)} refused) kx-collector` : "kx-collector";
}

function rebuild(partly = false) {
  if (partly && pausedAt !== null) return;
  view.rebuild();
  changed = false;
  fresh = [];
  list.refresh();
  later();
  showState();
  if (!partly) refreshView();
}

function reset() {
  loading.begin();
  records.clear();
  waiting = 0;
  view.found = view.filter.text ? new Set() : null;
  select(0);
  rebuild();
}

// Which of it

function setFilter(changes) {
  const before = view.filter;
  view.filter = { ...before, ...changes };
  for (const id of ["kind", "device", "bundle"]) {
    const host = byId(id);
    const value = view.filter[id];
    if (value && ![...host.options].some((option) => option.value === value)) host.append(el("option", { value }, visible(value)));
    host.value = value;
  }
  for (const choice of document.querySelectorAll("#outcome input")) choice.checked = choice.value === view.filter.outcome;
  if (byId("search").value.trim() !== view.filter.text) byId("search").value = view.filter.text;
  byId("unfilter").hidden = Object.values(view.filter).every((value) => !value);
  const { outcome, text, ...others } = view.filter;
  const asked = outcome === "warned" ? { warned: "true" } : { outcome };
  byId("download").href = `/api/download${query({ ...others, text, ...asked })}`;
  list.behind = 0;
  if (before.text !== text) search.begin();
  else rebuild();
  devices.refresh(view.filter);
  remember();
}

/** On a narrow page the request covers everything else: it goes, and stays chosen. */
function uncover() {
  if (!detail.id || getComputedStyle(byId("detail")).position !== "fixed") return;
  document.body.classList.remove("with-detail");
  detail.show(0);
}

// What the reader does

function choose(name) {
  current = name;
  uncover();
  for (const one of VIEWS) {
    byId(`view-${one}`).hidden = one !== name;
    byId(`tab-${one}`).setAttribute("aria-selected", String(one === name));
    byId(`tab-${one}`).tabIndex = one === name ? 0 : -1;
  }
  document.body.dataset.view = name;
  if (name === "requests") list.refresh();
  refreshView();
  remember();
}

function pause() {
  pausedAt = pausedAt === null ? Date.now() : null;
  waiting = 0;
  byId("pause").setAttribute("aria-pressed", String(pausedAt !== null));
  setText(byId("pause"), pausedAt === null ? "Pause" : "Go on");
  document.body.classList.toggle("paused", pausedAt !== null);
  if (pausedAt === null) {
    if (view.filter.text) search.goOn();
    rebuild();
  }
  showState();
}

let asked = 0;

/** Asks by its own label whether it is meant. */
async function clear() {
  const button = byId("clear");
  clearTimeout(asked);
  if (button.dataset.sure) {
    delete button.dataset.sure;
    setText(button, "Clear");
    await api.clear().catch((error) => say(error.message));
    return;
  }
  button.dataset.sure = "asked";
  setText(button, `Forget all ${count(records.counts.all)}?`);
  asked = setTimeout(() => {
    delete button.dataset.sure;
    setText(button, "Clear");
  }, 4000);
}

function theme(name) {
  if (name === "auto") delete document.documentElement.dataset.theme;
  else document.documentElement.dataset.theme = name;
  setText(byId("theme"), THEMES[name]);
  byId("theme").setAttribute("aria-label", `Colours: ${THEMES[name].toLowerCase()}`);
  try { localStorage.setItem("theme", name); } catch { /* it is not kept, then */ }
  timeline.draw();
  trackMap.draw();
}

/** Keeps view, filter and request in the address, so that a reload brings them back. */
function remember() {
  const values = { view: current === "requests" ? "" : current, ...view.filter, id: list.selected || "" };
  history.replaceState(null, "", `#${query(values).slice(1)}`);
}

function restore() {
  const values = Object.fromEntries(new URLSearchParams(location.hash.slice(1)));
  const filter = Object.fromEntries(Object.keys(view.filter).map((key) => [key, values[key] ?? ""]));
  if (!OUTCOMES.includes(filter.outcome)) filter.outcome = "";
  wantedId = Number(values.id) || 0;
  if (Object.values(filter).some(Boolean)) setFilter(filter);
  if (VIEWS.includes(values.view)) choose(values.view);
}

function restoreSelection() {
  if (wantedId > 0) select(wantedId);
  wantedId = 0;
}

function keys(event) {
  if (event.altKey || event.ctrlKey || event.metaKey || document.querySelector("dialog[open]")) return;
  const typing = event.target.closest?.("input:not([type=radio]):not([type=checkbox]), textarea, select");
  if (event.key === "Escape") {
    if (event.target === byId("search") && byId("search").value) setFilter({ text: "" });
    else if (typing) event.target.blur();
    else if (list.selected) select(0);
    return;
  }
  if (typing) return;
  const number = Number(event.key);
  if (number >= 1 && number <= VIEWS.length) {
    choose(VIEWS[number - 1]);
    byId(`tab-${VIEWS[number - 1]}`).focus();
  } else if (event.key === "/") byId("search").focus();
  else if (event.key === "p") pause();
  else if (event.key === "?") byId("help").showModal();
  else if (current === "requests" && (event.key === "j" || event.key === "k")) list.move(event.key === "j" ? 1 : -1);
  else return;
  event.preventDefault();
}

function tabKeys(event) {
  const at = VIEWS.indexOf(current);
  const to = { ArrowRight: at + 1, ArrowLeft: at - 1, Home: 0, End: VIEWS.length - 1 }[event.key];
  if (to === undefined) return;
  event.preventDefault();
  choose(VIEWS[(to + VIEWS.length) % VIEWS.length]);
  byId(`tab-${current}`).focus();
}

function wire() {
  for (const name of VIEWS) byId(`tab-${name}`).addEventListener("click", () => choose(name));
  byId("tabs").addEventListener("keydown", tabKeys);
  let typed = 0;
  byId("search").addEventListener("input", () => {
    clearTimeout(typed);
    typed = setTimeout(() => setFilter({ text: byId("search").value.trim() }), 200);
  });
  byId("outcome").addEventListener("change", (event) => setFilter({ outcome: event.target.value }));
  for (const id of ["kind", "device", "bundle"]) {
    byId(id).addEventListener("change", (event) => setFilter({ [id]: event.target.value }));
  }
  byId("filters").addEventListener("submit", (event) => event.preventDefault());
  byId("filters").addEventListener("reset", (event) => {
    event.preventDefault();
    setFilter({ outcome: "", kind: "", device: "", bundle: "", text: "" });
    byId("search").focus();
  });
  byId("pause").addEventListener("click", pause);
  byId("clear").addEventListener("click", clear);
  byId("keys").addEventListener("click", () => byId("help").showModal());
  byId("phone-open").addEventListener("click", () => byId("phone").showModal());
  byId("theme").addEventListener("click", () => {
    const names = Object.keys(THEMES);
    theme(names[(names.indexOf(document.documentElement.dataset.theme ?? "auto") + 1) % names.length]);
  });
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => { timeline.draw(); trackMap.draw(); });
  document.addEventListener("keydown", keys);
}

function welcome() {
  const text = status.next.join("\n");
  const button = el("button", {}, "Copy");
  button.addEventListener("click", () => copy(text, button));
  byId("welcome").replaceChildren(
    el("h2", {}, "Waiting for the first request"),
    el("p", {}, "The collection service listens at ", el("code", {}, shown(status.service)), ". Give a host these lines:"),
    el("pre", {}, shown(text, true)), button,
    el("p", { class: "note" }, "A login comes at the host's first call, and the first message 5 s later."),
    ...(status.phone ? [el("h2", {}, "Have a phone report here"), phoneSteps(status)] : []));
}

/** Only where a phone can reach the collector at all. */
function offerPhone() {
  byId("phone-open").hidden = !status.phone;
  if (status.phone) byId("phone-steps").replaceChildren(phoneSteps(status));
}

async function start() {
  wire();
  let kept = null;
  try { kept = localStorage.getItem("theme"); } catch { /* none, then */ }
  theme(Object.hasOwn(THEMES, kept) ? kept : "auto");
  restore();
  listen({
    request: arrived, reset, faults: (switches) => faults.told(switches),
    state: (link) => {
      if (link === "live" && document.body.dataset.link === "lost") loading.catchUp().catch((error) => say(error.message));
      document.body.dataset.link = link;
      showState();
    },
  });
  try {
    status = await api.status();
    byId("live").title = `${status.service}, version ${status.version}`;
    welcome();
    offerPhone();
    await faults.ask();
    await loading.load();
  } catch (error) {
    say(error.message);
    setText(byId("live-text"), `Not loaded: ${visible(error.message)}`);
  }
}

start();
