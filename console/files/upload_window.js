// Limits the bytes of uploads that are on their way to the machine. The relay answers a ping after it has
// passed on everything that was sent before the ping, so the delay of each answer shows how full the
// connection is. A window that is too large delays keys and clicks and in the end breaks the link; one that
// is too small leaves the connection unused.

const SMALLEST = 256 * 1024;
const LARGEST = 4 * 1024 * 1024;
const INITIAL = 1024 * 1024;
/** A faster answer widens the window, a slower one than SLOW_MS halves it. */
const FAST_MS = 250;
const SLOW_MS = 1000;

export class UploadWindow {
  #now;
  #limit = INITIAL;
  /** Bytes on their way. */
  #open = 0;
  #pings = 0;
  /**
   * By the id of the ping after them.
   * @type {Map<number, {bytes: number, at: number, onArrived: () => void}>}
   */
  #sent = new Map();
  /** @type {(() => void)[]} */
  #waiting = [];

  /** @param {() => number} [now] milliseconds */
  constructor(now = () => performance.now()) {
    this.#now = now;
  }

  /** The bytes that may be on their way at once. */
  get limit() {
    return this.#limit;
  }

  /** Resolves when more may be sent. */
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
    // Negative, and so never the id of one of the link's own pings.
    const id = -++this.#pings;
    this.#open += bytes;
    this.#sent.set(id, { bytes, at: this.#now(), onArrived });
    return id;
  }

  /** Takes the answer to a ping; one of another sender's pings is ignored. */
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

  /** Forgets everything that is on its way, after the end of a session. */
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
