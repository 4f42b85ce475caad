// Opens pages of the console as different people see them.

import { ConsolePage } from '../console_page.mjs';
import { Api, administrator } from './api.mjs';

/** The sizes at which the pages are looked at. */
export const SIZES = /** @type {const} */ ({
  desktop: { viewport: { width: 1280, height: 800 } },
  phone: { viewport: { width: 390, height: 844 }, hasTouch: true },
});
/** The narrowest window that the pages fit. */
export const NARROWEST = { width: 320, height: 640 };

/** @typedef {import('./api.mjs').Login | null} Who whose log-in the browser has; null for none */

/**
 * Opens a page and closes it after the test.
 * @param {import('node:test').TestContext} t
 * @param {import('../fixture.mjs').Shared} shared
 * @param {{who?: Who, at?: string} & import('../console_page.mjs').PageOptions} [options] who: by default the
 *   administrator; at: the fragment of the page's address
 */
export async function pageOf(t, { relay, browser }, { who, at = '', ...options } = {}) {
  const api = who === undefined ? administrator(relay) : who && Api.loggedIn(relay, who);
  const page = await ConsolePage.opened(browser, relay, {
    ...SIZES.desktop,
    at,
    storageState: (await api)?.browserState,
    ...options,
  });
  t.after(() => page.close());
  return { page, p: page.page };
}

/**
 * Fails if the page is wider than its window.
 * @param {import('playwright-core').Page} p
 */
export async function fits(p) {
  const [wide, window] = await p.evaluate(() => [document.documentElement.scrollWidth, innerWidth]);
  if (wide > window) throw new Error(`the page is ${wide} pixels wide, in a window of ${window}`);
}

/**
 * Looks at a page in each size, language and theme, and saves a screenshot of each.
 * @param {import('node:test').TestContext} t
 * @param {import('../fixture.mjs').Shared} shared
 * @param {{name: string, at?: string, who?: Who | (() => Promise<Who>),
 *   ready: (p: import('playwright-core').Page) => Promise<void>}} view who: a function is called for each page
 */
export async function everyLook(t, shared, { name, at, who, ready }) {
  for (const [size, options] of Object.entries(SIZES)) {
    for (const locale of ['en-GB', 'is-IS']) {
      const person = typeof who === 'function' ? await who() : who;
      const { page, p } = await pageOf(t, shared, { at, who: person, locale, ...options });
      await ready(p);
      for (const colorScheme of /** @type {const} */ (['light', 'dark'])) {
        await p.emulateMedia({ colorScheme });
        await page.shot(`${name}-${size}-${locale.slice(0, 2)}-${colorScheme}`);
      }
      await fits(p);
      if (size === 'phone') await p.setViewportSize(NARROWEST);
      await fits(p);
    }
  }
}
