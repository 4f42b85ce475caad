// Every text that the representative reads, in the first of the browser's languages that there is a table for.
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

/** Puts the words into a page that names them; index.html says how. */
export function fillIn(/** @type {Document} */ page) {
  const each = (/** @type {string} */ key, /** @type {(element: any, text: string) => void} */ put) => {
    for (const element of page.querySelectorAll(`[data-${key}]`)) {
      const name = /** @type {HTMLElement} */ (element).dataset[key] ?? '';
      const text = /** @type {any} */ (texts)[name];
      if (typeof text !== 'string') throw new Error(`there is no text "${name}"`);
      put(element, text);
    }
  };
  page.documentElement.lang = texts.language;
  each('text', (element, text) => {
    element.textContent = text;
  });
  each('label', (element, text) => {
    element.ariaLabel = text;
  });
  each('hint', (element, text) => {
    element.title = text;
  });
  each('placeholder', (element, text) => {
    element.placeholder = text;
  });
}
