// Sizes, times, durations and ages in the form in which the page shows them.

/**
 * The latest time that is shown, in seconds since 1970. A larger number stands for a time before 1970,
 * because the machine sends times as unsigned numbers.
 */
const LATEST_TIME = Date.UTC(9999, 11, 31) / 1000;
const UNITS = ['kB', 'MB', 'GB', 'TB', 'PB', 'EB'];

/** Returns the time in seconds since 1970, or null for a time that cannot be shown. */
export function knownTime(/** @type {number} */ mtime) {
  return mtime > 0 && mtime <= LATEST_TIME ? mtime : null;
}

/**
 * The age of the time `then` at the time `now`, as a unit and a count. Both are in seconds since 1970.
 * @param {number} then
 * @param {number} now
 * @returns {{unit: 'now' | 'minute' | 'hour' | 'day', count: number}}
 */
export function age(then, now) {
  const seconds = Math.max(0, now - then);
  if (seconds < 60) return { unit: 'now', count: 0 };
  if (seconds < 3600) return { unit: 'minute', count: Math.floor(seconds / 60) };
  if (seconds < 86400) return { unit: 'hour', count: Math.floor(seconds / 3600) };
  return { unit: 'day', count: Math.floor(seconds / 86400) };
}

/** A duration as h:mm:ss or m:ss. */
export function duration(/** @type {number} */ seconds) {
  const whole = Math.max(0, Math.ceil(seconds));
  const twoDigits = (/** @type {number} */ part) => String(part).padStart(2, '0');
  const [hours, minutes] = [Math.floor(whole / 3600), Math.floor(whole / 60) % 60];
  return hours
    ? `${hours}:${twoDigits(minutes)}:${twoDigits(whole % 60)}`
    : `${minutes}:${twoDigits(whole % 60)}`;
}

/** Formats sizes and times in the notation of one locale. */
export class Formats {
  #whole;
  #short;
  #moment;

  /** @param {string} [locale] @param {string} [timeZone] the browser's by default */
  constructor(locale, timeZone) {
    this.#whole = new Intl.NumberFormat(locale, { maximumFractionDigits: 0 });
    this.#short = new Intl.NumberFormat(locale, { maximumSignificantDigits: 3 });
    this.#moment = new Intl.DateTimeFormat(locale, { dateStyle: 'short', timeStyle: 'short', timeZone });
  }

  /** A number of bytes with three significant digits and a unit. */
  size(/** @type {number} */ bytes) {
    if (bytes < 1000) return `${this.#whole.format(bytes)} B`;
    let unit = -1;
    let value = bytes;
    for (; value >= 999.5 && unit < UNITS.length - 1; unit++) value /= 1000;
    return `${(value >= 100 ? this.#whole : this.#short).format(value)} ${UNITS[unit]}`;
  }

  /** The exact number of bytes. */
  bytes(/** @type {number} */ bytes) {
    return this.#whole.format(bytes);
  }

  /** A file's time as text; '' for a time that cannot be shown. */
  time(/** @type {number} */ mtime) {
    const known = knownTime(mtime);
    return known === null ? '' : this.#moment.format(known * 1000);
  }
}
