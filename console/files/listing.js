// One folder of the machine as it answered, its order on the page, and its numbers in the user's language.

/** @typedef {{name: string, path: string, dir: boolean, size: number, mtime: number}} Entry */
/** @typedef {{path: string, parent: string, entries: Entry[]}} Listing */

/** Seconds since 1970. Later times are those before 1970, which the machine's unsigned numbers cannot tell. */
const LATEST_TIME = Date.UTC(9999, 11, 31) / 1000;
const UNITS = ['kB', 'MB', 'GB', 'TB', 'PB', 'EB'];

const utf8Reader = new TextDecoder();

/**
 * @param {Uint8Array} payload
 * @returns {Listing | null} null when it makes no sense; entries that make none are left out
 */
export function parseListing(payload) {
  const value = parseJson(utf8Reader.decode(payload));
  if (typeof value?.path !== 'string' || !Array.isArray(value.entries)) return null;
  const entries = value.entries.filter(
    (/** @type {any} */ entry) =>
      typeof entry?.name === 'string' && typeof entry.path === 'string' && entry.name !== '',
  );
  return {
    path: value.path,
    parent: typeof value.parent === 'string' ? value.parent : '',
    entries: entries.map((/** @type {any} */ { name, path, dir, size, mtime }) => ({
      name,
      path,
      dir: dir === true,
      size: count(size),
      mtime: count(mtime),
    })),
  };
}

/** The machine writes control characters as they are, which strict readers refuse. */
function parseJson(/** @type {string} */ text) {
  for (const candidate of [text, text.replace(/[\u0000-\u001f]/g, '\ufffd')]) {
    try {
      return JSON.parse(candidate);
    } catch {
      // The next one.
    }
  }
  return null;
}

function count(/** @type {unknown} */ value) {
  return typeof value === 'number' && value >= 0 ? value : 0;
}

/**
 * A sorted copy: folders before files whatever the order.
 * @param {Entry[]} entries
 * @param {'name' | 'size' | 'mtime'} by
 * @param {boolean} descending
 * @param {string} [locale]
 */
export function sorted(entries, by, descending, locale) {
  const { compare } = new Intl.Collator(locale, { numeric: true });
  const sign = descending ? -1 : 1;
  const value = (/** @type {Entry} */ entry) =>
    by === 'mtime' ? (knownTime(entry.mtime) ?? -1) : entry.size;
  const order =
    by === 'name' ? () => 0 : (/** @type {Entry} */ a, /** @type {Entry} */ b) => value(a) - value(b);
  return [...entries].sort(
    (a, b) => Number(b.dir) - Number(a.dir) || sign * (order(a, b) || compare(a.name, b.name)),
  );
}

/** Seconds since 1970, null when the machine has none that can be told. */
function knownTime(/** @type {number} */ mtime) {
  return mtime > 0 && mtime <= LATEST_TIME ? mtime : null;
}

/** Sizes and times in the words of one language. */
export class Numbers {
  constructor(
    /** @type {string | undefined} */ locale,
    /** @type {string | undefined} */ timeZone = undefined,
  ) {
    this.whole = new Intl.NumberFormat(locale, { maximumFractionDigits: 0 });
    this.short = new Intl.NumberFormat(locale, { maximumSignificantDigits: 3 });
    this.moment = new Intl.DateTimeFormat(locale, { dateStyle: 'short', timeStyle: 'short', timeZone });
  }

  /** A number of bytes, in three digits. */
  size(/** @type {number} */ bytes) {
    if (bytes < 1000) return `${this.whole.format(bytes)} B`;
    let unit = -1;
    let value = bytes;
    for (; value >= 999.5 && unit < UNITS.length - 1; unit++) value /= 1000;
    return `${(value >= 100 ? this.whole : this.short).format(value)} ${UNITS[unit]}`;
  }

  /** Every one of the bytes. */
  bytes(/** @type {number} */ bytes) {
    return this.whole.format(bytes);
  }

  /** A file's time, '' when there is none that can be told. */
  time(/** @type {number} */ mtime) {
    const known = knownTime(mtime);
    return known === null ? '' : this.moment.format(known * 1000);
  }

  /** A duration as h:mm:ss or m:ss. */
  duration(/** @type {number} */ seconds) {
    const whole = Math.max(0, Math.ceil(seconds));
    const two = (/** @type {number} */ part) => String(part).padStart(2, '0');
    const [hours, minutes] = [Math.floor(whole / 3600), Math.floor(whole / 60) % 60];
    return hours ? `${hours}:${two(minutes)}:${two(whole % 60)}` : `${minutes}:${two(whole % 60)}`;
  }
}
