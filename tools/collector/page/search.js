// The search in whole texts: the program does it, and the page keeps which requests it found.

import { api } from "./api.js";
import { say } from "./dom.js";
import { count } from "./format.js";

const PAGE = 1000;

export class Search {
  /** `rebuild(partly)` is told of everything that was found. */
  constructor(view, rebuild) {
    this.view = view;
    this.rebuild = rebuild;
    this.asking = null;
    this.upTo = 0;  // the request that was looked into last
    this.isCatchingUp = false;
  }

  get text() {
    return this.view.filter.text;
  }

  /** Begins anew with the filter's text: the latest first, and what is found is shown meanwhile. */
  async begin() {
    const { view } = this;
    this.asking?.abort();
    this.asking = null;
    view.found = this.text ? new Set() : null;
    if (!this.text) {
      this.rebuild();
      return;
    }
    this.asking = new AbortController();
    const { signal } = this.asking;
    this.upTo = view.records.last;
    try {
      let before;
      for (let more = true; more;) {
        const answer = await api.requests({ text: this.text, order: "desc", limit: PAGE, before }, signal);
        for (const { id } of answer.requests) view.found.add(id);
        this.upTo = Math.max(this.upTo, answer.requests[0]?.id ?? 0);
        before = answer.requests.at(-1)?.id;
        more = answer.more && answer.requests.length > 0;
        this.rebuild(more);
      }
      say(`${count(view.length)} requests match`);
      if (view.records.last > this.upTo) this.goOn();
    } catch (error) {
      if (!signal.aborted) say(error.message);
    }
  }

  /** Looks into what has come since. */
  async goOn() {
    if (this.isCatchingUp || !this.asking) return;
    this.isCatchingUp = true;
    const { view } = this;
    const { signal } = this.asking;
    try {
      const last = view.records.last;
      let after = this.upTo;
      for (let more = true; more;) {
        const answer = await api.requests({ text: this.text, order: "asc", limit: PAGE, after }, signal);
        for (const { id } of answer.requests) view.found.add(id);
        after = answer.requests.at(-1)?.id ?? after;
        more = answer.more && answer.requests.length > 0;
      }
      this.upTo = Math.max(last, after);
      this.rebuild();
    } catch (error) {
      if (!signal.aborted) say(error.message);
    } finally {
      this.isCatchingUp = false;
      if (this.asking && view.records.last > this.upTo) setTimeout(() => this.goOn(), 100);
    }
  }
}
