// A session of a representative who has only some rights, and whose rights change meanwhile.
import assert from 'node:assert/strict';
import test from 'node:test';
import { packText } from '../../../console/clipboard/payload.js';
import { assertAccessible } from '../access/findings.mjs';
import { addGroup, addPerson, giveRights, trailRow } from '../support/admin/api.mjs';
import { fixture, openSession } from '../support/fixture.mjs';
import { MachineFolders } from '../support/machine_folders.mjs';
import { DISK, fileRow, openUsers } from '../support/panel_page.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { transferIs, transferText } from '../support/transfer_rows.mjs';
import { until } from '../support/waiting.mjs';

/** @typedef {import('playwright-core').Page} Page */
/** @typedef {import('../../../console/link/rights.js').Right} Right */

const shared = fixture();
/** @type {Right[]} */
const ALL = ['see', 'control', 'clipboard', 'files-up', 'files-down', 'restart', 'forget'];

/** Opens a session with these rights; `change` replaces them. @param {import('node:test').TestContext} t
 * @param {Right[]} rights @param {object} [page] */
async function sessionWith(t, rights, page = {}) {
  const who = await addPerson(shared.relay);
  const group = await addGroup(shared.relay, { rights: [{ person: who.id, rights }] });
  const opened = await openSession(t, shared, { who, group, page });
  const change = (/** @type {Right[]} */ wanted) => giveRights(shared.relay, group, who.id, wanted);
  return { ...opened, p: opened.page.page, change };
}

/** The controls that are on the page, by the right that each needs. @param {Page} p */
async function shown(p) {
  const controls = {
    control: '#keys-menu',
    viewOnly: '#view-only-toggle',
    clipboard: '#clip-menu',
    restart: '#machine-menu',
    files: '#panel-files-button',
  };
  const found = [];
  for (const [name, selector] of Object.entries(controls))
    if (await p.locator(selector).isVisible()) found.push(name);
  return found;
}

test('only the controls are shown for which the representative has the right', async (t) => {
  const { page, p, agent } = await sessionWith(t, ['see']);
  assert.deepEqual(await shown(p), []);
  assert.equal(await p.locator('#view-only-badge').innerText(), 'You may only watch');
  assert.equal(await p.locator('#leave-tip').isVisible(), false);
  await assertAccessible(p, 'session with the right to see');
  await page.shot('rights-see');
  await page.canvas.click();
  await p.keyboard.press('a');
  await p.locator('#view-only-badge').filter({ hasText: 'do not have the right' }).waitFor();
  assert.deepEqual(agent.inputs, []);
  assert.ok(await p.locator('#picture-menu').isVisible(), 'the picture needs no other right');
});

test('the file panel shows only the side for which there is a right', async (t) => {
  const { p, agent } = await sessionWith(t, ['see', 'files-down']);
  const folders = new MachineFolders(agent, DISK);
  await p.click('#panel-files-button');
  await p.locator('.file').first().waitFor();
  assert.equal(await p.locator('#files-download').isVisible(), true);
  assert.equal(await p.locator('#files-upload').isVisible(), false);
  assert.ok(folders);
});

test('a change of rights takes effect at once, and a strip says so', async (t) => {
  const { page, p, agent, change } = await sessionWith(t, ALL);
  const strip = p.locator('.strip[data-strip=rights]');
  assert.deepEqual(await shown(p), ['control', 'viewOnly', 'clipboard', 'restart', 'files']);
  assert.equal(await strip.count(), 0);
  const streams = () => agent.inbox.filter(({ type }) => type === AgentMsg.StreamStart).length;
  const before = streams();
  await p.click('#panel-files-button');
  await change(['see', 'clipboard']);
  await strip
    .filter({ hasText: 'You may no longer: control it, upload files, download files, restart it' })
    .waitFor();
  assert.deepEqual(await shown(p), ['clipboard']);
  assert.equal(await p.locator('#panels').isVisible(), false, 'the file panel is closed');
  await assertAccessible(p, 'strip about changed rights');
  await page.shot('rights-changed');
  agent.inputs = [];
  await page.canvas.click();
  await change(['see', 'control']);
  await strip
    .filter({
      hasText: 'You may no longer: use the clipboard. Your rights have changed. You may now: control it.',
    })
    .waitFor();
  assert.deepEqual(await shown(p), ['control', 'viewOnly']);
  assert.deepEqual(agent.inputs, [], 'nothing was sent without the right');
  await page.canvas.click();
  await until('the machine gets input again', () => agent.inputs.length > 0);
  assert.equal(streams(), before, 'the picture was not started again');
});

test('without the right to the clipboard, nothing from the machine reaches this clipboard', async (t) => {
  const { p, agent, change } = await sessionWith(t, ALL, {
    permissions: ['clipboard-read', 'clipboard-write'],
  });
  const copied = (/** @type {string} */ text) =>
    agent.send(AgentMsg.ClipboardData, agent.session, packText(text));
  const content = () => p.evaluate(() => navigator.clipboard.readText());
  copied('with the right');
  await until('the text arrives', async () => (await content()) === 'with the right');
  await change(['see', 'control']);
  await p.locator('.strip[data-strip=rights]').waitFor();
  copied('without the right');
  const count = await p.locator('#screen').getAttribute('data-frames');
  agent.frame((await import('../support/pictures.mjs')).plain(640, 360, '#804000'));
  await until(
    'a later picture is drawn',
    async () => (await p.locator('#screen').getAttribute('data-frames')) !== count,
  );
  assert.equal(await content(), 'with the right');
});

test('a download under way ends with its right, and the file panel stays for uploads', async (t) => {
  const { p, agent, change } = await sessionWith(t, ['see', 'files-up', 'files-down']);
  const machine = new MachineFolders(agent, structuredClone(DISK));
  await p.click('#panel-files-button');
  await openUsers(p);
  machine.holding = true;
  await fileRow(p, 'B9.txt').dblclick();
  const [{ id }] = await until('the machine is asked', () => machine.held.length > 0 && machine.held);
  await change(['see', 'files-up']);
  await transferIs(p, 'B9.txt', 'failed');
  assert.match(await transferText(p, 'B9.txt'), /no longer have the right/);
  assert.equal(await p.locator('#files-download').isVisible(), false);
  assert.equal(await p.locator('#files-upload').isVisible(), true);
  await p.click('#session-end');
  const ended = await trailRow(shared.relay, 'file.ended', 'B9.txt');
  assert.equal(ended.fields.transfer, id);
});

test('a session that ends for lack of the right to see says so', async (t) => {
  const { page, change } = await sessionWith(t, ALL);
  await change([]);
  await page.waitForNote(/no longer have the right to see/);
});

test('on a phone the toolbar has no empty menu for a representative who only watches', async (t) => {
  const { page, p } = await sessionWith(t, ['see'], {
    viewport: { width: 320, height: 640 },
    hasTouch: true,
  });
  await p.click('#bar-menu');
  assert.deepEqual(await shown(p), []);
  await page.shot('rights-see-phone');
});
