// Requesting a session: what the page shows while the person at the machine decides, and what the machine
// receives.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, machineAndPage } from '../support/fixture.mjs';
import { Relay, USER } from '../support/relay.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();

/**
 * A machine that was asked for a session and has not answered.
 * @param {import('node:test').TestContext} t
 */
async function asked(t) {
  const { agent, page } = await machineAndPage(t, shared, { agent: { consent: 'none' } });
  await page.ask(agent);
  const request = await agent.next(AgentMsg.SessionRequest);
  await page.waitForNote(/^Waiting for someone at /);
  return { agent, page, request };
}

/** @param {import('../support/console_page.mjs').ConsolePage} page @param {string} selector */
const isShown = (page, selector) => page.page.locator(selector).isVisible();

test('while consent is awaited, the page says so and sends nothing to the machine', async (t) => {
  const { agent, page, request } = await asked(t);
  assert.deepEqual(request.json, { rep_name: USER });
  assert.match(await page.note(), new RegExp(agent.name));
  assert.ok(await isShown(page, '#session-give-up'));
  assert.ok(!(await isShown(page, '#session-again')));
  await page.shot('consent-awaited');
  await page.page.keyboard.type('x');
  agent.accept(request.session);
  const first = await until('a message arrives', () => agent.inbox[0]);
  assert.equal(first.type, AgentMsg.StreamStart);
  assert.equal(agent.inputs.length, 0);
});

test('a declined request is shown, and can be sent again', async (t) => {
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

test('a representative who stops waiting withdraws the prompt on the machine', async (t) => {
  const { agent, page, request } = await asked(t);
  await page.page.click('#session-give-up');
  const end = await agent.next(AgentMsg.SessionEnd);
  assert.equal(end.session, request.session);
  await page.page.locator('#view-machines').waitFor();
  assert.match(await page.page.locator('#link-notice').innerText(), /was withdrawn/);
  await page.shot('consent-given-up');
  await page.ask(agent);
  await agent.next(AgentMsg.SessionRequest);
  await page.waitForNote(/^Waiting/);
  assert.equal(agent.inbox.filter(({ type }) => type === AgentMsg.StreamStart).length, 0);
});

test('closing the page while it waits withdraws the prompt on the machine', async (t) => {
  const { agent, page, request } = await asked(t);
  await page.page.goto('about:blank');
  assert.equal((await agent.next(AgentMsg.SessionEnd)).session, request.session);
});

test('a machine whose withdrawn question is still on the screen is asked again after its answer', async (t) => {
  const { agent, page, request } = await asked(t);
  agent.closesBox = false;
  await page.page.click('#session-give-up');
  await agent.next(AgentMsg.SessionEnd);
  await page.page.locator('#view-machines').waitFor();
  await page.ask(agent);
  await page.waitForNote(/^An earlier question may still stand/);
  await page.shot('consent-asked-already');
  assert.ok(!agent.has(AgentMsg.SessionRequest));
  // The answer to a withdrawn question opens no session.
  agent.accept(request.session);
  await agent.next(AgentMsg.SessionRequest);
  await page.waitForNote(/^Waiting/);
  assert.ok(!agent.has(AgentMsg.StreamStart));
});

test('a machine that goes offline during its consent prompt is asked again after its answer', async (t) => {
  const { agent, page, request } = await asked(t);
  agent.drop();
  await page.waitForNote(/has gone offline/);
  await agent.connect();
  await page.waitForNote(/^An earlier question may still stand/);
  agent.decline(request.session);
  agent.accept((await agent.next(AgentMsg.SessionRequest)).session);
  await agent.next(AgentMsg.StreamStart);
});

test('the page counts the time that is left to answer, until there is an answer', async (t) => {
  const { agent, page, request } = await asked(t);
  const time = page.page.locator('#session-note-time');
  await time.waitFor();
  const left = async () => Number(/^0:(\d\d) left/.exec(await time.innerText())?.[1]);
  const first = await left();
  assert.ok(first > 0 && first <= 30, String(first));
  await until('the time goes down', async () => (await left()) < first);
  agent.decline(request.session);
  await page.waitForNote(/declined the session/);
  assert.ok(!(await time.isVisible()));
});

test('a machine whose person declined three times is not asked at once again', async (t) => {
  const { agent, page } = await machineAndPage(t, shared, { agent: { consent: 'decline' } });
  await page.ask(agent);
  for (let i = 0; i < 3; i++) {
    await agent.next(AgentMsg.SessionRequest);
    await page.waitForNote(/declined the session/);
    await page.page.click('#session-again');
  }
  await page.waitForNote(/was asked three times within a minute/);
  await page.shot('consent-asked-too-often');
  assert.ok(!agent.has(AgentMsg.SessionRequest));
});

test('a request for a machine in use is refused with the name of the representative who uses it', async (t) => {
  const { agent } = await asked(t);
  const { page } = await machineAndPage(t, shared);
  await page.ask(agent);
  await page.waitForNote(/is in use by .*Sigga/);
  await page.page.click('#session-back');
  await page.page.locator('#view-machines').waitFor();
});

test('an offline machine cannot be asked for a session', async (t) => {
  const { agent, page } = await machineAndPage(t, shared);
  agent.drop();
  await page.page.locator(`.machine[data-agent="${agent.id}"][data-state=offline]`).waitFor();
  assert.ok(await page.row(agent).locator('.machine-open').isDisabled());
});

test('a request that nobody answers is withdrawn, and the page says so', async (t) => {
  const relay = await Relay.started(['--consent', '1']);
  t.after(() => relay.remove());
  const { agent, page } = await machineAndPage(t, { ...shared, relay }, { agent: { consent: 'none' } });
  await page.ask(agent);
  const request = await agent.next(AgentMsg.SessionRequest);
  assert.equal((await agent.next(AgentMsg.SessionEnd)).session, request.session);
  await page.waitForNote(/Nobody answered/);
  await page.shot('consent-withdrawn');
});
