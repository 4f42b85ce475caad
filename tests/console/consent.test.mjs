// Asking for a session: what the representative is shown while the person at the machine decides, and what the
// machine is told.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, machineAndPage } from './support/fixture.mjs';
import { Relay, USER } from './support/relay.mjs';
import { AgentMsg } from './support/scripted_agent.mjs';
import { until } from './support/waiting.mjs';

const shared = fixture();

async function asked(t, agentOptions = {}) {
  const { agent, page } = await machineAndPage(t, shared, { agent: { consent: 'none', ...agentOptions } });
  await page.ask(agent);
  const request = await agent.next(AgentMsg.SessionRequest);
  await page.waitForNote(/^Waiting for somebody at /);
  return { agent, page, request };
}

const shown = (page, selector) => page.page.locator(selector).isVisible();

test('while consent is awaited the console says so and sends nothing to the machine', async (t) => {
  const { agent, page, request } = await asked(t);
  assert.deepEqual(request.json, { rep_name: USER });
  assert.match(await page.note(), new RegExp(agent.name));
  assert.ok(await shown(page, '#session-give-up'));
  assert.ok(!(await shown(page, '#session-again')));
  await page.shot('consent-awaited');
  await page.page.keyboard.type('x');
  agent.accept(request.session);
  const first = await until('something comes', () => agent.inbox[0]);
  assert.equal(first.type, AgentMsg.StreamStart);
  assert.equal(agent.inputs.length, 0);
});

test('a declined request is told, and asking again asks the machine again', async (t) => {
  const { agent, page, request } = await asked(t);
  agent.decline(request.session);
  await page.waitForNote(/declined the session/);
  await page.shot('consent-declined');
  await page.page.click('#session-again');
  const second = await agent.next(AgentMsg.SessionRequest);
  assert.notEqual(second.session, request.session);
  agent.accept(second.session);
  await agent.next(AgentMsg.StreamStart);
});

test('giving up withdraws the prompt on the machine', async (t) => {
  const { agent, page, request } = await asked(t);
  await page.page.click('#session-give-up');
  const end = await agent.next(AgentMsg.SessionEnd);
  assert.equal(end.session, request.session);
  await page.page.locator('#view-machines').waitFor();
  assert.match(await page.page.locator('#link-notice').innerText(), /was withdrawn/);
  await page.shot('consent-given-up');
  // An answer that crossed the withdrawal opens nothing.
  agent.accept(request.session);
  await page.ask(agent);
  await agent.next(AgentMsg.SessionRequest);
  await page.waitForNote(/^Waiting/);
  assert.equal(agent.inbox.filter(({ type }) => type === AgentMsg.StreamStart).length, 0);
});

test('a page that is closed while it waits withdraws the prompt', async (t) => {
  const { agent, page, request } = await asked(t);
  await page.page.goto('about:blank');
  assert.equal((await agent.next(AgentMsg.SessionEnd)).session, request.session);
});

test('a machine that goes away under its prompt is asked anew when it is back', async (t) => {
  const { agent, page } = await asked(t);
  agent.drop();
  await page.waitForNote(/has gone offline/);
  await agent.connect();
  agent.accept((await agent.next(AgentMsg.SessionRequest)).session);
  await agent.next(AgentMsg.StreamStart);
});

test('a machine in use by another representative is refused with that name', async (t) => {
  const { agent } = await asked(t);
  const { page } = await machineAndPage(t, shared);
  await page.ask(agent);
  await page.waitForNote(/is in use by .*Sigga/);
  await page.page.click('#session-back');
  await page.page.locator('#view-machines').waitFor();
});

test('an offline machine cannot be asked', async (t) => {
  const { agent, page } = await machineAndPage(t, shared);
  agent.drop();
  await page.page.locator(`.machine[data-agent="${agent.id}"][data-state=offline]`).waitFor();
  assert.ok(await page.row(agent).locator('.machine-open').isDisabled());
});

test('a request that nobody answers is withdrawn from the machine, and the console says so', async (t) => {
  const relay = await Relay.started(['--consent', '1']);
  t.after(() => relay.remove());
  const { agent, page } = await machineAndPage(t, { ...shared, relay }, { agent: { consent: 'none' } });
  await page.ask(agent);
  const request = await agent.next(AgentMsg.SessionRequest);
  assert.equal((await agent.next(AgentMsg.SessionEnd)).session, request.session);
  await page.waitForNote(/Nobody answered/);
  await page.shot('consent-withdrawn');
});
