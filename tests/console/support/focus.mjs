// The element of the page that has the keyboard's focus.
import { until } from './waiting.mjs';

/** @typedef {import('playwright-core').Page} Page */

/** The id of the element that has the focus; without an id its accessible name, or else its tag. */
export const focused = (/** @type {Page} */ p) =>
  p.evaluate(() => {
    const one = document.activeElement;
    return one?.id || one?.ariaLabel || one?.localName || '';
  });

/** Waits until the element with this id has the focus. @param {Page} p @param {string} id @param {string} [when] */
export const hasFocus = (p, id, when = '') =>
  until(`the focus is on #${id} ${when}`.trim(), async () => {
    const now = await focused(p);
    if (now !== id) throw new Error(now);
    return true;
  });
