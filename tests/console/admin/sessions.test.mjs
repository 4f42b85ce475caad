// What an administrator's decisions do to a running session: both sides, each in a browser of its own.
import assert from 'node:assert/strict';
import test from 'node:test';
import { assertAccessible } from '../access/findings.mjs';
import { addGroup, addPerson, decide, giveRights, trailRow } from '../support/admin/api.mjs';
import { pageOf, SIZES } from '../support/admin/page.mjs';
import { fixture, machineAndPage, openSession } from '../support/fixture.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';

/** @typedef {import('playwright-core').Page} Page */

const shared = fixture();

const press = (/** @type {Page} */ p, /** @type {string} */ name) =>
  p.getByRole('dialog').getByRole('button', { name }).click();
const row = (/** @type {Page} */ p, /** @type {string} */ name) =>
  p.locator('tbody tr').filter({ has: p.getByRole('rowheader', { name }) });

/** A session of a representative who may do everything with the machine. @param {import('node:test').TestContext} t
 * @param {object} [options] of the page */
async function running(t, options = {}) {
  const who = await addPerson(shared.relay);
  const group = await addGroup(shared.relay, {
    rights: [
      { person: who.id, rights: ['see', 'control', 'clipboard', 'files-up', 'files-down', 'restart'] },
    ],
  });
  const session = await openSession(t, shared, { who, group, page: options });
  return { ...session, who, group };
}

test('an administrator ends a session, and its representative reads who did it', async (t) => {
  const { page, agent, who } = await running(t);
  const { p } = await pageOf(t, shared, { at: '#admin/activity', ...SIZES.phone });
  const end = () => row(p, agent.name).getByRole('button', { name: 'End' }).click();
  await end();
  await p.getByRole('dialog', { name: `End the session of` }).waitFor();
  await press(p, 'Cancel');
  await row(p, agent.name).getByText('open').waitFor();
  await end();
  await press(p, 'End');
  await p.locator('#pages-notice').filter({ hasText: 'The session has ended' }).waitFor();
  await page.waitForNote(/^An administrator has ended the session\./);
  await agent.next(AgentMsg.SessionEnd);
  await row(p, agent.name).waitFor({ state: 'detached' });
  await trailRow(shared.relay, 'session.closed', who.name);
});

test('an administrator ends a log-in, and its session and page end at once', async (t) => {
  const { page, agent, who } = await running(t);
  const { p } = await pageOf(t, shared, { at: '#admin/activity' });
  await row(p, who.name).getByRole('button', { name: 'End' }).click();
  await press(p, 'End');
  await p.locator('#pages-notice').filter({ hasText: 'The log-in has ended' }).waitFor();
  await page.page.locator('#login-error').filter({ hasText: 'log-in has ended' }).waitFor();
  await agent.next(AgentMsg.SessionEnd);
  assert.equal(await page.page.locator('#view-session').isVisible(), false);
});

test('a representative sees other log-ins of the own account only, and no page of administrators', async (t) => {
  const who = await addPerson(shared.relay);
  const { p } = await pageOf(t, shared, { who, at: '#admin/people' });
  await p.locator('#view-machines').waitFor();
  assert.equal(await p.locator('#admin-link').isVisible(), false);
});

/** @type {[string, string, RegExp][]} the decision, and what the representative reads */
const DECISIONS = [
  ['Block …', 'Block', /because an administrator has blocked/],
  ['Quarantine …', 'Quarantine', /because an administrator has put .* into quarantine/],
  ['Disconnect', 'Disconnect', /because an administrator has disconnected/],
  ['Remove …', 'Remove', /because an administrator has removed/],
];
for (const [button, confirm, note] of DECISIONS) {
  test(`"${confirm}" ends the session of a connected machine, and the representative reads why`, async (t) => {
    const { page, agent } = await running(t);
    const { p } = await pageOf(t, shared, { at: '#admin/machines' });
    await p.locator(`tr[data-key="${agent.id}"] th input`).check();
    await p.getByRole('button', { name: button, exact: true }).click();
    const reason = p.getByRole('dialog').getByLabel('Reason');
    if (await reason.isVisible()) await reason.fill('a virus was found');
    await press(p, confirm);
    await page.waitForNote(note);
    await assertAccessible(page.page, `session after ${confirm}`);
    await page.shot(`session-ended-${confirm.toLowerCase()}`);
  });
}

test('a machine in quarantine is in the list with the reason, and has no sessions', async (t) => {
  const { page, agent } = await running(t);
  const p = page.page;
  await decide(shared.relay, 'quarantine', [agent], { reason: 'a virus was found' });
  await page.waitForNote(/into quarantine/);
  await agent.next(AgentMsg.SessionEnd);
  await p.getByRole('button', { name: 'Ask again' }).click();
  await page.waitForNote(/is in quarantine, so it has no sessions/);
  await p.getByRole('button', { name: 'Back to the machines' }).click();
  await page.badge(agent, 'quarantine').waitFor();
  await page.row(agent).getByText('a virus was found').waitFor();
  await page.row(agent).locator('.machine-open').click({ force: true });
  assert.equal(await p.locator('#view-session').isVisible(), false);
  await assertAccessible(p, 'list with a machine in quarantine');
  await decide(shared.relay, 'release', [agent]);
  await page.badge(agent, 'online').waitFor();
});

test('a session ends when its machine moves where the representative may see nothing', async (t) => {
  const { page, agent } = await running(t);
  await decide(shared.relay, 'move', [agent], { group: await addGroup(shared.relay) });
  await page.waitForNote(/no longer have the right to see/);
  await agent.next(AgentMsg.SessionEnd);
  await page.page.getByRole('button', { name: 'Back to the machines' }).click();
  await page.row(agent).waitFor({ state: 'detached' });
});

test('a machine appears in the list and disappears with the right to see it', async (t) => {
  const who = await addPerson(shared.relay);
  const group = await addGroup(shared.relay, { rights: [{ person: who.id, rights: ['see'] }] });
  const { page, agent } = await machineAndPage(t, shared, { who, group });
  await page.row(agent).waitFor();
  await giveRights(shared.relay, group, who.id, []);
  await page.row(agent).waitFor({ state: 'detached' });
  await giveRights(shared.relay, group, who.id, ['see']);
  await page.row(agent).waitFor();
});
