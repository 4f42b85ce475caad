// The end of a log-in: the warning a minute before, the ways to go on, and the end itself.
import assert from 'node:assert/strict';
import test from 'node:test';
import { assertAccessible } from '../access/findings.mjs';
import { Api, addGroup, addPerson } from '../support/admin/api.mjs';
import { fixture, machineAndPage, openSession } from '../support/fixture.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

/** @typedef {import('playwright-core').Page} Page */

const shared = fixture();

/** A person who may see the machine of the test. @param {import('node:test').TestContext} t
 * @param {typeof machineAndPage} opening */
async function loggedIn(t, opening) {
  const who = await addPerson(shared.relay);
  const group = await addGroup(shared.relay, { rights: [{ person: who.id, rights: ['see', 'control'] }] });
  const opened = await opening(t, shared, { who, group });
  return { ...opened, p: opened.page.page, who };
}

/** Changes a column of the person's log-ins. The shortest times that the settings allow are too long for a test.
 * @param {{id: number}} who @param {string} change */
function setLogin({ id }, change) {
  shared.relay.changeDatabase(`UPDATE logins SET ${change} WHERE person = ${id}`);
}

const seconds = () => Math.floor(Date.now() / 1000);
const warning = (/** @type {Page} */ p) => p.locator('#login-ends');

test('a minute before idle time ends the log-in, one click goes on', async (t) => {
  const { page, p, who } = await loggedIn(t, machineAndPage);
  await p.locator('.machine').first().waitFor();
  setLogin(who, 'idle_limit = 70');
  await warning(p)
    .getByText(/ends in (1:00|0:5\d)/)
    .waitFor();
  assert.match(await p.locator('#login-ends-spoken').innerText(), /Your log-in ends in 1:00/);
  await assertAccessible(p, 'warning');
  await page.shot('login-ends');
  await warning(p).getByRole('button', { name: 'Go on' }).click();
  await warning(p).waitFor({ state: 'hidden' });
});

test('at the longest time of a log-in, the password extends it, and the session goes on', async (t) => {
  const { page, p, agent, who } = await loggedIn(t, openSession);
  setLogin(who, `expires_at = ${seconds() + 62}`);
  await warning(p).getByRole('button', { name: 'Go on' }).waitFor();
  await page.shot('login-ends-session');
  await assertAccessible(p, 'warning in a session');
  await warning(p).getByRole('button', { name: 'Go on' }).click();
  const question = p.getByRole('dialog', { name: 'Stay logged in' });
  await question.getByLabel('Password').fill(who.password);
  await p.keyboard.press('Enter');
  await warning(p).waitFor({ state: 'hidden' });
  const { logins } = await (await Api.loggedIn(shared.relay, who)).get('logins');
  assert.ok(Math.min(...logins.map((one) => one.expires_at)) > seconds() + 3600);
  agent.inputs = [];
  await page.canvas.click();
  await until('the machine gets input', () => agent.inputs.length > 0);
});

test('the warning is above a session in full screen', async (t) => {
  const { page, p, who } = await loggedIn(t, openSession);
  await p.click('#full-screen');
  await until('full screen', () => p.evaluate(() => document.fullscreenElement?.id === 'view-session'));
  setLogin(who, 'idle_limit = 70');
  await warning(p).getByRole('button', { name: 'Go on' }).click();
  await warning(p).waitFor({ state: 'hidden' });
  setLogin(who, `expires_at = ${seconds() + 62}`);
  await warning(p).waitFor();
  await page.shot('login-ends-full-screen');
  await p.evaluate(() => document.exitFullscreen());
  await warning(p).getByRole('button', { name: 'Go on' }).click();
  await p.getByRole('dialog', { name: 'Stay logged in' }).waitFor();
});

test('without an answer, the session goes on for the minute, and then the log-in page follows', async (t) => {
  const { page, p, agent, who } = await loggedIn(t, openSession);
  setLogin(who, `expires_at = ${seconds() + 5}`);
  await warning(p)
    .getByText(/ends in (1:00|0:5\d)/)
    .waitFor();
  const warned = seconds();
  await page.canvas.click();
  await until('the machine gets input', () => agent.inputs.length > 0);
  const loginPage = p.locator('#login-error').filter({ hasText: 'log-in has ended' });
  await loginPage.waitFor({ timeout: 90_000 });
  assert.ok(seconds() - warned >= 55, 'not before the minute is over');
  await agent.next(AgentMsg.SessionEnd);
  assert.equal(await warning(p).isVisible(), false);
});

test('a page that only repeats its requests does not keep the log-in alive', async (t) => {
  const who = await addPerson(shared.relay, { role: 'administrator' });
  const { page } = await machineAndPage(t, shared, { who, page: { at: '#admin/activity' } });
  await page.page.locator('#pages-place[aria-busy=false] .part').first().waitFor();
  setLogin(who, 'idle_limit = 75');
  await warning(page.page).getByRole('button', { name: 'Go on' }).waitFor();
});
