// The rows of uploads and downloads in the file panel.
import { until } from './waiting.mjs';

/** @typedef {import('playwright-core').Page} Page */

/** The row of a transfer. */
export function transferRow(/** @type {Page} */ p, /** @type {string} */ name) {
  return p.locator('.transfer', { has: p.locator(`.transfer-name:text-is(${JSON.stringify(name)})`) });
}

/**
 * The progress or the result of a transfer. Read as textContent, because innerText is empty for a row that the
 * browser has not laid out yet: rows have `content-visibility: auto`.
 */
export async function transferText(/** @type {Page} */ p, /** @type {string} */ name) {
  return (await transferRow(p, name).first().locator('.transfer-text').textContent()) ?? '';
}

/** Waits until a transfer is in this state. */
export function transferIs(/** @type {Page} */ p, /** @type {string} */ name, /** @type {string} */ state) {
  return until(`${name} is ${state}`, async () => {
    const now = await transferRow(p, name).first().getAttribute('data-state');
    if (now !== state) throw new Error(`${now}: ${await transferText(p, name)}`);
    return true;
  });
}
