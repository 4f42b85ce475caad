// Sends input events: merges pointer moves to one for each animation frame, and sends other events after the
// move that preceded them. Sends nothing while disabled, and keeps everything in order while held.
import * as input from './events.js';

/** While more bytes than this wait for the network, moves are merged over several frames. */
const BUSY_BYTES = 64 * 1024;

/**
 * The time in milliseconds between a move and a button or a turn of the wheel at its position. In Wine's
 * virtual desktop, a press directly after a move can act at the position before the move; see "Clicks under
 * Wine" in docs/testing.md.
 */
const SETTLE_MS = 16;

/** @typedef {{x: number, y: number}} Position in 0..POINTER_MAX */
/** @typedef {{over: boolean}} Hold */
/** @typedef {{now: () => number, wait: (act: () => void, ms: number) => void}} Clock */

/** @type {Clock} */
const BROWSER_CLOCK = { now: () => performance.now(), wait: (act, ms) => setTimeout(act, ms) };

export class InputSender {
  #enabled = false;
  #sendPayload;
  #backlog;
  #nextFrame;
  #clock;
  /** @type {Position | null} the last move that was sent */
  #at = null;
  #movedAt = 0;
  /** @type {Position | null} the newest move that is not sent yet */
  #waiting = null;
  #scheduled = false;
  /** @type {(Hold | input.InputEvent[])[]} the first hold that has not ended, and all that came after it */
  #kept = [];

  /**
   * @param {{send: (payload: Uint8Array) => void, backlog: () => number,
   *   nextFrame?: (callback: () => void) => void, clock?: Clock}} outlets backlog: bytes that wait for the
   *   network
   */
  constructor({
    send,
    backlog,
    nextFrame = (callback) => requestAnimationFrame(callback),
    clock = BROWSER_CLOCK,
  }) {
    this.#sendPayload = send;
    this.#backlog = backlog;
    this.#nextFrame = nextFrame;
    this.#clock = clock;
  }

  get enabled() {
    return this.#enabled;
  }

  /** Disabling ends all holds: it sends the releases among the events that are kept, and drops the others. */
  set enabled(/** @type {boolean} */ on) {
    if (!on) {
      const releases = this.#kept.flatMap((one) => (isHold(one) ? [] : one.filter(input.isRelease)));
      this.#kept = [];
      this.#waiting = null;
      if (releases.length) this.#write(releases);
    }
    this.#enabled = on;
    this.#at = null;
  }

  /**
   * Keeps all later events, in their order, until the returned function is called. If several holds overlap,
   * the events between two of them are sent when the first ends.
   * @returns {() => void} ends the hold; further calls do nothing
   */
  hold() {
    const hold = { over: false };
    this.#kept.push(hold);
    return () => {
      hold.over = true;
      this.#sendKept();
    };
  }

  move(/** @type {Position} */ position) {
    if (!this.enabled) return;
    this.#waiting = position;
    this.#schedule();
  }

  /**
   * Sends a move and then the events, in one batch: buttons and the wheel act at the pointer's position. The
   * batch is sent SETTLE_MS after the first move to this position; if that move is still due, it is sent now.
   */
  sendAt(/** @type {Position} */ position, /** @type {input.InputEvent[]} */ events) {
    if (this.#enabled && !this.#kept.length) this.#settle(position);
    this.#waiting = position;
    this.send(events);
  }

  send(/** @type {input.InputEvent[]} */ events) {
    const to = this.#waiting;
    const before = to ? [input.move(to.x, to.y)] : [];
    this.#waiting = null;
    if (!this.enabled) return;
    if (to && !this.#isAt(to)) {
      this.#at = to;
      this.#movedAt = this.#clock.now();
    }
    const all = [...before, ...events];
    if (this.#kept.length) this.#kept.push(all);
    else this.#write(all);
  }

  /** Sends what was kept, up to the first hold that has not ended. */
  #sendKept() {
    for (;;) {
      const [first] = this.#kept;
      if (!first || (isHold(first) && !first.over)) return;
      this.#kept.shift();
      if (!isHold(first)) this.#write(first);
    }
  }

  #isAt(/** @type {Position} */ { x, y }) {
    return this.#at?.x === x && this.#at.y === y;
  }

  /** Moves the pointer to the position, and holds what is sent afterwards until SETTLE_MS after the move. */
  #settle(/** @type {Position} */ position) {
    if (!this.#isAt(position)) {
      this.#waiting = position;
      this.send([]);
    }
    const rest = this.#movedAt + SETTLE_MS - this.#clock.now();
    if (rest > 0) this.#clock.wait(this.hold(), rest);
  }

  #write(/** @type {input.InputEvent[]} */ events) {
    for (const payload of input.batches(events)) this.#sendPayload(payload);
  }

  #schedule() {
    if (this.#scheduled) return;
    this.#scheduled = true;
    this.#nextFrame(() => {
      this.#scheduled = false;
      if (!this.#waiting) return;
      if (this.#backlog() > BUSY_BYTES) this.#schedule();
      else this.send([]);
    });
  }
}

/** @returns {kept is Hold} */
function isHold(/** @type {Hold | input.InputEvent[]} */ kept) {
  return !Array.isArray(kept);
}
