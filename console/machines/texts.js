// The texts about machines that somebody has a session with.
import { tableOf } from '../base/texts.js';

export const english = {
  language: 'en',
  watch: 'Watch',
  /** @param {number} count */
  others: (count) => (count === 1 ? 'and one more' : `and ${count} more`),
};

/** @type {typeof english} */
export const icelandic = {
  language: 'is',
  watch: 'Fylgjast með',
  others: (count) => (count === 1 ? 'og einum í viðbót' : `og ${count} í viðbót`),
};

export const machineTexts = tableOf([english, icelandic]);
