// The file panel on a phone, and what it says about the selection.
import assert from 'node:assert/strict';
import test from 'node:test';
import { BROWSER } from '../support/console_page.mjs';
import { fixture } from '../support/fixture.mjs';
import { DISK, fileRow, openPanel, openUsers } from '../support/panel_page.mjs';
import { present } from '../support/present.mjs';
import { transferIs, transferRow } from '../support/transfer_rows.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();
const PHONE = { width: 390, height: 844 };

/** @param {import('playwright-core').Locator} element */
const box = async (element) => present(await element.boundingBox());

test('on a phone the panel covers the picture, names are wide, and a button closes it', async (t) => {
  const { p, page, machine } = await openPanel(t, shared, DISK, { page: { viewport: PHONE } });
  machine.folders['C:\\Users'].push({ name: `${'long name '.repeat(8)}.txt`, size: 1234 });
  await openUsers(p);
  const panel = await box(p.locator('#panels'));
  assert.deepEqual([panel.x, panel.width], [0, PHONE.width]);
  const stage = await box(p.locator('#stage'));
  assert.ok(panel.y <= stage.y && panel.y + panel.height >= stage.y + stage.height, 'the picture is covered');
  const row = fileRow(p, 'B9.txt');
  const [name, size, time] = await Promise.all(
    ['.file-name', '.file-size', '.file-time'].map((part) => box(row.locator(part))),
  );
  assert.ok(name.width > 300, `${name.width} pixels for the name`);
  assert.ok(size.y >= name.y + name.height && time.y >= name.y + name.height, 'size and time are below');
  assert.ok((await box(row)).height >= 44, 'a finger can hit a row');
  await page.shot('files-390');
  await p.locator('#panel-files header button').click();
  assert.ok(await p.locator('#panel-files').isHidden());
});

test('a tap opens a folder, and selects a file in addition to others', async (t) => {
  if (BROWSER === 'firefox') {
    t.skip('WebDriver BiDi in Firefox has no emulation of a touch screen');
    return;
  }
  const { p } = await openPanel(t, shared, DISK, { page: { viewport: PHONE, hasTouch: true } });
  await fileRow(p, 'C:').tap();
  await fileRow(p, 'Users').tap();
  await fileRow(p, 'b10.txt').tap();
  await fileRow(p, 'old.txt').tap();
  assert.match(await p.locator('#files-count').innerText(), /2 selected/);
  await fileRow(p, 'b10.txt').tap();
  assert.match(await p.locator('#files-count').innerText(), /1 selected/);
  assert.ok(await p.locator('#files-download').isEnabled());
});

test('the panel says what can be downloaded and where files can be dropped', async (t) => {
  const { p, page, machine } = await openPanel(t, shared);
  const hint = () => p.locator('#files-hint').innerText();
  const download = p.locator('#files-download');
  // Firefox without a screen has no pointer that could drop files.
  const canDrop = await p.evaluate(() => matchMedia('(any-hover: hover)').matches);
  assert.ok(canDrop || BROWSER === 'firefox');
  assert.equal(await hint(), 'Open a folder to send files to it.');
  await openUsers(p);
  const selectFiles = 'Select files to download';
  assert.equal(
    await hint(),
    canDrop ? `${selectFiles}, or drop files here to send them.` : `${selectFiles}.`,
  );
  assert.equal(await download.getAttribute('title'), await hint());
  await fileRow(p, 'Zoe').click();
  assert.ok(await download.isDisabled());
  assert.match(await hint(), /^Folders cannot be downloaded/);
  await fileRow(p, 'old.txt').click({ modifiers: ['Control'] });
  assert.ok(await download.isEnabled());
  assert.equal(await hint(), 'The selected folder is not downloaded.');
  await page.shot('files-hint');
  await fileRow(p, 'old.txt').click();
  assert.equal(await hint(), canDrop ? 'or drop files here' : '');

  // The direction of a transfer stays visible after its end.
  await p.setInputFiles('#files-input', [{ name: 'up', mimeType: 'a/b', buffer: Buffer.from('1') }]);
  await transferIs(p, 'up', 'done');
  machine.folders['C:\\Users'].push({ name: 'down', size: 3, data: Buffer.from('abc') });
  await p.click('#files-again');
  await fileRow(p, 'down').dblclick();
  await transferIs(p, 'down', 'done');
  // A row has no innerText until the browser has laid it out.
  const rowShows = (/** @type {string} */ name, /** @type {RegExp} */ wanted) =>
    until(`the row of ${name} shows ${wanted}`, async () =>
      wanted.test(await transferRow(p, name).innerText()),
    );
  await rowShows('up', /^↑\s+up[\s\S]*Uploaded · 1 B/);
  await rowShows('down', /^↓\s+down[\s\S]*Downloaded · 3 B/);
  await page.shot('files-directions');
});
