// What had come before the page was opened, and while its connection was broken.

import { api } from "./api.js";

const PAGE = 1000;  // requests at once

export class Loading {
  /** `rebuild(partly)` is told of everything that has come, `arrived` of what came in between, `reset` when it begins anew. */
  constructor(records, { rebuild, arrived, reset, first }) {
    this.records = records;
    this.tell = { rebuild, arrived, reset, first };
    this.isDone = false;
    this.generation = 0;  // of what there is; another one after it was forgotten
  }

  /** Everything was forgotten, and there is nothing to load. */
  begin() {
    this.generation += 1;
    this.isDone = true;
  }

  /** The latest at once, then backwards to the first one. */
  async load() {
    const mine = this.generation;
    const { records } = this;
    this.isDone = false;
    let before;
    for (let more = true; more;) {
      const answer = await api.requests({ order: "desc", limit: PAGE, before });
      if (mine !== this.generation) return;
      for (const summary of answer.requests) {
        if (!records.has(summary.id)) records.put(summary);  // what came by itself is newer
      }
      more = answer.more && answer.requests.length > 0;
      before = answer.requests.at(-1)?.id;
      this.tell.rebuild(true);
      if (!performance.getEntriesByName("first").length) {
        performance.mark("first");
        this.tell.first();
      }
      await new Promise((resolve) => setTimeout(resolve));  // whoever types or scrolls goes first
    }
    this.isDone = true;
    performance.mark("loaded");
    this.tell.rebuild();
  }

  /** What came meanwhile is asked for, or all of it where something was forgotten. */
  async catchUp() {
    if (!this.isDone) return;
    const mine = this.generation;
    const { records } = this;
    const [oldest, newest] = await Promise.all(["asc", "desc"].map((order) => api.requests({ order, limit: 1 })));
    if (mine !== this.generation) return;
    const [low, high] = [oldest.requests[0]?.id ?? Infinity, newest.requests[0]?.id ?? 0];
    if (low > records.first || high < records.last) {
      this.tell.reset();
      await this.load();
      return;
    }
    for (let more = true; more;) {
      const answer = await api.requests({ order: "asc", limit: PAGE, after: records.last });
      if (mine !== this.generation) return;
      for (const summary of answer.requests) {
        if (!records.has(summary.id)) this.tell.arrived(summary);
      }
      more = answer.more && answer.requests.length > 0;
    }
  }
}
