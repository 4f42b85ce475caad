// What the soak test knows: which faults are under way, what they excuse, and what was seen wrongly.
import { appendFileSync, writeFileSync } from 'node:fs';

/** Every expectation is met within this time unless a fault excuses it. */
export const DEADLINE_MS = 45_000;
/** An agent waits for 30 s at most before it connects again; the rest is for a computer with other work. */
export const RETURN_MS = 100_000;
/** A fault still excuses what is seen this long after its end. */
const AFTER_FAULT_MS = 6000;
const LAST_EVENTS = 40;
/** No more faults than these are remembered. */
const MOST_FAULTS = 200;
export const EVERYTHING = '*';

/** Ends an action whose result a fault explains, or that was found to be wrong. */
export class GivenUp extends Error {}

/** @typedef {{kind: string, on: string, from: number, until: number}} Fault */

export class World {
  counts = {
    opened: 0,
    accepted: 0,
    declined: 0,
    resumed: 0,
    frames: 0,
    bytes: 0,
    inputs: 0,
    clips: 0,
    downloads: 0,
    uploads: 0,
    continued: 0,
    faults: 0,
    excused: 0,
    wrong: 0,
  };
  /** What the faults were, by their kind. @type {Map<string, number>} */
  kinds = new Map();
  /** Set when no new work is to begin. */
  ending = false;
  /** Set while the work is interrupted, so that the processes can be measured at rest. */
  resting = false;
  /** @type {Fault[]} */
  #faults = [];
  /** @type {string[]} */
  #events = [];
  #log;
  #began = performance.now();

  constructor(/** @type {string} */ log) {
    this.#log = log;
    writeFileSync(log, '');
  }

  /** Whether what goes on is to end soon. */
  get stopping() {
    return this.ending || this.resting;
  }

  note(/** @type {string} */ event) {
    const line = `${((performance.now() - this.#began) / 1000).toFixed(3)} ${event}`;
    this.#events.push(line);
    if (this.#events.length > LAST_EVENTS) this.#events.shift();
    appendFileSync(this.#log, `${line}\n`);
  }

  /** A wrong observation, with the events before it. */
  wrong(/** @type {string} */ what) {
    this.counts.wrong++;
    this.note(`WRONG ${what}`);
    if (this.counts.wrong > 10) return;
    console.log(`WRONG: ${what}\n  before it:\n    ${this.#events.join('\n    ')}`);
  }

  /** @param {string} kind @param {string} on a machine's name, or EVERYTHING */
  beginFault(kind, on) {
    const fault = { kind, on, from: performance.now(), until: Number.POSITIVE_INFINITY };
    this.#faults.push(fault);
    if (this.#faults.length > MOST_FAULTS) this.#faults.shift();
    this.countFault(kind);
    this.note(`fault ${kind} on ${on}`);
    return fault;
  }

  /** Counts a fault that excuses nothing, too. */
  countFault(/** @type {string} */ kind) {
    this.counts.faults++;
    this.kinds.set(kind, (this.kinds.get(kind) ?? 0) + 1);
  }

  endFault(/** @type {Fault} */ fault) {
    fault.until = performance.now() + AFTER_FAULT_MS;
    this.note(`over: ${fault.kind} on ${fault.on}`);
  }

  /**
   * Whether a fault of the machine, or of everything, was under way at any time since then.
   * @param {string} machine @param {number} [since] by default now
   */
  excuses(machine, since = performance.now()) {
    return this.#faults.some(({ on, until }) => (on === machine || on === EVERYTHING) && until >= since);
  }

  /**
   * Waits for a condition. Throws GivenUp when it is not met in time, or when `over` says why it cannot be
   * met any more; a condition that is not met in time and that no fault excuses is a wrong observation.
   * @template T
   * @param {string} what the condition, for the message
   * @param {() => T | Promise<T>} condition
   * @param {{machine?: string, over?: () => string | false, excused?: (since: number) => boolean,
   *   deadlineMs?: number}} [rules]
   * @returns {Promise<Exclude<T, false | 0 | '' | null | undefined | void>>}
   */
  async until(what, condition, { machine, over, excused, deadlineMs = DEADLINE_MS } = {}) {
    const since = performance.now();
    for (;;) {
      const value = await condition();
      if (value) return /** @type {Exclude<T, false | 0 | '' | null | undefined | void>} */ (value);
      const reason = over?.();
      if (reason) throw new GivenUp(`${what}: ${reason}`);
      if (performance.now() - since > deadlineMs) break;
      await new Promise((done) => setTimeout(done, 20));
    }
    if ((machine !== undefined && this.excuses(machine, since)) || excused?.(since)) {
      this.counts.excused++;
      this.note(`excused: ${what}`);
    } else this.wrong(`${what}: not within ${deadlineMs / 1000} s`);
    throw new GivenUp(what);
  }
}
