// The locale of numbers, times and sorted names, and browsers that report a language that is not a locale.
import assert from 'node:assert/strict';
import test from 'node:test';
import { firstLocale } from '../../../console/base/locale.js';
import { fixture } from '../support/fixture.mjs';
import { DISK, fileRow, openPanel, openUsers } from '../support/panel_page.mjs';

const shared = fixture();

test('the locale is the first of the browser’s languages that is a language tag', () => {
  assert.equal(firstLocale(['C', 'en_US', 'is-IS', 'en']), 'is-IS');
  assert.equal(firstLocale(['C']), undefined);
  assert.equal(firstLocale([]), undefined);
});

test('a browser whose language is "C" shows the console, with sizes and times in English', async (t) => {
  const script = `Object.defineProperty(navigator, 'languages', { value: ['C'] });
    Object.defineProperty(navigator, 'language', { value: 'C' });`;
  const { p } = await openPanel(t, shared, DISK, { page: { script, timezoneId: 'UTC' } });
  assert.equal(await p.getAttribute('html', 'lang'), 'en');
  await openUsers(p);
  const row = fileRow(p, 'B9.txt');
  assert.equal(await row.locator('.file-size').innerText(), '5 MB');
  assert.match(await row.locator('.file-time').innerText(), /^9\/13\/20, 12:26\sPM$/);
});
