// The road from the representative's hands to the link: pointer moves are merged to one per animation frame, and
// whatever else happens goes after the move that came before it. Nothing leaves while only viewing.
import * as input from './events.js';

/** With more than this waiting for the network, moves are merged further. */
const BUSY_BYTES = 64 * 1024;

export class InputSender {
  /**
   * @param {{send: (payload: Uint8Array) => void, backlog: () => number,
   *   nextFrame?: (callback: () => void) => void}} road
   */
  constructor({ send, backlog, nextFrame = (callback) => requestAnimationFrame(callback) }) {
    this.sendPayload = send;
    this.backlog = backlog;
    this.nextFrame = nextFrame;
    this.enabled = false;
    /** @type {{x: number, y: number} | null} */
    this.waiting = null;
    this.scheduled = false;
  }

  move(/** @type {{x: number, y: number}} */ position) {
    if (!this.enabled) return;
    this.waiting = position;
    this.schedule();
  }

  /** Buttons and the wheel act where the pointer is, so a move always goes before them in the same run. */
  at(/** @type {{x: number, y: number}} */ position, /** @type {input.InputEvent[]} */ events) {
    this.waiting = position;
    this.send(events);
  }

  send(/** @type {input.InputEvent[]} */ events) {
    const before = this.waiting ? [input.move(this.waiting.x, this.waiting.y)] : [];
    this.waiting = null;
    if (this.enabled) input.batches([...before, ...events]).forEach((payload) => this.sendPayload(payload));
  }

  /** @private */
  schedule() {
    if (this.scheduled) return;
    this.scheduled = true;
    this.nextFrame(() => {
      this.scheduled = false;
      if (!this.waiting) return;
      if (this.backlog() > BUSY_BYTES) this.schedule();
      else this.send([]);
    });
  }
}
