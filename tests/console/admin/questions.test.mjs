// The questions before a session: a reason, and the password or a code again.
import assert from 'node:assert/strict';
import test from 'node:test';
import { assertAccessible } from '../access/findings.mjs';
import { Api, addGroup, addPerson, administrator, trailRow } from '../support/admin/api.mjs';
import { SIZES } from '../support/admin/page.mjs';
import { codeOf } from '../support/admin/totp.mjs';
import { fixture, machineAndPage } from '../support/fixture.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';

/** @typedef {import('playwright-core').Page} Page */

const shared = fixture();

const dialog = (/** @type {Page} */ p, /** @type {string} */ name) => p.getByRole('dialog', { name });
const agentOptions = /** @type {const} */ ({ consent: 'none' });

/** A machine in a group that asks these questions, and the page of a person who may see it.
 * @param {import('node:test').TestContext} t @param {{step_up?: boolean, ask_reason?: boolean}} questions
 * @param {object} [page] @param {import('../support/admin/api.mjs').Login & {id: number}} [who] */
async function asking(t, questions, page = {}, who) {
  const person = who ?? (await addPerson(shared.relay));
  const rights = [{ person: person.id, rights: ['see', 'control'] }];
  const group = await addGroup(shared.relay, { ...questions, rights });
  const opened = await machineAndPage(t, shared, { who: person, group, page, agent: agentOptions });
  await opened.page.row(opened.agent).waitFor();
  return { ...opened, p: opened.page.page, who: person, group };
}

test('a group can ask for a reason and for the password before a session', async (t) => {
  const { page, p, agent, who } = await asking(t, { step_up: true, ask_reason: true }, SIZES.phone);
  await page.ask(agent);
  const reason = dialog(p, 'Reason for the session');
  await reason.waitFor();
  await assertAccessible(p, 'reason');
  await page.shot('reason-phone');
  await reason.getByLabel('Reason').fill('  ');
  await reason.getByRole('button', { name: 'Ask for the session' }).click();
  await reason.getByRole('alert').filter({ hasText: 'Type a reason' }).waitFor();
  await reason.getByLabel('Reason').fill('The main engine reports an alarm');
  await reason.getByRole('button', { name: 'Ask for the session' }).click();
  const proof = dialog(p, 'Confirm that it is you');
  await proof.waitFor();
  await assertAccessible(p, 'password again');
  await page.shot('step-up-phone');
  await proof.getByLabel('Password').fill('not mine');
  await p.keyboard.press('Enter');
  await proof.getByRole('alert').filter({ hasText: 'The password is wrong' }).waitFor();
  assert.equal(agent.has(AgentMsg.SessionRequest), false, 'the machine is not asked before');
  await proof.getByLabel('Password').fill(who.password);
  await p.keyboard.press('Enter');
  await page.waitForNote(/Waiting for someone at /);
  await agent.next(AgentMsg.SessionRequest);
  await trailRow(shared.relay, 'step-up.failed', who.name);
  const asked = await trailRow(shared.relay, 'session.asked', 'The main engine reports an alarm');
  assert.equal(asked.actor, who.name);
});

test('a person with one-time codes confirms the session by a code', async (t) => {
  const who = await addPerson(shared.relay);
  const api = await Api.loggedIn(shared.relay, who);
  const { secret } = await api.post('totp/begin');
  const page = { storageState: api.browserState };
  const { page: opened, p, agent } = await asking(t, { step_up: true }, page, who);
  await api.post('totp/confirm', { code: codeOf(secret) });
  await opened.ask(agent);
  const proof = dialog(p, 'Confirm that it is you');
  await proof.getByLabel('Password or code').fill(codeOf(secret, Date.now() + 30_000));
  await p.keyboard.press('Enter');
  await agent.next(AgentMsg.SessionRequest);
  assert.equal((await trailRow(shared.relay, 'step-up.succeeded', who.name)).fields.method, 'code');
});

test('whoever has confirmed it is not asked again for some minutes', async (t) => {
  const { page, p, agent, who } = await asking(t, { step_up: true });
  await page.ask(agent);
  await dialog(p, 'Confirm that it is you').getByLabel('Password').fill(who.password);
  await p.keyboard.press('Enter');
  await agent.next(AgentMsg.SessionRequest);
  await p.getByRole('button', { name: 'Stop waiting' }).click();
  await page.ask(agent);
  await agent.next(AgentMsg.SessionRequest);
  assert.equal(await dialog(p, 'Confirm that it is you').count(), 0);
});

test('whoever cancels a question is back at the machines', async (t) => {
  const { page, p, agent, group } = await asking(t, { ask_reason: true });
  await page.ask(agent);
  await dialog(p, 'Reason').getByRole('button', { name: 'Cancel' }).click();
  await p.locator('#view-machines').waitFor();
  const api = await administrator(shared.relay);
  await api.send('PATCH', `groups/${group}`, { step_up: true, ask_reason: false });
  await page.badge(agent, 'online').waitFor();
  await page.ask(agent);
  await dialog(p, 'Confirm that it is you').waitFor();
  await p.keyboard.press('Escape');
  await p.locator('#view-machines').waitFor();
  assert.ok(
    await page
      .row(agent)
      .locator('.machine-open')
      .evaluate((one) => one === document.activeElement),
  );
  assert.equal(agent.has(AgentMsg.SessionRequest), false);
});
