// The reports of a device against the cadence that they should have (docs/behaviour.md): 5 s after the start, every 600 s
// from the start or the return on, on entering the background, 5 s after the return.
//
// The program sees reports and logins, and not what the application does. So a report between two due ones is taken for
// an entry into the background, and the next one for the return; that is the only way that a device which does all right
// can report at such times. What fits nowhere is unexpected.

const FIRST = 5000;
const INTERVAL = 600000;
const TOLERANCE = 1500;  // the network's and the scheduler's, in milliseconds
const LATE = 60000;  // after that a report is missing, and what comes is another one
const MANY = 6;  // as many missing in a row, and the device was away
const RENEWAL = 10000;  // a refused token has a login follow at once
const RETRIES = [300000, 600000, 1200000, 2400000, 3600000];  // after a failed login

export const STATES = {
  first: "5 s after the start", regular: "as due", background: "on entering the background", return: "5 s after the return",
  late: "late", unexpected: "unexpected", missing: "missing", overdue: "overdue",
};
export const STANDS_OUT = new Set(["late", "unexpected", "missing", "overdue"]);

/**
 * `events` of one device in the order of time: {time, id, login: bool, good: bool, status}. Returns marks {time, id, state,
 * off, refused} (`off`: milliseconds after the due time), logins {time, id, good, what}, tokens {from, to, refused} (`to` is
 * null while it lives), and `due`: when the next report should come, or null.
 */
export function cadence(events, now) {
  const course = new Course();
  for (const event of events) {
    if (event.login) course.login(event);
    else course.report(event);
  }
  return course.end(now);
}

class Course {
  marks = [];
  logins = [];
  tokens = [];
  anchor = null;  // the start or the return
  next = 0;  // which report is due: 0 the one after 5 s, n the one after n intervals
  away = false;  // in the background
  since = -Infinity;  // when it went there
  pending = null;  // when a report comes that was due in 5 s when it went there
  refusedAt = -Infinity;  // when the token was refused
  failed = null;  // the login that failed last, if none has succeeded since
  failures = 0;

  dueAt(number = this.next) {
    return this.anchor + (number === 0 ? FIRST : number * INTERVAL);
  }

  mark(event, state, off = 0) {
    this.marks.push({ time: event.time, id: event.id, state, off, refused: !event.good, status: event.status });
  }

  login({ time, id, good }) {
    const wait = RETRIES[Math.min(this.failures, RETRIES.length) - 1];
    const retry = this.failed !== null && Math.abs(time - this.failed - wait) < LATE;
    const renewal = time - this.refusedAt <= RENEWAL;
    const what = renewal ? "anew, the token was refused" : retry ? "once more" : "start";
    this.logins.push({ time, id, good, what });
    if (!renewal && !retry) {
      Object.assign(this, { anchor: time, next: 0, away: false, pending: null, failures: 0 });
    }
    if (good) {
      this.endToken(time, false);
      this.tokens.push({ from: time, to: null, refused: false });
      // What was due while there was no token was dropped by the device, and is not missing.
      while ((retry || renewal) && this.dueAt() < time) this.next += 1;
      this.failed = null;
      this.failures = 0;
    } else {
      this.failed = time;
      this.failures += 1;
    }
  }

  endToken(time, refused) {
    const token = this.tokens.at(-1);
    if (token && token.to === null) Object.assign(token, { to: time, refused });
  }

  report(event) {
    const { time } = event;
    if (this.anchor === null) this.begin(event);
    else if (this.away) this.whileAway(event);
    else this.inForeground(event);
    if (event.status === 403) {
      this.refusedAt = time;
      this.endToken(time, true);
    }
  }

  /** Its start was not seen. */
  begin(event) {
    this.anchor = event.time - FIRST;
    this.next = 1;
    this.mark(event, "first");
  }

  inForeground(event) {
    const { time } = event;
    const missed = [];
    while (this.dueAt() + LATE < time) {
      missed.push(this.dueAt());
      this.next += 1;
    }
    for (const due of missed.length > MANY ? missed.slice(0, 1) : missed) {
      this.marks.push({ time: due, id: 0, state: "missing", off: 0 });
    }
    const off = time - this.dueAt();
    if (missed.length > MANY && off < -TOLERANCE) {
      this.comeBack(event);
    } else if (off < -TOLERANCE) {
      this.pending = this.next === 0 ? this.dueAt() : null;
      this.away = true;
      this.since = time;
      this.mark(event, "background");
    } else {
      this.mark(event, off > TOLERANCE ? "late" : this.next === 0 ? "first" : "regular", off);
      this.next += 1;
    }
  }

  whileAway(event) {
    if (this.pending !== null && Math.abs(event.time - this.pending) <= TOLERANCE) {
      this.pending = null;
      this.mark(event, "first");
    } else if (event.time - this.since < FIRST - TOLERANCE) {
      this.mark(event, "unexpected");
    } else {
      this.comeBack(event);
    }
  }

  comeBack(event) {
    Object.assign(this, { anchor: event.time - FIRST, next: 1, away: false, pending: null });
    this.mark(event, "return");
  }

  end(now) {
    const { marks, logins, tokens } = this;
    let due = null;
    if (this.anchor !== null && !this.away && this.failed === null && !(tokens.length && tokens.at(-1).to !== null)) {
      due = this.dueAt();
      if (due + TOLERANCE < now) marks.push({ time: due, id: 0, state: "overdue", off: now - due });
    }
    marks.sort((one, other) => one.time - other.time);
    return { marks, logins, tokens, due };
  }
}

/** How many of a sorted list of numbers are below that one. */
export function below(list, value) {
  let low = 0;
  let high = list.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (list[middle] < value) low = middle + 1;
    else high = middle;
  }
  return low;
}

/**
 * Says which devices logins are of, for nothing in them tells: the one whose token was just refused, or the one whose
 * first report comes 5 s later. `times`: of the logins, in their order. `lanes`: the devices' {times, events}, in the order
 * of time. Returns a lane's number for each, or -1.
 */
export function lanesOfLogins(times, lanes) {
  const renewed = lanes.map(() => -Infinity);
  return times.map((time) => {
    if (lanes.length === 1) return 0;
    let best = -1;
    let nearest = LATE;
    for (let lane = 0; lane < lanes.length; ++lane) {
      const at = below(lanes[lane].times, time);
      const before = lanes[lane].events[at - 1];
      if (before?.status === 403 && time - before.time <= RENEWAL && renewed[lane] < before.time) {
        renewed[lane] = time;
        return lane;
      }
      const after = lanes[lane].events[at];
      const off = after ? Math.abs(after.time - time - FIRST) : Infinity;
      if (off < nearest) [best, nearest] = [lane, off];
    }
    return best;
  });
}
