// The notices about the clipboard: the keyboard, the focus and their place on the page.
import assert from 'node:assert/strict';
import test from 'node:test';
import { packFiles, packText } from '../../../console/clipboard/payload.js';
import { fromMachine, notice, STRICT } from '../support/clipboard_page.mjs';
import { fixture, openSession } from '../support/fixture.mjs';
import { focused, hasFocus } from '../support/focus.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();
const TWO = [
  { name: 'skýrsla með mjög löngu nafni sem kemst hvergi fyrir á litlum skjá.txt', bytes: new Uint8Array(9) },
  { name: 'önnur.bin', bytes: new Uint8Array(70_000) },
];
const FILES = packFiles(TWO);
const MANY_FILES = packFiles([
  ...TWO,
  ...Array.from({ length: 40 }, (_, i) => ({ ...TWO[1], name: `${i}` })),
]);

test('a notice leaves the focus alone, is reached with the Tab key and closes with Escape', async (t) => {
  const { agent, page } = await openSession(t, shared, STRICT);
  const p = page.page;
  await hasFocus(p, 'key-input');
  fromMachine(agent, FILES);
  await notice(p, 'files').waitFor();
  assert.equal(await focused(p), 'key-input');
  await p.locator('#session-end').focus();
  await until('the Tab key reaches the first file', async () => {
    await p.keyboard.press('Tab');
    return /^Save skýrsla/.test(await focused(p));
  });
  const download = p.waitForEvent('download');
  await p.keyboard.press('Enter');
  await download;
  assert.match(await focused(p), /^Save skýrsla/, 'whoever uses the keyboard stays in the notice');
  await p.keyboard.press('Escape');
  await notice(p, 'files').waitFor({ state: 'detached' });
  await hasFocus(p, 'key-input');
});

test('the picture takes keys again after the notice that has the focus is replaced', async (t) => {
  const { agent, page } = await openSession(t, shared, STRICT);
  const p = page.page;
  fromMachine(agent, FILES);
  await notice(p, 'files').getByRole('button', { name: 'Save önnur.bin' }).focus();
  fromMachine(agent, packText('texti'));
  await notice(p, 'text').waitFor();
  await hasFocus(p, 'key-input');
});

test('after a click in a notice, the picture takes keys again', async (t) => {
  const { agent, page } = await openSession(t, shared, STRICT);
  const p = page.page;
  fromMachine(agent, FILES);
  await notice(p, 'files').getByRole('button', { name: 'Save önnur.bin' }).click();
  await hasFocus(p, 'key-input');
  await notice(p, 'files').locator('.clip-notice-close').click();
  await hasFocus(p, 'key-input');
  fromMachine(agent, packText('texti'));
  await notice(p, 'text').getByRole('button', { name: 'Copy' }).click();
  await hasFocus(p, 'key-input');
});

test('notices fit on the page, and on a phone they leave the bottom of the picture free', async (t) => {
  const { agent, page } = await openSession(t, shared, STRICT);
  const p = page.page;
  fromMachine(agent, MANY_FILES);
  await notice(p, 'files').waitFor();
  for (const [width, height] of [
    [390, 844],
    [844, 390],
    [1440, 900],
  ]) {
    await p.setViewportSize({ width, height });
    const place = await until('the notice lies on the page', async () => {
      const box = await notice(p, 'files').boundingBox();
      const fits =
        box && box.x >= 0 && box.y >= 0 && box.x + box.width <= width && box.y + box.height <= height;
      if (!fits) throw new Error(JSON.stringify(box));
      return box;
    });
    const button = await notice(p, 'files').locator('.clip-notice-close').boundingBox();
    assert.ok(button && button.x + button.width <= place.x + place.width, 'its buttons lie inside');
    if (width > 1000) continue;
    const picture = await page.canvasBox();
    assert.ok(place.y + place.height < picture.y + picture.height * 0.9, `${width} × ${height}`);
  }
});
