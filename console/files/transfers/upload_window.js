// Limits the bytes of uploads that are on their way to the machine. The relay reports how many bytes it has
// written to the machine, so the delay of each report shows how full both connections are. A window that is too
// large delays keys and clicks, which the browser sends in one line with the upload; a window that is too small
// leaves a part of the connections' capacity unused.

const SMALLEST = 256 * 1024;
/** Less than the relay queues for a machine before it stops reading from the browser. */
const LARGEST = 4 * 1024 * 1024;
const INITIAL = 1024 * 1024;
/** A report within FAST_MS widens the window; a report after more than SLOW_MS halves it. */
const FAST_MS = 250;
const SLOW_MS = 1000;

export class UploadWindow {
  #now;
  #limit = INITIAL;
  /** The bytes sent in this session, and those of them that have passed the relay. */
  #sent = 0;
  #passed = 0;
  /**
   * What was sent and has not passed, the oldest first. end: the value of #sent after it.
   * @type {{bytes: number, end: number, at: number, onPassed: () => void}[]}
   */
  #open = [];
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
    while (this.#sent - this.#passed >= this.#limit) {
      await new Promise((resolve) => {
        this.#waiting.push(() => resolve(undefined));
      });
    }
  }

  /**
   * Records bytes that were just sent.
   * @param {number} bytes
   * @param {() => void} onPassed called when the relay has written them to the machine
   */
  sent(bytes, onPassed) {
    this.#sent += bytes;
    this.#open.push({ bytes, end: this.#sent, at: this.#now(), onPassed });
  }

  /** Handles the relay's report of the total of bytes that have passed in this session. */
  passed(/** @type {unknown} */ total) {
    if (typeof total !== 'number' || !(total > this.#passed)) return;
    this.#passed = total;
    for (const part of this.#open.filter(({ end }) => end <= total)) {
      const delay = this.#now() - part.at;
      if (delay > SLOW_MS) this.#limit = Math.max(SMALLEST, this.#limit / 2);
      else if (delay < FAST_MS) this.#limit = Math.min(LARGEST, this.#limit + part.bytes);
      part.onPassed();
    }
    this.#open = this.#open.filter(({ end }) => end > total);
    this.#wake();
  }

  /**
   * Goes on in a session that was interrupted. What was sent and has not reached the relay is forgotten, because it is
   * sent again.
   * @param {number} taken the bytes that have reached the relay in this session
   * @param {number} passed the bytes of them that have passed it
   */
  goOn(taken, passed) {
    const reached = this.#open.filter(({ end }) => end <= taken);
    this.#open = reached.filter(({ end }) => end > passed).map((part) => ({ ...part, at: this.#now() }));
    this.#sent = taken;
    this.#passed = passed;
    this.#limit = INITIAL;
    for (const part of reached) if (part.end <= passed) part.onPassed();
    this.#wake();
  }

  /** Forgets all bytes that are on their way, after the end of a session. */
  reset() {
    this.#open = [];
    this.#sent = 0;
    this.#passed = 0;
    this.#limit = INITIAL;
    this.#wake();
  }

  #wake() {
    for (const resume of this.#waiting.splice(0)) resume();
  }
}
