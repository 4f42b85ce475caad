// The page's texts, in the first of the browser's preferred languages for which there is a table.
import { english } from './texts_en.js';
import { icelandic } from './texts_is.js';

const TABLES = [english, icelandic];

/** @param {readonly string[]} languages as in navigator.languages, the preferred one first */
export function textsFor(languages) {
  for (const wanted of languages) {
    const found = TABLES.find(({ language }) => wanted.toLowerCase().split('-')[0] === language);
    if (found) return found;
  }
  return english;
}

export const texts = textsFor(globalThis.navigator?.languages ?? []);

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
