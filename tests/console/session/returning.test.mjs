// The return to a session after the page was loaded again or its link was lost.
import assert from 'node:assert/strict';
import test from 'node:test';
import { administrator } from '../support/admin/api.mjs';
import { ConsolePage } from '../support/console_page.mjs';
import { fixture, openSession } from '../support/fixture.mjs';
import { KEEP_SENT, KEEP_SOCKETS } from '../support/page_scripts.mjs';
import { plain } from '../support/pictures.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();

/** @typedef {import('../support/console_page.mjs').ConsolePage} Page */
/** @typedef {import('../support/scripted_agent.mjs').ScriptedAgent} Agent */

/** Opens a session and forgets what its machine received for it. */
async function begun(/** @type {import('node:test').TestContext} */ t) {
  const { agent, page } = await openSession(t, shared, { page: { script: KEEP_SOCKETS } });
  page.page.on('dialog', (dialog) => dialog.accept()); // the question before the page is left
  const { session } = await agent.next(AgentMsg.StreamStart);
  await agent.next(AgentMsg.ThumbnailRequest);
  await until('the address names the session', () =>
    page.page.evaluate((number) => location.hash.startsWith(`#session=${number}&machine=`), session),
  );
  agent.inbox = [];
  return { agent, page, session };
}

/** Waits until the session is back, and checks that the machine was asked for neither a session nor a stream. */
async function isBack(/** @type {Page} */ page, /** @type {Agent} */ agent) {
  await agent.next(AgentMsg.ThumbnailRequest);
  await page.frames(1);
  await page.waitForNoNote();
  for (const type of [AgentMsg.SessionRequest, AgentMsg.SessionEnd, AgentMsg.StreamStart])
    assert.ok(!agent.has(type), `the machine received a message of type ${type}`);
}

const loseLink = (/** @type {Page} */ page) => page.page.evaluate(() => window.sockets.at(-1)?.close());

/** The message of the console with this content has reached the relay before the next answer to a ping. */
const choicesSent = (/** @type {Page} */ page, /** @type {RegExp} */ pattern) =>
  until(`the page sends choices like ${pattern}`, () =>
    page.page.evaluate((source) => window.sent.some((text) => new RegExp(source).test(text)), pattern.source),
  );

const watchSending = (/** @type {Page} */ page) =>
  page.page.evaluate(() => {
    window.sent = [];
    const socket = /** @type {WebSocket} */ (window.sockets.at(-1));
    const send = socket.send.bind(socket);
    socket.send = (data) => {
      if (typeof data === 'string') window.sent.push(data);
      send(data);
    };
  });

test('a page that is loaded again returns to its session, picture and choices', async (t) => {
  const { agent, page } = await begun(t);
  const { page: p } = page;
  await watchSending(page);
  await p.click('#panel-files-button');
  await p.locator('#picture-menu summary').click();
  await p.selectOption('#quality', 'hand');
  await agent.next(AgentMsg.StreamStart);
  await p.selectOption('#max-fps', '5');
  await agent.next(AgentMsg.StreamStart);
  await p.locator('#actual-size').check();
  await p.locator('#show-pointer').uncheck();
  await p.locator('#view-only').check();
  await choicesSent(page, /"viewOnly":true/);
  agent.frame(plain(640, 360, '#aa3322'));
  await page.frames(3);
  agent.inbox = [];
  await p.reload();
  await isBack(page, agent);
  const [pixel] = await page.pixels([{ x: 50, y: 50 }]);
  assert.ok(Math.abs(pixel[0] - 0xaa) < 8, `the last picture is shown: ${pixel}`);
  assert.equal(await p.locator('#session-name').innerText(), agent.name);
  assert.equal(await p.inputValue('#quality'), 'hand');
  assert.equal(await p.inputValue('#max-fps'), '5');
  assert.ok(await p.locator('#panel-files').isVisible());
  assert.ok(await p.locator('#actual-size').isChecked());
  assert.ok(!(await p.locator('#show-pointer').isChecked()));
  assert.ok(await p.locator('#view-only').isChecked());
  await page.shot('session-returned');
  await p.click('#session-end');
  await agent.next(AgentMsg.SessionEnd);
  assert.equal(await p.evaluate(() => location.hash), '');
});

test('a page that loses its link returns by itself, and keys that were down are released', async (t) => {
  const { agent, page } = await begun(t);
  await page.canvas.click();
  await page.page.keyboard.down('Shift');
  await until('the machine gets the key', () =>
    agent.inputs.some(([type, down]) => type === 4 && down === 1),
  );
  agent.inputs = [];
  await loseLink(page);
  const [release] = await agent.events(1);
  assert.deepEqual(release.slice(0, 3), [4, 0, 0xa0]);
  await isBack(page, agent);
  agent.frame(plain(640, 360, '#203040'));
  await page.frames(2);
});

test('a page that loses its link keeps what was chosen last, which the relay does not know yet', async (t) => {
  const { agent, page } = await openSession(t, shared, { page: { script: KEEP_SENT } });
  await agent.next(AgentMsg.ThumbnailRequest);
  await choicesSent(page, /"type":"choices"/);
  await page.page.evaluate(() => {
    const wait = window.setTimeout;
    // The page waits for so long before it sends the choices to the relay.
    const skip = (/** @type {TimerHandler} */ act, /** @type {number} */ ms) =>
      ms === 300 ? 0 : wait(act, ms);
    Object.assign(window, { setTimeout: skip });
  });
  await page.page.click('#panel-files-button');
  agent.inbox = [];
  await loseLink(page);
  await agent.next(AgentMsg.ThumbnailRequest);
  await page.waitForNoNote();
  assert.ok(await page.page.locator('#panel-files').isVisible());
});

test('the administrators’ list shows that a session is held, and that it goes on', async (t) => {
  const { agent, page, session } = await begun(t);
  const api = await administrator(shared.relay);
  const listed = (/** @type {string} */ state) =>
    until(`the session is listed as ${state}`, async () => {
      const { sessions } = await api.get('sessions');
      return sessions.find(({ session: number }) => number === session)?.state === state;
    });
  await listed('accepted');
  await page.page.goto('about:blank');
  await listed('held');
  await page.page.goBack();
  await isBack(page, agent);
  await listed('accepted');
});

test('a page that notices the end of its link before the relay does takes its session back', async (t) => {
  const { agent, page } = await begun(t);
  await page.page.evaluate(() => {
    const [old] = window.sockets;
    old.close = () => {};
    old.onclose?.(new CloseEvent('close'));
  });
  await isBack(page, agent);
});

test('a machine whose user is being asked is not asked again when the page is loaded again', async (t) => {
  const { agent, page } = await openSession(t, shared, { page: { script: KEEP_SOCKETS } });
  await page.page.click('#session-end');
  await agent.next(AgentMsg.SessionEnd);
  agent.consent = 'none';
  agent.inbox = [];
  page.page.on('dialog', (dialog) => dialog.accept());
  await page.ask(agent);
  const { session } = await agent.next(AgentMsg.SessionRequest);
  await page.page.locator('#session-note-time:not([hidden])').waitFor();
  await page.page.reload();
  await page.waitForNote(/Waiting for/);
  agent.accept(session);
  await agent.next(AgentMsg.StreamStart);
  assert.ok(!agent.has(AgentMsg.SessionRequest));
});

test('a session that continues in another window leaves the first, and can be brought back', async (t) => {
  const { agent, page } = await begun(t);
  const second = new ConsolePage(await page.page.context().newPage());
  await second.page.goto(page.page.url());
  await isBack(second, agent);
  await page.waitForNote(/continues in another window/);
  await page.shot('session-moved');
  agent.inbox = [];
  await page.page.getByRole('button', { name: 'Continue here' }).click();
  await isBack(page, agent);
  await second.waitForNote(/continues in another window/);
});

test('a session whose machine went away meanwhile is asked for again when the machine is back', async (t) => {
  const { agent, page, session } = await begun(t);
  agent.drop();
  await page.waitForNote(/has gone offline/);
  await page.page.locator('#session-note-time', { hasText: 'Waiting for' }).waitFor();
  await page.shot('machine-away-counted');
  await loseLink(page);
  await agent.connect();
  const request = await agent.next(AgentMsg.SessionRequest);
  assert.notEqual(request.session, session);
  await agent.next(AgentMsg.StreamStart);
  await page.waitForNoNote();
});

test('a session that is ended while the link is down ends at the machine too', async (t) => {
  const { agent, page, session } = await begun(t);
  await shared.relay.kill();
  await page.waitForNote(/link to the relay is down/);
  await shared.relay.start();
  await agent.connect();
  const request = await agent.next(AgentMsg.SessionRequest);
  assert.notEqual(request.session, session, 'a relay that was started again holds no session');
  await page.frames(2);
  await page.page.context().setOffline(true);
  await loseLink(page);
  await page.waitForNote(/link to the relay is down/);
  await page.page.click('#session-back');
  await page.page.context().setOffline(false);
  assert.equal((await agent.next(AgentMsg.SessionEnd)).session, request.session);
});
