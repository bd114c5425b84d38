// The fault switches: a form for a new one, and those that are on.

import { api } from "./api.js";
import { byId, el, keyed, say, setText, shown } from "./dom.js";
import { count, short } from "./format.js";

const ACTIONS = {
  status: "Answer with a status", delay: "Delay the answer", drop: "Drop the connection", stall: "Stall half-way",
  expire: "Expire the tokens", refuse: "Refuse the token",
};
const ENDPOINTS = { any: "Every request", message: "Messages", login: "Logins" };

export class Faults {
  constructor(host, records) {
    this.host = host;
    this.records = records;
    this.times = 0; // that the collector has told of them
    this.list = el("ul", { class: "faults" });
    this.error = el("p", { class: "error", role: "alert" });
    this.off = el("button", { type: "button", hidden: true }, "Switch all off");
    this.off.addEventListener("click", () => this.act(() => api.removeFaults(), "All fault switches are off"));
    this.devices = el("datalist", { id: "fault-devices" });
    this.form = el("form", { class: "fault-form", "aria-label": "A new fault switch", onsubmit: (event) => this.add(event) },
      this.field("Do", this.choice("action", ACTIONS)),
      this.field("Status", el("input", { name: "status", type: "number", min: 200, max: 599, value: 503, required: true }), "status"),
      this.field("Location", el("input", { name: "location", type: "text", placeholder: "https://…", autocomplete: "off" }), "location"),
      this.field("Seconds",
        el("input", { name: "seconds", type: "number", min: 0.001, max: 3600, step: "any", value: 10, required: true }), "seconds"),
      this.field("To", this.choice("endpoint", ENDPOINTS)),
      this.field("Of the device",
        el("input", { name: "device", type: "text", list: "fault-devices", placeholder: "any", autocomplete: "off", spellcheck: "false" })),
      this.field("How often", el("input", { name: "count", type: "number", min: 1, placeholder: "until it is switched off" })),
      this.devices, el("button", { class: "primary" }, "Switch on"), this.error);
    this.form.elements.action.addEventListener("change", () => this.fit());
    this.form.elements.status.addEventListener("input", () => this.fit());
    this.form.elements.device.addEventListener("focus", () => this.offer());
    host.append(el("h2", {}, "A new fault switch"), this.form,
      el("div", { class: "faults-title" }, el("h2", {}, "Switched on"), this.off), this.list);
    this.fit();
    this.show([]);
  }

  field(title, input, shownFor) {
    return el("label", { "data-for": shownFor }, el("span", {}, title), input);
  }

  choice(name, options) {
    return el("select", { name }, Object.entries(options).map(([value, title]) => el("option", { value }, title)));
  }

  /** Shows the fields that the action needs. */
  fit() {
    const { action, status, endpoint } = this.form.elements;
    const wanted = {
      status: ["status", ...(status.value >= 300 && status.value < 400 ? ["location"] : [])], delay: ["seconds"], stall: ["seconds"],
    }[action.value] ?? [];
    for (const label of this.form.querySelectorAll("[data-for]")) {
      label.hidden = !wanted.includes(label.dataset.for);
      label.querySelector("input").disabled = label.hidden;
    }
    if ((action.value === "refuse" || action.value === "expire") && endpoint.value === "any") endpoint.value = "message";
  }

  offer() {
    const devices = [...new Set([...this.records.devices.values()].map(({ device }) => device))];
    this.devices.replaceChildren(...devices.slice(-200).map((device) => el("option", { value: device })));
  }

  async add(event) {
    event.preventDefault();
    const { action, status, location, seconds, endpoint, device, count: often } = this.form.elements;
    const fault = {
      endpoint: endpoint.value, device: device.value || null, action: action.value, count: often.value ? Number(often.value) : null,
    };
    if (!status.disabled) fault.status = Number(status.value);
    if (!location.disabled) fault.location = location.value || null;
    if (!seconds.disabled) fault.seconds = Number(seconds.value);
    await this.act(() => api.addFault(fault), "The fault switch is on");
  }

  async act(work, said) {
    setText(this.error, "");
    try {
      await work();
      await this.ask();
      say(said);
    } catch (error) {
      this.error.replaceChildren(shown(error.message));
    }
  }

  sentence({ action, status, location, seconds }) {
    if (action === "status") return `Answer with ${status}${location ? ` to ${location}` : ""}`;
    if (action === "delay") return `Delay by ${seconds} s`;
    if (action === "stall") return `Stall half-way${seconds ? ` for ${seconds} s` : ""}`;
    return ACTIONS[action] ?? action;
  }

  /** The collector has told of them by itself. */
  told(faults) {
    this.times += 1;
    this.show(faults);
  }

  /** An answer that comes after the collector has told of them may be the older one of the two. */
  async ask() {
    const before = this.times;
    const faults = await api.faults();
    if (this.times === before) this.show(faults);
  }

  show(faults) {
    const badge = byId("faults-count");
    badge.hidden = !faults.length;
    setText(badge, faults.length ? String(faults.length) : "");
    this.off.hidden = !faults.length;
    keyed(this.list, faults.length ? faults : [null], (fault) => fault?.id, (fault) => this.make(fault), (row, fault) => {
      if (!fault) return;
      const limit = fault.count === null || fault.count === undefined ? ", until switched off" : ` of ${count(fault.count)}`;
      setText(row.querySelector(".fault-done"), `acted ${count(fault.done)} ${fault.done === 1 ? "time" : "times"}${limit}`);
    });
  }

  make(fault) {
    if (!fault) return el("li", { class: "note" }, "None: the collector answers as it should.");
    return el("li", { "data-fault": fault.id },
      el("span", { class: "fault-what" }, el("b", {}, shown(this.sentence(fault))),
        el("span", {}, ` · ${(ENDPOINTS[fault.endpoint] ?? fault.endpoint).toLowerCase()}`,
          fault.device ? [" of ", shown(short(fault.device))] : "")),
      el("span", { class: "fault-done" }),
      el("button", { onclick: () => this.act(() => api.removeFault(fault.id), "The fault switch is off") }, "Switch off"));
  }
}
