// Reads the machine's listing of a folder and sorts its entries for the page.
import { knownTime } from '../base/formats.js';

/**
 * A file or folder in a listing. mtime: the time of the last change, in seconds since 1970.
 * @typedef {{name: string, path: string, dir: boolean, size: number, mtime: number}} Entry
 */
/** @typedef {{path: string, parent: string, entries: Entry[]}} Listing */
/** @typedef {'name' | 'size' | 'mtime'} SortKey */

// biome-ignore lint/suspicious/noControlCharactersInRegex: the machine does not escape them in JSON.
const CONTROL_CHARACTERS = /[\u0000-\u001f]/g;

const utf8Reader = new TextDecoder();

/**
 * @param {Uint8Array} payload
 * @returns {Listing | null} null for other payloads; entries without a name or path are left out
 */
export function parseListing(payload) {
  const value = parseJson(utf8Reader.decode(payload));
  if (!isRecord(value) || typeof value.path !== 'string' || !Array.isArray(value.entries)) return null;
  return {
    path: value.path,
    parent: typeof value.parent === 'string' ? value.parent : '',
    entries: value.entries.flatMap(parseEntry),
  };
}

/** @returns {Entry[]} the entry in a list; an empty list when the value is not an entry */
function parseEntry(/** @type {unknown} */ value) {
  if (!isRecord(value)) return [];
  const { name, path, dir, size, mtime } = value;
  if (typeof name !== 'string' || typeof path !== 'string' || name === '') return [];
  return [{ name, path, dir: dir === true, size: count(size), mtime: count(mtime) }];
}

/**
 * Parses JSON; returns null when the text is not JSON. Control characters, which JSON.parse refuses, are
 * replaced.
 */
function parseJson(/** @type {string} */ text) {
  for (const candidate of [text, text.replace(CONTROL_CHARACTERS, '\ufffd')]) {
    try {
      return JSON.parse(candidate);
    } catch {
      // Tries the next candidate.
    }
  }
  return null;
}

/** @returns {value is Record<string, unknown>} */
function isRecord(/** @type {unknown} */ value) {
  return typeof value === 'object' && value !== null;
}

function count(/** @type {unknown} */ value) {
  return typeof value === 'number' && value >= 0 ? value : 0;
}

/**
 * A sorted copy, with folders before files in every order.
 * @param {Entry[]} entries
 * @param {SortKey} by
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
