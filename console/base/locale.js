// The locale in which the page writes numbers and times and sorts names of files.
import { texts } from './texts.js';

/**
 * The first language that `Intl` accepts as a locale; undefined if there is none. A browser can report a name
 * that is not a language tag, for example "C" from the system's settings, and `Intl` throws for such a name.
 * @param {readonly string[]} languages as in navigator.languages, the preferred one first
 */
export function firstLocale(languages) {
  return languages.find(isLocale);
}

function isLocale(/** @type {string} */ language) {
  try {
    return Intl.getCanonicalLocales(language).length > 0;
  } catch {
    return false;
  }
}

export const locale = firstLocale(globalThis.navigator?.languages ?? []) ?? texts.language;
