// The end of a session, and sessions that are interrupted and continue.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, openSession } from '../support/fixture.mjs';
import { plain } from '../support/pictures.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();

/** @param {number[]} seen @param {number[]} wanted */
const near = (seen, wanted, levels = 6) => seen.every((value, i) => Math.abs(value - wanted[i]) <= levels);

test('the last picture stays while the relay is down, and the session continues afterwards', async (t) => {
  const { agent, page } = await openSession(t, shared);
  const first = (await agent.next(AgentMsg.StreamStart)).session;
  await shared.relay.kill();
  await page.waitForNote(/link to the relay is down/);
  assert.match(await page.canvas.evaluate((canvas) => getComputedStyle(canvas).filter), /grayscale/);
  assert.ok(await page.canvas.isVisible());
  await page.shot('link-down');
  await shared.relay.start();
  await until('the machine is back', () => agent.connect().then(() => true));
  const { session: second } = await agent.next(AgentMsg.StreamStart);
  assert.notEqual(second, first);
  await page.waitForNoNote();
});

test('a session continues by itself when the machine is online again', async (t) => {
  const { agent, page } = await openSession(t, shared);
  await agent.next(AgentMsg.StreamStart);
  agent.drop();
  await page.waitForNote(/has gone offline/);
  await page.shot('machine-away');
  await agent.connect();
  await agent.next(AgentMsg.StreamStart);
  await page.waitForNoNote();
});

test('the end of a session is sent to the machine, and the next session begins without a picture', async (t) => {
  const { agent, page } = await openSession(t, shared);
  const { session: number } = await agent.next(AgentMsg.StreamStart);
  await page.page.click('#session-end');
  assert.equal((await agent.next(AgentMsg.SessionEnd)).session, number);
  await page.page.locator('#view-machines').waitFor();
  agent.onStream = () => {};
  agent.frame(plain(640, 360, '#ff0000')); // sent just before the session ended
  await page.row(agent).locator('.badge[data-state=online]').waitFor();
  await page.ask(agent);
  await page.waitForNote(/first picture/);
  assert.equal(await page.canvas.getAttribute('data-frames'), '0');
  assert.ok(await page.canvas.isHidden());
  await page.shot('session-starting');
});

test('messages of another session are ignored', async (t) => {
  const { agent, page } = await openSession(t, shared);
  const own = agent.session;
  agent.session = own + 1;
  agent.frame(plain(100, 100, '#ff0000'));
  agent.session = own;
  agent.frame(plain(640, 360, '#0000ff'));
  await page.frames(2);
  const [pixel] = await page.pixels([{ x: 50, y: 50 }]);
  assert.ok(near(pixel, [0, 0, 255]), `${pixel}`);
  assert.equal(await page.canvas.getAttribute('data-frames'), '2');
});
