// The devices and applications that have reported, side by side.

import { el, shown, visible } from "./dom.js";
import { ago, count, short } from "./format.js";

const MOST = 300;

export class Devices {
  constructor(host, records, onChoose) {
    this.host = host;
    this.records = records;
    this.onChoose = onChoose;
    this.buttons = new Map();
    setInterval(() => !document.hidden && this.touch(), 1000);
  }

  /** The latest first, by applications. */
  refresh(filter) {
    const all = [...this.records.devices.values()].sort((one, other) => other.lastId - one.lastId);
    const groups = new Map();
    for (const device of all.slice(0, MOST)) {
      if (!groups.has(device.bundle)) groups.set(device.bundle, []);
      groups.get(device.bundle).push(device);
    }
    const focused = document.activeElement?.dataset?.device;
    this.buttons.clear();
    const chosen = (device, bundle) => String(filter.device === device && (!filter.bundle || filter.bundle === bundle));
    this.host.replaceChildren(el("h2", {}, "Devices", el("small", {}, ` ${count(new Set(all.map(({ device }) => device)).size)}`)),
      ...[...groups].map(([bundle, devices]) => el("section", {},
        el("h3", {}, bundle ? shown(bundle) : "No application named"),
        el("ul", {}, devices.map((device) => {
          const when = el("span", { class: "when" });
          const key = `${device.device}\n${bundle ?? ""}`;
          const button = el("button", {
            "data-device": key, "aria-pressed": chosen(device.device, bundle), title: visible(device.device),
            onclick: () => this.onChoose(filter.device === device.device ? { device: "", bundle: "" } : { device: device.device, bundle: bundle ?? "" }),
          }, el("b", {}, shown(short(device.device))), when,
          el("span", { class: "numbers" }, count(device.messages), device.refused ? el("em", {}, ` ${count(device.refused)} refused`) : null));
          this.buttons.set(key, { device, when });
          return el("li", {}, button);
        })))),
      ...(all.length > MOST ? [el("p", { class: "note" }, `and ${count(all.length - MOST)} more`)] : []),
      ...(all.length ? [] : [el("p", { class: "note" }, "None yet")]));
    if (focused) this.host.querySelector(`[data-device="${CSS.escape(focused)}"]`)?.focus();
    this.touch();
  }

  touch() {
    for (const { device, when } of this.buttons.values()) when.textContent = ago(device.last);
  }
}
