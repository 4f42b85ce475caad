// The contrast of the borders of fields, which axe-core does not examine.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, logInPage, openSession } from '../support/fixture.mjs';

const shared = fixture();
/** The least contrast between a field's border and the colours on its two sides. */
const LEAST = 3;

/**
 * Runs in the page: paints the colours of an element and of all elements around it over each other.
 * @returns the colour around the field, that of its border, and that inside it, each as red, green and blue
 */
function colours(/** @type {Element} */ field) {
  const paint = new OffscreenCanvas(1, 1).getContext('2d', { willReadFrequently: true });
  if (!paint) throw new Error('the browser cannot paint');
  const paintOver = (/** @type {string} */ colour) => {
    paint.fillStyle = colour;
    paint.fillRect(0, 0, 1, 1);
    return [...paint.getImageData(0, 0, 1, 1).data.slice(0, 3)];
  };
  /** @type {Element[]} */
  const around = [];
  for (let one = field.parentElement; one; one = one.parentElement) around.unshift(one);
  const ground = around.map((one) => paintOver(getComputedStyle(one).backgroundColor)).pop() ?? [];
  const { backgroundColor, borderTopColor } = getComputedStyle(field);
  const inside = paintOver(backgroundColor);
  return { ground, inside, border: paintOver(borderTopColor) };
}

/** The relative luminance of a colour, https://www.w3.org/TR/WCAG22/#dfn-relative-luminance */
function luminance(/** @type {number[]} */ colour) {
  const [red, green, blue] = colour.map((part) => {
    const share = part / 255;
    return share <= 0.04045 ? share / 12.92 : ((share + 0.055) / 1.055) ** 2.4;
  });
  return 0.2126 * red + 0.7152 * green + 0.0722 * blue;
}

/** The contrast between two colours, https://www.w3.org/TR/WCAG22/#dfn-contrast-ratio */
function contrast(/** @type {number[]} */ one, /** @type {number[]} */ other) {
  const [darker, lighter] = [luminance(one), luminance(other)].sort((a, b) => a - b);
  return (lighter + 0.05) / (darker + 0.05);
}

/** @param {import('playwright-core').Page} page @param {string[]} fields selectors of visible fields */
async function assertBorders(page, ...fields) {
  for (const colorScheme of /** @type {const} */ (['light', 'dark'])) {
    await page.emulateMedia({ colorScheme });
    for (const field of fields) {
      const { ground, inside, border } = await page.locator(field).evaluate(colours);
      for (const other of [ground, inside]) {
        const found = contrast(border, other);
        assert.ok(found >= LEAST, `${field}, ${colorScheme}: ${border} on ${other} is ${found.toFixed(2)}`);
      }
    }
  }
}

test('the borders of all kinds of fields stand out from what is on their two sides', async (t) => {
  const start = await logInPage(t, shared);
  await assertBorders(start.page, '#login-name', '#login-password');
  await start.logIn();
  await assertBorders(start.page, '#machine-search');
  await start.page.click('#password');
  await assertBorders(start.page, '#password-new');
  const { page } = await openSession(t, shared);
  await page.page.click('#picture-menu summary');
  await assertBorders(page.page, '#quality', '#codec');
  await page.page.click('#keys-menu summary');
  await page.page.click('#type-text');
  await assertBorders(page.page, '#type-box');
});
