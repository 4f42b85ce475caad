// Restarting the machine from a session.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, openSession } from '../support/fixture.mjs';
import { shortTimer } from '../support/page_scripts.mjs';
import { plain } from '../support/pictures.mjs';
import { present } from '../support/present.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();
/** The time after which a machine that has not restarted counts as having refused the restart. */
const RESTART_DEADLINE_MS = 90_000;

/** The words about a restart beside the picture. */
const strip = (/** @type {import('../support/console_page.mjs').ConsolePage} */ page) =>
  page.page.locator('.strip[data-strip=restart]');

/**
 * A session in which the representative is asked to confirm a restart.
 * @param {import('node:test').TestContext} t
 * @param {import('../support/fixture.mjs').Options} [options]
 */
async function restartQuestion(t, options = {}) {
  const { agent, page } = await openSession(t, shared, options);
  await agent.next(AgentMsg.StreamStart);
  await page.page.click('#machine-menu summary');
  await page.page.click('#restart');
  assert.match(await page.page.locator('#restart-question').innerText(), /^Restart .*Ship/);
  return { agent, page };
}

test('a restart needs a confirmation and is shown until the machine is back', async (t) => {
  const { agent, page } = await restartQuestion(t);
  await page.shot('restart-question');
  await page.page.click('#restart-dialog button[value=restart]');
  assert.equal((await agent.next(AgentMsg.Reboot)).session, agent.session);
  await strip(page)
    .getByText(/was asked to restart/)
    .waitFor();
  agent.drop();
  await page.waitForNote(/is restarting/);
  assert.equal(await strip(page).count(), 0);
  await page.page
    .locator(`.machine[data-agent="${agent.id}"] .badge[data-state=restarting]`)
    .waitFor({ state: 'attached' });
  assert.match(await page.note(), /is restarting/);
  await page.shot('restarting');
  await agent.connect();
  await agent.next(AgentMsg.StreamStart);
  await page.waitForNoNote();
  await page.page
    .locator(`.machine[data-agent="${agent.id}"] .badge[data-state=session]`)
    .waitFor({ state: 'attached' });
});

test('while the machine closes its programs, its picture stays visible and usable', async (t) => {
  const { agent, page } = await restartQuestion(t);
  await page.page.click('#restart-dialog button[value=restart]');
  await agent.next(AgentMsg.Reboot);
  await strip(page).waitFor();
  assert.equal(await page.note(), '');
  assert.equal(await page.canvas.evaluate((canvas) => getComputedStyle(canvas).filter), 'none');
  const [words, picture] = [present(await strip(page).boundingBox()), await page.canvasBox()];
  assert.ok(words.y + words.height <= picture.y, 'the words are not over the picture');
  await page.shot('restart-requested');
  agent.frame(plain(640, 360, '#203040'));
  await page.frames(2);
  // The person or the representative answers the machine's question about programs that do not close.
  agent.inputs.length = 0;
  await page.canvas.click();
  await agent.events(4);
  await strip(page).getByRole('button', { name: 'Close' }).click();
  assert.equal(await strip(page).count(), 0);
  agent.drop();
  await page.waitForNote(/is restarting/);
});

test('the list of machines shows a restart to a representative who has left the session', async (t) => {
  const { agent, page } = await restartQuestion(t);
  await page.page.click('#restart-dialog button[value=restart]');
  await agent.next(AgentMsg.Reboot);
  await page.page.click('#session-end');
  // The machine is online for a moment before it shuts down.
  await page.row(agent).locator('.badge[data-state=online]').waitFor();
  agent.drop();
  await until('the restart is shown', async () => /Restarting/.test(await page.row(agent).innerText()));
  await page.shot('machines-restarting');
  await agent.connect();
  await page.row(agent).locator('.badge[data-state=online]').waitFor();
});

test('a restart that is not confirmed does nothing', async (t) => {
  const { agent, page } = await restartQuestion(t);
  await page.page.click('#restart-dialog button[value=cancel]');
  await page.page.click('#machine-menu summary');
  await page.page.click('#restart');
  await page.page.keyboard.press('Escape');
  await page.page.click('#machine-menu summary');
  await page.page.click('#attention');
  await agent.next(AgentMsg.SecureAttention);
  assert.ok(!agent.inbox.some(({ type }) => type === AgentMsg.Reboot));
  assert.equal(await page.note(), '');
});

test('a machine that does not restart is reported, and the session continues', async (t) => {
  const script = shortTimer(RESTART_DEADLINE_MS);
  const { agent, page } = await restartQuestion(t, { page: { script } });
  await page.page.click('#restart-dialog button[value=restart]');
  await agent.next(AgentMsg.Reboot);
  await strip(page)
    .getByText(/has not restarted/)
    .waitFor();
  agent.frame(plain(640, 360, '#203040'));
  await page.frames(2);
  assert.equal(await page.note(), '');
  assert.equal(await strip(page).count(), 1);
  await page.canvas.click();
  await agent.events(4);
});
