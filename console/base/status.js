// The numbers of the status line: rates over a sliding window, round trips, and how long a picture has been missing.

const WINDOW_MS = 2000;

/** Frames and bytes a second over the last two seconds. */
export class RateMeter {
  constructor(now = () => performance.now()) {
    this.now = now;
    /** @type {{at: number, bytes: number}[]} */
    this.samples = [];
    this.started = now();
  }

  add(/** @type {number} */ bytes) {
    this.samples.push({ at: this.now(), bytes });
  }

  restart() {
    this.samples = [];
    this.started = this.now();
  }

  read() {
    const now = this.now();
    while (this.samples.length && now - this.samples[0].at > WINDOW_MS) this.samples.shift();
    const seconds = Math.min(Math.max(now - this.started, 500), WINDOW_MS) / 1000;
    const bytes = this.samples.reduce((sum, sample) => sum + sample.bytes, 0);
    return { framesPerSecond: this.samples.length / seconds, kilobytesPerSecond: bytes / 1000 / seconds };
  }
}

/**
 * The way there and back between representative and machine.
 * @param {number | null} browser ms, browser to relay
 * @param {number | null} machine ms, relay to machine
 * @returns {number | null} null until both are known
 */
export function wholeRoundTrip(browser, machine) {
  return browser === null || machine === null ? null : Math.round(browser + machine);
}

/** Age of a moment in words' terms: which unit, and how many. Seconds since 1970 both. */
export function age(/** @type {number} */ then, /** @type {number} */ now) {
  const seconds = Math.max(0, now - then);
  if (seconds < 60) return { unit: 'now', count: 0 };
  if (seconds < 3600) return { unit: 'minute', count: Math.floor(seconds / 60) };
  if (seconds < 86400) return { unit: 'hour', count: Math.floor(seconds / 3600) };
  return { unit: 'day', count: Math.floor(seconds / 86400) };
}
