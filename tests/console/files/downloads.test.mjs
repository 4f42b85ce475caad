// Downloads through the file panel, byte for byte.

import assert from 'node:assert/strict';
import { randomBytes } from 'node:crypto';
import { readFileSync } from 'node:fs';
import test from 'node:test';
import { fixture } from '../support/fixture.mjs';
import { CHUNK_BYTES } from '../support/machine_folders.mjs';
import { shortTimer } from '../support/page_scripts.mjs';
import { DISK, fileRow, MiB, openPanel, openUsers, sha256 } from '../support/panel_page.mjs';
import { present } from '../support/present.mjs';
import { AgentMsg, ScriptedAgent } from '../support/scripted_agent.mjs';
import { transferIs, transferRow, transferText } from '../support/transfer_rows.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();
/** The time for which the console keeps the content of a saved download. */
const SAVING_MS = 60_000;
/** The time limit for thousands of transfers, which take half a minute on an idle computer. */
const MANY_MS = 150_000;

/** The number of files that the console has in the browser's private file system. */
const privateFiles = (/** @type {import('playwright-core').Page} */ p) =>
  p.evaluate(async () => {
    const all = await (await navigator.storage.getDirectory()).getDirectoryHandle('downloads');
    let count = 0;
    for await (const folder of all.values())
      if (folder instanceof FileSystemDirectoryHandle) for await (const _ of folder.keys()) count++;
    return count;
  });

test('a download is saved byte for byte under its name, and its private copy is deleted with its row', async (t) => {
  const data = randomBytes(5 * MiB + 17);
  const script = shortTimer(SAVING_MS);
  const { p, page, machine } = await openPanel(t, shared, DISK, { page: { script } });
  machine.folders['C:\\Users'] = [
    { name: 'skýrsla ’99.bin', size: data.length, data },
    { name: 'empty', size: 0, data: Buffer.alloc(0) },
  ];
  await fileRow(p, 'C:').dblclick();
  await fileRow(p, 'Users').dblclick();
  await fileRow(p, 'skýrsla ’99.bin').click();
  const [download] = await Promise.all([p.waitForEvent('download'), p.click('#files-download')]);
  assert.equal(download.suggestedFilename(), 'skýrsla ’99.bin');
  assert.equal(sha256(readFileSync(await download.path())), sha256(data));
  await transferIs(p, 'skýrsla ’99.bin', 'done');
  const [nothing] = await Promise.all([p.waitForEvent('download'), fileRow(p, 'empty').dblclick()]);
  assert.equal(readFileSync(await nothing.path()).length, 0);
  await transferIs(p, 'empty', 'done');
  await page.shot('files-downloaded');
  assert.equal(await privateFiles(p), 2);
  await p.click('#transfers-clear');
  assert.ok(await p.locator('#transfers-section').isHidden());
  await until('the disk is empty', async () => (await privateFiles(p)) === 0);
});

test('rows and saved copies of a machine are removed when another machine is asked for a session', async (t) => {
  const script = shortTimer(SAVING_MS);
  const { p, page, agent, machine } = await openPanel(t, shared, DISK, { page: { script } });
  const other = await ScriptedAgent.online(shared.relay, { name: 'Other', consent: 'none' });
  t.after(() => other.drop());
  machine.folders['C:\\Users'].push({ name: 'kept', size: 3, data: Buffer.from('abc') });
  await openUsers(p);
  await Promise.all([p.waitForEvent('download'), fileRow(p, 'kept').dblclick()]);
  await transferIs(p, 'kept', 'done');
  await p.click('#session-end');
  await page.ask(agent);
  await fileRow(p, 'kept').waitFor();
  assert.ok(await transferRow(p, 'kept').isVisible(), 'the row stays for the same machine');
  await p.click('#session-end');
  await page.ask(other);
  await page.waitForNote(/to allow the session/);
  assert.equal(await p.locator('.transfer').count(), 0);
  assert.ok(await p.locator('#panel-files').isHidden(), 'the folder of the earlier machine is hidden');
  await until('the disk is empty', async () => (await privateFiles(p)) === 0);
});

test('many files are downloaded at once, also in a browser without a private file system', async (t) => {
  const files = Array.from({ length: 50 }, (_, i) => ({
    name: `${i}.txt`,
    data: randomBytes(1000 + i),
    size: 1000 + i,
  }));
  const { p } = await openPanel(
    t,
    shared,
    { '': [{ name: 'C:', dir: true }], 'C:\\': files },
    { page: { script: 'StorageManager.prototype.getDirectory = undefined;' } },
  );
  await fileRow(p, 'C:').dblclick();
  await fileRow(p, '0.txt').waitFor();
  /** @type {import('playwright-core').Download[]} */
  const downloads = [];
  p.on('download', (download) => downloads.push(download));
  await p.locator('#files-list').press('Control+a');
  await p.click('#files-download');
  await until('all are saved', () => downloads.length === files.length);
  for (const download of downloads) {
    const { data } = present(files.find(({ name }) => name === download.suggestedFilename()));
    assert.deepEqual(readFileSync(await download.path()), data);
  }
});

test('downloads of files that the machine cannot open or sends incompletely are shown with the reason', async (t) => {
  const { p, machine, page } = await openPanel(t, shared);
  await openUsers(p);
  await fileRow(p, 'b10.txt').dblclick();
  await transferIs(p, 'b10.txt', 'failed');
  assert.match(await transferText(p, 'b10.txt'), /cannot open the file/);
  machine.holding = true;
  await fileRow(p, 'old.txt').dblclick();
  const [{ session: number, id }] = await until('it is requested', () => machine.held.length && machine.held);
  machine.sendChunk(number, id, 1, Buffer.from('x'));
  await transferIs(p, 'old.txt', 'failed');
  assert.match(await transferText(p, 'old.txt'), /parts of the file are missing/);
  // The machine treats a read error as the end of the file.
  await fileRow(p, 'þjóð.txt').dblclick();
  const held = await until('the next is requested', () => machine.held[1]);
  machine.sendAll(number, held.id, Buffer.alloc(1000));
  await transferIs(p, 'þjóð.txt', 'failed');
  assert.match(await transferText(p, 'þjóð.txt'), /the size differs from that on the machine/);
  const save = transferRow(p, 'þjóð.txt').locator('.transfer-save');
  assert.equal(await save.innerText(), 'Save what arrived');
  const [part] = await Promise.all([p.waitForEvent('download'), save.click()]);
  assert.equal(readFileSync(await part.path()).length, 1000);
  await page.shot('files-failed');
});

test('a file that has grown since it was listed is downloaded, and its row says that it has changed', async (t) => {
  const { p, machine } = await openPanel(t, shared);
  await openUsers(p);
  machine.holding = true;
  await fileRow(p, 'þjóð.txt').dblclick();
  const held = await until('it is requested', () => machine.held[0]);
  Object.assign(present(machine.folders['C:\\Users'].find(({ name }) => name === 'þjóð.txt')), {
    size: 3000,
  });
  await Promise.all([p.waitForEvent('download'), machine.sendAll(held.session, held.id, Buffer.alloc(2000))]);
  await transferIs(p, 'þjóð.txt', 'done');
  assert.match(await transferText(p, 'þjóð.txt'), /^Downloaded · 2 kB · the file has changed/);
});

test('chunks of a cancelled download are dropped, and its row says that the machine goes on until the end', async (t) => {
  const { p, machine } = await openPanel(t, shared);
  machine.folders['C:\\Users'] = [
    { name: 'long.bin', size: 10 * MiB },
    { name: 'next.bin', size: 3, data: Buffer.from('abc') },
    { name: 'Zoe', dir: true },
  ];
  machine.holding = true;
  await openUsers(p);
  await fileRow(p, 'long.bin').dblclick();
  const held = await until('it is requested', () => machine.held[0]);
  machine.sendChunk(held.session, held.id, 0, Buffer.alloc(CHUNK_BYTES));
  await until('it is seen to come', async () =>
    (await transferText(p, 'long.bin')).startsWith('262 kB of 10.5 MB'),
  );
  await transferRow(p, 'long.bin').locator('.transfer-cancel').click();
  assert.match(await transferText(p, 'long.bin'), /Cancelled · .* · the machine sends the file to its end/);
  machine.sendChunk(held.session, held.id, 1, Buffer.alloc(CHUNK_BYTES));
  machine.holding = false;
  const [download] = await Promise.all([p.waitForEvent('download'), fileRow(p, 'next.bin').dblclick()]);
  assert.equal(readFileSync(await download.path()).toString(), 'abc');
  const stop = transferRow(p, 'long.bin').locator('.transfer-stop');
  assert.ok(await stop.isVisible());
  machine.agent.sendJson(AgentMsg.FileTransferEnd, held.session, { transfer_id: held.id, ok: true });
  await stop.waitFor({ state: 'hidden' });
  assert.equal(await transferText(p, 'long.bin'), 'Cancelled · the rest of the file is discarded');
  assert.deepEqual(machine.strays, [], 'the relay does not forward the console’s end message for a download');
});

test('the machine’s connection is closed on request to stop what nobody wants any more', async (t) => {
  const { p, page, agent, machine } = await openPanel(t, shared);
  machine.holding = true;
  await openUsers(p);
  await fileRow(p, 'old.txt').dblclick();
  await until('it is requested', () => machine.held[0]);
  await transferRow(p, 'old.txt').locator('.transfer-cancel').click();
  const stop = transferRow(p, 'old.txt').locator('.transfer-stop');
  await stop.click();
  await page.shot('files-cut-question');
  await p.locator('#cut-dialog [value=cancel]').click();
  await stop.click();
  await p.locator('#cut-dialog [value=cut]').click();
  await until('the relay closes the connection', () => agent.socket.readyState === agent.socket.CLOSED);
  await page.waitForNote(/gone offline/);
  await agent.connect();
  await page.waitForNoNote();
  await stop.waitFor({ state: 'hidden' });
  assert.equal(await transferText(p, 'old.txt'), 'Cancelled · the rest of the file is discarded');
});

test('the page stays usable when thousands of transfers fail at once', async (t) => {
  const { p } = await openPanel(t, shared, {
    '': [{ name: 'C:', dir: true }],
    'C:\\': Array.from({ length: 5000 }, (_, i) => ({ name: `${i}`, size: 1 })),
  });
  await fileRow(p, 'C:').dblclick();
  await fileRow(p, '0').waitFor();
  await p.locator('#files-list').press('Control+a');
  await p.click('#files-download');
  // The page counts its rows: Playwright's search for thousands of elements takes longer than their transfers.
  const rows = (/** @type {string} */ selector) =>
    p.evaluate((all) => document.querySelectorAll(all).length, selector);
  await until('each has a row', async () => (await rows('.transfer')) === 5000, MANY_MS);
  const failed = '.transfer[data-state=failed]';
  await until('each has failed', async () => (await rows(failed)) === 5000, MANY_MS);
  await p.click('#transfers-clear');
  assert.equal(await p.locator('.transfer').count(), 0);
});
