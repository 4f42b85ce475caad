// The question before the page is left during a session.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, machineAndPage, openSession } from '../support/fixture.mjs';
import { plain } from '../support/pictures.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();

/**
 * Whether the page asks before it is left. Browsers pass this event to the page before they leave it.
 * @param {import('../support/console_page.mjs').ConsolePage} page
 */
const asks = (page) =>
  page.page.evaluate(() => !dispatchEvent(new Event('beforeunload', { cancelable: true })));

test('closing the page during a session asks first, and the session continues when the answer is no', async (t) => {
  const { agent, page } = await openSession(t, shared);
  /** @type {string[]} */
  const questions = [];
  page.page.on('dialog', (dialog) => {
    questions.push(dialog.type());
    dialog.dismiss();
  });
  await page.canvas.click(); // browsers do not ask on a page that was never used
  await page.page.close({ runBeforeUnload: true });
  await until('the browser asks', () => questions.length);
  assert.deepEqual(questions, ['beforeunload']);
  agent.frame(plain(640, 360, '#203040'));
  await page.frames(2);
});

test('the page is left without a question when no session is requested or open', async (t) => {
  const { agent, page } = await machineAndPage(t, shared, { agent: { consent: 'none' } });
  assert.equal(await asks(page), false);
  await page.ask(agent);
  const { session } = await agent.next(AgentMsg.SessionRequest);
  assert.equal(await asks(page), true);
  agent.accept(session);
  await agent.next(AgentMsg.StreamStart);
  assert.equal(await asks(page), true);
  agent.drop();
  await page.waitForNote(/gone offline/);
  assert.equal(await asks(page), true, 'an interrupted session continues later');
  await page.page.click('#session-end');
  await page.page.locator('#view-machines').waitFor();
  assert.equal(await asks(page), false);
});

test('a session that has ended does not keep the page', async (t) => {
  const { agent, page } = await machineAndPage(t, shared, { agent: { consent: 'decline' } });
  await page.ask(agent);
  await page.waitForNote(/declined/);
  assert.equal(await asks(page), false);
});
