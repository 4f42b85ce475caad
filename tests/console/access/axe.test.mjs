// The whole console examined with axe-core, view by view, in both colour themes.
import assert from 'node:assert/strict';
import test from 'node:test';
import { packFiles, packImage, packText } from '../../../console/clipboard/payload.js';
import { fixture, logInPage, machineAndPage, openSession } from '../support/fixture.mjs';
import { DISK, openPanel, openUsers } from '../support/panel_page.mjs';
import { desktop, plain } from '../support/pictures.mjs';
import { Relay, USER } from '../support/relay.mjs';
import { AgentMsg, ScriptedAgent } from '../support/scripted_agent.mjs';
import { transferIs } from '../support/transfer_rows.mjs';
import { until } from '../support/waiting.mjs';
import { assertAccessible } from './findings.mjs';

/** @typedef {import('playwright-core').Page} Page */

const shared = fixture();
/** The smallest PNG picture: one transparent pixel. */
const PNG = Buffer.from(
  'iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNkYPhfDwAChwGA60e6kgAAAABJRU5ErkJggg==',
  'base64',
);

/** Opens a session's dialog from one of its menus. */
async function openDialog(/** @type {Page} */ p, /** @type {string} */ menu, /** @type {string} */ button) {
  await p.click(`#${menu} summary`);
  await p.click(button);
  await p.locator('dialog:visible').waitFor();
}

test('the log-in page is accessible, also with an error', async (t) => {
  const page = await logInPage(t, shared);
  await assertAccessible(page.page, 'log-in');
  await page.logIn(USER, 'wrong');
  await until('the error shows', async () => (await page.page.locator('#login-error').innerText()) !== '');
  await assertAccessible(page.page, 'log-in with an error');
});

test('the machine list and its dialogs are accessible', async (t) => {
  const relay = await Relay.started();
  t.after(() => relay.remove());
  const page = await logInPage(t, { ...shared, relay });
  const p = page.page;
  await page.logIn();
  await p.locator('#machine-note').waitFor();
  await assertAccessible(p, 'empty list');

  const agents = [];
  for (const name of ['Online', 'In session', 'Offline']) {
    const agent = await ScriptedAgent.online(relay, { name, consent: 'none' });
    t.after(() => agent.drop());
    agents.push(agent);
  }
  const [, busy, offline] = agents;
  offline.drop();
  await page.badge(offline, 'offline').waitFor();
  await page.ask(busy);
  busy.accept((await busy.next(AgentMsg.SessionRequest)).session);
  await busy.next(AgentMsg.StreamStart);
  await page.badge(busy, 'session').waitFor({ state: 'attached' });
  await relay.kill();
  await page.waitForNote(/link to the relay is down/);
  await assertAccessible(p, 'link down');
  await p.click('#session-back');
  await p.locator('#link-notice').waitFor();
  await assertAccessible(p, 'machine list with a notice');
  await p.fill('#machine-search', 'none of them');
  await assertAccessible(p, 'machine list without a match');
  await p.fill('#machine-search', '');
  await page.row(offline).locator('.machine-forget').click();
  await assertAccessible(p, 'question before a machine is forgotten');
  await p.keyboard.press('Escape');
  await p.click('#password');
  await p.fill('#password-old', 'x');
  await p.fill('#password-new', 'long enough 1');
  await p.fill('#password-again', 'long enough 2');
  await p.click('#password-submit');
  await p.locator('#password-error').filter({ hasText: 'same' }).waitFor();
  await assertAccessible(p, 'change of the password');
});

test('a request for a session is accessible, and so is its end', async (t) => {
  const { agent, page } = await machineAndPage(t, shared, { agent: { consent: 'none' } });
  await page.ask(agent);
  await page.waitForNote(/^Waiting for someone at /);
  await assertAccessible(page.page, 'waiting');
  agent.decline((await agent.next(AgentMsg.SessionRequest)).session);
  await page.waitForNote(/declined/);
  await assertAccessible(page.page, 'declined');
});

test('an open session, its menus and its dialogs are accessible', async (t) => {
  const { agent, page } = await openSession(t, shared);
  const p = page.page;
  agent.thumbnail({ monitor: 0, count: 2, width: 64, height: 36, jpeg: desktop(64, 36) });
  agent.thumbnail({ monitor: 1, count: 2, width: 64, height: 36, jpeg: plain(64, 36, '#804000') });
  await p.locator('#monitor-picker .monitor').nth(1).waitFor();
  await p
    .locator('#status-line')
    .filter({ hasText: /round trip/ })
    .waitFor();
  await assertAccessible(p, 'session');
  const menus = await p.locator('.bar .menu:visible').all();
  assert.ok(menus.length >= 4, `${menus.length} menus are visible`);
  for (const menu of menus) {
    await menu.locator('summary').first().click();
    await assertAccessible(p, `menu ${await menu.getAttribute('id')}`);
    await menu.locator('summary').first().click();
  }
  await openDialog(p, 'keys-menu', '#type-text');
  await assertAccessible(p, 'text to type');
  await p.keyboard.press('Escape');
  await openDialog(p, 'machine-menu', '#restart');
  await assertAccessible(p, 'question before a restart');
});

test('the file panel, its transfers and the question before files are replaced are accessible', async (t) => {
  const { p } = await openPanel(t, shared, DISK);
  await assertAccessible(p, 'drives');
  await openUsers(p);
  await p.press('#files-list', 'Control+a');
  await p.locator('.file[aria-selected=true]').first().waitFor();
  const upload = (/** @type {string} */ name) =>
    p.setInputFiles('#files-input', { name, mimeType: 'a/b', buffer: Buffer.from('content') });
  await upload('new.txt');
  await transferIs(p, 'new.txt', 'done');
  await upload('zoe');
  await transferIs(p, 'zoe', 'failed');
  await assertAccessible(p, 'files');
  await upload('b10.txt');
  await p.locator('#overwrite-dialog').waitFor();
  await assertAccessible(p, 'question before files are replaced');
});

test('the clipboard’s notices are accessible', async (t) => {
  const { agent, page } = await openSession(t, shared, {
    page: {
      // The empty page before the console is not secure and has no clipboard.
      script: `if (window.Clipboard) for (const name of ['write', 'writeText'])
        Clipboard.prototype[name] = async () => { throw new DOMException('no', 'NotAllowedError'); };`,
    },
  });
  const files = [1, 2].map((i) => ({ name: `file ${i}.txt`, bytes: Uint8Array.of(i) }));
  for (const [kind, payload] of /** @type {const} */ ([
    ['text', packText('copied')],
    ['image', packImage(PNG)],
    ['files', packFiles(files)],
  ])) {
    agent.send(AgentMsg.ClipboardData, agent.session, payload);
    await page.page.locator(`.clip-notice[data-kind=${kind}]`).waitFor();
    await assertAccessible(page.page, `notice of ${kind}`);
  }
});
