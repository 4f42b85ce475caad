// Downloads that outlast the page's link, and the page itself.
import assert from 'node:assert/strict';
import { randomBytes } from 'node:crypto';
import { readFileSync } from 'node:fs';
import test from 'node:test';
import { fixture } from '../support/fixture.mjs';
import { CHUNK_BYTES } from '../support/machine_folders.mjs';
import { cutOff, deliver, KEEP_SENT } from '../support/page_scripts.mjs';
import { DISK, fileRow, MiB, openPanel, sha256, shows } from '../support/panel_page.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { transferIs, transferRow, transferText } from '../support/transfer_rows.mjs';
import { until } from '../support/waiting.mjs';

/** @typedef {import('playwright-core').Page} Page */

const shared = fixture(['--spool', '16', '--spools', '64']);
const FILE = 'stór.bin';

/** Opens the panel and begins a download, of which the machine sends the parts that the test asks for. */
async function begun(
  /** @type {import('node:test').TestContext} */ t,
  /** @type {number} */ size,
  /** @type {import('../support/console_page.mjs').PageOptions} */ options = {},
) {
  const data = randomBytes(size);
  const page = { ...options, script: `${KEEP_SENT};${options.script ?? ''}` };
  const parts = await openPanel(t, shared, DISK, { page });
  const { p, machine } = parts;
  p.on('dialog', (dialog) => dialog.accept()); // the question before the page is left
  machine.folders['C:\\'].push({ name: FILE, size, data });
  machine.holding = true;
  await fileRow(p, 'C:').dblclick();
  await fileRow(p, FILE).dblclick();
  const { session, id } = await until('it is requested', () => machine.held[0]);
  const send = (/** @type {number} */ from, /** @type {number} */ to = Math.ceil(size / CHUNK_BYTES)) => {
    for (let i = from; i < to; i++)
      machine.sendChunk(session, id, i, data.subarray(i * CHUNK_BYTES, (i + 1) * CHUNK_BYTES));
  };
  const end = () => machine.agent.sendJson(AgentMsg.FileTransferEnd, session, { transfer_id: id, ok: true });
  return { ...parts, data, id, send, end };
}

const textLike = (/** @type {Page} */ p, /** @type {RegExp} */ pattern) =>
  until(`the row says ${pattern}`, async () => {
    const text = await transferText(p, FILE);
    if (!pattern.test(text)) throw new Error(text);
    return true;
  });

/** Waits until the page has sent a control message of this type that contains the fields. */
const sent = (/** @type {Page} */ p, /** @type {object} */ wanted) =>
  until(`the page sends ${JSON.stringify(wanted)}`, () =>
    p.evaluate(
      (fields) =>
        window.sent.some((text) => {
          const message = JSON.parse(text);
          return Object.entries(fields).every(([key, value]) => message[key] === value);
        }),
      wanted,
    ),
  );

test('a download goes on where it was when the link is back, with what the machine has sent meanwhile', async (t) => {
  const { p, page, machine, data, id, send, end } = await begun(t, 7 * MiB + 5);
  send(0, 10);
  await textLike(p, /^2\.62 MB of 7\.34 MB/);
  const reconnect = await cutOff(p);
  await textLike(p, /^2\.62 MB of 7\.34 MB · waits for the connection$/);
  assert.ok(await fileRow(p, FILE).isVisible(), 'the folder stays in the panel');
  await page.shot('files-suspended');
  send(10);
  end();
  const [download] = await Promise.all([p.waitForEvent('download'), reconnect()]);
  assert.equal(sha256(readFileSync(await download.path())), sha256(data));
  await transferIs(p, FILE, 'done');
  await sent(p, { type: 'continue', transfer: id, bytes: 10 * CHUNK_BYTES });
  await sent(p, { type: 'stored', transfer: id, bytes: data.length, end: true });
  assert.equal(machine.held.length, 1, 'the machine was asked once');
});

test('a page that is loaded again goes on with a download after the parts that are stored', async (t) => {
  const { p, data, id, send, end } = await begun(t, 11 * MiB + 3);
  send(0, 37);
  await textLike(p, /^9\.7 MB of/);
  await sent(p, { type: 'stored', transfer: id, bytes: 8 * MiB });
  await p.reload();
  await sent(p, { type: 'continue', transfer: id, bytes: 8 * MiB });
  await textLike(p, /^9\.7 MB of 11\.5 MB/);
  send(37);
  const [download] = await Promise.all([p.waitForEvent('download'), end()]);
  assert.equal(download.suggestedFilename(), FILE);
  assert.equal(sha256(readFileSync(await download.path())), sha256(data));
  await transferIs(p, FILE, 'done');
});

test('a page that is loaded again twice, and before a part is full, loses nothing of a download', async (t) => {
  const { p, data, id, send, end } = await begun(t, 6 * MiB);
  send(0, 3);
  await textLike(p, /^786 kB of/);
  await p.reload();
  await textLike(p, /^786 kB of/);
  send(3, 20);
  await sent(p, { type: 'stored', transfer: id, bytes: 4 * MiB });
  await p.reload();
  send(20);
  const [download] = await Promise.all([p.waitForEvent('download'), end()]);
  assert.equal(sha256(readFileSync(await download.path())), sha256(data));
});

test('a download whose page had no disk is ended when the page is loaded again, and its row says why', async (t) => {
  const script = 'StorageManager.prototype.getDirectory = undefined;';
  const { p, id, send } = await begun(t, 6 * MiB, { script });
  send(0, 3);
  await sent(p, { type: 'stored', transfer: id, bytes: 3 * CHUNK_BYTES });
  await p.reload();
  await transferIs(p, FILE, 'failed');
  assert.match(await transferText(p, FILE), /the part that had arrived is no longer on this computer/);
});

test('a download that is cancelled while the link is lost is ended at the relay afterwards', async (t) => {
  const { p, send, end } = await begun(t, 6 * MiB);
  send(0, 3);
  await textLike(p, /^786 kB of/);
  const reconnect = await cutOff(p);
  await textLike(p, /waits for the connection/);
  await transferRow(p, FILE).locator('.transfer-cancel').click();
  assert.equal(await transferRow(p, FILE).getAttribute('data-state'), 'cancelled');
  await reconnect();
  const stop = transferRow(p, FILE).locator('.transfer-stop');
  await stop.waitFor();
  // The relay passes on the end of a download that it does not keep any more.
  send(3);
  end();
  await stop.waitFor({ state: 'hidden' });
  assert.equal(await transferText(p, FILE), 'Cancelled · the rest of the file is discarded');
});

test('a download that is cancelled after the machine has sent all of it does not say that the machine sends', async (t) => {
  const { p, send, end } = await begun(t, 6 * MiB);
  send(0, 3);
  await textLike(p, /^786 kB of/);
  const reconnect = await cutOff(p);
  await textLike(p, /waits for the connection/);
  send(3);
  end();
  await transferRow(p, FILE).locator('.transfer-cancel').click();
  await textLike(p, /^Cancelled · the rest of the file is discarded · the machine sends/);
  await reconnect();
  await textLike(p, /^Cancelled · the rest of the file is discarded$/);
});

test('a cancelled download whose end comes while the link is lost does not say that the machine sends', async (t) => {
  const { p, send, end } = await begun(t, 6 * MiB);
  send(0, 3);
  await textLike(p, /^786 kB of/);
  await transferRow(p, FILE).locator('.transfer-cancel').click();
  await transferRow(p, FILE).locator('.transfer-stop').waitFor();
  const reconnect = await cutOff(p);
  send(3);
  end();
  await reconnect();
  await textLike(p, /^Cancelled · the rest of the file is discarded$/);
});

test('a download that is larger than the relay’s disk space fails with the reason and what to do', async (t) => {
  const { p, agent, send } = await begun(t, 60 * MiB);
  send(0, 3);
  await textLike(p, /^786 kB of/);
  const reconnect = await cutOff(p);
  send(3);
  await until('the relay has read most of it', () => agent.socket.bufferedAmount === 0);
  await reconnect();
  await transferIs(p, FILE, 'failed');
  assert.match(await transferText(p, FILE), /disk space for it is used up. Download it again when/);
});

test('errors of the relay’s disk are explained in Icelandic too', async (t) => {
  const { p, id } = await begun(t, MiB, { locale: 'is-IS' });
  await deliver(p, { type: 'error', transfer: id, code: 'spool-failed', message: 'x' });
  await transferIs(p, FILE, 'failed');
  assert.match(await transferText(p, FILE), /miðlarinn gat ekki geymt skrána á diski sínum/);
});

test('the folder is listed again when the link is back', async (t) => {
  const { p, machine } = await openPanel(t, shared, DISK, { page: { script: KEEP_SENT } });
  await shows(p, ['C:', 'E:']);
  const reconnect = await cutOff(p);
  await until('the session is interrupted', () => p.locator('#view-session[data-state=interrupted]').count());
  machine.folders[''] = [{ name: 'Z:', dir: true }];
  await reconnect();
  await shows(p, ['Z:']);
});
