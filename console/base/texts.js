// The page's texts, in the first of the browser's preferred languages for which there is a table.
import { english } from './texts_en.js';
import { icelandic } from './texts_is.js';

const TABLES = [english, icelandic];

/**
 * The table in the first of the languages for which there is one; the first table if there is none.
 * @template {{language: string}} Table
 * @param {readonly Table[]} tables
 * @param {readonly string[]} languages as in navigator.languages, the preferred one first
 */
function tableFor(tables, languages) {
  for (const wanted of languages) {
    const found = tables.find(({ language }) => wanted.toLowerCase().split('-')[0] === language);
    if (found) return found;
  }
  return tables[0];
}

/** @param {readonly string[]} languages as in navigator.languages, the preferred one first */
export function textsFor(languages) {
  return tableFor(TABLES, languages);
}

export const texts = textsFor(globalThis.navigator?.languages ?? []);

/**
 * The table of a part of the console that has tables of its own.
 * @template {{language: string}} Table
 * @param {readonly Table[]} tables
 */
export function tableOf(tables) {
  return tableFor(tables, [texts.language]);
}

/** For each attribute data-KEY, the property of the element that receives the text named in the attribute. */
const PLACES = /** @type {const} */ ({
  text: 'textContent',
  label: 'ariaLabel',
  hint: 'title',
  placeholder: 'placeholder',
});

/** Fills the page's elements with the texts that their data attributes name. */
export function fillIn(/** @type {Document} */ page) {
  page.documentElement.lang = texts.language;
  const table = /** @type {Record<string, unknown>} */ (texts);
  for (const [key, place] of Object.entries(PLACES)) {
    const elements = /** @type {NodeListOf<HTMLInputElement>} */ (page.querySelectorAll(`[data-${key}]`));
    for (const element of elements) {
      const text = table[element.dataset[key] ?? ''];
      if (typeof text !== 'string') throw new Error(`there is no text "${element.dataset[key]}"`);
      element[place] = text;
    }
  }
}
