// The devices and applications that have reported, side by side.

import { el, keyed, setText, shown, visible } from "./dom.js";
import { ago, count, short } from "./format.js";

const MOST = 300;

export class Devices {
  constructor(host, records, onChoose) {
    this.records = records;
    this.onChoose = onChoose;
    this.number = el("small", {});
    this.groups = el("div", {});
    this.note = el("p", { class: "note" });
    host.append(el("h2", {}, "Devices ", this.number), this.groups, this.note);
    setInterval(() => !document.hidden && this.touch(), 1000);
  }

  /** By applications, in the order in which they came, so that nothing moves below a hand. */
  refresh(filter) {
    this.filter = filter;
    const all = [...this.records.devices.values()];
    const latest = all.length > MOST ? all.sort((one, other) => other.lastId - one.lastId).slice(0, MOST) : all;
    const groups = new Map();
    for (const device of latest.sort((one, other) => one.firstId - other.firstId)) {
      if (!groups.has(device.bundle)) groups.set(device.bundle, []);
      groups.get(device.bundle).push(device);
    }
    setText(this.number, count(new Set(all.map(({ device }) => device)).size));
    this.note.hidden = all.length > 0 && all.length <= MOST;
    setText(this.note, all.length ? `and ${count(all.length - MOST)} more` : "None yet");
    keyed(this.groups, groups, ([bundle]) => bundle,
      ([bundle]) => el("section", {}, el("h3", {}, bundle ? shown(bundle) : "No application named"), el("ul", {})),
      (section, [, devices]) => keyed(section.lastChild, devices, ({ device }) => device,
        (device) => this.make(device), (row, device) => this.fill(row, device)));
  }

  make({ device, bundle }) {
    const button = el("button", { title: visible(device) }, el("b", {}, shown(short(device))), el("span", { class: "when" }),
      el("span", { class: "numbers" }, el("span", {}), el("em", {})));
    button.addEventListener("click", () => this.onChoose(
      this.chosen(device, bundle) ? { device: "", bundle: "" } : { device, bundle: bundle ?? "" }));
    return el("li", {}, button);
  }

  chosen(device, bundle) {
    return this.filter.device === device && (!this.filter.bundle || this.filter.bundle === bundle);
  }

  fill(row, { device, bundle, messages, refused, last }) {
    const button = row.firstChild;
    const [, when, numbers] = button.children;
    button.setAttribute("aria-pressed", String(this.chosen(device, bundle)));
    when.dataset.last = last;
    setText(when, ago(last));
    setText(numbers.firstChild, `${count(messages)} ${messages === 1 ? "message" : "messages"}`);
    setText(numbers.lastChild, refused ? `, ${count(refused)} refused` : "");
  }

  touch() {
    for (const when of this.groups.querySelectorAll(".when")) setText(when, ago(Number(when.dataset.last)));
  }
}
