// Examines a page with axe-core in both colour themes.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';

/** All rules for the levels A and AA of the accessibility guidelines, and axe-core's own advice. */
const TAGS = ['wcag2a', 'wcag2aa', 'wcag21a', 'wcag21aa', 'wcag22aa', 'best-practice'];
const AXE = readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');

/**
 * Fails if axe-core finds anything on the page in the light or in the dark theme.
 * @param {import('playwright-core').Page} page
 * @param {string} what the state of the page, for the error message
 */
export async function assertAccessible(page, what) {
  for (const colorScheme of /** @type {const} */ (['light', 'dark'])) {
    await page.emulateMedia({ colorScheme });
    assert.deepEqual(await findings(page), [], `${what}, ${colorScheme}`);
  }
}

/** Each finding as its rule, the element, and what is wrong with it. @returns {Promise<string[]>} */
async function findings(/** @type {import('playwright-core').Page} */ page) {
  if (!(await page.evaluate(() => 'axe' in window))) await page.evaluate(AXE);
  return page.evaluate(async (values) => {
    const { violations } = await window.axe.run({
      runOnly: { type: 'tag', values },
      resultTypes: ['violations'],
    });
    return violations.flatMap(({ id, nodes }) =>
      nodes.map(({ html, failureSummary }) => `${id}: ${html}\n${failureSummary}`),
    );
  }, TAGS);
}
