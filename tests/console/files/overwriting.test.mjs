// Uploads to names that exist already: the question to the representative, and files that the machine cannot
// replace.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture } from '../support/fixture.mjs';
import { holdFileReads } from '../support/page_scripts.mjs';
import { fileRow, openPanel, openUsers } from '../support/panel_page.mjs';
import { transferIs, transferText } from '../support/transfer_rows.mjs';
import { until } from '../support/waiting.mjs';

/** @typedef {import('playwright-core').Page} Page */

const shared = fixture();

/** Chooses files with these names and this content. */
const choose = (/** @type {Page} */ p, /** @type {string[]} */ names, content = 'twelve bytes') =>
  p.setInputFiles(
    '#files-input',
    names.map((name) => ({ name, mimeType: 'a/b', buffer: Buffer.from(content) })),
  );
const answer = (/** @type {Page} */ p, /** @type {'cancel' | 'skip' | 'overwrite'} */ value) =>
  p.locator(`#overwrite-dialog [value=${value}]`).click();
/** The names in the question. */
const asked = (/** @type {Page} */ p) => p.locator('#overwrite-dialog li bdi').allInnerTexts();

test('existing files are replaced only if the representative confirms the replacement', async (t) => {
  const { p, page, machine } = await openPanel(t, shared);
  await openUsers(p);
  const dialog = p.locator('#overwrite-dialog');
  await choose(p, ['B10.TXT', 'new.txt']);
  await dialog.waitFor();
  assert.deepEqual(await asked(p), ['B10.TXT']);
  assert.equal(await p.locator('#overwrite-question').innerText(), 'Replace this file on the machine?');
  const [there, here] = await dialog.locator('li span').allInnerTexts();
  assert.match(there, /^On the machine: 10 B, changed 14\/11\/2023, \d\d:\d\d$/);
  assert.match(here, /^To be sent: 12 B, changed \d\d\/\d\d\/\d{4}, \d\d:\d\d$/);
  await page.shot('files-overwrite');
  await answer(p, 'cancel');
  await choose(p, ['b10.txt', 'new.txt']);
  await answer(p, 'skip');
  await transferIs(p, 'new.txt', 'done');
  assert.equal(machine.uploads.size, 1);
  await choose(p, ['b10.txt', 'zoe']);
  await answer(p, 'overwrite');
  await transferIs(p, 'b10.txt', 'done');
  assert.match(await transferText(p, 'zoe'), /a folder has this name/);
  assert.equal(machine.uploads.size, 2);
});

test('a file that the machine could not replace is shown as not replaced, whatever its size', async (t) => {
  const { p, machine } = await openPanel(t, shared);
  await openUsers(p);
  machine.losing = () => null;
  await choose(p, ['b10.txt'], 'ten bytes.');
  await answer(p, 'overwrite');
  await transferIs(p, 'b10.txt', 'failed');
  assert.match(await transferText(p, 'b10.txt'), /not replaced: .* same size and time as before/);
  await choose(p, ['old.txt'], 'another size');
  await answer(p, 'overwrite');
  await transferIs(p, 'old.txt', 'failed');
  assert.match(await transferText(p, 'old.txt'), /not replaced: .* same size and time as before/);
});

test('a second question waits for the answer to the first', async (t) => {
  const { p, machine } = await openPanel(t, shared);
  await openUsers(p);
  await choose(p, ['b10.txt']);
  await until('the first is asked', async () => (await asked(p)).includes('b10.txt'));
  await choose(p, ['old.txt']);
  // The answers come in the order of the requests, so the second group has been examined after this listing.
  await p.evaluate(() => document.getElementById('files-again')?.click());
  await until(
    'the folder is listed',
    async () => (await p.locator('#files').getAttribute('aria-busy')) === 'false',
  );
  assert.deepEqual(await asked(p), ['b10.txt']);
  await answer(p, 'overwrite');
  await until('the second is asked', async () => (await asked(p)).includes('old.txt'));
  await answer(p, 'cancel');
  await transferIs(p, 'b10.txt', 'done');
  assert.equal(machine.uploads.size, 1);
});

test('a second upload to a path is refused until the first has ended', async (t) => {
  const { p, machine } = await openPanel(t, shared);
  await openUsers(p);
  await holdFileReads(p);
  await choose(p, ['a.bin']);
  await until('it has begun', () => machine.uploadTo('C:\\Users\\a.bin'));
  await choose(p, ['A.BIN']);
  await transferIs(p, 'A.BIN', 'failed');
  assert.match(await transferText(p, 'A.BIN'), /another upload to this file has not ended/);
  assert.equal(machine.uploads.size, 1);
  await p.evaluate(() => window.release());
  await transferIs(p, 'a.bin', 'done');
});

test('the end of the session closes the question, and no file reaches the next session', async (t) => {
  const { p, page, agent, machine } = await openPanel(t, shared);
  await openUsers(p);
  await choose(p, ['b10.txt']);
  await p.locator('#overwrite-dialog').waitFor();
  agent.drop();
  await p.locator('#overwrite-dialog').waitFor({ state: 'hidden' });
  await transferIs(p, 'b10.txt', 'failed');
  assert.match(await transferText(p, 'b10.txt'), /the session ended/);
  await agent.connect();
  await page.waitForNoNote();
  await fileRow(p, 'b10.txt').waitFor();
  assert.equal(machine.uploads.size, 0);
});
