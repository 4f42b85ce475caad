// Uploads that outlast the page's link, and the page itself.
import assert from 'node:assert/strict';
import { randomBytes } from 'node:crypto';
import test from 'node:test';
import { fixture } from '../support/fixture.mjs';
import { contentOf } from '../support/machine_folders.mjs';
import { cutOff, KEEP_SENT } from '../support/page_scripts.mjs';
import { DISK, fileRow, MiB, openPanel, openUsers, sha256 } from '../support/panel_page.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { transferIs, transferRow, transferText } from '../support/transfer_rows.mjs';
import { until } from '../support/waiting.mjs';

/** @typedef {import('playwright-core').Page} Page */

const shared = fixture();
const FILE = 'gögn.bin';
const PATH = `C:\\Users\\${FILE}`;

const chosen = (/** @type {Buffer} */ buffer, name = FILE) => ({ name, mimeType: 'a/b', buffer });

async function panel(/** @type {import('node:test').TestContext} */ t) {
  const parts = await openPanel(t, shared, DISK, { page: { script: KEEP_SENT } });
  parts.p.on('dialog', (dialog) => dialog.accept()); // the question before the page is left
  await openUsers(parts.p);
  return parts;
}

/** Begins an upload to a machine that has stopped reading, when a part of it has been sent. */
async function halfSent(/** @type {import('node:test').TestContext} */ t) {
  const parts = await panel(t);
  const { p, agent, machine } = parts;
  const data = randomBytes(24 * MiB + 7);
  await p.setInputFiles('#files-input', [chosen(data)]);
  await until('a part has arrived', () => machine.uploadTo(PATH).chunks.length > 3);
  agent.socket.pause();
  return { ...parts, data };
}

/** Waits until the machine has the whole upload, and the page has seen it in the folder. */
async function arrived(
  /** @type {Page} */ p,
  /** @type {import('../support/machine_folders.mjs').MachineFolders} */ machine,
  /** @type {Buffer} */ data,
) {
  await transferIs(p, FILE, 'done');
  assert.equal(sha256(contentOf(machine.uploadTo(PATH))), sha256(data));
  assert.equal(machine.uploads.size, 1, 'the machine received one upload');
}

test('an upload goes on where the relay stands when the link is back', async (t) => {
  const { p, agent, machine, data } = await halfSent(t);
  const reconnect = await cutOff(p);
  await until('it waits', async () => /waits for the connection$/.test(await transferText(p, FILE)));
  agent.socket.resume();
  await reconnect();
  await arrived(p, machine, data);
});

test('the check of an upload is repeated when the link was lost before its answer', async (t) => {
  const { p, agent, machine } = await panel(t);
  const data = randomBytes(MiB);
  machine.answering = false;
  await p.setInputFiles('#files-input', [chosen(data)]);
  await agent.next(AgentMsg.DirListRequest);
  const loseLink = await cutOff(p);
  await until('the session is interrupted', () => p.locator('#view-session[data-state=interrupted]').count());
  agent.inbox = [];
  machine.answering = true;
  await loseLink();
  await arrived(p, machine, data);
});

test('an upload of a page that is loaded again goes on when its file is chosen again', async (t) => {
  const { p, page, agent, machine, data } = await halfSent(t);
  await p.reload();
  await transferIs(p, FILE, 'fileless');
  assert.match(await transferText(p, FILE), /^Interrupted at \d+ %: choose the file again to continue$/);
  assert.ok(await transferRow(p, FILE).locator('.transfer-choose').isVisible());
  await page.shot('files-fileless');
  const choose = async (/** @type {ReturnType<typeof chosen>} */ file) => {
    const chooser = p.waitForEvent('filechooser');
    await transferRow(p, FILE).locator('.transfer-choose').click();
    await (await chooser).setFiles(file);
  };
  await choose(chosen(data.subarray(1)));
  await until('it is refused', async () => /that was another file/.test(await transferText(p, FILE)));
  await choose(chosen(data, 'other.bin'));
  assert.equal(await transferRow(p, FILE).getAttribute('data-state'), 'fileless');
  agent.socket.resume();
  await openUsers(p);
  await choose(chosen(data));
  await arrived(p, machine, data);
  await fileRow(p, FILE).waitFor();
});

test('an upload of a page that is loaded again can be stopped', async (t) => {
  const { p, agent, machine } = await halfSent(t);
  await p.reload();
  await transferIs(p, FILE, 'fileless');
  agent.socket.resume();
  await transferRow(p, FILE).locator('.transfer-cancel').click();
  await until('the machine has closed it', () => machine.uploadTo(PATH).ended);
  assert.match(await transferText(p, FILE), /Cancelled · the part that arrived stays/);
});

test('the end of the session ends an upload that waits for its file', async (t) => {
  const { p, agent, machine } = await halfSent(t);
  await p.reload();
  await transferIs(p, FILE, 'fileless');
  agent.drop();
  await transferIs(p, FILE, 'failed');
  assert.match(await transferText(p, FILE), /the session ended/);
  await agent.connect();
  await until('the machine has closed it', () => machine.uploadTo(PATH).ended);
});

test('the question whether to replace files stays while the link is lost, and its answer counts', async (t) => {
  const { p, machine } = await panel(t);
  await p.setInputFiles('#files-input', [chosen(Buffer.from('new'), 'old.txt')]);
  const answer = p.locator('#overwrite-dialog [value=overwrite]');
  await answer.waitFor();
  const reconnect = await cutOff(p);
  await until('the session is interrupted', () => p.locator('#view-session[data-state=interrupted]').count());
  await answer.click();
  await transferIs(p, 'old.txt', 'waiting');
  await reconnect();
  await transferIs(p, 'old.txt', 'done');
  assert.equal(contentOf(machine.uploadTo('C:\\Users\\old.txt')).toString(), 'new');
});
