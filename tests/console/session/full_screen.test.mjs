// Full screen: its button, and the toolbar at the top edge.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, openSession } from '../support/fixture.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();

/** @param {import('../support/console_page.mjs').ConsolePage} page */
const barBottom = ({ page }) =>
  page.locator('#session-bar').evaluate((bar) => bar.getBoundingClientRect().bottom);

/** @param {import('../support/console_page.mjs').ConsolePage} page @param {boolean} shown */
const barIs = (page, shown) =>
  until(`the toolbar is ${shown ? 'shown' : 'hidden'}`, async () => (await barBottom(page)) > 20 === shown);

test('in full screen the toolbar is hidden, and comes back at the top edge and with the focus', async (t) => {
  const { page } = await openSession(t, shared);
  const { page: tab } = page;
  const button = tab.locator('#full-screen');
  await button.click();
  await until('full screen', () => tab.evaluate(() => document.fullscreenElement !== null));
  await tab.mouse.move(700, 400);
  await barIs(page, false);
  const heights = () => tab.locator('#stage').evaluate((stage) => [stage.clientHeight, innerHeight]);
  await until('the picture has the whole height', async () => new Set(await heights()).size === 1);
  await page.shot('full-screen');
  await tab.mouse.move(700, 0);
  await barIs(page, true);
  await until(
    'the button leaves full screen',
    async () => (await button.innerText()) === 'Leave full screen',
  );
  assert.match((await button.getAttribute('title')) ?? '', /Escape/);
  await page.shot('full-screen-bar');
  await tab.mouse.move(700, 300);
  await barIs(page, false);
  await tab.locator('#session-end').focus();
  await barIs(page, true);
  await tab.locator('#key-input').focus();
  await barIs(page, false);
  await tab.mouse.move(700, 0);
  await button.click();
  await until('no full screen', () => tab.evaluate(() => document.fullscreenElement === null));
  await until('the button enters full screen', async () => (await button.innerText()) === 'Full screen');
  await barIs(page, true);
});

test('the button follows the browser’s own ways into and out of full screen', async (t) => {
  const script = `const query = window.matchMedia.bind(window);
    window.matchMedia = (text) => {
      if (!text.includes('fullscreen')) return query(text);
      return (window.wholeScreen ??= Object.assign(new EventTarget(), { matches: false }));
    };`;
  const { page } = await openSession(t, shared, { page: { script } });
  const { page: tab } = page;
  const button = tab.locator('#full-screen');
  await button.click();
  await until('full screen', async () => (await button.innerText()) === 'Leave full screen');
  // Escape makes the browser do this.
  await tab.evaluate(() => document.exitFullscreen());
  await until('no full screen', async () => (await button.innerText()) === 'Full screen');
  await barIs(page, true);
  const f11 = (/** @type {boolean} */ on) =>
    tab.evaluate((matches) => {
      Object.assign(window.wholeScreen, { matches }).dispatchEvent(new Event('change'));
    }, on);
  await f11(true);
  assert.match(await button.innerText(), /^F11 leaves/);
  await tab.mouse.move(700, 400);
  await barIs(page, false);
  await f11(false);
  await barIs(page, true);
  assert.equal(await button.innerText(), 'Full screen');
});
