// Rates over a sliding window, for the status line and for transfers.

const WINDOW_MS = 2000;

/** Measures the calls of add() and their bytes, per second, over the last two seconds. */
export class RateMeter {
  #now;
  /** @type {{at: number, bytes: number}[]} */
  #samples = [];
  #started;

  /** @param {() => number} [now] the clock, in milliseconds */
  constructor(now = () => performance.now()) {
    this.#now = now;
    this.#started = now();
  }

  add(/** @type {number} */ bytes) {
    this.#samples.push({ at: this.#now(), bytes });
  }

  restart() {
    this.#samples = [];
    this.#started = this.#now();
  }

  read() {
    const now = this.#now();
    while (this.#samples.length && now - this.#samples[0].at > WINDOW_MS) this.#samples.shift();
    const seconds = Math.min(Math.max(now - this.#started, 500), WINDOW_MS) / 1000;
    const bytes = this.#samples.reduce((sum, sample) => sum + sample.bytes, 0);
    return { framesPerSecond: this.#samples.length / seconds, kilobytesPerSecond: bytes / 1000 / seconds };
  }
}
