// Limits the bytes of uploads that are on their way to the machine. The relay answers a ping after it has
// passed on everything that was sent before the ping, so the delay of each answer shows how full the
// connection is. A window that is too large delays keys and clicks and can even break the link; a window that
// is too small leaves a part of the connection's capacity unused.

const SMALLEST = 256 * 1024;
const LARGEST = 4 * 1024 * 1024;
const INITIAL = 1024 * 1024;
/** An answer within FAST_MS widens the window; an answer after more than SLOW_MS halves it. */
const FAST_MS = 250;
const SLOW_MS = 1000;

export class UploadWindow {
  #now;
  #limit = INITIAL;
  /** The number of bytes that are on their way. */
  #open = 0;
  #pings = 0;
  /**
   * Bytes sent and not yet confirmed, by the id of the ping that was sent after them.
   * @type {Map<number, {bytes: number, at: number, onArrived: () => void}>}
   */
  #sent = new Map();
  /** @type {(() => void)[]} */
  #waiting = [];

  /** @param {() => number} [now] the clock, in milliseconds */
  constructor(now = () => performance.now()) {
    this.#now = now;
  }

  /** The number of bytes that may be on their way at once. */
  get limit() {
    return this.#limit;
  }

  /** Resolves when more bytes may be sent. */
  async waitForRoom() {
    while (this.#open >= this.#limit) {
      await new Promise((resolve) => {
        this.#waiting.push(() => resolve(undefined));
      });
    }
  }

  /**
   * Records bytes that were just sent.
   * @param {number} bytes
   * @param {() => void} onArrived called when the relay has passed them on
   * @returns {number} the id of the ping to send after them
   */
  sent(bytes, onArrived) {
    // The id is negative because the link's own pings have positive ids.
    const id = -++this.#pings;
    this.#open += bytes;
    this.#sent.set(id, { bytes, at: this.#now(), onArrived });
    return id;
  }

  /** Handles the answer to a ping; the answer to a ping of another sender is ignored. */
  pong(/** @type {unknown} */ id) {
    const part = typeof id === 'number' ? this.#sent.get(id) : undefined;
    if (typeof id !== 'number' || !part) return;
    this.#sent.delete(id);
    this.#open -= part.bytes;
    const delay = this.#now() - part.at;
    if (delay > SLOW_MS) this.#limit = Math.max(SMALLEST, this.#limit / 2);
    else if (delay < FAST_MS) this.#limit = Math.min(LARGEST, this.#limit + part.bytes);
    part.onArrived();
    this.#wake();
  }

  /** Forgets all bytes that are on their way, after the end of a session. */
  reset() {
    this.#sent.clear();
    this.#open = 0;
    this.#limit = INITIAL;
    this.#wake();
  }

  #wake() {
    for (const resume of this.#waiting.splice(0)) resume();
  }
}
