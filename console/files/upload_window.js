// How much of an upload may be under way at once. The relay answers a ping when it has passed on what went before it,
// so the pings tell how far behind the road is. Too much under way would hold up keys and clicks behind it, and in the
// end the link itself; too little would leave the road idle.

const SMALLEST = 256 * 1024;
const LARGEST = 4 * 1024 * 1024;
const FIRST = 1024 * 1024;
const GOOD_MS = 250;
const BAD_MS = 1000;

export class Flow {
  constructor(now = () => performance.now()) {
    this.now = now;
    this.limit = FIRST;
    /** Bytes under way. */
    this.open = 0;
    this.last = 0;
    /** @type {Map<number, {bytes: number, at: number, arrived: () => void}>} */
    this.marks = new Map();
    /** @type {(() => void)[]} */
    this.waiting = [];
  }

  /** Resolves when more may be sent. */
  async room() {
    while (this.open >= this.limit)
      await new Promise((done) => {
        this.waiting.push(() => done(undefined));
      });
  }

  /**
   * Notes what was just sent.
   * @param {number} bytes
   * @param {() => void} arrived called when the relay has passed it on
   * @returns {number} the id of the ping to send behind it
   */
  sent(bytes, arrived) {
    // Far from the ids of the link's own pings.
    const id = -++this.last;
    this.open += bytes;
    this.marks.set(id, { bytes, at: this.now(), arrived });
    return id;
  }

  /** A ping came back. */
  pong(/** @type {unknown} */ id) {
    const mark = this.marks.get(/** @type {number} */ (id));
    if (!mark) return;
    this.marks.delete(/** @type {number} */ (id));
    this.open -= mark.bytes;
    const delay = this.now() - mark.at;
    if (delay > BAD_MS) this.limit = Math.max(SMALLEST, this.limit / 2);
    else if (delay < GOOD_MS) this.limit = Math.min(LARGEST, this.limit + mark.bytes);
    mark.arrived();
    this.wake();
  }

  /** The road ended: nothing is under way any more. */
  reset() {
    this.marks.clear();
    this.open = 0;
    this.limit = FIRST;
    this.wake();
  }

  /** @private */
  wake() {
    this.waiting.splice(0).forEach((done) => done());
  }
}
