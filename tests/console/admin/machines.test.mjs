// The page of the machines: approval, and what an administrator does with known machines.
import assert from 'node:assert/strict';
import test from 'node:test';
import { addGroup, administrator, decide, machineEntry } from '../support/admin/api.mjs';
import { pageOf, SIZES } from '../support/admin/page.mjs';
import { fixture } from '../support/fixture.mjs';
import { ScriptedAgent } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

/** @typedef {import('playwright-core').Page} Page */
/** @typedef {import('../support/scripted_agent.mjs').ScriptedAgent} Agent */

// Each new machine waits for approval.
const shared = fixture([], { enrolment: false });
const at = '#admin/machines';

const row = (/** @type {Page} */ p, /** @type {Agent} */ { id }) => p.locator(`tr[data-key="${id}"]`);
const choose = (/** @type {Page} */ p, /** @type {Agent} */ agent) =>
  row(p, agent).locator('th input').check();
const section = (/** @type {Page} */ p, /** @type {string} */ name) =>
  p.locator('section.part').filter({ has: p.getByRole('heading', { name }) });
const notice = (/** @type {Page} */ p, /** @type {RegExp} */ text) =>
  p.locator('#pages-notice').filter({ hasText: text }).waitFor();
const press = (/** @type {Page} */ p, /** @type {string} */ name) =>
  p.getByRole('dialog').getByRole('button', { name }).click();

/** A connected machine that waits for approval. @param {import('node:test').TestContext} t
 * @param {import('../support/scripted_agent.mjs').AgentOptions} options */
async function waiting(t, options) {
  const agent = await ScriptedAgent.online(shared.relay, options);
  t.after(() => agent.drop());
  return agent;
}

/** A connected machine that was approved. @param {import('node:test').TestContext} t
 * @param {import('../support/scripted_agent.mjs').AgentOptions} options */
async function known(t, options, group = 1) {
  const agent = await waiting(t, options);
  await decide(shared.relay, 'approve', [agent], { group });
  return agent;
}

test('several waiting machines are approved into a group with one click', async (t) => {
  const group = await addGroup(shared.relay, { name: 'Engine rooms' });
  const agents = [await waiting(t, { name: 'Baldur' }), await waiting(t, { name: 'Bridge <b>7</b>' })];
  const { page, p } = await pageOf(t, shared, { at });
  await p.locator('#admin-link').filter({ hasText: '(2 waiting)' }).waitFor({ state: 'attached' });
  const part = section(p, 'Waiting for approval');
  assert.match(await row(p, agents[1]).innerText(), /Bridge <b>7<\/b>/);
  assert.ok(await part.getByRole('button', { name: 'Approve' }).isDisabled(), 'nothing is selected yet');
  await part.getByLabel('Select all').check();
  await part.getByRole('button', { name: 'Approve' }).click();
  await p.getByRole('dialog', { name: 'Approve 2 machines' }).waitFor();
  await p.getByRole('dialog').getByLabel('Group').selectOption({ label: 'Engine rooms' });
  await page.shot('machines-approve');
  await press(p, 'Approve');
  await notice(p, /Approved: 2 machines/);
  for (const agent of agents) {
    const { state, group: into } = await machineEntry(shared.relay, agent);
    assert.deepEqual([state, into], ['approved', group]);
  }
  await p.getByText('No machine is waiting.').waitFor();
  await p.locator('.count-badge').waitFor({ state: 'detached' });
});

test('the number of waiting machines follows what happens at the relay', async (t) => {
  const { p } = await pageOf(t, shared);
  const link = p.locator('#admin-link');
  await link.filter({ hasNotText: 'waiting' }).waitFor();
  const agent = await waiting(t, { name: 'Stranger' });
  await link.filter({ hasText: '(1 waiting)' }).waitFor();
  await decide(shared.relay, 'refuse', [agent]);
  await link.filter({ hasNotText: 'waiting' }).waitFor();
});

test('a refused machine cannot connect until it may wait again', async (t) => {
  const agent = await waiting(t, { name: 'Unwanted' });
  const { p } = await pageOf(t, shared, { at });
  await choose(p, agent);
  await section(p, 'Waiting for approval').getByRole('button', { name: 'Refuse' }).click();
  await press(p, 'Refuse');
  await notice(p, /Refused: .*Unwanted/);
  await section(p, 'Known machines').locator(row(p, agent)).getByText('refused', { exact: true }).waitFor();
  await assert.rejects(agent.connect(), /BLOCKED/);
  await choose(p, agent);
  await section(p, 'Known machines').getByRole('button', { name: 'Unblock' }).click();
  await section(p, 'Waiting for approval').locator(row(p, agent)).waitFor();
  await agent.connect();
});

test('a waiting machine shows which machine has the same hardware, and can take its row over', async (t) => {
  const old = await known(t, { name: 'Herjólfur', hardware: 'the same' });
  const other = await waiting(t, { name: 'Other' });
  const again = await waiting(t, { name: 'Herjólfur', hardware: 'the same' });
  const { p } = await pageOf(t, shared, { at, ...SIZES.phone });
  const same = (/** @type {Agent} */ agent) => row(p, agent).getByText(/Same hardware as .*Herjólfur/);
  await same(again).waitFor();
  assert.equal(await same(other).count(), 0);
  await choose(p, again);
  await section(p, 'Waiting for approval').getByRole('button', { name: 'Approve' }).click();
  const dialog = p.getByRole('dialog');
  await dialog.getByLabel('Takes over').selectOption(String(old.id));
  await press(p, 'Approve');
  await dialog.getByRole('alert').filter({ hasText: 'The old machine is connected' }).waitFor();
  old.drop();
  await until('it is offline', async () => !(await machineEntry(shared.relay, old)).connected);
  await press(p, 'Approve');
  await notice(p, /Approved/);
  await row(p, old).waitFor({ state: 'detached' });
  await assert.rejects(old.connect(), /AUTH_FAILED/, 'the old secret does not work');
  await decide(shared.relay, 'refuse', [other]);
});

test('a machine is blocked with a reason while it is connected, and unblocked', async (t) => {
  const agent = await known(t, { name: 'Sæfari' });
  const { p } = await pageOf(t, shared, { at });
  await row(p, agent).getByText('online').waitFor();
  await choose(p, agent);
  const part = section(p, 'Known machines');
  assert.ok(await part.getByRole('button', { name: 'Unblock' }).isDisabled());
  await part.getByRole('button', { name: 'Block …' }).click();
  await p.getByRole('dialog').getByLabel('Reason').fill('lost at sea');
  await press(p, 'Block');
  await row(p, agent).getByText('blocked', { exact: true }).waitFor();
  assert.match(await row(p, agent).innerText(), /lost at sea[\s\S]*by .*Sigga/);
  await until('its connection is cut', () => agent.socket.readyState === 3);
  await assert.rejects(agent.connect(), /BLOCKED/);
  await part.getByRole('button', { name: 'Unblock' }).click();
  await row(p, agent).getByText('offline').waitFor();
  await agent.connect();
});

test('a machine in quarantine stays connected, with the reason, until it is released', async (t) => {
  const agent = await known(t, { name: 'Skaftfell' });
  const { p } = await pageOf(t, shared, { at });
  await choose(p, agent);
  const part = section(p, 'Known machines');
  await part.getByRole('button', { name: 'Quarantine' }).click();
  await p.getByRole('dialog').getByLabel('Reason').fill('a virus was found');
  await press(p, 'Quarantine');
  await row(p, agent).getByText('quarantined', { exact: true }).waitFor();
  assert.match(await row(p, agent).innerText(), /a virus was found/);
  assert.equal((await machineEntry(shared.relay, agent)).connected, true);
  await part.getByRole('button', { name: 'Release' }).click();
  await row(p, agent).getByText('online').waitFor();
});

test('a machine whose identity is used twice says what to do, and is released', async (t) => {
  const agent = await known(t, { name: 'Copied image' });
  const copy = new ScriptedAgent(shared.relay, { name: 'Copied image' });
  Object.assign(copy, { id: agent.id, secret: agent.secret });
  t.after(() => copy.drop());
  const pair = [copy, agent];
  await until('both are held back', async () => {
    await pair[0].connect().catch(() => {});
    pair.reverse();
    return (await machineEntry(shared.relay, agent)).used_twice;
  });
  const { p } = await pageOf(t, shared, { at });
  await row(p, agent).getByText('used twice').waitFor();
  await row(p, agent)
    .getByText(/Two computers connect with the identity/)
    .waitFor();
  await choose(p, agent);
  await section(p, 'Known machines').getByRole('button', { name: 'Release' }).click();
  await notice(p, /Released/);
  assert.equal((await machineEntry(shared.relay, agent)).used_twice, false);
  await agent.connect();
});

test('a machine is disconnected, and comes back by itself', async (t) => {
  const agent = await known(t, { name: 'Lagarfoss' });
  const { p } = await pageOf(t, shared, { at });
  await choose(p, agent);
  await section(p, 'Known machines').getByRole('button', { name: 'Disconnect' }).click();
  await press(p, 'Disconnect');
  await notice(p, /Disconnected: .*Lagarfoss/);
  await row(p, agent).getByText('offline').waitFor();
  await agent.connect();
  await row(p, agent).getByText('online').waitFor();
});

test('a refresh keeps what is selected and where the focus is', async (t) => {
  const [kept, gone] = [await known(t, { name: 'Kept' }), await known(t, { name: 'Gone' })];
  const { p } = await pageOf(t, shared, { at });
  await choose(p, kept);
  await row(p, kept).locator('th input').focus();
  kept.drop();
  await decide(shared.relay, 'remove', [gone]);
  await row(p, gone).waitFor({ state: 'detached' });
  await row(p, kept).getByText('offline').waitFor();
  const box = row(p, kept).locator('th input');
  assert.ok(await box.isChecked());
  assert.ok(await box.evaluate((one) => one === document.activeElement));
});

test('the search and the group limit which machines are shown', async (t) => {
  const group = await addGroup(shared.relay, { name: 'Shore' });
  const [sea, shore] = [await known(t, { name: 'Dettifoss' }), await known(t, { name: 'Office' }, group)];
  const { p } = await pageOf(t, shared, { at });
  const part = section(p, 'Known machines');
  await row(p, shore).waitFor();
  await part.getByLabel('Search').fill('dettif');
  await row(p, shore).waitFor({ state: 'detached' });
  await row(p, sea).waitFor();
  await part.getByLabel('Search').fill('');
  await part.getByLabel('Group').selectOption({ label: 'Shore' });
  await row(p, sea).waitFor({ state: 'detached' });
  await row(p, shore).waitFor();
  await part.getByLabel('Search').fill('nothing like that');
  await part.getByText('No machine matches.').waitFor();
});

test('enrolment is opened into a group for some minutes and machines, and closed', async (t) => {
  const group = await addGroup(shared.relay, { name: 'Deck' });
  const { page, p } = await pageOf(t, shared, { at: '#admin/enrolment' });
  await p.getByText('Enrolment is closed: each new machine').waitFor();
  await p.getByLabel('Into the group').selectOption({ label: 'Deck' });
  await p.getByLabel('For minutes').fill('45');
  await p.getByLabel('For at most').fill('2');
  await p.getByRole('button', { name: 'Open', exact: true }).click();
  await notice(p, /Enrolment is open/);
  const agent = await waiting(t, { name: 'Enrolled by itself' });
  const { state, group: into } = await machineEntry(shared.relay, agent);
  assert.deepEqual([state, into], ['approved', group]);
  await p
    .locator('tbody tr')
    .filter({ hasText: 'Deck' })
    .getByRole('cell', { name: '1', exact: true })
    .waitFor();
  await page.shot('enrolment-open');
  await p.getByRole('button', { name: 'Close Deck' }).click();
  await notice(p, /Enrolment is closed/);
  const api = await administrator(shared.relay);
  assert.deepEqual((await api.get('enrolment')).windows, []);
});
