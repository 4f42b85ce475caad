// Sends input events: merges pointer moves to one for each animation frame, and sends other events after the
// move that preceded them. Sends nothing while disabled.
import * as input from './events.js';

/** While more bytes than this wait for the network, moves are merged over several frames. */
const BUSY_BYTES = 64 * 1024;

/** @typedef {{x: number, y: number}} Position in 0..POINTER_MAX */

export class InputSender {
  enabled = false;
  #sendPayload;
  #backlog;
  #nextFrame;
  /** @type {Position | null} the newest move that is not sent yet */
  #waiting = null;
  #scheduled = false;

  /**
   * @param {{send: (payload: Uint8Array) => void, backlog: () => number,
   *   nextFrame?: (callback: () => void) => void}} outlets backlog: bytes that wait for the network
   */
  constructor({ send, backlog, nextFrame = (callback) => requestAnimationFrame(callback) }) {
    this.#sendPayload = send;
    this.#backlog = backlog;
    this.#nextFrame = nextFrame;
  }

  move(/** @type {Position} */ position) {
    if (!this.enabled) return;
    this.#waiting = position;
    this.#schedule();
  }

  /** Sends a move and then the events, in one batch: buttons and the wheel act at the pointer's position. */
  sendAt(/** @type {Position} */ position, /** @type {input.InputEvent[]} */ events) {
    this.#waiting = position;
    this.send(events);
  }

  send(/** @type {input.InputEvent[]} */ events) {
    const before = this.#waiting ? [input.move(this.#waiting.x, this.#waiting.y)] : [];
    this.#waiting = null;
    if (!this.enabled) return;
    for (const payload of input.batches([...before, ...events])) this.#sendPayload(payload);
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
