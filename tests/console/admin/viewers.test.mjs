// Several representatives with one machine: who sees it, who controls it, and what they read about each other.
import assert from 'node:assert/strict';
import test from 'node:test';
import { assertAccessible } from '../access/findings.mjs';
import { Api, addGroup, addPerson, giveRights, trailRow } from '../support/admin/api.mjs';
import { ConsolePage } from '../support/console_page.mjs';
import { fixture, openSession } from '../support/fixture.mjs';
import { deliver, KEEP_SOCKETS } from '../support/page_scripts.mjs';
import { plain } from '../support/pictures.mjs';
import { USER } from '../support/relay.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();

/** @typedef {import('../support/console_page.mjs').ConsolePage} Page */
/** @typedef {import('../../../console/link/rights.js').Right} Right */

/** @type {Right[]} */
const ALL = ['see', 'control', 'clipboard', 'files-up', 'files-down', 'restart', 'forget'];

/** Opens another page that is logged in as a new person with these rights in the group of the machine. */
async function secondPerson(
  /** @type {import('node:test').TestContext} */ t,
  { group = 1, rights = ALL } = {},
) {
  const who = await addPerson(shared.relay);
  await giveRights(shared.relay, group, who.id, rights);
  const api = await Api.loggedIn(shared.relay, who);
  const page = await ConsolePage.opened(shared.browser, shared.relay, { storageState: api.browserState });
  t.after(() => page.close());
  return { page, who };
}

/** A session of the administrator, and a second person who watches it. */
async function twoPeople(/** @type {import('node:test').TestContext} */ t, options = {}) {
  const { agent, page: first } = await openSession(t, shared);
  const { page: second, who } = await secondPerson(t, options);
  await second.ask(agent);
  await second.frames(1);
  return { agent, first, second, who };
}

const strip = (/** @type {Page} */ page, /** @type {string | RegExp} */ text) =>
  page.page.locator('.strip').filter({ hasText: text });

/** Presses a key with the pointer on the picture. */
async function press(/** @type {Page} */ page, /** @type {string} */ key) {
  await page.canvas.click({ position: { x: 20, y: 20 } });
  await page.page.keyboard.press(key);
}

test('a second person watches, and both get the pictures that the machine sends once', async (t) => {
  const { agent, first, second, who } = await twoPeople(t);
  await strip(first, `${who.name}\u2069 watches too.`).waitFor();
  await strip(second, 'controls the machine, and you watch.').waitFor();
  const before = [await first.frameCount(), await second.frameCount()];
  agent.frame(plain(640, 360, '#22aa33'));
  await first.frames(before[0] + 1);
  await second.frames(before[1] + 1);
  for (const page of [first, second]) {
    const [pixel] = await page.pixels([{ x: 300, y: 200 }]);
    assert.ok(Math.abs(pixel[1] - 0xaa) < 8, `the picture: ${pixel}`);
  }
  await assertAccessible(second.page, 'session of somebody who watches');
  await second.shot('viewers-watching');
  await first.page.locator('#viewers-menu summary').click();
  await first.shot('viewers-menu');
  assert.equal(await first.page.locator('#viewers-list li').count(), 2);
});

test('who watches controls nothing and chooses nothing', async (t) => {
  const { agent, first, second } = await twoPeople(t);
  await strip(second, 'you watch').waitFor();
  await first.page.locator('#picture-menu summary').click();
  await first.page.selectOption('#quality', 'saving');
  await until(
    'the quality is shown to who watches',
    async () => (await second.page.inputValue('#quality')) === 'saving',
  );
  assert.ok(await second.page.locator('#keys-menu').isHidden());
  await second.page.locator('#picture-menu summary').click();
  for (const control of ['#quality', '#codec', '#show-pointer'])
    assert.ok(await second.page.locator(control).isDisabled(), control);
  await press(second, 'a');
  await second.page.locator('#view-only-badge').filter({ hasText: 'Another person controls' }).waitFor();
  assert.deepEqual(agent.inputs, []);
});

test('the control is asked for, refused, given and used', async (t) => {
  const { agent, first, second, who } = await twoPeople(t);
  await strip(second, 'you watch').getByRole('button', { name: 'Ask for control' }).click();
  await strip(first, 'asks for control').waitFor();
  await first.shot('viewers-asked');
  await strip(first, 'asks for control').getByRole('button', { name: 'Not now' }).click();
  await strip(second, 'was not given to you').waitFor();
  await first.page.locator('#viewers-menu summary').click();
  await first.page.getByRole('button', { name: `Give control to ${who.name}` }).click();
  await strip(second, 'You control the machine now.').waitFor();
  await strip(first, 'you watch').waitFor();
  await press(second, 'a');
  await agent.events(1);
  const row = await trailRow(shared.relay, 'session.taken-over', who.name);
  assert.equal(row.fields.from, USER);
});

test('a change of control that the relay refuses is explained', async (t) => {
  const { page } = await openSession(t, shared, { page: { script: KEEP_SOCKETS } });
  await deliver(page.page, { type: 'error', code: 'steering-changed-too-often', agent: 'x', message: 'x' });
  await strip(page, 'Control has changed too often.').waitFor();
});

test('an administrator takes the control', async (t) => {
  const { first, second } = await twoPeople(t);
  await strip(second, 'you watch').getByRole('button', { name: 'Ask for control' }).click();
  await strip(first, 'asks').getByRole('button', { name: 'Give control' }).click();
  await strip(second, 'You control the machine now.').waitFor();
  await strip(first, 'you watch').getByRole('button', { name: 'Take control' }).click();
  await strip(first, 'You control the machine now.').waitFor();
  await strip(second, 'you watch').waitFor();
});

test('the first leaves, the picture goes on, and the control is free', async (t) => {
  const { agent, first, second, who } = await twoPeople(t);
  await strip(second, 'you watch').waitFor();
  agent.inbox = [];
  await first.page.click('#session-end');
  await agent.next(AgentMsg.SessionEnd);
  await agent.next(AgentMsg.StreamStart);
  const before = await second.frameCount();
  agent.frame(plain(640, 360, '#2233aa'));
  await second.frames(before + 1);
  await strip(second, 'Nobody controls the machine').getByRole('button', { name: 'Take control' }).click();
  await strip(second, 'You control the machine now.').waitFor();
  await press(second, 'a');
  await agent.events(1);
  await first.row(agent).filter({ hasText: who.name }).waitFor();
});

test('the second leaves, and the first goes on', async (t) => {
  const { agent, first, second, who } = await twoPeople(t);
  await second.page.click('#session-end');
  await strip(first, `${who.name}\u2069 does not watch any more.`).waitFor();
  assert.ok(await first.page.locator('#viewers-menu').isHidden());
  const before = await first.frameCount();
  agent.frame(plain(640, 360, '#2233aa'));
  await first.frames(before + 1);
  await press(first, 'a');
  await agent.events(1);
});

test('a lost right to see ends the session of that person only', async (t) => {
  const { agent, first, second, who } = await twoPeople(t);
  await giveRights(shared.relay, 1, who.id, []);
  await second.waitForNote(/right|machine/);
  const before = await first.frameCount();
  agent.frame(plain(640, 360, '#2233aa'));
  await first.frames(before + 1);
});

test('a machine that asks for four eyes is controlled only while a second person watches', async (t) => {
  const group = await addGroup(shared.relay, { four_eyes: true });
  const { agent, page: first } = await openSession(t, shared, { group });
  await strip(first, 'Two people are needed').waitFor();
  await first.shot('four-eyes');
  await press(first, 'a');
  assert.deepEqual(agent.inputs, []);
  const { page: second } = await secondPerson(t, { group, rights: ['see'] });
  await second.ask(agent);
  await second.frames(1);
  await strip(first, 'Two people are needed').waitFor({ state: 'detached' });
  await press(first, 'a');
  await agent.events(1);
  await second.page.click('#session-end');
  await strip(first, 'Two people are needed').waitFor();
  const before = agent.inputs.length;
  await press(first, 'b');
  await until('the key has no effect', async () => agent.inputs.length === before);
});
