// One request whole, beside the list.

import { api } from "./api.js";
import { curl } from "./curl.js";
import { copy, el, shown } from "./dom.js";
import { clock, count, day, micro, size, stretch } from "./format.js";
import { indented, remark, table, written } from "./message.js";

const LONGEST = 200000;  // of a text that is shown; the whole is in the download
const CONTEXT = 24;  // bytes around those that a refusal is about

export class Detail {
  constructor(host, status, { onClose, onShow }) {
    this.host = host;
    this.status = status;
    this.onClose = onClose;
    this.onShow = onShow;
    this.part = "message";
    this.onlyChanged = false;
    this.id = 0;
  }

  async show(id) {
    this.asking?.abort();
    this.asking = new AbortController();
    const { signal } = this.asking;
    this.id = id;
    if (!id) {
      this.host.hidden = true;
      this.host.replaceChildren();
      return;
    }
    this.host.hidden = false;
    try {
      const record = await api.request(id, signal);
      const before = record.previous ? await api.request(record.previous, signal).catch(() => null) : null;
      if (signal.aborted) return;
      this.record = record;
      this.before = before;
      this.draw();
    } catch (error) {
      if (signal.aborted) return;
      this.host.replaceChildren(this.title(`Request ${id}`), el("p", { class: "note" }, shown(error.message)));
    }
  }

  title(text) {
    return el("div", { class: "detail-title" }, el("h2", {}, text),
      el("button", { "aria-label": "Close the request", title: "Close (Esc)", class: "close", onclick: () => this.onClose() }, "×"));
  }

  draw() {
    const { record } = this;
    const good = record.outcome === "good";
    const kind = { login: "Login", message: "Message", other: "Request" }[record.kind] ?? "Request";
    const button = el("button", {}, "Copy as curl");
    button.addEventListener("click", () => copy(curl(record, this.status()), button));
    const json = el("button", {}, "Copy JSON");
    json.addEventListener("click", () => copy(record.text ?? "", json));
    const parts = { message: record.kind === "message" ? "Message" : "Body", raw: "Raw", fields: "Header fields" };
    this.tabs = el("div", { role: "tablist", "aria-label": "Parts of the request", class: "parts" },
      Object.entries(parts).map(([part, title]) => el("button", {
        role: "tab", id: `part-${part}`, "aria-selected": String(part === this.part), "aria-controls": "part",
        "data-part": part, tabindex: part === this.part ? 0 : -1,
        onclick: () => this.choose(part), onkeydown: (event) => this.tabKey(event, Object.keys(parts)),
      }, title)));
    this.panel = el("div", { id: "part", role: "tabpanel", tabindex: 0, "aria-labelledby": `part-${this.part}` });
    this.host.replaceChildren(...[
      this.title(`${kind} ${record.id}`),
      el("div", { class: `verdict ${good ? "good" : "bad"}` },
        el("p", {}, el("b", {}, record.status ? String(record.status) : "No answer"), good ? " accepted" : " refused",
          record.reason ? [": ", shown(record.reason)] : null),
        record.warnings.map((warning) => el("p", { class: "warning" }, "Warning: ", shown(warning))),
        record.fault ? el("p", { class: "fault" }, "Fault switch: ", shown(record.fault)) : null),
      record.offending ? this.offending(record) : null,
      this.facts(record),
      el("div", { class: "detail-actions" }, button, json,
        Number.isFinite(record.lat) ? el("button", { onclick: () => this.onShow("map", record) }, "On the map") : null,
        record.device ? el("button", { onclick: () => this.onShow("timeline", record) }, "On the timeline") : null),
      this.tabs, this.panel].filter(Boolean));
    this.host.scrollTop = 0;
    this.choose(this.part, false);
  }

  facts(record) {
    const { receive, work, send } = record.microseconds;
    const ratio = record.packedSize && record.unpackedSize ? `, ${(record.unpackedSize / record.packedSize).toFixed(1)} times` : "";
    const pairs = [
      ["Came", `${day(record.time)} ${clock(record.time)}`],
      ["From", record.remoteAddress],
      ["Request", `${record.method} ${record.target}`],
      ["Device", record.device], ["Application", record.bundle],
      ["Size", `${count(record.packedSize)} B packed, ${count(record.unpackedSize)} B unpacked${ratio}`],
    ].filter(([, value]) => value);
    const sum = Math.max(1, receive + work + send);
    const bar = el("span", { class: "wire", "aria-hidden": "true" }, [receive, work, send].map((part, at) => {
      const piece = el("i", { class: ["receive", "work", "send"][at] });
      piece.style.flexGrow = String(part / sum);
      return piece;
    }));
    return el("dl", { class: "facts" },
      pairs.map(([name, value]) => [el("dt", {}, name), el("dd", {}, shown(value))]),
      el("dt", {}, "On the wire"),
      el("dd", {}, `${micro(receive)} to receive, ${micro(work)} to check, ${micro(send)} to answer`, bar));
  }

  /** The bytes that the refusal is about, among those around them. */
  offending(record) {
    const { offset, bytes } = record.offending;
    const wrong = bytes.match(/../g) ?? [];
    const all = record.text !== null
      ? new TextEncoder().encode(record.text)
      : Uint8Array.from(atob(record.body), (one) => one.charCodeAt(0));
    const hex = (from, to) =>
      Array.from(all.subarray(Math.max(0, from), Math.max(0, to)), (byte) => byte.toString(16).padStart(2, "0"));
    const readable = (list) => list.map((byte) => parseInt(byte, 16))
      .map((byte) => (byte > 31 && byte < 127 ? String.fromCharCode(byte) : "·")).join("");
    const before = hex(offset - CONTEXT, offset);
    const after = hex(offset + wrong.length, offset + wrong.length + CONTEXT);
    const line = (join) => [join(before), el("mark", {}, join(wrong)), join(after)];
    return el("div", { class: "offending" },
      el("h3", {}, `Byte ${count(offset)} of the ${record.text !== null ? "text" : "body as received"}`),
      el("pre", { tabindex: 0, "aria-label": "The offending bytes, hexadecimal" },
        line((list) => (list.length ? ` ${list.join(" ")} ` : ""))),
      el("pre", { "aria-hidden": "true" }, line(readable)));
  }

  tabKey(event, parts) {
    const by = { ArrowLeft: -1, ArrowRight: 1 }[event.key];
    if (!by) return;
    event.preventDefault();
    this.choose(parts[(parts.indexOf(this.part) + by + parts.length) % parts.length]);
    this.tabs.querySelector("[aria-selected=true]").focus();
  }

  choose(part) {
    this.part = part;
    for (const tab of this.tabs.children) {
      const chosen = tab.dataset.part === part;
      tab.setAttribute("aria-selected", String(chosen));
      tab.tabIndex = chosen ? 0 : -1;
    }
    this.panel.setAttribute("aria-labelledby", `part-${part}`);
    this.panel.replaceChildren(...{ message: () => this.message(), raw: () => this.raw(), fields: () => this.fields() }[part]());
  }

  message() {
    const { record, before } = this;
    const isObject = (value) => value !== null && typeof value === "object" && !Array.isArray(value);
    if (!isObject(record.message)) return record.text ? this.raw() : [el("p", { class: "note" }, "No message could be read from it.")];
    const groups = table(record.message, isObject(before?.message) ? before.message : null);
    const rows = groups.flatMap(([, list]) => list);
    const changes = rows.filter(({ change }) => change && change !== "new").length;
    const only = el("input", { type: "checkbox", id: "only-changed" });
    only.checked = this.onlyChanged;
    only.addEventListener("change", () => {
      this.onlyChanged = only.checked;
      this.choose("message");
      this.panel.querySelector("#only-changed").focus();
    });
    const summary = before
      ? el("p", { class: "changes" },
        el("span", {}, `${changes ? `${changes} of ${rows.length} changed` : "Nothing changed"} since `,
          el("a", { href: "#", onclick: (event) => { event.preventDefault(); this.onShow("request", before); } }, `no. ${before.id}`),
          `, ${stretch(record.time - before.time)} before`),
        changes ? el("label", {}, only, " changes only") : null)
      : el("p", { class: "changes" }, "The device's first message here.");
    const filtered = before && changes && this.onlyChanged;
    return [summary, el("table", { class: "message" },
      el("caption", { class: "unseen" }, `The message by groups${before ? `, and what changed since number ${before.id}` : ""}`),
      el("colgroup", {}, el("col", { class: "keys" }), el("col"), el("col", { class: "marks" })),
      el("thead", { class: "unseen" }, el("tr", {}, ["Key", "Value", "Change"].map((name) => el("th", { scope: "col" }, name)))),
      groups.map(([title, list]) => [title, filtered ? list.filter(({ change }) => change && change !== "new") : list])
        .filter(([, list]) => list.length)
        .map(([title, list]) => el("tbody", {},
          el("tr", { class: "group" }, el("th", { colspan: 3, scope: "rowgroup" }, title)),
          list.map((row) => this.row(row)))))];
  }

  row({ key, value, before, change }) {
    const here = value !== undefined;
    const note = here ? remark(key, value, this.record.time) : null;
    const old = change === "changed" ? el("del", {}, shown(written(before))) : null;
    const shownValue = here ? el("span", {}, shown(written(value))) : el("del", {}, shown(written(before)));
    const word = { added: "added", changed: "changed", removed: "removed", new: "" }[change] ?? "";
    return el("tr", { class: change ?? "same", "data-key": key },
      el("th", { scope: "row" }, shown(key)),
      el("td", {}, shownValue, note ? el("small", {}, ` ${note}`) : null,
        old ? el("div", { class: "was" }, el("span", { class: "unseen" }, "before: "), old) : null),
      el("td", { class: "change" }, word));
  }

  raw() {
    const { text, body } = this.record;
    if (text === null) {
      return [el("p", { class: "note" }, "The body could not be unpacked. As received, in base64:"),
        el("pre", { class: "raw" }, body.slice(0, LONGEST))];
    }
    const pretty = indented(text) ?? text;
    return [el("pre", { class: "raw" }, shown(pretty.slice(0, LONGEST), true)),
      pretty.length > LONGEST
        ? el("p", { class: "note" }, `${count(pretty.length - LONGEST)} more characters are in the download.`)
        : null].filter(Boolean);
  }

  fields() {
    const list = (title, fields) => [el("h3", {}, title), fields.length
      ? el("table", { class: "fields" }, el("tbody", {}, fields.map(([name, value]) =>
        el("tr", {}, el("th", { scope: "row" }, shown(name)), el("td", {}, shown(value))))))
      : el("p", { class: "note" }, "none")];
    return [...list("Of the request", this.record.headerFields),
      ...list(`Of the answer, ${this.record.answer.status || "none sent"}`, this.record.answer.headerFields)];
  }
}
